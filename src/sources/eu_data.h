#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "sources/job_context.h"
#include "sources/offer.h"

namespace skyreel {

class TFtpSession;
class TWantedNames;

inline constexpr TServerSetting kEuDataServer{"ServerEuDA", "EUMETSAT data (FTP)", "data.eumetsat.example",
                                              true};

/// What the "Archive Direct" tab asks for. Index 0 is Meteosat 5, index 1 Meteosat 7.
struct TEuDataSettings {
  std::string OutputPath;  ///< with its trailing separator
  std::string UserName;
  std::string Password;
  bool Passive = false;
  bool UseWinInet = false;
  bool Uncompress = false;
  std::array<bool, 2> Satellites{};   ///< ticked or not
  std::vector<std::string> Channels;  ///< ticked items
  std::vector<std::string> Formats;   ///< ticked items
  std::array<int, 2> StartSlot{};     ///< index in EuDataSlotItems()
  std::array<int, 2> Interval{};      ///< index in EuDataIntervalItems()
};

const std::vector<std::string>& EuDataSatelliteItems();
const std::vector<std::string>& EuDataChannelItems();
const std::vector<std::string>& EuDataFormatItems();
/// The 48 slot names "0030" to "2400".
const std::vector<std::string>& EuDataSlotItems();
const std::vector<std::string>& EuDataIntervalItems();

/// The wanted slot names for a start slot and an interval: every so many slots, round the clock. Both are
/// item indexes; a start slot beyond the list wraps round, an interval beyond it counts as the first item.
std::vector<std::string> EuDataWantedSlots(int start_slot, int interval);

/// A half-hour image slot. Midnight is the slot "2400" of the day before.
struct TEuDataSlot {
  TDateTime Time;
  std::string Name;      ///< "0030" to "2400"
  std::string DatePart;  ///< "2003-02-01_1230"
  TDateTime Day;         ///< a time on the day in whose folder it is filed
};
TEuDataSlot EuDataSlotAt(TDateTime time);

/// The slots that a run visits, oldest first, the newest a day old: 48 a day and four more.
std::vector<TEuDataSlot> EuDataSlots(TDateTime now, int back_days);

/// "FES_2003-02-01_1230_M7_IR.OPEN_MTP.bz2"
std::string EuDataFileName(const TEuDataSlot& slot, int satellite, std::string_view channel,
                           std::string_view format);
/// Where the server keeps a file. kept: a name that is too short gives a shorter or empty folder.
std::string EuDataRemotePath(const std::string& name);

/// The server's files of one day.
std::vector<TOffer> EuDataOffers(TDateTime day);

/// Fetches Meteosat image files by computed names over FTP.
class TEuDataJob {
 public:
  TEuDataJob(TJobContext& context, TEuDataSettings settings);
  /// Runs to the end or until a stop is requested. Never throws for a file that fails.
  void Run();

 private:
  void GetSatellite(int satellite, TFtpSession& session, const TWantedNames& known);

  TJobContext& context_;
  const TEuDataSettings settings_;
};

}  // namespace skyreel
