#pragma once

#include "demo/archive.h"
#include "demo/tcp_server.h"

namespace skyreel::demo {

/// Serves one FTP session: USER, PASS, TYPE, PASV, PORT, RETR, NLST, CWD, PWD, SIZE, ABOR, NOOP, QUIT. Logs
/// in the demo user and anonymous ones.
void ServeFtp(TDemoArchive& archive, TConnection& client);

}  // namespace skyreel::demo
