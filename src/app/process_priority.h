#pragma once

#include <cstdint>

namespace skyreel {

/// A priority class of the operating system; 0 for none.
using TPriorityClass = std::uint32_t;

/// Lets the process run only when no other wants to, if it has a priority class. Returns its class from
/// before; 0 if nothing changed, as on every system without such classes.
TPriorityClass LowerPriority();
/// Sets the class that LowerPriority returned; 0 changes nothing.
void RestorePriority(TPriorityClass saved);

}  // namespace skyreel
