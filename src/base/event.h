#pragma once

#include <functional>
#include <utility>

namespace skyreel {

/// Lets the user interface process its pending events; called inside every wait. May run anything.
using TEventHook = std::function<void()>;

/// Calls `event` if it is assigned. The handler is copied first, so that one that replaces or clears the
/// event (or frees its owner's other handlers) while it runs stays alive to its end.
template <typename... Params, typename... Args>
void Fire(const std::function<void(Params...)>& event, Args&&... args) {
  if (!event) return;
  const std::function<void(Params...)> handler = event;
  handler(std::forward<Args>(args)...);
}

}  // namespace skyreel
