#include "net/nm_ftp.h"

#include <gmock/gmock.h>

#include <chrono>
#include <optional>
#include <regex>

#include "base/files.h"
#include "base/text.h"
#include "support/failure.h"
#include "support/ftp_script.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

using namespace std::string_literals;
using namespace test;
using namespace testing;

const std::regex kReplies(">[^|]*"), kPort("PORT 127,0,0,1,[0-9]+,[0-9]+");

/// A client of `server` that keeps its events: c connected, x connection failed, and with the number of the
/// command s success, u unsupported, f failure.
struct TClient : TNMFTP {
  explicit TClient(const TServer& server, TEventHook hook = {}) : TNMFTP(std::move(hook)) {
    Host = "127.0.0.1";
    Port = server.Port();
    UserID = "user";
    Password = "secret";
    ReportLevel = 1;
    OnConnect = [this](TPowersock&) { Events += "c"; };
    OnConnectionFailed = [this](TPowersock&) { Events += "x"; };
    OnSuccess = [this](TNMFTP&, TCmdType type) { Note("s", type); };
    OnUnSupportedFunction = [this](TNMFTP&, TCmdType type) { Note("u", type); };
    OnFailure = [this](TNMFTP&, bool& handled, TCmdType type) {
      Note("f", type);
      EXPECT_FALSE(handled);
      handled = Handle;
    };
    OnStatus = [this](TPowersock&, const std::string& status) { Statuses += status + "|"; };
  }
  void Note(const char* event, TCmdType type) { Events += event + std::to_string(static_cast<int>(type)); }

  std::string Events, Statuses;
  bool Handle = false;
};

/// The lines that the server has read, divided by '|', "PORT" standing for a PORT command.
std::string Asked(const TServer& server) {
  std::string asked;
  for (const std::string& line : server.Lines())
    asked += (asked.empty() ? "" : "|") + std::regex_replace(line, kPort, "PORT");
  return asked;
}

// --- Login and commands ----------------------------------------------------------------------------------

TEST(NmFtp, LoginConversations) {
  using enum TFirewallType;
  const struct {
    std::string Talk, Error = "";
    std::optional<TFirewallType> Proxy = {};
    std::string FWUserID = "", UserID = "user", Password = "secret";
    std::int16_t OldCode = 0;
  } rows[] = {
      {"USER user>331 pw|PASS secret>230 in"},
      {"USER user>230 in"},
      {"USER user>530 not you", "530 not you"},
      {"USER user>331 pw|PASS secret>530-Sorry.\r\n530 Login incorrect.", "530 Login incorrect."},
      {"USER user>400 no refusal"},
      {"USER user>401 a refusal", "401 a refusal"},
      {"USER fw>331 pw|PASS fwpw>230 in|USER user>331 pw|PASS secret>230 in", "", {}, "fw"},
      {"USER user@far>331 pw|PASS secret>230 in", "", FTUser},
      {"OPEN far>500 not judged|USER user>331 pw|PASS secret>230 in", "", FtOpen},
      {"SITE far>220 ok|USER user>331 pw|PASS secret>230 in", "", FtSite},
      // Not the greeting is judged, but a code left from before.
      {"", "220 ready", {}, "", "user", "secret", 550},
      {"", "Line end or NUL in an FTP command", {}, "", "user\r\nDELE x"},
      {"USER user>331 pw", "Line end or NUL in an FTP command", {}, "", "user", "sec\0ret"s},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Talk);
    // Bare text within a greeting of several lines does not end it.
    TScriptedServer server(FtpTalk(TScript().Reply("220-Hello\r\n you\r\nthere\r\n220 ready\r\n"), row.Talk));
    TClient ftp(server);
    ftp.UserID = row.UserID;
    ftp.Password = row.Password;
    ftp.FWAuthenticate = !row.FWUserID.empty();
    ftp.FWUserID = row.FWUserID;
    ftp.FWPassword = "fwpw";
    ftp.FirewallType = row.Proxy.value_or(FTUser);
    ftp.ReplyCode = row.OldCode;
    if (row.Proxy) {
      ftp.Proxy = std::exchange(ftp.Host, "far");
      ftp.ProxyPort = std::exchange(ftp.Port, 1);
    }
    EXPECT_EQ(Failure([&] { ftp.Connect(); }), row.Error);
    EXPECT_EQ(ftp.Events, row.Error.empty() ? "c" : row.Error.starts_with("Line") ? "" : "x");
    EXPECT_THAT(ftp.Statuses, Not(AnyOf(HasSubstr("secret"), HasSubstr("fwpw"))));
    EXPECT_EQ(Asked(server), std::regex_replace(row.Talk, kReplies, ""));
    EXPECT_THAT(server.Errors(), IsEmpty());
  }
}

TEST(NmFtp, CommandsTellTheirTypeAndFailuresMayBeHandled) {
  const struct {
    std::string Command, Reply, Events;
  } rows[] = {
      {"CWD /a", "250 ok", "s0"},       {"MKD a", "257 ok", "s1"},   {"DELE a", "250 ok", "s2"},
      {"RMD a", "250 ok", "s3"},        {"PWD", "257 \"/\"", "s15"}, {"PWDX", "399 ok", "s14"},
      {"cwd /a", "250 ok", "s14"},      {"CWD /b", "400 no", "f0"},  {"SYST", "500 what", "u14f14"},
      {"SITE x", "502 what", "u14f14"}, {"SITE y", "503 no", "f14"}, {"CWD /d", "600 odd", "s0"},
  };
  std::string talk;
  for (const auto& row : rows)
    for (int n = 0; n < 2; ++n) talk += row.Command + ">" + row.Reply + "|";
  talk += "TYPE A>200 ok|TYPE I>200 ok|TYPE L 8>200 ok|QUIT>500 stay|QUIT>221 bye";
  TScriptedServer server(FtpTalk(FtpLogin(), talk));
  TClient ftp(server);
  ftp.Connect();
  ftp.Connect();  // nothing happens
  for (const auto& row : rows) {
    for (const bool handle : {false, true}) {
      ftp.Handle = handle;
      ftp.Events.clear();
      const bool fails = row.Events.find('f') != std::string::npos;
      EXPECT_EQ(Failure([&] { ftp.SendCommand(row.Command); }), fails && !handle ? row.Reply : "");
      EXPECT_EQ(ftp.LastReply, row.Reply + "\r\n");
      EXPECT_EQ(ftp.Events, row.Events) << row.Command;
    }
  }
  EXPECT_EQ(Failure([&] { ftp.ChangeDirectory("a\rb"); }), "Line end or NUL in an FTP command");
  EXPECT_EQ(Failure([&] { ftp.RetrieveFile("a\0b"s, "x"); }), "Line end or NUL in an FTP command");
  for (int type = 0; type <= 4; ++type) ftp.SetTransferType(type);
  EXPECT_EQ(Failure([&] { ftp.Disconnect(); }), "500 stay");
  EXPECT_TRUE(ftp.Connected);
  ftp.Vendor = 1;
  ftp.Disconnect();
  ftp.Disconnect();  // nothing happens
  EXPECT_EQ(ftp.Vendor, 2411);
  EXPECT_EQ(Failure([&] { ftp.SendCommand("PWD"); }), "Not Connected");
  EXPECT_EQ(Asked(server), "USER user|PASS secret|" + std::regex_replace(talk, kReplies, ""));
}

// --- Transfers -------------------------------------------------------------------------------------------

/// The server of one download of "/f", with the conversation from RETR on.
struct TDownload {
  TDownload(bool passive, const std::string& talk, const std::string& data)
      : Data(TScript().Reply(data)),
        Control(FtpTalk(FtpLogin(),
                        passive ? "PASV>" + PasvReply(Data.Port()) + "|" + ReplaceAll(talk, "data|", "")
                                : "*>200 ok|" + talk,
                        TScript().Reply(data))) {}
  TScriptedServer Data, Control;
};

TEST(NmFtp, DownloadsTellHowTheyWent) {
  const struct {
    std::string Talk, Error;
    std::string Outcome;  // S started, W whole; the final reply; the local file, which held "old" before
  } rows[] = {
      {"RETR /f>150 f (5 bytes)|data|>226-all\r\n226 done", "", "SW 226 done=hello"},
      {"RETR /f>150 bytes|data|>226 done", "", "SW 226 done=hello"},
      {"RETR /f>150-f\r\n150-(6 bytes)\r\n150 go|data|>226 done", "", "S 226 done=hello"},
      {"RETR /f>150 f|data|ABOR>426 cut\r\n226 ok", "Socket send aborted", "S 226 ok=hello"},
      {"RETR /f>150-f\r\n550-no\r\n550 more", "550-no", " =old"},
  };
  const TTempFolder folder;
  for (const auto& row : rows) {
    for (const bool passive : {false, true}) {
      SCOPED_TRACE(row.Talk);
      TDownload server(passive, row.Talk + "|PWD>257 /", "hello");
      TClient ftp(server.Control);
      ftp.Passive = passive;
      const std::string local = folder.Write("local", "old");
      int stops = 0;
      ftp.OnTransactionStop = [&](TPowersock&) { ++stops; };
      if (row.Error.ends_with("aborted")) ftp.OnPacketRecvd = [&](TPowersock&) { ftp.Abort(); };
      ftp.Connect();
      ftp.Events.clear();
      EXPECT_EQ(Failure([&] { ftp.RetrieveFile("/f", local); }), row.Error);
      const TNMFTP::TTransfer& last = ftp.LastTransfer;
      EXPECT_EQ((last.Started ? "S"s : "") + (last.Whole ? "W" : "") + " " + last.FinalReply + "=" +
                    ReadWholeFile(local),
                row.Outcome);
      EXPECT_FALSE(last.TimedOut);
      EXPECT_EQ(ftp.Events.ends_with("s9"), row.Error.empty());
      EXPECT_EQ(stops, row.Error.empty() ? 2 : 0);
      EXPECT_EQ(ftp.TransferSize, last.Started ? 5 : 0);
      ftp.SendCommand("PWD");
      EXPECT_THAT(server.Control.Errors(), IsEmpty());
    }
  }
}

TEST(NmFtp, ProgressAndStatusTellTheTransferWhichNothingElseDisturbs) {
  const TTempFolder folder;
  for (const bool passive : {true, false}) {
    TDownload server(passive, "RETR /f>150 f (300000 bytes)|data|>226 done", std::string(300'000, 'x'));
    TClient ftp(server.Control);
    ftp.Passive = passive;
    ftp.Connect();
    std::int64_t last = 0;
    ftp.OnPacketRecvd = [&](TPowersock& sender) {
      EXPECT_EQ(sender.TransferSize, 300'000);
      EXPECT_GT(sender.ReceivedByteCount, last);
      last = sender.ReceivedByteCount;
      EXPECT_EQ(Failure([&] { ftp.RetrieveFile("/g", "g"); }), "Busy with another transfer");
      EXPECT_EQ(Failure([&] { ftp.Disconnect(); }), "Busy with another transfer");
    };
    ftp.RetrieveFile("/f", (folder / "f").string());
    EXPECT_EQ(last, 300'000);
    EXPECT_THAT(ftp.Statuses, EndsWith("|RETR /f|150 f (300000 bytes)\r\n|Received 300000 Bytes|"
                                       "226 done\r\n|"));
    EXPECT_EQ(Asked(server.Control), "USER user|PASS secret|"s + (passive ? "PASV" : "PORT") + "|RETR /f");
  }
}

TEST(NmFtp, AHandledRefusalIsAQuietReturn) {
  const struct {
    std::string Talk, Error, Events;
  } rows[] = {
      {"PASV>502 what", "", "f9"},
      // A reply that names no port is no refusal, but nothing that can be worked with.
      {"PASV>227 (1,2,3,4,0,0)", "No usable port in the reply: 227 (1,2,3,4,0,0)", ""},
      {"*>500 what", "", "f9"},
      {"*>200 ok|RETR /f>550 none", "", "f9"},
  };
  for (const auto& row : rows) {
    TScriptedServer server(FtpTalk(FtpLogin(), row.Talk + "|QUIT>|close"));
    TClient ftp(server);
    ftp.Passive = row.Talk.starts_with("PASV");
    ftp.Handle = true;
    ftp.Connect();
    EXPECT_EQ(Failure([&] { ftp.RetrieveFile("/f", "f"); }), row.Error);
    EXPECT_EQ(ftp.Events, "c" + row.Events) << row.Talk;
    EXPECT_TRUE(ftp.Connected);
    ftp.Disconnect();  // a server that hangs up at the QUIT has understood
    EXPECT_FALSE(ftp.Connected);
  }
}

TEST(NmFtp, NameListsAreActiveAndHandOverEveryLine) {
  const auto names = [](const std::string& text) { return TScript().Reply(text); };
  std::string endless;
  while (endless.size() <= TPowersock::kMaxKept) endless += std::string(998, 'x') + "\r\n";
  const struct {
    std::string Talk;
    TScript Data;
    std::string Error, Names;
    int TimeOut = 200;
  } rows[] = {
      // The final reply overtakes the data.
      {"NLST>150 names (14 bytes)\r\n226 done|data",
       TScript().Drip("a.Z\r\nb\n\r\nlast", std::chrono::milliseconds(10), 5), "", "a.Z|b\n|\r\n|last|",
       5000},
      {"NLST>150 names\r\n226 done|data", names("a.Z\r\n").WaitForClose(), "", "a.Z|", 5000},
      {"NLST>150 names|data|>426 cut", names("a.Z\r\n").WaitForClose(), "Socket readln aborted", "a.Z|"},
      {"NLST>150 names|data|>226 done", names(endless), "Listing too large", std::string(100, 'x')},
      {"NLST>150 names|>425 cannot", {}, "Accepting Canceled", ""},
      {"NLST>550 no files", {}, "550 no files", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Talk);
    TScriptedServer server(FtpTalk(FtpLogin(), "*>200 ok|" + row.Talk + "|PWD>257 /", row.Data));
    TClient ftp(server);
    ftp.Passive = true;
    ftp.TimeOut = row.TimeOut;
    ftp.Connect();
    std::string listed;
    ftp.OnListItem = [&](TNMFTP&, const std::string& line) { listed += line + "|"; };
    EXPECT_EQ(Failure([&] { ftp.NameList(); }), row.Error);
    EXPECT_EQ(listed.substr(0, 100), row.Names);
    EXPECT_EQ(ftp.Events, row.Error.empty() ? "cs13" : "c") << "OnFailure is not asked here";
    if (row.Error.empty()) {
      EXPECT_EQ(ftp.TransferSize, row.Names.ends_with("last|") ? 13 : 5);
      EXPECT_EQ(ftp.LastTransfer.FinalReply, "226 done");
    }
    ftp.SendCommand("PWD");
    EXPECT_EQ(Asked(server), "USER user|PASS secret|PORT|NLST|PWD");
  }
}

}  // namespace
}  // namespace skyreel
