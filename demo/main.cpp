// The demo archive: serves made-up satellite pictures over HTTP, HTTPS and FTP on 127.0.0.1, under the paths
// that Skyreel's sources ask for.

#include <signal.h>

#include <filesystem>
#include <iostream>
#include <vector>

#include "base/clock.h"
#include "base/exceptions.h"
#include "base/files.h"
#include "base/scope.h"
#include "base/text.h"
#include "demo/archive.h"
#include "demo/ftp_service.h"
#include "demo/http_service.h"
#include "demo/live_archive.h"
#include "demo/tcp_server.h"
#include "demo/tls.h"

namespace {

using namespace skyreel;
using namespace skyreel::demo;

constexpr const char* kHelp =
    "skyreel-demo-archive [--now \"yyyy-mm-dd hh:nn\"] [--http-port N] [--https-port N] [--ftp-port N]\n"
    "                     [--ca-file FILE] [--sources FOLDER]\n"
    "    Serves the archive on 127.0.0.1 until SIGTERM or SIGINT. Port 0, the default, is any free one.\n"
    "    Prints http_port=N, https_port=N, ca_file=FILE and ftp_port=N, a line each, once all are open.\n"
    "    HTTPS serves what the descriptions in the folder of --sources ask for (default: demo/sources). A\n"
    "    certificate authority made at the start vouches for their hosts; its certificate is in ca_file\n"
    "    (default: a file in the temporary folder, deleted at the end).\n"
    "skyreel-demo-archive [--now TIME] --export FOLDER PATH...\n"
    "    Writes the files of these server paths below FOLDER, with their modification times and without the\n"
    "    query in their names. Ends with 1 when a path has no file.\n"
    "Pages behind a login take user name \"demo\" and password \"demo\"; FTP takes \"anonymous\" too.\n"
    "TIME is the archive's time, UTC; the default is the clock's.\n";

/// What the command line asks for.
struct TOptions {
  TDateTime Now;  ///< zero: the clock's
  int HttpPort = 0;
  int HttpsPort = 0;
  int FtpPort = 0;
  std::filesystem::path CaFile, Sources = SKYREEL_DEMO_SOURCES;
  std::string ExportFolder;
  std::vector<std::string> ExportPaths;
  bool Help = false;
};

/// From "2005-11-10 12:00". Throws EConvertError.
TDateTime TimeFromText(const std::string& text) {
  if (text.size() != 16) throw EConvertError("a time is written \"yyyy-mm-dd hh:nn\"");
  const auto number = [&](std::size_t at, std::size_t size) {
    return ToInteger(std::string_view(text).substr(at, size));
  };
  return TDateTime::FromDate(number(0, 4), number(5, 2), number(8, 2), number(11, 2), number(14, 2));
}

TOptions ParseOptions(const std::vector<std::string>& arguments) {
  TOptions options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& name = arguments[i];
    if (name == "--help") {
      options.Help = true;
    } else if (!options.ExportFolder.empty() && !name.starts_with("--")) {
      options.ExportPaths.push_back(name);
    } else if (i + 1 == arguments.size()) {
      throw EConvertError("unknown option or missing value: " + name);
    } else if (name == "--now") {
      options.Now = TimeFromText(arguments[++i]);
    } else if (name == "--http-port") {
      options.HttpPort = ToInteger(arguments[++i]);
    } else if (name == "--https-port") {
      options.HttpsPort = ToInteger(arguments[++i]);
    } else if (name == "--ca-file") {
      options.CaFile = arguments[++i];
    } else if (name == "--sources") {
      options.Sources = arguments[++i];
    } else if (name == "--ftp-port") {
      options.FtpPort = ToInteger(arguments[++i]);
    } else if (name == "--export") {
      options.ExportFolder = arguments[++i];
    } else {
      throw EConvertError("unknown option: " + name);
    }
  }
  return options;
}

int Export(TDemoArchive& archive, const TOptions& options) {
  for (const std::string& path : options.ExportPaths) {
    const auto file = archive.Find(path);
    if (!file) {
      std::cerr << "there is no " << path << "\n";
      return 1;
    }
    const std::filesystem::path local = options.ExportFolder + "/" + path.substr(0, path.find('?'));
    ForceDirectories(local.parent_path());
    WriteFileWhole(local, *file->Content);
    SetFileDateTime(local, file->Modified);
  }
  return 0;
}

int Serve(TDemoArchive& archive, TLiveArchive& live, const TOptions& options) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  // Blocked before any thread starts, so that the signal waits for sigwait.
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  const TTcpServer http(options.HttpPort, [&](TConnection& client) { ServeHttp(archive, client); });
  const TTcpServer ftp(options.FtpPort, [&](TConnection& client) { ServeFtp(archive, client); });
  const TTlsIdentity identity(live.Hosts());
  const TTcpServer https(options.HttpsPort, [&](TConnection& client) {
    TTlsConnection secure(identity, client);
    ServeHttp([&](const std::string& host, const std::string& path) { return live.Find(host, path); },
              secure);
  });
  const bool temporary = options.CaFile.empty();
  const std::filesystem::path ca_file = temporary
                                            ? std::filesystem::temp_directory_path() /
                                                  ("skyreel-demo-ca-" + std::to_string(https.Port()) + ".pem")
                                            : std::filesystem::absolute(options.CaFile);
  WriteFileWhole(ca_file, identity.Authority());
  const TAtScopeEnd remove([&] {
    std::error_code ignored;
    if (temporary) std::filesystem::remove(ca_file, ignored);
  });
  // Scripts wait for the last line.
  std::cout << "http_port=" << http.Port() << "\nhttps_port=" << https.Port()
            << "\nca_file=" << ca_file.string() << "\nftp_port=" << ftp.Port() << std::endl;
  int signal = 0;
  sigwait(&signals, &signal);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const TOptions options = ParseOptions({argv + 1, argv + argc});
    if (options.Help) {
      std::cout << kHelp;
      return 0;
    }
    const TSystemClock clock({});
    const auto now = [&] { return options.Now.IsZero() ? clock.UtcNow() : options.Now; };
    TDemoArchive archive(now);
    if (!options.ExportFolder.empty()) return Export(archive, options);
    TLiveArchive live(now, options.Sources);
    return Serve(archive, live, options);
  } catch (const std::exception& error) {
    std::cerr << "skyreel-demo-archive: " << error.what() << "\n";
    return 2;
  }
}
