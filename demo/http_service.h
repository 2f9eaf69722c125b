#pragma once

#include "demo/archive.h"
#include "demo/tcp_server.h"

namespace skyreel::demo {

/// The user name and the password that the archive's protected pages and its FTP accounts take.
inline constexpr const char* kDemoUser = "demo";
inline constexpr const char* kDemoPassword = "demo";

/// Answers one HTTP/1.0 or 1.1 request (GET or HEAD, also as a proxy is asked) and closes the connection.
void ServeHttp(TDemoArchive& archive, TConnection& client);

}  // namespace skyreel::demo
