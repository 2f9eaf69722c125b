#pragma once

#include <functional>
#include <utility>

namespace skyreel {

/// Lets the user interface process its pending events. Every wait calls it; it may run anything.
using TEventHook = std::function<void()>;

/// Calls `event` if it is assigned. It calls a copy, so a handler may replace or clear the event that it
/// handles.
template <typename... Params, typename... Args>
void Fire(const std::function<void(Params...)>& event, Args&&... args) {
  if (!event) return;
  const std::function<void(Params...)> handler = event;
  handler(std::forward<Args>(args)...);
}

}  // namespace skyreel
