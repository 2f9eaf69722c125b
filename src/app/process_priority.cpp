#include "app/process_priority.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace skyreel {

#ifdef _WIN32

TPriorityClass LowerPriority() {
  // kept: a process number instead of a handle. The query usually fails, and nothing changes.
  const auto id = reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(GetCurrentProcessId()));
  const TPriorityClass saved = GetPriorityClass(id);
  if (saved != 0) SetPriorityClass(GetCurrentProcess(), IDLE_PRIORITY_CLASS);
  return saved;
}

void RestorePriority(TPriorityClass saved) {
  if (saved != 0) SetPriorityClass(GetCurrentProcess(), saved);
}

#else

TPriorityClass LowerPriority() {
  return 0;
}
void RestorePriority(TPriorityClass) {}

#endif

}  // namespace skyreel
