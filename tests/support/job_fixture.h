#pragma once

#include <gmock/gmock.h>

#include "base/files.h"
#include "net/https_client.h"
#include "net/nm_ftp.h"
#include "net/nm_http.h"
#include "sources/job_plan.h"
#include "sources/source_table.h"
#include "support/fakes.h"
#include "support/helpers.h"
#include "support/scripted_server.h"
#include "transfer/run_record.h"
#include "transfer/transfer_ledger.h"
#include "transfer/transfer_progress.h"

namespace skyreel::test {

/// "2005-11-10 12:30", with ":59" if need be; UTC.
inline TDateTime At(const std::string& text) {
  int part[6] = {};
  std::sscanf(text.c_str(), "%d-%d-%d %d:%d:%d", part, part + 1, part + 2, part + 3, part + 4, part + 5);
  return TDateTime::FromDate(part[0], part[1], part[2], part[3], part[4], part[5]);
}

/// `size` bytes that do not look like a page.
inline std::string Picture(std::size_t size, char fill = 'x') {
  return std::string(size, fill);
}

/// All that a job or a transfer function works with: the real network clients, an HTTP server of this process
/// that every HTTP server root leads to, a clock that stands still, a display that keeps what was shown, an
/// output folder and a program's folder that go with the test. One day back; time-out 20 s.
class TJobFixture {
 public:
  explicit TJobFixture(const std::string& now = "2005-11-10 12:00")
      : Clock(At(now)),
        Ledger(Folder / "ledger.txt"),
        Context{{Display, Run, Clock, NMFTP, NMHTTP, NMHTTPNotts, Https, Ledger, Record, {}},
                {},
                Folder / "program"} {
    std::filesystem::create_directories(OutputPath());
    std::filesystem::create_directories(Context.ProgramFolder);
    Context.Source = Record.Source = "Tab";
    Context.Shared.TimeoutSeconds = 20;
    Context.Shared.BackDays = 1;
    for (const TSource& source : Sources())
      for (const TServerSetting& server : source.Servers)
        if (!server.Ftp) Context.Servers.Set(server, "http://" + Server.Address());
    NMHTTPNotts.InputFileMode = true;
    NMFTP.OnPacketRecvd = NMHTTP.OnPacketRecvd = NMHTTPNotts.OnPacketRecvd = [this](TPowersock& sender) {
      ShowTransferProgress(Display, sender.ReceivedByteCount, sender.TransferSize);
    };
  }

  // --- Folders. OutputPath is as jobs get it: with a trailing separator.

  std::string OutputPath() const { return (Folder / "out/").string(); }
  std::filesystem::path Output(const std::string& relative) const { return Folder / "out" / relative; }
  std::filesystem::path WriteOutput(const std::string& relative, const std::string& content) const {
    return Folder.Write("out/" + relative, content);
  }
  /// Every file below the output folder with its size.
  std::map<std::string, std::int64_t> Tree() const { return Folder.Tree("out"); }
  /// Every file with its size and time, "2005/11/10/a.gif 2000 2005-11-10 12:30".
  TWords Stored() const {
    TWords files;
    for (const auto& [name, size] : Tree())
      files.push_back(name + " " + std::to_string(size) +
                      FormatDateTime(" yyyy-mm-dd hh':'nn", GetFileDateTime(Output(name))));
    return files;
  }

  // --- What happened since the last question: requests ("GET /a.gif"), their paths, and status lines.

  TWords Requests() {
    TWords requests = Server.Requests();
    const std::size_t before = std::exchange(asked_, requests.size());
    requests.erase(requests.begin(), requests.begin() + static_cast<std::ptrdiff_t>(before));
    return requests;
  }
  TWords Asked() { return PathsOf(Requests()); }
  TWords Lines() { return std::exchange(Display.Lines, {}); }
  /// What became of each file: "Tab: product slot, address > file - OK", with the reason when it failed.
  TWords Results() {
    TWords results;
    for (const TFileResult& r : std::exchange(Display.Results, {})) {
      const std::string outcome = PictureLine(r).substr(r.Name.size()), at = r.Address;
      results.push_back(r.Source + ": " + r.Product + FormatDateTime(" yyyy-mm-dd hhnn, ", r.SlotTime) +
                        ReplaceAll(ReplaceAll(at, Server.Address(), "server"), ftp_address_, "server") +
                        " > " + r.Path.lexically_relative(OutputPath()).generic_string() + outcome +
                        (outcome.ends_with(r.Reason) ? "" : ": " + r.Reason));
    }
    return results;
  }
  /// What must hold after every run, however it went: bar, label, title, panels and cursor at rest, watchdog
  /// stopped. "" or what is wrong.
  std::string AtRest() {
    const auto last = [](const auto& shown) { return shown.empty() ? "" : shown.back(); };
    std::string wrong = Display.Panel(0) + Display.Panel(1) + last(Display.BytesLabels);
    if (!Display.Progress.empty() && Display.Progress.back() != 0) wrong += " progress bar";
    if (!Display.Titles.empty() && Display.Titles.back() != kApplicationTitle) wrong += " title";
    if (Display.BusyDepth != 0) wrong += " cursor";
    if (Run.WatchdogArmed) wrong += " watchdog";
    if (last(Display.Lines).starts_with("Get: ")) wrong += " outcome line";
    return wrong;
  }

  // --- Servers

  using TJob = std::function<void(TJobContext& context)>;
  /// Runs the job. Its plan must ask no server, change nothing on the disk, and name what the run asks for.
  void RunPlanned(const TJob& job) {
    const std::size_t before = Server.Requests().size();
    Compare(job, [&] {
      TWords asked = Server.Paths();
      asked.erase(asked.begin(), asked.begin() + static_cast<std::ptrdiff_t>(before));
      for (std::string& path : asked) path = path.starts_with("/") ? Server.Url(path) : path;
      return asked;
    });
  }
  /// Answers every path with a picture of `size` bytes, and one that begins with `page_path` with `page`.
  /// Once a path that ends with `last` is asked for, a stop is requested.
  void Serve(std::size_t size, const std::string& page_path = "-", const std::string& page = "",
             const std::string& last = "-") {
    Run.Stop = false;
    Server.Handle("*", [=, this](const std::string& path, const std::string&) {
      if (path.ends_with(last)) Run.Stop = true;
      return HttpReply(path.starts_with(page_path) ? page : Picture(size), {"Last-Modified: " + Modified});
    });
  }
  /// A file that an FTP session is expected to ask for, and what the server does then.
  struct TFtpAsked {
    std::string Path;
    std::optional<std::string> Content;  ///< none: the server has no such file
    std::size_t Announced = 0;           ///< bytes announced, if not those of the content
  };
  /// Runs the job against a server, the one of that setting, that expects one session in active mode in which
  /// exactly these files are asked for.
  void Session(const TServerSetting& setting, const std::string& user, const std::string& password,
               const std::vector<TFtpAsked>& files, const TJob& job) {
    WithFtpServer(setting, user, password, files, [&] {
      TWords asked;
      for (const TFtpAsked& file : files) asked.push_back("ftp://" + ftp_address_ + file.Path);
      Compare(job, [&] { return asked; });
    });
  }
  /// The same for work that has no plan.
  void WithFtpServer(const TServerSetting& setting, const std::string& user, const std::string& password,
                     const std::vector<TFtpAsked>& files, const std::function<void()>& work) {
    std::string steps = ">220 hi|USER " + user + ">331 pw|PASS " + password + ">230 in|TYPE I>200 ok|";
    TTexts contents;
    for (const TFtpAsked& file : files) {
      const std::string content = contents[file.Path] = file.Content.value_or("");
      const std::string size = std::to_string(std::max(file.Announced, content.size()));
      steps += "open|RETR " + file.Path;
      steps += file.Content ? ">150 (" + size + " bytes)|data:<" + file.Path + ">|>226 done|"
                            : ">550 No such file|";
    }
    const TFtpServer server(false, steps + "QUIT>221 bye|close", contents);
    Context.Servers.Set(setting, ftp_address_ = server.Address());
    work();
    EXPECT_THAT(server.Lines(), testing::Contains("QUIT"));
  }

  THttpServer Server;
  TTempFolder Folder;
  TFakeClock Clock;
  TRecordingDisplay Display;
  TFakeRun Run;
  std::string Modified = "Thu, 10 Nov 2005 13:47:00 GMT";
  std::function<void()> OnTurn = [] {
  };  ///< called in each turn of a client's wait, as the window's events are
  TNMFTP NMFTP{[this] { OnTurn(); }};
  TNMHTTP NMHTTP{[this] { OnTurn(); }};
  TNMHTTP NMHTTPNotts{[this] { OnTurn(); }};
  THttpsClient Https{[this] { OnTurn(); }};
  TTransferLedger Ledger;
  TRunRecord Record;
  TJobContext Context;

 private:
  TFetchPlan PlanOf(const TJob& job) const {
    return PlanOfJob(
        {Clock.Now, Context.Shared, Context.Servers, Context.ProgramFolder, Folder / "ledger.txt"}, job);
  }
  /// Files, folders and times below the test's folder.
  TWords Disk() const {
    TWords all;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(Folder.Path()))
      all.push_back(entry.path().string() + FormatDateTime(" hhnnss", GetFileDateTime(entry.path())));
    return all;
  }
  void Compare(const TJob& job, const std::function<TWords()>& asked_by_run) {
    const TWords disk = Disk();
    const std::size_t requests = Server.Requests().size();
    const TFetchPlan before = PlanOf(job);
    EXPECT_EQ(Disk(), disk);
    EXPECT_EQ(Server.Requests().size(), requests);
    job(Context);
    EXPECT_THAT(Display.AllLines, testing::IsSupersetOf(before.Notes));
    const TWords asked = asked_by_run();
    const TFetchPlan after = PlanOf(job);  // a run takes time, and more becomes due
    TWords wanted = before.Lists, known = after.Lists, done = asked;
    constexpr auto kPresent = TFetchPlan::TState::Present;
    for (const TFetchPlan::TFile& file : before.Files)
      if (before.Lists.empty() && file.State != kPresent) wanted.push_back(file.Address);
    for (const TFetchPlan::TFile& file : after.Files) {
      known.push_back(file.Address);
      if (file.State == kPresent) done.push_back(file.Address);  // of two forms of an image, one is enough
    }
    if (!Run.Stop) {
      EXPECT_THAT(done, testing::IsSupersetOf(wanted));
    }
    // Only an order page tells the addresses behind it.
    if (!after.Files.empty() || after.Lists.empty()) {
      EXPECT_THAT(asked, testing::Each(testing::AnyOfArray(known)));
    }
  }

  std::size_t asked_ = 0;
  std::string ftp_address_ = "none";
};

/// A test of a job. At its end the display must be at rest and must never have shown the "secret".
class TJobTest : public testing::Test, public TJobFixture {
 protected:
  using TJobFixture::Run;  // a test has one too
  using TJobFixture::TJobFixture;

  void TearDown() override { EXPECT_EQ(AtRest(), ""); }
  /// A stop while a path that ends with `last` is served lets no further one be asked for.
  void ExpectStopAt(const std::string& last, const std::function<void()>& run,
                    const std::string& page_path = "-", const std::string& page = "") {
    Serve(20'000, page_path, page, last);
    run();
    EXPECT_THAT(Asked().back(), testing::EndsWith(last));
  }
  ~TJobTest() override {
    EXPECT_THAT(Display.AllLines, testing::Not(testing::Contains(testing::HasSubstr("secret"))));
  }
};

}  // namespace skyreel::test
