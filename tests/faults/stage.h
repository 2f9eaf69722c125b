#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/job_fixture.h"
#include "transfer/ftp_fetch.h"

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

  std::string Body(std::size_t file) const {
    return Picture(file == Hit ? size_ * Times : size_, file == Hit ? 'h' : 'o');
  }
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
  std::size_t Times = 1;                      ///< how much larger than the others the file that is hit is
  std::function<std::string()> Work;          ///< returns what a primitive said of the file that is hit
  std::map<std::string, std::string> Memory;  ///< what primitives that save no file brought, by Local
  bool Ledgered = true;                       ///< the subject keeps the transfer ledger

 private:
  void Tune();
  std::string Disk() const;
  std::string Common(std::string text) const;

  TFtpListing listing_;
  const std::size_t size_;
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
  std::size_t Size;  ///< of a whole file
  void (*Prepare)(TStage& stage);
  bool Passive = false;  ///< how an FTP subject opens its data connections
};

const std::vector<TSubject>& HttpSubjects();
const std::vector<TSubject>& FtpSubjects();

/// Serves all files of an HTTP subject whole.
void ServeHttp(TStage& stage);

/// The server's side of one download, put together step by step.
class TFtpTurn {
 public:
  TFtpTurn(TScript& control, std::vector<TScript>& data, std::uint16_t passive_port, std::string path,
           std::string body)
      : Control(control), Body(std::move(body)), data_(data), port_(passive_port), path_(std::move(path)) {}

  /// PORT or PASV, and the reply that it should get.
  TFtpTurn& Open();
  /// RETR and this reply.
  TFtpTurn& Start(const std::string& reply);
  /// What happens on the data connection.
  TFtpTurn& Data(TScript script);
  /// All as it should be.
  void Whole();

  TScript& Control;
  const std::string Body;

 private:
  std::vector<TScript>& data_;
  const std::uint16_t port_;  ///< 0 in active mode
  const std::string path_;
};

/// Serves the files of an FTP subject, the one that is hit by `act`. `breaks`: the control connection is gone
/// behind that one, and the client comes again for the others.
class TFtpStageServer {
 public:
  using TAct = void (*)(TFtpTurn& turn);
  TFtpStageServer(TStage& stage, bool passive, bool breaks, TAct act);
  std::vector<std::string> Errors() const { return control_->Errors(); }

 private:
  std::unique_ptr<TScriptedServer> data_, control_;
};

/// Asserts the outcome, that the run went on (or not), and that all is at rest; writes the row of the page.
void Judge(const std::string& section, const std::string& fault, const TSubject& subject, TStage& stage,
           const TOutcome& seen, const TOutcome& expected, const char* goes_on = "yes");

/// A port of this computer that nobody listens at any more.
std::uint16_t ClosedPort();

/// A fault's name as the name of a test.
std::string TestName(std::string fault);

}  // namespace skyreel::test
