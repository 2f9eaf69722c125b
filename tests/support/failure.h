#pragma once

#include <exception>
#include <functional>
#include <string>

namespace skyreel::test {

/// The message of the TException that `action` throws; "" when it throws nothing. Others pass on.
template <typename TException = std::exception>
std::string Failure(const std::function<void()>& action) {
  try {
    action();
  } catch (const TException& error) {
    return error.what();
  }
  return "";
}

}  // namespace skyreel::test
