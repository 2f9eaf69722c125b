#pragma once

#include <functional>
#include <optional>
#include <string>

#include "demo/archive.h"
#include "demo/tcp_server.h"

namespace skyreel::demo {

/// The user name and the password that the archive's protected pages and its FTP accounts take.
inline constexpr const char* kDemoUser = "demo";
inline constexpr const char* kDemoPassword = "demo";

/// Finds the file at a host's path, with its query.
using TFindFile = std::function<std::optional<TServedFile>(const std::string& host, const std::string& path)>;

/// Answers one HTTP/1.0 or 1.1 request (GET or HEAD, also as a proxy is asked) and closes the connection.
/// Gives each file an ETag, and answers a conditional request for a file that has not changed with 304.
void ServeHttp(const TFindFile& find, TConnection& client);
/// The same for an archive whose files are under every host name.
void ServeHttp(TDemoArchive& archive, TConnection& client);

}  // namespace skyreel::demo
