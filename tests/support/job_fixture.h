#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "net/nm_ftp.h"
#include "net/nm_http.h"
#include "sources/job_context.h"
#include "support/fakes.h"
#include "support/scripted_server.h"
#include "support/temp_folder.h"
#include "transfer/transfer_ledger.h"

namespace skyreel::test {

/// All that a job or a transfer primitive works with: the real network clients against an HTTP server of
/// this process, a clock that stands still, a display that keeps what was shown, an output folder and a
/// program's folder that go away with the test. Every HTTP server root leads to Server; time-out 20 s.
class TJobFixture {
 public:
  explicit TJobFixture(TDateTime now = TDateTime::FromDate(2005, 11, 10, 12, 0));

  /// The output folder as jobs get it: with a trailing separator. It exists.
  std::string OutputPath() const;
  /// Every file below the output folder ('/' as separator) with its size.
  std::map<std::string, std::int64_t> Tree() const;
  /// The names alone.
  std::vector<std::string> Files() const;
  /// A file below the output folder, parents included.
  std::filesystem::path WriteOutput(const std::string& relative, const std::string& content) const;
  std::filesystem::path Output(const std::string& relative) const;
  /// What must hold after every run, however it went: bar, label, title, panels and cursor at rest, watchdog
  /// stopped, as often as it was started. "" or what is wrong.
  std::string AtRest() const;

  THttpServer Server;
  TTempFolder Folder;
  TFakeClock Clock;
  TRecordingDisplay Display;
  TFakeRun Run;
  std::function<void()> OnTurn;  ///< called in each turn of a client's wait, as the window's events are
  TNMFTP NMFTP{[this] { Turn(); }};
  TNMHTTP NMHTTP{[this] { Turn(); }};
  TNMHTTP NMHTTPNotts{[this] { Turn(); }};
  TTransferLedger Ledger;
  TJobContext Context;

 private:
  void Turn() const {
    if (OnTurn) OnTurn();
  }
};

/// `size` bytes that look like no page.
std::string Picture(std::size_t size, char fill = 'x');

}  // namespace skyreel::test
