#include "net/nm_ftp.h"

#include <gmock/gmock.h>

#include <chrono>
#include <optional>
#include <regex>

#include "base/files.h"
#include "base/text.h"
#include "support/failure.h"
#include "support/scripted_server.h"
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
  explicit TClient(const TScriptedServer& server, TEventHook hook = {}) : TNMFTP(std::move(hook)) {
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
    OnAuthenticationNeeded = [this](TPowersock&, bool&) { UserID = "asked"; };
  }
  void Note(const char* event, TCmdType type) { Events += event + std::to_string(static_cast<int>(type)); }

  std::string Events, Statuses;
  bool Handle = false;
};

/// The lines that the server has read, divided by '|', "PORT" standing for a PORT command.
std::string Asked(const TScriptedServer& server) {
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
      {"USER asked>230 in", "", {}, "", ""},
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
    TFtpServer server(false, ">220-Hello\r\n you\r\nthere\r\n220 ready|" + row.Talk);
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
  TFtpServer server(false, "login|" + talk);
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

TEST(NmFtp, DownloadsTellHowTheyWent) {
  const struct {
    std::string Talk, Error;
    std::string Outcome;  // S started, W whole; the final reply; the local file, which held "old" before
    std::string Events;
  } rows[] = {
      {"open|RETR /f>150 f (5 bytes)|data:hello|>226-all\r\n226 done", "", "SW 226 done=hello", "s9"},
      {"open|RETR /f>150 bytes|data:hello|>226 done", "", "SW 226 done=hello", "s9"},
      {"open|RETR /f>150-f\r\n150-(6 bytes)\r\n150 go|data:hello|>226 done", "", "S 226 done=hello", "s9"},
      {"open|RETR /f>150-f (5 bytes)\r\nmore\r\n150 go|data:hello|>226 done", "", "SW 226 done=hello", "s9"},
      {"open|RETR /f>150 f|data:hello|ABOR>426 cut\r\n226 ok", "Socket send aborted", "S 226 ok=hello", ""},
      {"open|RETR /f>150-f\r\n550-no\r\n550 more", "550-no", " =old", "f9"},
      // A refusal that the handler takes for its own is a quiet return.
      {"open|RETR /f>550 none", "", " =old", "f9"},
      {"open>502 what", "", " =old", "f9"},
      {"open>227 (1,2,3,4,0,0)", "No usable port in the reply: 227 (1,2,3,4,0,0)", " =old", ""},
  };
  const TTempFolder folder;
  for (const auto& row : rows) {
    for (const bool passive : {true, false}) {
      if (!passive && row.Error.starts_with("No usable port")) continue;
      SCOPED_TRACE(row.Talk);
      TFtpServer server(passive, "login|" + row.Talk + "|PWD>257 /|QUIT>|close");
      TClient ftp(server);
      ftp.Passive = passive;
      ftp.Handle = row.Error.empty();
      const std::string local = folder.Write("local", "old");
      int stops = 0;
      ftp.OnTransactionStop = [&](TPowersock&) { ++stops; };
      ftp.OnPacketRecvd = [&](TPowersock& sender) {
        EXPECT_EQ(sender.TransferSize, &row == rows ? 5 : 0);
        EXPECT_EQ(Failure([&] { ftp.RetrieveFile("/g", "g"); }), "Busy with another transfer");
        EXPECT_EQ(Failure([&] { ftp.Disconnect(); }), "Busy with another transfer");
        if (row.Error.ends_with("aborted")) ftp.Abort();
      };
      ftp.Connect();
      EXPECT_EQ(Failure([&] { ftp.RetrieveFile("/f", local); }), row.Error);
      const TNMFTP::TTransfer& last = ftp.LastTransfer;
      EXPECT_EQ((last.Started ? "S"s : "") + (last.Whole ? "W" : "") + " " + last.FinalReply + "=" +
                    ReadWholeFile(local),
                row.Outcome);
      EXPECT_FALSE(last.TimedOut);
      EXPECT_EQ(ftp.Events, "c" + row.Events);
      EXPECT_EQ(stops, row.Events == "s9" ? 2 : 0);
      EXPECT_EQ(ftp.TransferSize, last.Started ? 5 : 0);
      if (&row == rows) {
        EXPECT_THAT(ftp.Statuses, EndsWith("|RETR /f|150 f (5 bytes)\r\n|Received 5 Bytes|226-all\r\n|"
                                           "226 done\r\n|"));
      }
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
    int TimeOut = 200;
  } rows[] = {
      // The final reply overtakes the data.
      {"NLST>150 names (14 bytes)\r\n226 done|data:<drip>a.Z\r\nb\n\r\nlast", "", "a.Z|b\n|\r\n|last|", 5000},
      {"NLST>150 names\r\n226 done|data:a.Z\r\n<stall>", "", "a.Z|", 5000},
      {"NLST>150 names|data:a.Z\r\n<stall>|>426 cut", "Socket readln aborted", "a.Z|"},
      {"NLST>150 names|data:" + endless + "|>226 done", "Listing too large", std::string(100, 'x')},
      {"NLST>150 names|>425 cannot", "Accepting Canceled", ""},
      {"NLST>550 no files", "550 no files", ""},
      {"NLST>150-names\r\n550 gone", "550 gone", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Talk.substr(0, 100));
    TFtpServer server(false, "login|open|" + row.Talk + "|PWD>257 /");
    TClient ftp(server);
    ftp.Passive = true;
    ftp.TimeOut = row.TimeOut;
    ftp.Connect();
    std::string listed;
    int stops = 0;
    ftp.OnTransactionStop = [&](TPowersock&) { ++stops; };
    ftp.OnListItem = [&](TNMFTP&, const std::string& line) { listed += line + "|"; };
    EXPECT_EQ(Failure([&] { ftp.NameList(); }), row.Error);
    EXPECT_EQ(listed.substr(0, 100), row.Names);
    EXPECT_EQ(stops, row.Error.empty() ? 1 : 0);
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
