#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "sources/job_context.h"
#include "sources/offer.h"

namespace skyreel {

inline constexpr TServerSetting kMsfcServer{"ServerMSFC", "MSFC data (FTP)", "ghrc.msfc.nasa.gov", true};

inline constexpr const char* kAnonymousPassword = "skyreel@quenmoor.example";

/// What the "MSFC" tab asks for.
struct TMsfcSettings {
  std::string OutputPath;  ///< with its trailing separator
  bool Passive = false;
  bool UseWinInet = false;
  bool Uncompress = false;
  std::vector<std::string> Channels;  ///< ticked items
  std::vector<std::string> Slots;     ///< ticked items
};

const std::vector<std::string>& MsfcChannelItems();
const std::vector<std::string>& MsfcSlotItems();

/// One image to fetch.
struct TMsfcFile {
  TDateTime Time;
  std::string Name;     ///< "ME7-200302011200.ir1.ara.Z"
  std::string Channel;  ///< the item that asks for it
};

/// The files of the last `back_days` days in the order in which they are visited: the oldest day first, then
/// by slot and channel.
std::vector<TMsfcFile> MsfcFiles(const TMsfcSettings& settings, TDateTime today, int back_days);
/// Where the server keeps a file. kept: a name that is too short gives a shorter or empty folder.
std::string MsfcRemotePath(const std::string& name);
/// Whether the server has it: from an hour after its time on.
bool IsMsfcFileOut(const TMsfcFile& file, TDateTime now);

/// The server's images of one day.
std::vector<TOffer> MsfcOffers(TDateTime day);

/// Fetches Meteosat 7 images in McIDAS AREA format over anonymous FTP.
class TMsfcJob {
 public:
  TMsfcJob(TJobContext& context, TMsfcSettings settings);
  /// Runs to the end or until a stop is requested. Never throws for a file that fails.
  void Run();

 private:
  TJobContext& context_;
  const TMsfcSettings settings_;
};

}  // namespace skyreel
