#include "net/resolver.h"

#include <netdb.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <thread>
#include <utility>

#include "base/descriptor.h"
#include "base/exceptions.h"

namespace skyreel {

/// The waiting side and the thread share this.
struct THostLookup::TState {
  TDescriptor Event{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  std::atomic<bool> Done{false};
  // Written by the thread before Done, read by the waiting side after it.
  int Error = EAI_FAIL;
  in_addr Address{};
};

int LookUpHost(const std::string& host, in_addr& address) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int error = ::getaddrinfo(host.c_str(), nullptr, &hints, &found);
  if (error != 0) return error;
  address = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr;
  ::freeaddrinfo(found);
  return 0;
}

THostLookup::THostLookup(std::string host, TLookupFunction look_up) : state_(std::make_shared<TState>()) {
  if (!state_->Event.IsOpen()) ThrowErrno("eventfd");
  // The new thread must not handle the program's signals.
  sigset_t all, before;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    std::thread([state = state_, host = std::move(host), look_up = std::move(look_up)] {
      state->Error = look_up(host, state->Address);
      state->Done.store(true, std::memory_order_release);
      const std::uint64_t one = 1;
      [[maybe_unused]] const ssize_t written = ::write(state->Event.Get(), &one, sizeof one);
    }).detach();
  } catch (...) {
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    throw;
  }
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

int THostLookup::Descriptor() const {
  return state_->Event.Get();
}
bool THostLookup::IsDone() const {
  return state_->Done.load(std::memory_order_acquire);
}
// IsDone also makes the thread's results visible here.
int THostLookup::Error() const {
  return IsDone() ? state_->Error : EAI_AGAIN;
}
in_addr THostLookup::Address() const {
  return IsDone() ? state_->Address : in_addr{};
}

}  // namespace skyreel
