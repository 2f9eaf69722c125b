#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/job_fixture.h"
#include "transfer/ftp_fetch.h"

namespace skyreel::test {

/// A file that a subject asks for.
struct TStageFile {
  std::string Remote;                ///< path at the server
  std::string Local;                 ///< below the output folder
  std::string Shown;                 ///< its name in status lines
  std::vector<std::string> OkLines;  ///< what the user reads when it came whole
};

/// What became of the file that a fault hit. NAME and FILE stand for its name and path, ALL for its bytes.
struct TOutcome {
  std::string Sees;  ///< status lines and what a primitive said, joined by "; "
  std::string
      Disk;  ///< "nothing", "whole", "short", "the older file" or "other bytes"; ", noted" in the ledger
};

/// A subject set up for one fault: files that it asks for in order, one of which is hit.
class TStage : public TJobFixture {
 public:
  explicit TStage(std::size_t size);
  ~TStage();

  void Add(std::string remote, std::string local, std::string shown, std::vector<std::string> ok_lines);
  const TStageFile& HitFile() const { return Files[Hit]; }
  std::string Body(std::size_t file) const;
  /// Lets the subject work, with this time-out in milliseconds while the file that is hit is fetched, and a
  /// watchdog that fires after `watchdog` milliseconds of that (0: never). After 30 seconds it fails.
  TOutcome Play(int time_out = 20'000, int watchdog = 0);
  /// "yes" when all other files are there, whole, and with their own lines; "-" when there are none.
  const std::string& GoesOn() const { return goes_on_; }
  /// To be called by primitives before each file.
  void Begin(std::size_t file);

  std::size_t Size;  ///< of a whole file
  std::vector<TStageFile> Files;
  std::size_t Hit = 1;
  std::size_t Times = 1;  ///< how much larger than the others the file that is hit is
  std::function<void()> Work;
  std::map<std::string, std::string> Memory;  ///< what primitives that save no file brought, by Local
  std::string PagePath, Page;                 ///< the page that says which files there are
  TFtpListing Listing;
  std::function<void()> OnGoodbye;  ///< an FTP server has said goodbye and closed

 private:
  void Tune();
  std::string Content(const TStageFile& file) const;
  std::string Disk();
  std::string Common(std::string text) const;

  std::size_t current_ = 0;
  int time_out_ = 0;
  std::string goes_on_;
};

/// What answers alike.
enum class TFamily { Client, Memory, Stream, Fetch, Save, Older, Chart, Pdus, Ftp };

/// A primitive or a source.
struct TSubject {
  const char* Name;
  TFamily Family;
  std::size_t Size;
  void (*Prepare)(TStage& stage);
  bool Passive = false;  ///< how an FTP subject opens its data connections
};

const std::vector<TSubject>& HttpSubjects();
const std::vector<TSubject>& FtpSubjects();
/// The sources that ask for a page first. The second names one file for each page.
const std::vector<TSubject>& PageSubjects();

/// A text over and over, of more than 1 MiB.
std::string Repeated(const std::string& text);

/// Serves all files of an HTTP subject whole.
void ServeHttp(TStage& stage);

/// Serves the files of an FTP subject; the one that is hit by `steps` as TFtpServer reads them, "\n" for CR
/// LF, with these words: <body>, <half> and <rest> of the file, its <size>, the command "<retr>", and a reply
/// to PASV that leads nowhere, <closed>. "break" breaks the session off; the client comes again for what is
/// left.
class TFtpStageServer : public TFtpServer {
 public:
  TFtpStageServer(TStage& stage, bool passive, const std::string& steps = kWhole);
  static constexpr const char* kWhole = "open|<retr>150 (<size> bytes)|data:<body>|>226 done";
};

/// A fault's name as the name of a test.
std::string TestName(std::string fault);

/// Asserts the outcome, that the run went on (or not), and that all is at rest.
void Judge(const TSubject& subject, TStage& stage, const TOutcome& seen, const TOutcome& expected,
           const std::string& goes_on = "yes");

}  // namespace skyreel::test
