#pragma once

#include <cstdint>

namespace skyreel {

/// A priority class of the operating system; 0 for none.
using TPriorityClass = std::uint32_t;

/// Asks for the process's priority class and, when there is one, lets the process run when nothing else wants
/// to. Returns the class before, or 0 when nothing was changed: always so where the system has no such
/// classes.
TPriorityClass LowerPriority();
/// Sets the class that LowerPriority returned; 0 changes nothing.
void RestorePriority(TPriorityClass saved);

}  // namespace skyreel
