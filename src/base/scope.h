#pragma once

#include <utility>

namespace skyreel {

/// Runs an action when the scope ends, however it ends. The action must not throw.
template <typename TAction>
class [[nodiscard]] TAtScopeEnd {
 public:
  explicit TAtScopeEnd(TAction action) : action_(std::move(action)) {}
  ~TAtScopeEnd() { action_(); }
  TAtScopeEnd(const TAtScopeEnd&) = delete;
  TAtScopeEnd& operator=(const TAtScopeEnd&) = delete;

 private:
  TAction action_;
};

/// Gives a variable another value until the scope ends, then the earlier one again.
template <typename TValue>
class [[nodiscard]] TScopedValue {
 public:
  template <typename TNew>
  TScopedValue(TValue& variable, TNew&& value)
      : variable_(variable), before_(std::exchange(variable, std::forward<TNew>(value))) {}
  ~TScopedValue() { variable_ = std::move(before_); }
  TScopedValue(const TScopedValue&) = delete;
  TScopedValue& operator=(const TScopedValue&) = delete;

 private:
  TValue& variable_;
  TValue before_;
};

}  // namespace skyreel
