#include "net/nm_ftp.h"

#include <gmock/gmock.h>

#include "base/files.h"
#include "support/failure.h"
#include "support/scripted_server.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

using namespace std::string_literals;
using namespace test;
using namespace testing;

/// A client of `server` that keeps its events: c connected, x connection failed, and with the number of the
/// command s success, u unsupported, f failure.
struct TClient : TNMFTP {
  explicit TClient(const TScriptedServer& server) {
    Host = "127.0.0.1";
    Port = server.Port();
    UserID = "user";
    Password = "secret";
    ReportLevel = 1;
    const auto note = [this](const char* event) {
      return [=, this](TNMFTP&, TCmdType type) { Events += event + std::to_string(static_cast<int>(type)); };
    };
    OnConnect = [this](TPowersock&) { Events += "c"; };
    OnConnectionFailed = [this](TPowersock&) { Events += "x"; };
    OnSuccess = note("s");
    OnUnSupportedFunction = note("u");
    OnFailure = [this, failed = note("f")](TNMFTP& sender, bool& handled, TCmdType type) {
      failed(sender, type);
      handled = Handle;
    };
    OnStatus = [this](TPowersock&, const std::string& status) { Statuses += status; };
    OnAuthenticationNeeded = [this](TPowersock&, bool&) { UserID = "asked"; };
    OnTransactionStop = [this](TPowersock&) { ++Stops; };
  }
  void UseProxy(TFirewallType type) {
    FirewallType = type;
    Proxy = std::exchange(Host, "far");
    ProxyPort = std::exchange(Port, 1);
  }

  std::string Events, Statuses;
  bool Handle = false;
  int Stops = 0;
};

TEST(NmFtp, LoginConversations) {
  const struct {
    std::string Talk, Error = "";
    void (*Set)(TClient&) = [](TClient&) {};
  } rows[] = {
      {"USER asked>230 in", "", [](TClient& c) { c.UserID = c.Password = ""; }},
      {"USER user>331 pw|PASS secret>530-Sorry.\r\n530 Login incorrect.", "530 Login incorrect."},
      {"USER user>400 no refusal"},
      {"USER user>401 a refusal", "401 a refusal"},
      {"USER fw>331 pw|PASS fwpw>230 in|USER user>331 pw|PASS secret>230 in", "",
       [](TClient& c) { c.FWAuthenticate = true, c.FWUserID = "fw", c.FWPassword = "fwpw"; }},
      {"USER user@far>230 in", "", [](TClient& c) { c.UseProxy(TFirewallType::FTUser); }},
      {"OPEN far>500 any|USER user>230 in", "", [](TClient& c) { c.UseProxy(TFirewallType::FtOpen); }},
      {"SITE far>220 ok|USER user>230 in", "", [](TClient& c) { c.UseProxy(TFirewallType::FtSite); }},
      // The greeting is not judged, but a code left from before is.
      {"", "220 ready", [](TClient& c) { c.ReplyCode = 401; }},
      {"USER user>331 pw", "Line end or NUL in an FTP command", [](TClient& c) { c.Password = "sec\0ret"s; }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Talk);
    // Bare text within a greeting of several lines does not end it.
    TFtpServer server(false, ">220-Hello\r\n you\r\nthere\r\n220 ready|" + row.Talk + "|PWD>257 /");
    TClient ftp(server);
    row.Set(ftp);
    EXPECT_EQ(Failure([&] { ftp.Connect(); }), row.Error);
    EXPECT_EQ(ftp.Events, row.Error.empty() ? "c" : row.Error.starts_with("Line") ? "" : "x");
    EXPECT_THAT(ftp.Statuses, Not(AnyOf(HasSubstr("secret"), HasSubstr("fwpw"))));
    if (row.Error.empty()) ftp.SendCommand("PWD");
  }
}

TEST(NmFtp, CommandsTellTheirTypeAndFailuresMayBeHandled) {
  const struct {
    std::string Command, Reply, Events;
  } rows[] = {
      {"CWD /a", "250 ok", "s0"},     {"MKD a", "257 ok", "s1"},        {"DELE a", "250 ok", "s2"},
      {"RMD a", "250 ok", "s3"},      {"PWD", "257 \"/\"", "s15"},      {"PWDX", "399 ok", "s14"},
      {"CWD /d", "600 odd", "s0"},    {"CWD /b", "400 no", "f0"},       {"CWD /c", "599 handled", "f0"},
      {"SYST", "500 what", "u14f14"}, {"SITE x", "502 what", "u14f14"}, {"SITE y", "503 no", "f14"},
  };
  std::string talk = ">220 hi|USER user>230 in|";
  for (const auto& row : rows) talk += row.Command + ">" + row.Reply + "|";
  TFtpServer server(false, talk + "TYPE A>200 ok|TYPE I>200 ok|TYPE L 8>200 ok|QUIT>301 stay|PWD>421 idle");
  TClient ftp(server);
  for (int n = 0; n < 2; ++n) ftp.Connect();
  for (const auto& row : rows) {
    ftp.Handle = row.Reply.ends_with("handled");
    ftp.Events.clear();
    const bool fails = row.Events.find('f') != std::string::npos && !ftp.Handle;
    EXPECT_EQ(Failure([&] { ftp.SendCommand(row.Command); }), fails ? row.Reply : "");
    EXPECT_EQ(ftp.LastReply, row.Reply + "\r\n");
    EXPECT_EQ(ftp.Events, row.Events) << row.Command;
  }
  for (int type = 0; type <= 4; ++type) ftp.SetTransferType(type);
  EXPECT_EQ(Failure([&] { ftp.Disconnect(); }), "301 stay");
  EXPECT_EQ(Failure([&] { ftp.SendCommand("PWD"); }), "421 idle");
  EXPECT_FALSE(ftp.Connected) << "a server that says 421 closes";
  ftp.Disconnect();  // nothing happens
  EXPECT_EQ(Failure([&] { ftp.SendCommand("PWD"); }), "Not Connected");
}

TEST(NmFtp, DownloadsTellHowTheyWent) {
  const struct {
    std::string Talk, Error;
    std::string Outcome;  // S started, W whole; the final reply; the local file, which held "old" before
    std::string Events;
  } rows[] = {
      {"150 f (5 bytes)|data:hello|>226-all\r\n226 done", "", "SW 226 done=hello", "s9"},
      {"150-f\r\n150-(6 bytes)\r\n150 go|data:hello|>226 done", "", "S 226 done=hello", "s9"},
      {"150 f|data:hello|ABOR>426 cut\r\n226 ok", "Socket send aborted", "S 226 ok=hello", ""},
      {"150-f\r\n503-no\r\n503 more", "503-no", " =old", "f9"},
      // A refusal that the handler accepts is a quiet return.
      {"301 none", "", " =old", "f9"},
  };
  const TTempFolder folder;
  for (const auto& row : rows) {
    for (const bool passive : {true, false}) {
      SCOPED_TRACE(row.Talk);
      TFtpServer server(passive, "login|open|RETR /f>" + row.Talk + "|PWD>257 /|QUIT>|close");
      TClient ftp(server);
      ftp.Passive = passive;
      ftp.Handle = row.Error.empty();
      const std::string local = folder.Write("local", "old");
      ftp.OnPacketRecvd = [&](TPowersock& sender) {
        EXPECT_EQ(sender.TransferSize, &row == rows ? 5 : 0);
        EXPECT_EQ(Failure([&] { ftp.RetrieveFile("/g", "g"); }), "Busy with another transfer");
        if (row.Error.ends_with("aborted")) ftp.Abort();
      };
      ftp.Connect();
      EXPECT_EQ(Failure([&] { ftp.RetrieveFile("/f", local); }), row.Error);
      const TNMFTP::TTransfer& last = ftp.LastTransfer;
      const std::string outcome = (last.Started ? "S"s : "") + (last.Whole ? "W " : " ") + last.FinalReply;
      EXPECT_EQ(outcome + "=" + ReadWholeFile(local), row.Outcome);
      EXPECT_EQ(ftp.Events, "c" + row.Events);
      EXPECT_EQ(ftp.Stops, row.Events == "s9" ? 2 : 0);
      EXPECT_EQ(ftp.TransferSize, last.Started ? 5 : 0);
      ftp.SendCommand("PWD");
      ftp.Disconnect();  // a server that hangs up at the QUIT has understood
      EXPECT_FALSE(ftp.Connected);
    }
  }
}

TEST(NmFtp, NameListsAreActiveAndHandOverEveryLine) {
  std::string endless;
  while (endless.size() <= TPowersock::kMaxKept) endless += std::string(998, 'x') + "\r\n";
  const struct {
    std::string Talk, Error, Names;
    int TimeOut = 20'000;
  } rows[] = {
      // The final reply overtakes the data.
      {"150 names (14 bytes)\r\n226 done|data:<drip>a.Z\r\nb\n\r\nlast", "", "a.Z|b\n|\r\n|last|"},
      {"150 names|data:a.Z\r\n<stall>|>426 cut", "Socket readln aborted", "a.Z|"},
      {"150 names|data:<endless>|>226 done", "Listing too large", std::string(100, 'x')},
      {"150 names\r\n425 cannot", "Accepting Canceled", "", 40},
      {"150-names\r\n550 gone", "550 gone", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Talk);
    TFtpServer server(false, "login|open|NLST>" + row.Talk + "|PWD>257 /", {{"endless", endless}});
    TClient ftp(server);
    ftp.Passive = true;
    ftp.Connect();
    ftp.TimeOut = row.TimeOut;
    std::string listed;
    ftp.OnListItem = [&](TNMFTP&, const std::string& line) {
      listed += line + "|";
      if (row.Error.ends_with("aborted")) ftp.Abort();
    };
    EXPECT_EQ(Failure([&] { ftp.NameList(); }), row.Error);
    EXPECT_EQ(listed.substr(0, 100), row.Names);
    EXPECT_EQ(ftp.Events, row.Error.empty() ? "cs13" : "c") << "OnFailure is not asked here";
    if (row.Error.empty()) {
      EXPECT_EQ(ftp.TransferSize, 13);
      EXPECT_EQ(ftp.LastTransfer.FinalReply, "226 done");
    }
    ftp.TimeOut = 20'000;
    ftp.SendCommand("PWD");
  }
}

}  // namespace
}  // namespace skyreel
