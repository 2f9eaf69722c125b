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
#include "transfer/http_fetch.h"

namespace skyreel::test {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// --- The stage -------------------------------------------------------------------------------------------

TStage::TStage(std::size_t size) : TJobFixture("2005-11-10 01:45"), Size(size) {
  fs::create_directories(Folder / "tmp");
  ::setenv("TMPDIR", (Folder / "tmp").c_str(), 1);
  BindFtpEvents(NMFTP, Display, Listing);
  for (TNMHTTP* const client : {&NMHTTP, &NMHTTPNotts}) {
    client->OnAboutToSend = [this](TNMHTTP& sender) {
      const std::string& url = sender.URL();
      const bool hit = url.ends_with(PagePath.empty() ? HitFile().Remote : PagePath);
      Begin(hit ? Hit : Hit + 1);
    };
  }
  // An FTP fetch pauses for 600 ms after each file.
  Clock.OnSleep = [this] { Begin(static_cast<std::size_t>(Clock.Slept / 600ms)); };
  NMFTP.OnConnect = [this](TPowersock&) { Tune(); };
}

TStage::~TStage() {
  ::unsetenv("TMPDIR");
}

void TStage::Add(std::string remote, std::string local, std::string shown,
                 std::vector<std::string> ok_lines) {
  Files.push_back({std::move(remote), std::move(local), std::move(shown), std::move(ok_lines)});
}

std::string TStage::Body(std::size_t file) const {
  return file == Hit ? Picture(Size * Times, 'h') : Picture(Size, 'o');
}

void TStage::Begin(std::size_t file) {
  current_ = file;
  Tune();
}

void TStage::Tune() {
  NMFTP.TimeOut = NMHTTP.TimeOut = NMHTTPNotts.TimeOut = current_ == Hit ? time_out_ : 20'000;
}

TOutcome TStage::Play(int time_out, int watchdog) {
  using TMonotonic = std::chrono::steady_clock;
  time_out_ = time_out;
  int restarts = 0;
  TMonotonic::time_point armed = TMonotonic::now(), end = armed + 30s;
  OnTurn = [&] {
    const auto now = TMonotonic::now();
    if (restarts != Run.Restarts) armed = now;
    restarts = Run.Restarts;
    EXPECT_LT(now, end) << "the fault holds up the run";
    if (now < end && (watchdog == 0 || current_ != Hit || now - armed < std::chrono::milliseconds(watchdog)))
      return;
    armed = now + 1h;
    end = now + 1h;
    NMFTP.Abort();
    NMHTTP.Abort();
    NMHTTPNotts.Abort();
  };
  Begin(0);
  Work();
  OnTurn = {};

  std::vector<std::string> lines = Display.Lines;
  goes_on_ = Files.size() > 1 ? "yes" : "-";
  for (std::size_t i = 0; i < Files.size(); ++i) {
    if (i == Hit) continue;
    const auto& ok = Files[i].OkLines;
    const auto own = std::search(lines.begin(), lines.end(), ok.begin(), ok.end());
    const bool told = own != lines.end() || ok.empty();
    if (Content(Files[i]) != Body(i) || !told || Ledger.IsNoted(Output(Files[i].Local))) goes_on_ = "no";
    if (told) lines.erase(own, own + static_cast<std::ptrdiff_t>(ok.size()));
  }
  std::string sees;
  for (const std::string& line : lines) sees += (sees.empty() ? "" : "; ") + line;
  return {Common(sees), Disk()};
}

/// What differs from one subject, or one run, to the next goes by the same word.
std::string TStage::Common(std::string text) const {
  const std::size_t size = Size * Times;
  const std::pair<std::string, std::string> words[] = {{Output(HitFile().Local).string(), "FILE"},
                                                       {HitFile().Shown, "NAME"},
                                                       {std::to_string(size / 2), "HALF"},
                                                       {std::to_string(size), "ALL"},
                                                       {std::to_string(size - 1), "ALL - 1"},
                                                       {Folder.Path().string() + "/", ""},
                                                       {Server.Address(), "SERVER"}};
  for (const auto& [word, common] : words) text = ReplaceAll(text, word, common);
  return text;
}

std::string TStage::Content(const TStageFile& file) const {
  if (Memory.contains(file.Local)) return Memory.at(file.Local);
  return FileSizeOf(Output(file.Local)) < 0 ? "none" : ReadWholeFile(Output(file.Local));
}

std::string TStage::Disk() {
  for (const auto& [name, size] : Tree()) {
    if (std::none_of(Files.begin(), Files.end(), [&](const auto& file) { return file.Local == name; }))
      return "stray file " + name;
  }
  const std::string content = Content(HitFile()), body = Body(Hit);
  if (content == "none" || (content.empty() && Memory.contains(HitFile().Local))) return "nothing";
  const std::string disk = content == body             ? "whole"
                           : body.starts_with(content) ? "short"
                           : content == "older"        ? "the older file"
                                                       : "other bytes";
  return Ledger.IsNoted(Output(HitFile().Local)) ? disk + ", noted" : disk;
}

void Judge(const TSubject& subject, TStage& stage, const TOutcome& seen, const TOutcome& expected,
           const std::string& goes_on) {
  EXPECT_EQ(seen.Sees, expected.Sees);
  EXPECT_EQ(seen.Disk, expected.Disk);
  EXPECT_EQ(stage.GoesOn(), goes_on);
  EXPECT_TRUE(fs::is_empty(stage.Folder / "tmp"));
  EXPECT_FALSE(stage.Run.WatchdogArmed);
  // The raw clients show nothing, and an FTP session leaves its last file's progress to the end of the run.
  if (subject.Family >= TFamily::Stream && subject.Family < TFamily::Ftp) {
    EXPECT_EQ(stage.AtRest(), "");
  }
}

std::string TestName(std::string fault) {
  const auto is_letter = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; };
  std::replace_if(fault.begin(), fault.end(), std::not_fn(is_letter), '_');
  return fault;
}

// --- What servers do -------------------------------------------------------------------------------------

std::string Repeated(const std::string& text) {
  std::string all;
  while (all.size() < 1'100'000) all += text;
  return all;
}

void ServeHttp(TStage& stage) {
  for (std::size_t i = 0; i < stage.Files.size(); ++i)
    stage.Server.Answer(stage.Files[i].Remote, stage.Body(i),
                        {"Last-Modified: Wed, 09 Nov 2005 12:00:00 GMT"});
  if (!stage.PagePath.empty()) stage.Server.Answer(stage.PagePath, stage.Page);
}

namespace {

std::string FtpSteps(const TStage& stage, const std::string& steps) {
  const std::string login = "login|TYPE I>200 ok|";
  std::string all = login;
  for (std::size_t i = 0; i < stage.Files.size(); ++i) {
    const std::string body = stage.Body(i), half = body.substr(0, body.size() / 2);
    const std::string taken = ReplaceAll(ReplaceAll(steps, "\n", "\r\n"), "break", "next|" + login);
    all += Filled(i == stage.Hit ? taken : TFtpStageServer::kWhole,
                  {{"retr", "RETR " + stage.Files[i].Remote + ">"},
                   {"size", std::to_string(body.size())},
                   {"body", body},
                   {"half", half},
                   {"rest", body.substr(half.size())},
                   {"closed", PasvReply(ClosedPort())}}) +
           "|";
  }
  return all + "*>221 bye";
}

}  // namespace

TFtpStageServer::TFtpStageServer(TStage& stage, bool passive, const std::string& steps)
    : TFtpServer(passive, FtpSteps(stage, steps), {}, stage.OnGoodbye) {
  for (const TServerSetting& setting : {kEuDataServer, kMsfcServer})
    stage.Context.Servers.Set(setting, Address());
}

// --- Primitives ------------------------------------------------------------------------------------------

namespace {

/// A primitive fetches the file that is hit, then another with the same client. `fetch` may throw.
void Primitive(TStage& s, const std::function<std::string(const TStageFile&)>& fetch) {
  for (const char* const name : {"a.gif", "b.gif"})
    s.Add(std::string("/") + name, name, std::string("/") + name, {});
  s.Hit = 0;
  s.Work = [&s, fetch] {
    for (std::size_t i = 0; i < s.Files.size(); ++i) {
      s.Begin(i);
      std::string said;
      said += Failure([&] { said = fetch(s.Files[i]); });
      if (!said.empty()) s.Display.AddStatusLine(said);
    }
  };
}

void HttpClient(TStage& s, bool into_file) {
  Primitive(s, [&s, into_file](const TStageFile& f) {
    const auto watchdog = Guard(s.Run);
    s.NMHTTP.InputFileMode = into_file;
    s.NMHTTP.Body = into_file ? s.Output(f.Local).string() : "";
    s.NMHTTP.Get(s.Server.Url(f.Remote));
    if (!into_file) s.Memory[f.Local] = s.NMHTTP.Body;
    return "";
  });
}

void Stream(TStage& s) {
  Primitive(s, [&s](const TStageFile& f) {
    THttpStream stream;
    s.Memory[f.Local];
    if (GetHttpToStream(s.Context, s.Server.Url(f.Remote), stream) == 0) return "";
    const auto file = s.Folder / "stream";
    stream.MoveTo(file, s.Clock.Now);
    s.Memory[f.Local] = ReadWholeFile(file);
    return "";
  });
}

void HttpFile(TStage& s) {
  Primitive(s, [&s](const TStageFile& f) {
    GetHttpFile(s.Context, s.Server.Url(""), f.Remote, s.Output(f.Local), 0, false, s.Clock.Now);
    return "";
  });
  for (TStageFile& f : s.Files) f.OkLines = {f.Remote + " - OK"};
}

void Save(TStage& s) {
  Primitive(s, [&s](const TStageFile& f) {
    THttpFileRequest request;
    request.Url = s.Server.Url(f.Remote);
    request.LocalPath = s.Output(f.Local);
    request.Delivery = TDelivery::Direct;
    request.GoodSize = 4;
    request.CompleteSize = static_cast<std::int64_t>(s.Size);
    request.KeepGetLine = true;
    request.Line = [](const TFileResult&) { return std::string(); };
    const TFileResult result = FetchHttpFile(s.Context, request);
    std::erase(s.Display.Lines, "");
    constexpr const char* kOutcomes[] = {
        "", "cut: ", "refused: ", "timed out: ", "not saved: ", "not asked: "};
    return kOutcomes[static_cast<std::size_t>(result.Outcome)] + result.Reason;
  });
}

void SaveOverOlder(TStage& s) {
  Save(s);
  s.WriteOutput("a.gif", "older");
}

void FtpClient(TStage& s, bool passive) {
  s.NMFTP.OnConnect = [begin = s.NMFTP.OnConnect](TPowersock& sender) {
    begin(sender);
    static_cast<TNMFTP&>(sender).SetTransferType(2);
  };
  Primitive(s, [&s, passive](const TStageFile& f) {
    TNMFTP& client = s.NMFTP;
    const auto watchdog = Guard(s.Run);
    client.Passive = passive;
    client.Host = "127.0.0.1";
    client.Port = ParseFtpAddress(s.Context.Servers.Root(kEuDataServer)).Port;
    client.UserID = client.Password = "user";
    client.ReplyCode = 0;
    client.Connect();
    client.RetrieveFile(f.Remote, s.Output(f.Local).string());
    return client.LastTransfer.Whole ? "" : "not whole: " + client.LastTransfer.FinalReply;
  });
}

void FtpFetch(TStage& s) {
  s.Hit = 0;
  for (const char* const name : {"a.gif", "b.gif"}) s.Add(name, name, name, {std::string("Get: ") + name});
  s.Work = [&s] {
    RunFtpSession(
        s.Context, {s.Context.Servers.Root(kEuDataServer), "user", "secret"}, [&](TFtpSession& session) {
          for (const TStageFile& f : s.Files) {
            const auto fetch = FtpFetchFile(s.Context, session, {f.Remote, f.Remote, s.OutputPath(), "", {}});
            if (!fetch) continue;
            if (fetch->StillNoted) s.Ledger.End(fetch->Result.Path, TTransferEnd::Whole);
            s.Display.EndFile(fetch->Result, FtpLine(fetch->Result));
          }
        });
  };
}

// --- Sources ---------------------------------------------------------------------------------------------

void EuArchive(TStage& s, bool new_naming, const std::vector<std::string>& items) {
  s.Work = [&s, new_naming, items] {
    TEuArchiveJob(s.Context, {s.OutputPath(), new_naming, 0, items}).Run();
  };
}

void EuNew(TStage& s) {
  s.Clock.Now = TDateTime::FromDate(2005, 11, 10, 6, 45);
  for (const auto& [time, slot] : {std::pair("0000", "00"), {"0300", "06"}, {"0600", "12"}}) {
    const std::string path =
        std::string("/~idds/images/out/SDDI-20051110-") + time + "-BNW-08-IR_108-01-600.jpg";
    s.Add(path, std::string("2005/11/10/D1_") + slot + ".jpg", path, {path + " - OK"});
  }
  EuArchive(s, true, {"D1"});
}

constexpr const char* kListEnd = "number_of_images";

std::string AddEuOld(TStage& s, const std::string& item, const std::string& time, const std::string& slot) {
  const std::string path = "/~idds/images/out/20051110_" + time + "00_07_" + item + "_0.jpg";
  s.Add(path, "2005/11/10/" + item + "_" + slot + ".jpg", path, {path + " - OK"});
  return "frame0 = \"" + path + "\";\n";
}

void EuOld(TStage& s) {
  std::string page = AddEuOld(s, "D1", "0000", "00") + AddEuOld(s, "D1", "0030", "01");
  page += AddEuOld(s, "D1", "0100", "02") + kListEnd;
  s.Server.Answer(EuArchiveListing("D1"), page);
  EuArchive(s, false, {"D1"});
}

void EuListing(TStage& s) {
  s.Clock.Now = TDateTime::FromDate(2005, 11, 10, 0, 41);
  for (const char* const item : {"D1", "D2", "D3"})
    s.Server.Answer(EuArchiveListing(item), AddEuOld(s, item, "0000", "00") + kListEnd);
  s.PagePath = EuArchiveListing("D2");
  s.Page = "frame0 = \"" + s.HitFile().Remote + "\";\n" + std::string(5000, '/') + kListEnd;
  EuArchive(s, false, {"D1", "D2", "D3"});
}

void Goes(TStage& s) {
  s.Clock.Now = TDateTime::FromDate(2005, 11, 10, 1, 30);
  for (const char* const time : {"0511092345", "0511100015", "0511100045"}) {
    const std::string name = std::string(time) + "G13I01.tif", path = "/goeseast-lzw/conus/vis/" + name;
    s.Add(path, "goes-e/conus/" + name, path, {path + " - OK"});
  }
  s.Work = [&s] { TGoesJob(s.Context, {s.OutputPath(), {"GOES-E conus vis"}, 0, "", ""}).Run(); };
}

void Charts(TStage& s) {
  s.Context.Shared.BackDays = 3;
  for (const char* const day : {"09", "08", "07"}) {
    const std::string name = std::string("r-uk0511") + day + ".zip", url = s.Server.Url("/data/gss/" + name);
    s.Add("/data/gss/" + name, std::string("2005/11/") + day + "/" + name, url, {url + " - OK"});
  }
  s.Work = [&s] { TMetChartsJob(s.Context, {s.OutputPath(), {"Rain radar (MM) UK"}, ""}).Run(); };
}

void Pdus(TStage& s, const std::vector<std::string>& times) {
  for (const std::string& time : times) {
    const std::string path = "/pdus?f=" + time, name = time + ".pdu";
    s.Add(path, "2005/11/10/" + name, name, {"Get: " + name, name + " - OK"});
    s.Page = "<a href=\"" + path + "\">0200, GMS, Visible</a>\n" + s.Page;
  }
  s.Server.Answer("/abin/filesorder?s=Date", s.Page);
  s.Work = [&s] {
    TPdusJob(s.Context, {s.OutputPath(), "user", "secret", {"0200, GMS, Visible"}}).Run();
    // As the form does at the end of a run.
    s.Display.SetPanel(0, "");
    s.Display.SetPanel(1, "");
  };
}

void EuData(TStage& s) {
  s.Clock.Now = TDateTime::FromDate(2003, 2, 2, 12, 45);
  for (const auto& [day, slot] :
       {std::pair("2003-01-31", "_1230"), {"2003-02-01", "_0030"}, {"2003-02-01", "_1230"}}) {
    const std::string name = "FES_" + std::string(day) + slot + "_M7_IR.GIF";
    s.Add("/M7/" + name, ReplaceAll(day, "-", "/") + "/" + name, name, {"Get: " + name});
  }
  s.Work = [&s] {
    TEuDataJob(s.Context, {s.OutputPath(),
                           "user",
                           "secret",
                           true,
                           false,
                           false,
                           {false, true},
                           {"IR"},
                           {"GIF"},
                           {0, 24},
                           {0, 5}})
        .Run();
  };
}

void Msfc(TStage& s) {
  s.Clock.Now = TDateTime::FromDate(2003, 2, 1, 23, 50);
  for (const char* const slot : {"0000", "0600", "1200"}) {
    const std::string name = "ME7-20030201" + std::string(slot) + ".ir1.ara.Z";
    s.Add(MsfcRemotePath(name), "2003/02/01/" + name, name, {"Get: " + name});
  }
  s.Work = [&s] {
    TMsfcJob(s.Context, {s.OutputPath(), false, false, false, {"IR"}, {"0000", "0600", "1200"}}).Run();
  };
}

}  // namespace

const std::vector<TSubject>& HttpSubjects() {
  static const std::vector<TSubject> subjects = {
      {"TNMHTTP into memory", TFamily::Memory, 12'000, [](TStage& s) { HttpClient(s, false); }},
      {"TNMHTTP into a file", TFamily::Client, 12'000, [](TStage& s) { HttpClient(s, true); }},
      {"GetHttpToStream", TFamily::Stream, 12'000, Stream},
      {"GetHttpFile", TFamily::Fetch, 12'000, HttpFile},
      {"EUMETSAT images (old naming)", TFamily::Fetch, 12'000, EuOld},
      {"EUMETSAT images (new naming)", TFamily::Fetch, 12'000, EuNew},
      {"GOES", TFamily::Fetch, 3'000, Goes},
      {"SaveHttpFile", TFamily::Save, 12'000, Save},
      {"SaveHttpFile over a good older file", TFamily::Older, 12'000, SaveOverOlder},
      {"Weather charts", TFamily::Chart, 12'000, Charts},
      {"Dundee PDUS", TFamily::Pdus, 900'000,
       [](TStage& s) {
         Pdus(s, {"0511101200", "0511101130", "0511101100"});
       }},
  };
  return subjects;
}

const std::vector<TSubject>& PageSubjects() {
  static const std::vector<TSubject> subjects = {
      {"EUMETSAT image list (one of three)", TFamily::Fetch, 12'000, EuListing},
      {"Dundee PDUS order page", TFamily::Pdus, 900'000,
       [](TStage& s) {
         Pdus(s, {"0511101200"});
         s.Hit = 0;
         s.PagePath = "/abin/filesorder?s=Date";
         s.Page += std::string(5000, '/');
       }},
  };
  return subjects;
}

const std::vector<TSubject>& FtpSubjects() {
  static const std::vector<TSubject> subjects = {
      {"TNMFTP (passive)", TFamily::Client, 12'000, [](TStage& s) { FtpClient(s, true); }, true},
      {"TNMFTP (active)", TFamily::Client, 12'000, [](TStage& s) { FtpClient(s, false); }},
      {"FtpFetchFile", TFamily::Ftp, 12'000, FtpFetch},
      {"EUMETSAT data (passive)", TFamily::Ftp, 12'000, EuData, true},
      {"MSFC data (active)", TFamily::Ftp, 12'000, Msfc},
  };
  return subjects;
}

}  // namespace skyreel::test
