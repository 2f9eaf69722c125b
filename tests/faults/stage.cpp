#include "faults/stage.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/files.h"
#include "base/text.h"
#include "net/ftp_parse.h"
#include "sources/dundee_pdus.h"
#include "sources/eu_archive.h"
#include "sources/eu_data.h"
#include "sources/goes_gsfc.h"
#include "sources/met_charts.h"
#include "sources/msfc_data.h"
#include "support/failure.h"
#include "support/ftp_script.h"
#include "support/reliability_rows.h"
#include "transfer/http_fetch.h"
#include "transfer/http_to_file.h"
#include "transfer/watchdog_scope.h"

namespace skyreel::test {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

const TDateTime kMorning = TDateTime::FromDate(2005, 11, 10, 1, 45);
const TDateTime kFileTime = TDateTime::FromDate(2005, 11, 10);

std::string Joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += (text.empty() ? "" : "; ") + line;
  return text;
}

}  // namespace

// --- The stage -------------------------------------------------------------------------------------------

TStage::TStage(std::size_t size) : TJobFixture(kMorning), size_(size) {
  fs::create_directories(Folder / "tmp");
  ::setenv("TMPDIR", (Folder / "tmp").c_str(), 1);
  Context.Shared.BackDays = 1;
  NMHTTP.OnAboutToSend = [this](TNMHTTP& sender) {
    Begin(sender.URL().ends_with(HitFile().Remote) ? Hit : Hit + 1);
  };
  // An FTP fetch pauses for 600 ms after each file.
  Clock.OnSleep = [this] { Begin(static_cast<std::size_t>(Clock.Slept / 600ms)); };
  BindFtpEvents(NMFTP, Display, listing_);
  NMFTP.OnConnect = [this](TPowersock&) { Tune(); };
}

TStage::~TStage() {
  ::unsetenv("TMPDIR");
}

void TStage::Begin(std::size_t file) {
  current_ = file;
  Tune();
}

void TStage::Tune() {
  NMFTP.TimeOut = NMHTTP.TimeOut = current_ == Hit ? time_out_ : 20'000;
}

TOutcome TStage::Play(int time_out, int watchdog) {
  using TMonotonic = std::chrono::steady_clock;
  time_out_ = time_out;
  int restarts = 0;
  TMonotonic::time_point armed = TMonotonic::now(), end = armed + 30s;
  const auto abort = [this] {
    NMFTP.Abort();
    NMHTTP.Abort();
    NMHTTPNotts.Abort();
  };
  OnTurn = [&] {
    const auto now = TMonotonic::now();
    if (now > end) {
      ADD_FAILURE() << "the fault holds up the run";
      end = now + 1s;
      abort();
    }
    if (restarts != Run.Restarts) armed = now;
    restarts = Run.Restarts;
    if (watchdog == 0 || current_ != Hit || now - armed < std::chrono::milliseconds(watchdog)) return;
    armed = now + 1h;
    abort();
  };
  Begin(0);
  TOutcome seen{Work(), ""};
  OnTurn = {};

  std::vector<std::string> lines = Display.Lines;
  goes_on_ = "yes";
  for (std::size_t i = 0; i < Files.size(); ++i) {
    if (i == Hit) continue;
    const std::string& local = Files[i].Local;
    const bool whole = Memory.contains(local)          ? Memory[local] == Body(i)
                       : FileSizeOf(Output(local)) < 0 ? false
                                                       : ReadWholeFile(Output(local)) == Body(i);
    const auto own =
        std::search(lines.begin(), lines.end(), Files[i].OkLines.begin(), Files[i].OkLines.end());
    if (!whole || (own == lines.end() && !Files[i].OkLines.empty()) ||
        (Ledgered && Ledger.IsNoted(Output(local))))
      goes_on_ = "no";
    if (own != lines.end()) lines.erase(own, own + static_cast<std::ptrdiff_t>(Files[i].OkLines.size()));
  }
  if (!lines.empty()) seen.Sees += (seen.Sees.empty() ? "" : "; ") + Joined(lines);
  seen.Sees = Common(seen.Sees);
  seen.Disk = Disk();
  return seen;
}

/// What differs from one subject, or one run, to the next goes by the same word.
std::string TStage::Common(std::string text) const {
  const std::size_t size = size_ * Times;
  std::vector<std::pair<std::string, std::string>> words = {{Output(HitFile().Local).string(), "FILE"},
                                                            {HitFile().Shown, "NAME"},
                                                            {std::to_string(size / 2), "HALF"},
                                                            {std::to_string(size), "ALL"},
                                                            {std::to_string(size - 1), "ALL - 1"},
                                                            {Folder.Path().string() + "/out/", ""},
                                                            {Folder.Path().string(), ""},
                                                            {Server.Address(), "SERVER"}};
  for (const auto& [word, common] : words) text = ReplaceAll(text, word, common);
  return text;
}

std::string TStage::Disk() const {
  std::string disk = "nothing";
  for (const auto& [name, size] : Tree()) {
    const auto file =
        std::find_if(Files.begin(), Files.end(), [&](const auto& f) { return f.Local == name; });
    if (file == Files.end()) return "stray file " + name;
  }
  const std::string& local = HitFile().Local;
  const bool remembered = Memory.contains(local);
  if (!remembered && FileSizeOf(Output(local)) < 0) return disk;
  const std::string content = remembered ? Memory.at(local) : ReadWholeFile(Output(local));
  const std::string body = Body(Hit);
  const bool noted = Ledgered && const_cast<TTransferLedger&>(Ledger).IsNoted(Output(local));
  if (remembered && content.empty()) return disk;
  disk = content == body                                             ? "whole"
         : content.size() < body.size() && body.starts_with(content) ? "short"
         : content == "older"                                        ? "the older file"
                                                                     : "another content";
  return noted ? disk + ", noted" : disk;
}

void ServeHttp(TStage& stage) {
  for (std::size_t i = 0; i < stage.Files.size(); ++i)
    stage.Server.Answer(stage.Files[i].Remote, stage.Body(i),
                        {"Last-Modified: Wed, 09 Nov 2005 12:00:00 GMT"});
}

void Judge(const std::string& section, const std::string& fault, const TSubject& subject, TStage& stage,
           const TOutcome& seen, const TOutcome& expected, const char* goes_on) {
  EXPECT_EQ(seen.Sees, expected.Sees);
  EXPECT_EQ(seen.Disk, expected.Disk);
  EXPECT_EQ(stage.GoesOn(), goes_on);
  EXPECT_TRUE(fs::is_empty(stage.Folder / "tmp"));
  EXPECT_EQ(stage.Display.BusyDepth, 0);
  EXPECT_FALSE(stage.Run.WatchdogArmed);
  if (subject.Family >= TFamily::Stream && subject.Family < TFamily::Ftp) {
    EXPECT_EQ(stage.AtRest(), "");
  }
  AddReliabilityRow(section, fault, subject.Name, seen.Sees, seen.Disk, stage.GoesOn());
}

// --- HTTP ------------------------------------------------------------------------------------------------

namespace {

/// A primitive fetches the file that is hit, then another with the same client.
void Primitive(TStage& stage, const std::function<std::string(const TStageFile&)>& fetch) {
  stage.Files = {{"/a.gif", "a.gif", {}, "/a.gif"}, {"/b.gif", "b.gif", {}, "/b.gif"}};
  stage.Hit = 0;
  stage.Work = [&stage, fetch] {
    std::string said, others;
    for (std::size_t i = 0; i < stage.Files.size(); ++i) {
      stage.Begin(i);
      std::string text;
      const std::string failure = Failure([&] { text = fetch(stage.Files[i]); });
      (i == stage.Hit ? said : others) += failure + text;
    }
    if (!others.empty()) stage.Display.AddStatusLine(others);
    return said;
  };
}

void PrepareClient(TStage& stage, bool into_file) {
  stage.Ledgered = false;
  Primitive(stage, [&stage, into_file](const TStageFile& file) {
    const TWatchdogScope watchdog(stage.Run);
    stage.NMHTTP.InputFileMode = into_file;
    stage.NMHTTP.Body = into_file ? stage.Output(file.Local).string() : "";
    if (!into_file) stage.Memory[file.Local] = "";
    stage.NMHTTP.Get(stage.Server.Url(file.Remote));
    if (!into_file) stage.Memory[file.Local] = stage.NMHTTP.Body;
    return std::string();
  });
}

void PrepareStream(TStage& stage) {
  stage.Ledgered = false;
  Primitive(stage, [&stage](const TStageFile& file) {
    GetHttpToStream(stage.Context, stage.Server.Url(file.Remote), stage.Memory[file.Local]);
    return std::string();
  });
}

void PrepareGetHttpFile(TStage& stage) {
  Primitive(stage, [&stage](const TStageFile& file) {
    GetHttpFile(stage.Context, stage.Server.Url(""), file.Remote, stage.Output(file.Local), 0, false,
                kFileTime);
    return std::string();
  });
  for (TStageFile& file : stage.Files) file.OkLines = {file.Remote + " - OK"};
}

void PrepareSave(TStage& stage) {
  Primitive(stage, [&stage](const TStageFile& file) {
    const THttpSaveResult result =
        SaveHttpFile(stage.Context, stage.Server.Url(file.Remote), stage.Output(file.Local), 4,
                     static_cast<std::int64_t>(stage.Size()));
    constexpr const char* kOutcomes[] = {"", "cut: ", "refused: ", "timed out: ", "not saved: "};
    return kOutcomes[static_cast<std::size_t>(result.Outcome)] + result.Reason;
  });
}

void PrepareOlder(TStage& stage) {
  PrepareSave(stage);
  stage.WriteOutput("a.gif", "older");
}

void PrepareEuNew(TStage& stage) {
  stage.Clock.Now = TDateTime::FromDate(2005, 11, 10, 6, 45);
  for (const char* slot : {"00", "06", "12"}) {
    const std::string hour = std::to_string(slot[0] - '0' + (slot[1] == '6' ? 3 : slot[1] == '2' ? 5 : 0));
    const std::string path = "/~idds/images/out/SDDI-20051110-0" + hour + "00-BNW-08-IR_108-01-600.jpg";
    stage.Files.push_back({path, std::string("2005/11/10/D1_") + slot + ".jpg", {path + " - OK"}, path});
  }
  stage.Work = [&stage] {
    TEuArchiveSettings settings{stage.OutputPath(), true, 0, {"D1"}};
    TEuArchiveJob(stage.Context, settings).Run();
    return std::string();
  };
}

void PrepareEuOld(TStage& stage) {
  std::string page;
  for (const char* time : {"0000", "0030", "0100"}) {
    const std::string slot = std::to_string(stage.Files.size());
    const std::string path = std::string("/~idds/images/out/20051110_") + time + "00_07_D1_0.jpg";
    stage.Files.push_back({path, "2005/11/10/D1_0" + slot + ".jpg", {path + " - OK"}, path});
    page += "frame" + slot + " = \"" + path + "\";\n";
  }
  stage.Server.Answer(EuArchiveListing("D1"), page + "number_of_images = 3;\n");
  stage.Work = [&stage] {
    TEuArchiveSettings settings{stage.OutputPath(), false, 0, {"D1"}};
    TEuArchiveJob(stage.Context, settings).Run();
    return std::string();
  };
}

void PrepareGoes(TStage& stage) {
  stage.Clock.Now = TDateTime::FromDate(2005, 11, 10, 1, 30);
  for (const char* time : {"0511092345", "0511100015", "0511100045"}) {
    const std::string name = std::string(time) + "G13I01.tif";
    const std::string path = "/goeseast-lzw/conus/vis/" + name;
    stage.Files.push_back({path, "goes-e/conus/" + name, {path + " - OK"}, path});
  }
  stage.Work = [&stage] {
    TGoesSettings settings;
    settings.OutputPath = stage.OutputPath();
    settings.Sectors = {"GOES-E conus vis"};
    TGoesJob(stage.Context, settings).Run();
    return std::string();
  };
}

void PrepareCharts(TStage& stage) {
  stage.Context.Shared.BackDays = 3;
  for (const char* day : {"09", "08", "07"}) {
    const std::string name = std::string("r-uk0511") + day + ".zip", path = "/data/gss/" + name;
    const std::string url = stage.Server.Url(path);
    stage.Files.push_back({path, std::string("2005/11/") + day + "/" + name, {url + " - OK"}, url});
  }
  stage.Work = [&stage] {
    TMetChartsJob(stage.Context, {stage.OutputPath(), {"Rain radar (MM) UK"}, ""}).Run();
    return std::string();
  };
}

void PreparePdus(TStage& stage) {
  std::string page;
  for (const char* time : {"0511101200", "0511101130", "0511101100"}) {
    const std::string path = "/pdus?f=" + std::string(time), name = std::string(time) + ".pdu";
    stage.Files.push_back({path, "2005/11/10/" + name, {"Get: " + name, name + " - OK"}, name});
    page = "<a href=\"" + path + "\">0200, GMS, Visible</a>\n" + page;
  }
  stage.Server.Answer("/abin/filesorder?s=Date", page);
  stage.Work = [&stage] {
    TPdusJob(stage.Context, {stage.OutputPath(), "user", "secret", {"0200, GMS, Visible"}}).Run();
    // As the form does at the end of a run.
    stage.Display.SetPanel(0, "");
    stage.Display.SetPanel(1, "");
    return std::string();
  };
}

}  // namespace

const std::vector<TSubject>& HttpSubjects() {
  static const std::vector<TSubject> subjects = {
      {"TNMHTTP into memory", TFamily::Memory, 12'000, [](TStage& stage) { PrepareClient(stage, false); }},
      {"TNMHTTP into a file", TFamily::Client, 12'000, [](TStage& stage) { PrepareClient(stage, true); }},
      {"GetHttpToStream", TFamily::Stream, 12'000, PrepareStream},
      {"GetHttpFile", TFamily::Fetch, 12'000, PrepareGetHttpFile},
      {"EUMETSAT images, old naming", TFamily::Fetch, 12'000, PrepareEuOld},
      {"EUMETSAT images, new naming", TFamily::Fetch, 12'000, PrepareEuNew},
      {"GOES", TFamily::Fetch, 3'000, PrepareGoes},
      {"SaveHttpFile", TFamily::Save, 12'000, PrepareSave},
      {"SaveHttpFile over a good older file", TFamily::Older, 12'000, PrepareOlder},
      {"Weather charts", TFamily::Chart, 12'000, PrepareCharts},
      {"Dundee PDUS", TFamily::Pdus, 900'000, PreparePdus},
  };
  return subjects;
}

// --- FTP -------------------------------------------------------------------------------------------------

TFtpTurn& TFtpTurn::Open() {
  Control.ReadLine().Reply(port_ != 0 ? PasvReply(port_) + "\r\n" : "200 ok\r\n");
  // In passive mode the client connects before it asks for the file.
  if (port_ != 0) data_.emplace_back();
  return *this;
}

TFtpTurn& TFtpTurn::Start(const std::string& reply) {
  Control.Expect("RETR " + path_).Reply(reply);
  return *this;
}

TFtpTurn& TFtpTurn::Data(TScript script) {
  port_ != 0 ? void(data_.back() = std::move(script)) : void(Control.ConnectBack(std::move(script)));
  return *this;
}

void TFtpTurn::Whole() {
  Open().Start("150 (" + std::to_string(Body.size()) + " bytes)\r\n").Data(TScript().Reply(Body));
  Control.Reply("226 done\r\n");
}

TFtpStageServer::TFtpStageServer(TStage& stage, bool passive, bool breaks, TAct act) {
  const auto login = [] {
    TScript script;
    script.Reply("220 ready\r\n").ReadLine().Reply("331 password\r\n").ReadLine().Reply("230 in\r\n");
    return script.Exchange("TYPE I", "200 binary");
  };
  // Twice: the data server's port, which the scripts name, is known only once it is there.
  const auto scripts = [&](std::uint16_t port, std::vector<TScript>& data) {
    std::vector<TScript> sessions = {login()};
    for (std::size_t i = 0; i < stage.Files.size(); ++i) {
      TFtpTurn turn(sessions.back(), data, port, stage.Files[i].Remote, stage.Body(i));
      i == stage.Hit ? act(turn) : turn.Whole();
      if (i == stage.Hit && breaks) sessions.push_back(login());
    }
    sessions.back().ReadLine().Reply("221 bye\r\n");
    return sessions;
  };
  std::vector<TScript> data, again;
  if (passive) {
    scripts(1, data);
    data_ = std::make_unique<TScriptedServer>(data);
  }
  control_ = std::make_unique<TScriptedServer>(scripts(passive ? data_->Port() : 0, again));
  stage.Context.Servers.EuDA = stage.Context.Servers.MSFC = control_->Address();
}

std::uint16_t ClosedPort() {
  return TScriptedServer(TScript()).Port();
}

namespace {

void PrepareFtpClient(TStage& stage, bool passive) {
  stage.Ledgered = false;
  stage.NMFTP.OnConnect = [begin = stage.NMFTP.OnConnect](TPowersock& sender) {
    begin(sender);
    static_cast<TNMFTP&>(sender).SetTransferType(2);
  };
  Primitive(stage, [&stage, passive](const TStageFile& file) {
    TNMFTP& client = stage.NMFTP;
    const TWatchdogScope watchdog(stage.Run);
    client.Passive = passive;
    client.Host = "127.0.0.1";
    client.Port = ParseFtpAddress(stage.Context.Servers.EuDA).Port;
    client.UserID = client.Password = "user";
    client.ReplyCode = 0;
    client.Connect();
    client.RetrieveFile(file.Remote, stage.Output(file.Local).string());
    return client.LastTransfer.Whole ? "" : "not whole: " + client.LastTransfer.FinalReply;
  });
}

void PrepareFtpFetch(TStage& stage) {
  Primitive(stage, {});
  for (TStageFile& file : stage.Files) file = {file.Local, file.Local, {"Get: " + file.Local}, file.Local};
  stage.Work = [&stage] {
    const TFtpLogin login{stage.Context.Servers.EuDA, "user", "secret"};
    RunFtpSession(stage.Context, login, [&](TFtpSession& session) {
      for (const TStageFile& file : stage.Files)
        FtpFetchFile(stage.Context, session, TFtpVariant::CurrentFolder, file.Remote, stage.OutputPath());
    });
    return std::string();
  };
}

void PrepareEuData(TStage& stage) {
  stage.Clock.Now = TDateTime::FromDate(2003, 2, 2, 12, 45);
  for (const char* slot : {"2003-01-31_1230", "2003-02-01_0030", "2003-02-01_1230"}) {
    const std::string name = "FES_" + std::string(slot) + "_M7_IR.GIF";
    const std::string day = ReplaceAll(std::string(slot).substr(0, 11), "-", "/").substr(0, 10);
    stage.Files.push_back({"/M7/" + name, day + "/" + name, {"Get: " + name}, name});
  }
  stage.Work = [&stage] {
    TEuDataSettings settings;
    settings.OutputPath = stage.OutputPath();
    settings.UserName = settings.Password = "user";
    settings.Passive = true;
    settings.Satellites = {false, true};
    settings.Channels = {"IR"};
    settings.Formats = {"GIF"};
    settings.StartSlot[1] = 24;
    settings.Interval[1] = 5;
    TEuDataJob(stage.Context, settings).Run();
    return std::string();
  };
}

void PrepareMsfc(TStage& stage) {
  stage.Clock.Now = TDateTime::FromDate(2003, 2, 1, 23, 50);
  for (const char* slot : {"0000", "0600", "1200"}) {
    const std::string name = "ME7-20030201" + std::string(slot) + ".ir1.ara.Z";
    stage.Files.push_back(
        {FtpRemotePath(TFtpVariant::Msfc, name), "2003/02/01/" + name, {"Get: " + name}, name});
  }
  stage.Work = [&stage] {
    TMsfcSettings settings;
    settings.OutputPath = stage.OutputPath();
    settings.Channels = {"IR"};
    settings.Slots = {"0000", "0600", "1200"};
    TMsfcJob(stage.Context, settings).Run();
    return std::string();
  };
}

}  // namespace

const std::vector<TSubject>& FtpSubjects() {
  static const std::vector<TSubject> subjects = {
      {"TNMFTP, passive", TFamily::Client, 12'000, [](TStage& stage) { PrepareFtpClient(stage, true); },
       true},
      {"TNMFTP, active", TFamily::Client, 12'000, [](TStage& stage) { PrepareFtpClient(stage, false); },
       false},
      {"FtpFetchFile", TFamily::Ftp, 12'000, PrepareFtpFetch, false},
      {"EUMETSAT data", TFamily::Ftp, 12'000, PrepareEuData, true},
      {"MSFC data", TFamily::Ftp, 12'000, PrepareMsfc, false},
  };
  return subjects;
}

std::string TestName(std::string fault) {
  const auto is_letter = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; };
  std::replace_if(fault.begin(), fault.end(), std::not_fn(is_letter), '_');
  return fault;
}

}  // namespace skyreel::test
