#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/job_fixture.h"

namespace skyreel::test {

/// A file that a subject asks for.
struct TStageFile {
  std::string Remote;                ///< path at the server
  std::string Local;                 ///< below the output folder
  std::vector<std::string> OkLines;  ///< what the user reads when it came whole
  std::string Shown;                 ///< its name in such lines
};

/// What is expected of the file that a fault hit. Placeholders: NAME, ALL (its bytes), HALF of them.
struct TOutcome {
  std::string Sees;  ///< status lines, or the text of a primitive's exception; joined by "; "
  std::string Disk;  ///< "nothing", "whole", "short", "short, noted", "the older file" or "another content"
};

/// A subject set up for one fault: files that it asks for in order, one of which is hit.
class TStage : public TJobFixture {
 public:
  explicit TStage(std::size_t size);
  ~TStage();

  std::string Body(std::size_t file) const { return Picture(size_, file == Hit ? 'h' : 'o'); }
  const TStageFile& HitFile() const { return Files[Hit]; }
  std::size_t Size() const { return size_; }
  /// Lets the subject work, with this time-out in milliseconds while the file that is hit is fetched, and a
  /// watchdog that fires after `watchdog` milliseconds (0: never). It gives up and fails after 30 seconds.
  TOutcome Play(int time_out, int watchdog);
  /// "yes" when all other files are there, whole, and with their own lines alone.
  const std::string& GoesOn() const { return goes_on_; }
  /// To be called by primitives before each file.
  void Begin(std::size_t file);

  std::vector<TStageFile> Files;
  std::size_t Hit = 1;
  std::function<std::string()> Work;          ///< returns what a primitive said of the file that is hit
  std::map<std::string, std::string> Memory;  ///< what primitives that save no file brought, by Local
  bool Ledgered = true;                       ///< the subject keeps the transfer ledger
  std::string Login = "USER user";            ///< what an FTP session begins with

 private:
  void Tune();
  std::string Disk() const;
  std::string Common(std::string text) const;

  const std::size_t size_;
  std::size_t current_ = 0;
  int time_out_ = 0;
  std::string goes_on_;
};

/// What answers alike.
enum class TFamily { Client, Memory, Stream, Fetch, Save, Older, Chart, Pdus, Ftp, FtpFetch, FtpSource };

/// A primitive or a source.
struct TSubject {
  const char* Name;
  TFamily Family;
  std::size_t Size;  ///< of a whole file
  void (*Prepare)(TStage& stage);
};

const std::vector<TSubject>& HttpSubjects();
const std::vector<TSubject>& FtpSubjects();

/// Serves all files of an HTTP subject whole.
void ServeHttp(TStage& stage);

/// Asserts the outcome, that the run went on and that all is at rest, and writes the row of the page.
void Judge(const std::string& section, const std::string& fault, const TSubject& subject, TStage& stage,
           const TOutcome& seen, const TOutcome& expected);

}  // namespace skyreel::test
