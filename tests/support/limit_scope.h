#pragma once

#include <sys/resource.h>

#include <csignal>

namespace skyreel::test {

/// Lowers one of this process's limits until the scope ends. RLIMIT_NOFILE: no descriptor beyond it.
/// RLIMIT_FSIZE: a write beyond it fails in its middle, as on a full disk.
class TLimitScope {
 public:
  TLimitScope(__rlimit_resource_t resource, rlim_t limit) : resource_(resource) {
    std::signal(SIGXFSZ, SIG_IGN);
    ::getrlimit(resource_, &before_);
    const rlimit lower{limit, before_.rlim_max};
    ::setrlimit(resource_, &lower);
  }
  ~TLimitScope() { ::setrlimit(resource_, &before_); }
  TLimitScope(TLimitScope&&) = delete;

 private:
  __rlimit_resource_t resource_;
  rlimit before_{};
};

}  // namespace skyreel::test
