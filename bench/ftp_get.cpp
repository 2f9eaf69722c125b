// ftp_get host:port active|passive folder name...
// Downloads the named files over one anonymous session into the folder with the FTP client alone.

#include <cstdio>
#include <exception>
#include <filesystem>

#include "net/ftp_parse.h"
#include "net/nm_ftp.h"

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fprintf(stderr, "usage: %s host:port active|passive folder name...\n", argv[0]);
    return 2;
  }
  try {
    skyreel::TNMFTP ftp;
    const skyreel::TFtpAddress address = skyreel::ParseFtpAddress(argv[1]);
    ftp.Host = address.Host;
    ftp.Port = address.Port;
    ftp.UserID = "anonymous";
    ftp.Password = "bench@example.org";
    ftp.Passive = std::string(argv[2]) == "passive";
    ftp.TimeOut = 60'000;
    ftp.Connect();
    ftp.SetTransferType(2);
    for (int n = 4; n < argc; ++n) {
      ftp.RetrieveFile(argv[n], (std::filesystem::path(argv[3]) / argv[n]).string());
      if (!ftp.LastTransfer.Whole) throw std::runtime_error(std::string(argv[n]) + " is not whole");
    }
    ftp.Disconnect();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  return 0;
}
