#pragma once

#include <netinet/in.h>

#include <functional>
#include <memory>
#include <string>

namespace skyreel {

/// Finds the first IPv4 address of a host name. Returns 0, or the EAI_... code of the failure. It runs on its
/// own thread and may block.
using TLookupFunction = std::function<int(const std::string& host, in_addr& address)>;

/// The system's resolver (getaddrinfo, IPv4 only).
int LookUpHost(const std::string& host, in_addr& address);

/// One running lookup. Destroying it abandons the lookup: its thread finishes by itself, delays nothing, not
/// even the end of the program, and uses only its own memory.
class THostLookup {
 public:
  /// Starts looking up `host`. Throws std::system_error when the system has no thread or descriptor left.
  explicit THostLookup(std::string host, TLookupFunction look_up = LookUpHost);

  /// Becomes readable when the lookup is done.
  int Descriptor() const;
  bool IsDone() const;
  /// 0, or the EAI_... code of the failure; EAI_AGAIN while not done.
  int Error() const;
  /// The address, in network byte order; 0 unless done without an error.
  in_addr Address() const;

 private:
  struct TState;
  std::shared_ptr<TState> state_;
};

}  // namespace skyreel
