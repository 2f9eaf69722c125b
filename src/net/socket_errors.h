#pragma once

#include <string>

namespace skyreel {

/// Socket error numbers that the operations check. All numbers are those of the table in socket_errors.cpp,
/// not the system's.
inline constexpr int kErrorWouldBlock = 10035;
inline constexpr int kErrorNotConnected = 10057;

/// The socket error number of an errno value. An errno outside the table gives 20000 + errno, so it is
/// never mistaken for a harmless one.
int SocketErrorFromErrno(int error);
/// The socket error number (11001 to 11004) of a failed lookup's EAI_... code.
int SocketErrorFromLookup(int eai_error);

/// The decimal number, ":" and the text ("10061:Connection refused"), "" for 0, or "Unknown Error No. "
/// followed by the number.
std::string SocketErrorMessage(int number);

}  // namespace skyreel
