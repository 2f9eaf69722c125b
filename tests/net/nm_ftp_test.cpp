#include "net/nm_ftp.h"

#include <gmock/gmock.h>

#include "base/files.h"
#include "support/helpers.h"
#include "support/scripted_server.h"

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
    OnAuthenticationNeeded = [this](TPowersock&, bool&) { UserID = "asked"; };
  }

  std::string Events;
  bool Handle = false;
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
      {"USER user@far>230 in"},
      {"OPEN far>500 any|USER user>230 in", "", [](TClient& c) { c.FirewallType = TFirewallType::FtOpen; }},
      {"SITE far>220 ok|USER user>230 in", "", [](TClient& c) { c.FirewallType = TFirewallType::FtSite; }},
      // The greeting is not judged, but a code left from before is.
      {"", "220 ready", [](TClient& c) { c.ReplyCode = 401; }},
      {"USER user>331 pw", "Line end or NUL in an FTP command", [](TClient& c) { c.Password = "sec\0ret"s; }},
  };
  for (const auto& row : rows) {
    // Bare text within a greeting of several lines does not end it.
    TFtpServer server(false, ">220-Hello\r\n you\r\nthere\r\n220 ready|" + row.Talk + "|PWD>257 /");
    TClient ftp(server);
    if (row.Talk.find("far") != row.Talk.npos) {
      ftp.Proxy = std::exchange(ftp.Host, "far");
      ftp.ProxyPort = std::exchange(ftp.Port, 1);
    }
    row.Set(ftp);
    EXPECT_EQ(Failure([&] { ftp.Connect(); }), row.Error);
    EXPECT_EQ(ftp.Events, row.Error.empty() ? "c" : row.Error.starts_with("Line") ? "" : "x");
    if (row.Error.empty()) ftp.SendCommand("PWD");
  }
}

TEST(NmFtp, CommandsTellTheirTypeAndFailuresMayBeHandled) {
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {"CWD /a", "250 ok", "s0"},     {"MKD a", "257 ok", "s1"},        {"DELE a", "250 ok", "s2"},
      {"RMD a", "250 ok", "s3"},      {"PWD", "257 \"/\"", "s15"},      {"PWDX", "399 ok", "s14"},
      {"CWD /d", "600 odd", "s0"},    {"CWD /b", "400 no", "f0"},       {"CWD /c", "599 handled", "f0"},
      {"SYST", "500 what", "u14f14"}, {"SITE x", "502 what", "u14f14"}, {"SITE y", "503 no", "f14"},
  };
  std::string talk = ">220 hi|USER user>230 in|";
  for (const auto& [command, reply, events] : rows) talk += command + ">" + reply + "|";
  TFtpServer server(false, talk + "TYPE A>200 ok|TYPE I>200 ok|TYPE L 8>200 ok|QUIT>301 stay|PWD>421 idle");
  TClient ftp(server);
  for (int n = 0; n < 2; ++n) ftp.Connect();
  for (const auto& [command, reply, events] : rows) {
    ftp.Handle = reply.ends_with("handled");
    ftp.Events.clear();
    const bool fails = events.ends_with("f0") || events.ends_with("f14");
    EXPECT_EQ(Failure([&] { ftp.SendCommand(command); }), fails && !ftp.Handle ? reply : "");
    EXPECT_EQ(ftp.LastReply, reply + "\r\n");
    EXPECT_EQ(ftp.Events, events) << command;
  }
  for (int type = 0; type <= 4; ++type) ftp.SetTransferType(type);
  EXPECT_EQ(Failure([&] { ftp.Disconnect(); }), "301 stay");
  EXPECT_EQ(Failure([&] { ftp.SendCommand("PWD"); }), "421 idle");
  EXPECT_FALSE(ftp.Connected) << "a server that says 421 closes";
  EXPECT_EQ(Failure([&] { ftp.SendCommand("PWD"); }), "Not Connected");
}

TEST(NmFtp, TransfersTellHowTheyWentAndTheSessionGoesOn) {
  std::string endless;
  while (endless.size() <= TPowersock::kMaxKept) endless += std::string(998, 'x') + "\r\n";
  // The talk, the failure, the events; the outcome: S started, W whole, the final reply, the bytes, and the
  // local file, which held "old" before, or the names.
  const std::tuple<std::string, std::string, std::string, std::string> rows[] = {
      {"RETR /f>150 f (5 bytes)|data:hello|>226-all\r\n226 done", "", "s9", "SW 226 done 5 hello"},
      {"RETR /f>150-f\r\n150-(6 bytes)\r\n150 go|data:hello|>226 done", "", "s9", "S 226 done 5 hello"},
      {"RETR /f>150 f|data:hello|ABOR>426 cut\r\n226 ok", "Socket send aborted", "", "S 226 ok 5 hello"},
      {"RETR /f>150-f\r\n503-no\r\n503 more", "503-no", "f9", "  0 old"},
      // A refusal that the handler accepts is a quiet return.
      {"RETR /f>301 none", "", "f9", "  0 old"},
      // The final reply overtakes the data.
      {"NLST>150 names\r\n226 done|data:<drip>a.Z\r\nb\n\r\nlast", "", "s13",
       "SW 226 done 13 a.Z|b\n|\r\n|last|"},
      {"NLST>150 names\r\n226 done|data:a.Z\r\n<stall>", "", "s13", "SW 226 done 5 a.Z|"},
      {"NLST>150 names|data:a.Z\r\n<stall>|>426 cut", "Socket readln aborted", "", "S 426 cut 5 a.Z|"},
      {"NLST>150 names|data:<endless>|>226 done", "Listing too large", "",
       "S 226 done 67109000 " + endless.substr(0, 80)},
      {"NLST>150 names\r\n425 cannot", "Accepting Canceled", "", " 425 cannot 0 "},
      {"NLST>150-names\r\n550 gone", "550 gone", "", "  0 "},  // OnFailure is not asked
  };
  const TTempFolder folder;
  for (const auto& [talk, error, events, outcome] : rows) {
    SCOPED_TRACE(talk);
    const bool lists = talk.starts_with("NLST"), aborts = error.ends_with("aborted");
    TFtpServer server(!lists, "login|open|" + talk + "|PWD>257 /|QUIT>|close", {{"endless", endless}});
    TClient ftp(server);
    ftp.Passive = true;  // but listings are active
    ftp.Handle = error.empty();
    const std::string local = folder.Write("local", lists ? "" : "old");
    std::string listed;
    ftp.OnListItem = [&](TNMFTP&, const std::string& line) {
      listed += line + "|";
      if (aborts) ftp.Abort();
    };
    ftp.OnPacketRecvd = [&](TPowersock& sender) {
      EXPECT_EQ(sender.TransferSize, talk.find("(5 bytes)") != talk.npos ? 5 : 0);
      EXPECT_EQ(Failure([&] { ftp.RetrieveFile("/g", "g"); }), "Busy with another transfer");
      if (aborts && !lists) ftp.Abort();
    };
    ftp.Connect();
    EXPECT_EQ(Failure([&] { lists ? ftp.NameList() : ftp.RetrieveFile("/f", local); }), error);
    const TNMFTP::TTransfer& last = ftp.LastTransfer;
    std::string told = (last.Started ? "S"s : "") + (last.Whole ? "W " : " ") + last.FinalReply + " ";
    told += std::to_string(ftp.TransferSize) + " " + (listed + ReadWholeFile(local)).substr(0, 80);
    EXPECT_EQ(told, outcome);
    EXPECT_EQ(ftp.Events, "c" + events);
    ftp.SendCommand("PWD");
    ftp.Disconnect();  // a server that hangs up at the QUIT has understood
    EXPECT_FALSE(ftp.Connected);
  }
}

}  // namespace
}  // namespace skyreel
