#include "net/nm_ftp.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <chrono>
#include <csignal>
#include <optional>
#include <system_error>

#include "base/files.h"
#include "support/ftp_script.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

using test::FtpLogin;
using test::PasvReply;
using test::TScript;
using test::TScriptedServer;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

void Aim(TNMFTP& ftp, const test::TServer& server) {
  ftp.Host = "127.0.0.1";
  ftp.Port = server.Port();
  ftp.UserID = "user";
  ftp.Password = "secret";
}

/// What an operation throws; "" when nothing.
template <typename F>
std::string Thrown(F operation) {
  try {
    operation();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "";
}

/// Every line of the lists, "PORT" standing for a PORT command with whatever port.
std::vector<std::string> Commands(const test::TServer& server) {
  std::vector<std::string> lines = server.Lines();
  for (std::string& line : lines)
    if (line.starts_with("PORT 127,0,0,1,")) line = "PORT";
  return lines;
}

// --- Login and commands ----------------------------------------------------------------------------------

TEST(NmFtp, LoginConversations) {
  using TExchanges = std::vector<std::pair<const char*, const char*>>;
  const struct {
    const char* Name;
    std::function<void(TNMFTP&)> Set;
    TExchanges Exchanges;
    const char* Error;
    bool ConnectionFailed;
  } rows[] = {
      {"plain", [](TNMFTP&) {}, {{"USER user", "331 pw"}, {"PASS secret", "230 in"}}, "", false},
      {"no password wanted", [](TNMFTP&) {}, {{"USER user", "230 in"}}, "", false},
      {"user refused", [](TNMFTP&) {}, {{"USER user", "530 not you"}}, "530 not you", true},
      {"password refused",
       [](TNMFTP&) {},
       {{"USER user", "331 pw"}, {"PASS secret", "530-Sorry.\r\n530 Login incorrect."}},
       "530 Login incorrect.",
       true},
      {"600 is no refusal", [](TNMFTP&) {}, {{"USER user", "600 what"}}, "", false},
      {"400 is no refusal", [](TNMFTP&) {}, {{"USER user", "400 what"}}, "", false},
      {"firewall",
       [](TNMFTP& ftp) {
         ftp.FWAuthenticate = true;
         ftp.FWUserID = "fw";
         ftp.FWPassword = "fwpw";
       },
       {{"USER fw", "331 pw"}, {"PASS fwpw", "230 in"}, {"USER user", "331 pw"}, {"PASS secret", "230 in"}},
       "",
       false},
      {"firewall refuses",
       [](TNMFTP& ftp) {
         ftp.FWAuthenticate = true;
         ftp.FWUserID = "fw";
       },
       {{"USER fw", "401 no"}},
       "401 no",
       true},
      {"proxy, user@host",
       [](TNMFTP& ftp) {
         ftp.Proxy = "127.0.0.1";
         ftp.Host = "far.example";
       },
       {{"USER user@far.example", "331 pw"}, {"PASS secret", "230 in"}},
       "",
       false},
      {"proxy, OPEN, reply not judged",
       [](TNMFTP& ftp) {
         ftp.Proxy = "127.0.0.1";
         ftp.Host = "far.example";
         ftp.FirewallType = TFirewallType::FtOpen;
       },
       {{"OPEN far.example", "500 what"}, {"USER user", "331 pw"}, {"PASS secret", "230 in"}},
       "",
       false},
      {"proxy, SITE",
       [](TNMFTP& ftp) {
         ftp.Proxy = "127.0.0.1";
         ftp.Host = "far.example";
         ftp.FirewallType = TFirewallType::FtSite;
       },
       {{"SITE far.example", "220 ok"}, {"USER user", "331 pw"}, {"PASS secret", "230 in"}},
       "",
       false},
      {"a refusing greeting is not detected; the reply to USER decides",
       [](TNMFTP&) {},
       {{"USER user", "421 Too many users"}},
       "421 Too many users",
       true},
      {"a code left from before is, instead of the greeting",
       [](TNMFTP& ftp) { ftp.ReplyCode = 550; },
       {},
       "220 ready",
       true},
      {"a user name with a line end",
       [](TNMFTP& ftp) { ftp.UserID = "user\r\nDELE x"; },
       {},
       "Line end or NUL in an FTP command",
       false},
      {"a password with NUL",
       [](TNMFTP& ftp) { ftp.Password = std::string("sec\0ret", 7); },
       {{"USER user", "331 pw"}},
       "Line end or NUL in an FTP command",
       false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Name);
    TScript script;
    // Bare text within a greeting of several lines does not end it.
    script.Reply(row.ConnectionFailed ? "220 ready\r\n" : "220-Hello\r\n you\r\nthere\r\n220 ready\r\n");
    std::vector<std::string> commands;
    for (const auto& [command, reply] : row.Exchanges) {
      script.Exchange(command, reply);
      commands.push_back(command);
    }
    TScriptedServer server(script.WaitForClose());
    TNMFTP ftp;
    Aim(ftp, server);
    ftp.ProxyPort = server.Port();
    int connected = 0, failed = 0;
    std::string statuses;
    ftp.ReportLevel = 1;
    ftp.OnConnect = [&](TPowersock&) { ++connected; };
    ftp.OnConnectionFailed = [&](TPowersock&) { ++failed; };
    ftp.OnStatus = [&](TPowersock&, const std::string& status) { statuses += status + "\n"; };
    row.Set(ftp);
    EXPECT_EQ(Thrown([&] { ftp.Connect(); }), row.Error);
    EXPECT_EQ(connected, *row.Error == '\0' ? 1 : 0);
    EXPECT_EQ(failed, row.ConnectionFailed ? 1 : 0);
    EXPECT_THAT(statuses, Not(HasSubstr("secret")));
    EXPECT_THAT(statuses, Not(HasSubstr("fwpw")));
    EXPECT_EQ(server.Lines(), commands);
    EXPECT_THAT(server.Errors(), IsEmpty());
  }
}

TEST(NmFtp, CommandsTellTheirTypeAndFailuresMayBeHandled) {
  const struct {
    const char* Command;
    const char* Reply;
    int Type;
    bool Success, Unsupported;
  } rows[] = {
      {"CWD /a", "250 ok", 0, true, false},   {"MKD a", "257 ok", 1, true, false},
      {"DELE a", "250 ok", 2, true, false},   {"RMD a", "250 ok", 3, true, false},
      {"PWD", "257 \"/\"", 15, true, false},  {"PWDX", "399 ok", 14, true, false},
      {"cwd /a", "250 ok", 14, true, false},  {"CWD /b", "400 no", 0, false, false},
      {"SYST", "500 what", 14, false, true},  {"SITE x", "502 what", 14, false, true},
      {"SITE y", "503 no", 14, false, false}, {"CWD /c", "599 no", 0, false, false},
      {"CWD /d", "600 odd", 0, true, false},  {"STAT", "no code", 14, true, false},
  };
  TScript script = FtpLogin();
  std::vector<std::string> commands = {"USER user", "PASS secret"};
  for (const auto& row : rows) {
    for (int handled = 0; handled < 2; ++handled) {
      // A late reply to nothing before it is no reply to it.
      script.Exchange(row.Command, row.Reply);
      commands.push_back(row.Command);
    }
  }
  script.Exchange("TYPE A", "200 ok").Exchange("TYPE I", "200 ok").Exchange("TYPE L 8", "200 ok");
  script.Exchange("QUIT", "221 bye").WaitForClose();
  commands.insert(commands.end(), {"TYPE A", "TYPE I", "TYPE L 8", "QUIT"});
  TScriptedServer server(script);
  TNMFTP ftp;
  Aim(ftp, server);
  ftp.Connect();
  ftp.Connect();  // already connected: nothing happens
  std::string events;  // outlives the loop, since the handlers stay set
  for (const auto& row : rows) {
    for (const bool handle : {false, true}) {
      SCOPED_TRACE(row.Command);
      events.clear();
      ftp.OnSuccess = [&](TNMFTP&, TCmdType type) { events += "s" + std::to_string(static_cast<int>(type)); };
      ftp.OnUnSupportedFunction = [&](TNMFTP&, TCmdType type) {
        events += "u" + std::to_string(static_cast<int>(type));
      };
      ftp.OnFailure = [&](TNMFTP&, bool& handled, TCmdType type) {
        events += "f" + std::to_string(static_cast<int>(type));
        EXPECT_FALSE(handled);
        handled = handle;
      };
      EXPECT_EQ(Thrown([&] { ftp.SendCommand(row.Command); }), row.Success || handle ? "" : row.Reply);
      const std::string type = std::to_string(row.Type);
      EXPECT_EQ(events, row.Success ? "s" + type : (row.Unsupported ? "u" + type : "") + "f" + type);
    }
  }
  ftp.OnSuccess = nullptr;
  for (int type = 0; type <= 4; ++type) ftp.SetTransferType(type);
  ftp.Vendor = 1;
  ftp.Disconnect();
  EXPECT_EQ(ftp.Vendor, 2411);
  EXPECT_FALSE(ftp.Connected);
  ftp.Disconnect();
  EXPECT_EQ(Thrown([&] { ftp.SendCommand("PWD"); }), "Not Connected");
  EXPECT_EQ(server.Lines(), commands);
}

TEST(NmFtp, ARefusedQuitLeavesTheConnectionAndAHangUpEndsIt) {
  TScriptedServer server(FtpLogin().Exchange("QUIT", "500 stay").Expect("QUIT").Close());
  TNMFTP ftp;
  Aim(ftp, server);
  ftp.Connect();
  EXPECT_EQ(Thrown([&] { ftp.Disconnect(); }), "500 stay");
  EXPECT_TRUE(ftp.Connected);
  EXPECT_EQ(Thrown([&] { ftp.Disconnect(); }), "");
  EXPECT_FALSE(ftp.Connected);
}

TEST(NmFtp, BadRepliesEndTheConnectionWithAMessage) {
  const struct {
    const char* Name;
    std::function<void(TScript&)> Answer;
    const char* Error;
  } rows[] = {
      {"closes", [](TScript& s) { s.Close(); }, "Connection closed by server"},
      {"resets", [](TScript& s) { s.Reset(); }, "10054:Connection reset by peer"},
      {"cut in the line", [](TScript& s) { s.Reply("250 o").Close(); }, "Connection closed by server"},
      {"cut in the reply", [](TScript& s) { s.Reply("250-a\r\n").Close(); }, "Connection closed by server"},
      {"endless line", [](TScript& s) { s.Reply(std::string(70'000, '2')); }, "Line too long"},
      {"endless reply",
       [](TScript& s) {
         for (int n = 0; n < 30; ++n) s.Reply("250-" + std::string(50'000, 'x') + "\r\n");
       },
       "Reply too large"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Name);
    TScript script = FtpLogin().Expect("CWD /a");
    row.Answer(script);
    TScriptedServer server({std::move(script), FtpLogin().Exchange("PWD", "257 /").WaitForClose()});
    TNMFTP ftp;
    Aim(ftp, server);
    ftp.Connect();
    EXPECT_EQ(Thrown([&] { ftp.ChangeDirectory("/a"); }), row.Error);
    EXPECT_FALSE(ftp.Connected);
    // The component is usable again.
    EXPECT_EQ(Thrown([&] {
                ftp.Connect();
                ftp.SendCommand("PWD");
              }),
              "");
  }
}

TEST(NmFtp, NulBytesInARepliesAreBytesLikeOthers) {
  const std::string nul("250 a\0b", 7);
  TScriptedServer server(FtpLogin().Exchange("CWD /a", nul).Exchange("PWD", "257 /").WaitForClose());
  TNMFTP ftp;
  Aim(ftp, server);
  ftp.Connect();
  ftp.ChangeDirectory("/a");
  EXPECT_EQ(ftp.LastReply, nul + "\r\n");
  ftp.SendCommand("PWD");
}

TEST(NmFtp, NothingIsSentOfACommandWithALineEnd) {
  TScriptedServer server(FtpLogin().WaitForClose());
  TNMFTP ftp;
  Aim(ftp, server);
  ftp.Connect();
  for (const std::string& bad : {std::string("a\nb"), std::string("a\rb"), std::string("a\0b", 3)}) {
    EXPECT_EQ(Thrown([&] { ftp.ChangeDirectory(bad); }), "Line end or NUL in an FTP command");
    EXPECT_EQ(Thrown([&] { ftp.RetrieveFile(bad, "x"); }), "Line end or NUL in an FTP command");
  }
  EXPECT_THAT(server.Lines(), ElementsAre("USER user", "PASS secret"));
}

TEST(NmFtp, AnUnansweredCommandOutlastsTheTimeOutButNotAnAbort) {
  TScriptedServer server(FtpLogin().Expect("CWD /a").Stall());
  const auto begin = std::chrono::steady_clock::now();
  constexpr std::chrono::milliseconds kTimeOut{40}, kWatchdog{160};
  TNMFTP* client = nullptr;
  TNMFTP ftp([&] {
    if (client != nullptr && std::chrono::steady_clock::now() - begin > kWatchdog) client->Abort();
  });
  Aim(ftp, server);
  ftp.TimeOut = static_cast<int>(kTimeOut.count());
  ftp.Connect();
  client = &ftp;
  EXPECT_EQ(Thrown([&] { ftp.ChangeDirectory("/a"); }), "Socket readln aborted");
  EXPECT_GE(std::chrono::steady_clock::now() - begin, kWatchdog);
  EXPECT_FALSE(ftp.Connected) << "the reply may still come, to the wrong command";
}

// --- Downloads -------------------------------------------------------------------------------------------

/// One client and a server with which it downloads "/f" in both modes.
struct TDownload {
  const char* Name;
  const char* Opening;                   ///< reply to RETR
  std::function<void(TScript&)> Data;    ///< what the server does on the data connection; empty: opens none
  std::function<void(TScript&)> Ending;  ///< and then on the control connection
  const char* Error;
  bool Started, Whole, TimedOut;
  const char* FinalReply;
  const char* Content;  ///< of the local file afterwards; it held "old" before
};

class NmFtpModes : public testing::TestWithParam<bool> {
 protected:
  /// Adds the conversation of a download up to its ending.
  void Open(TScript& control, const TDownload& row) {
    TScript data;
    if (row.Data) row.Data(data);
    data_.emplace(data);
    if (GetParam()) {
      const bool refused = std::string(row.Opening).find("550") != std::string::npos;
      if (!row.Data && !refused) data_->StopListening();
      control.Exchange("PASV", PasvReply(data_->Port()));
      if (row.Data || refused) control.Exchange("RETR /f", row.Opening);
      return;
    }
    control.ReadLine().Reply("200 ok\r\n").Exchange("RETR /f", row.Opening);
    if (row.Data) control.ConnectBack(data);
  }

  std::optional<TScriptedServer> data_;
  const test::TTempFolder folder_;
};

INSTANTIATE_TEST_SUITE_P(NmFtp, NmFtpModes, testing::Bool(),
                         [](const auto& mode) { return mode.param ? "Passive" : "Active"; });

TEST_P(NmFtpModes, DownloadsEndAsTheirServersLetThem) {
  const auto hello = [](TScript& s) { s.Reply("hello"); };
  const auto done = [](TScript& s) { s.Reply("226 done\r\n"); };
  const auto abor = [](TScript& s) { s.Expect("ABOR").Reply("426 cut\r\n226 abort done\r\n"); };
  const TDownload rows[] = {
      {"whole", "150 f (5 bytes)", hello, done, "", true, true, false, "226 done", "hello"},
      {"no size", "150 here it comes", hello, done, "", true, true, false, "226 done", "hello"},
      {"no size, but the word", "150 bytes follow", hello, done, "", true, true, false, "226 done", "hello"},
      {"more than announced", "125 f (4 bytes)", hello, done, "", true, true, false, "226 done", "hello"},
      {"size in an earlier line", "150-f (6 bytes)\r\n150 go", hello, done, "", true, false, false,
       "226 done", "hello"},
      {"empty", "150 f (0 bytes)", [](TScript&) {}, done, "", true, true, false, "226 done", ""},
      {"shorter than announced", "150 f (6 bytes)", hello, done, "", true, false, false, "226 done", "hello"},
      {"reply before the last data", "150 f (5 bytes)",
       [](TScript& s) { s.Drip("hello", std::chrono::milliseconds(20)); }, done, "", true, true, false,
       "226 done", "hello"},
      {"150, then 451", "150 f (5 bytes)", hello, [](TScript& s) { s.Reply("451-disk\r\n451 error\r\n"); },
       "", true, false, false, "451 error", "hello"},
      {"data reset", "150 f (5 bytes)",
       [](TScript& s) {
         // In passive mode not before the client has sent RETR.
         if (GetParam()) s.Stall();
         s.Reset();
       },
       [this](TScript& s) { s.Call([this] { data_->Release(); }).Reply("426 reset\r\n"); },
       "10054:Connection reset by peer", true, false, false, "426 reset", ""},
      {"data stall", "150 f (5 bytes)", [](TScript& s) { s.Reply("hel").Stall(); }, abor,
       "Socket send aborted", true, false, true, "226 abort done", "hel"},
      {"control closed", "150 f (5 bytes)", hello, [](TScript& s) { s.Close(); },
       "Connection closed by server", true, false, false, "", "hello"},
      {"refused",
       "550 no such file",
       {},
       [](TScript&) {},
       "550 no such file",
       false,
       false,
       false,
       "",
       "old"},
      {"refused in many lines",
       "550-no\r\n550 such file",
       {},
       [](TScript&) {},
       "550 such file",
       false,
       false,
       false,
       "",
       "old"},
      {"refused after all",
       "150-f\r\n550-no\r\n550 more",
       {},
       [](TScript&) {},
       "550-no",
       false,
       false,
       false,
       "",
       "old"},
      {"no data connection",
       "150 f (5 bytes)",
       {},
       GetParam() ? std::function<void(TScript&)>([](TScript&) {}) : abor,
       GetParam() ? "Connection Failed" : "Accepting Canceled",
       false,
       false,
       !GetParam(),
       GetParam() ? "" : "226 abort done",
       "old"},
  };
  for (const TDownload& row : rows) {
    SCOPED_TRACE(row.Name);
    TScript control = FtpLogin();
    Open(control, row);
    row.Ending(control);
    control.Exchange("PWD", "257 /").WaitForClose();
    TScriptedServer server(control);
    TNMFTP ftp;
    Aim(ftp, server);
    ftp.Passive = GetParam();
    ftp.TimeOut = 150;
    const auto local = folder_.Write("local", "old");
    int succeeded = 0, stops = 0;
    ftp.OnSuccess = [&](TNMFTP&, TCmdType type) { succeeded += type == TCmdType::Download; };
    ftp.OnTransactionStop = [&](TPowersock&) { ++stops; };
    ftp.Connect();
    EXPECT_EQ(Thrown([&] { ftp.RetrieveFile("/f", local.string()); }), row.Error);
    EXPECT_EQ(ftp.LastTransfer.Started, row.Started);
    EXPECT_EQ(ftp.LastTransfer.Whole, row.Whole);
    EXPECT_EQ(ftp.LastTransfer.TimedOut, row.TimedOut);
    EXPECT_EQ(ftp.LastTransfer.FinalReply, row.FinalReply);
    EXPECT_EQ(ReadWholeFile(local), row.Content);
    EXPECT_EQ(succeeded, *row.Error == '\0' ? 1 : 0);
    if (*row.Error == '\0') {
      EXPECT_EQ(stops, 2);
      EXPECT_EQ(ftp.TransferSize, static_cast<std::int64_t>(std::string(row.Content).size()));
    }
    // Whatever happened, the next command gets its own reply.
    if (ftp.Connected) {
      EXPECT_EQ(Thrown([&] { ftp.SendCommand("PWD"); }), "");
      EXPECT_EQ(ftp.LastReply, "257 /\r\n");
    }
    EXPECT_THAT(server.Errors(), IsEmpty());
  }
}

TEST_P(NmFtpModes, ProgressAndStatusTellTheTransfer) {
  TScript control = FtpLogin();
  const std::string content(300'000, 'x');
  Open(control, {"",
                 "150 f (300000 bytes)",
                 [&](TScript& s) { s.Reply(content); },
                 {},
                 "",
                 false,
                 false,
                 false,
                 "",
                 ""});
  control.Reply("226-all\r\n226 done\r\n").WaitForClose();
  TScriptedServer server(control);
  TNMFTP ftp;
  Aim(ftp, server);
  ftp.Passive = GetParam();
  ftp.Connect();
  ftp.ReportLevel = 1;
  std::vector<std::string> statuses;
  ftp.OnStatus = [&](TPowersock&, const std::string& status) { statuses.push_back(status); };
  std::int64_t last = 0;
  ftp.OnPacketRecvd = [&](TPowersock& sender) {
    EXPECT_EQ(sender.TransferSize, 300'000);
    EXPECT_GT(sender.ReceivedByteCount, last);
    last = sender.ReceivedByteCount;
    EXPECT_EQ(Thrown([&] { ftp.RetrieveFile("/g", "g"); }), "Busy with another transfer");
    EXPECT_EQ(Thrown([&] { ftp.Disconnect(); }), "Busy with another transfer");
  };
  ftp.RetrieveFile("/f", (folder_ / "f").string());
  EXPECT_EQ(last, 300'000);
  EXPECT_EQ(ReadWholeFile(folder_ / "f"), content);
  statuses.erase(statuses.begin());  // the reply to PASV or PORT
  EXPECT_THAT(statuses, ElementsAre("RETR /f", "150 f (300000 bytes)\r\n", "Received 300000 Bytes",
                                    "226-all\r\n", "226 done\r\n"));
  const char* const opening = GetParam() ? "PASV" : "PORT";
  EXPECT_THAT(Commands(server), ElementsAre("USER user", "PASS secret", opening, "RETR /f"));
}

TEST_P(NmFtpModes, AbortInMidTransferSendsAbor) {
  TScript control = FtpLogin();
  Open(control, {"",
                 "150 f (5 bytes)",
                 [](TScript& s) { s.Reply("hel").Stall(); },
                 {},
                 "",
                 false,
                 false,
                 false,
                 "",
                 ""});
  control.Exchange("ABOR", "226 aborted").Exchange("PWD", "257 /").WaitForClose();
  TScriptedServer server(control);
  TNMFTP ftp;
  Aim(ftp, server);
  ftp.Passive = GetParam();
  ftp.Connect();
  ftp.OnPacketRecvd = [&](TPowersock&) { ftp.Abort(); };
  EXPECT_THROW(ftp.RetrieveFile("/f", (folder_ / "f").string()), EAbortError);
  EXPECT_FALSE(ftp.LastTransfer.TimedOut);
  ftp.SendCommand("PWD");
  EXPECT_THAT(server.Errors(), IsEmpty());
}

TEST_P(NmFtpModes, AServerThatHasGoneSilentDoesNotGetToAnswerAbor) {
  TScript control = FtpLogin();
  Open(control, {"", "150 f (5 bytes)", [](TScript& s) { s.Stall(); }, {}, "", false, false, false, "", ""});
  control.Expect("ABOR").Stall();
  TScriptedServer server(control);
  TNMFTP ftp;
  Aim(ftp, server);
  ftp.Passive = GetParam();
  ftp.TimeOut = 100;
  ftp.Connect();
  EXPECT_THROW(ftp.RetrieveFile("/f", (folder_ / "f").string()), EAbortError);
  EXPECT_TRUE(ftp.LastTransfer.TimedOut);
  EXPECT_FALSE(ftp.Connected);
}

TEST_P(NmFtpModes, AFullDiskFailsTheFileAndNotTheSession) {
  TScript control = FtpLogin();
  Open(control, {"",
                 "150 f",
                 [](TScript& s) { s.Reply(std::string(100'000, 'x')); },
                 {},
                 "",
                 false,
                 false,
                 false,
                 "",
                 ""});
  control.Reply("426 cut\r\n").Exchange("PWD", "257 /").WaitForClose();
  TScriptedServer server(control);
  TNMFTP ftp;
  Aim(ftp, server);
  ftp.Passive = GetParam();
  ftp.Connect();
  // A limit on file sizes stands for the disk.
  const auto old_handler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
  const rlimit small{8192, limit.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  EXPECT_THROW(ftp.RetrieveFile("/f", (folder_ / "f").string()), std::system_error);
  ::setrlimit(RLIMIT_FSIZE, &limit);
  std::signal(SIGXFSZ, old_handler);
  EXPECT_TRUE(ftp.LastTransfer.Started);
  EXPECT_FALSE(ftp.LastTransfer.Whole);
  ftp.SendCommand("PWD");
}

TEST(NmFtp, AHandledRefusalIsAQuietReturn) {
  const struct {
    bool Passive;
    std::vector<std::pair<const char*, const char*>> Exchanges;
  } rows[] = {
      {true, {{"PASV", "502 what"}}},
      {true, {{"PASV", "227 (1,2,3,4,0,0)"}}},
      {false, {{"PORT", "500 what"}}},
      {false, {{"PORT", "200 ok"}, {"RETR /f", "550 none"}}},
  };
  for (const auto& row : rows) {
    TScript script = FtpLogin();
    for (const auto& [command, reply] : row.Exchanges) {
      std::string(command) == "PORT" ? script.ReadLine().Reply(reply + std::string("\r\n"))
                                     : script.Exchange(command, reply);
    }
    TScriptedServer server(script.WaitForClose());
    TNMFTP ftp;
    Aim(ftp, server);
    ftp.Passive = row.Passive;
    ftp.Connect();
    int failed = 0;
    ftp.OnFailure = [&](TNMFTP&, bool& handled, TCmdType type) {
      failed += type == TCmdType::Download;
      handled = true;
    };
    ftp.OnSuccess = [](TNMFTP&, TCmdType) { ADD_FAILURE(); };
    const std::string reply = row.Exchanges.back().second;
    // A reply that names no port is no refusal, but nothing that can be worked with.
    const bool unusable = reply.starts_with("227");
    EXPECT_EQ(Thrown([&] { ftp.RetrieveFile("/f", "f"); }),
              unusable ? "No usable port in the reply: " + reply : "");
    EXPECT_EQ(failed, unusable ? 0 : 1) << reply;
    EXPECT_TRUE(ftp.Connected);
  }
}

// --- Name lists ------------------------------------------------------------------------------------------

TEST(NmFtp, NameListIsActiveAndHandsOverEveryLine) {
  TScript data;
  data.Drip("a.Z\r\nb\n\r\nlast", std::chrono::milliseconds(10), 5);
  // The final reply overtakes the data.
  TScriptedServer server(FtpLogin()
                             .ReadLine()
                             .Reply("200 ok\r\n")
                             .Expect("NLST")
                             .Reply("150 names (14 bytes)\r\n226 done\r\n")
                             .ConnectBack(data)
                             .Exchange("PWD", "257 /")
                             .WaitForClose());
  TNMFTP ftp;
  Aim(ftp, server);
  ftp.Passive = true;
  ftp.Connect();
  std::vector<std::string> names;
  int succeeded = 0;
  ftp.OnListItem = [&](TNMFTP&, const std::string& line) { names.push_back(line); };
  ftp.OnSuccess = [&](TNMFTP&, TCmdType type) { succeeded += type == TCmdType::NameList; };
  ftp.NameList();
  EXPECT_THAT(names, ElementsAre("a.Z", "b\n", "\r\n", "last"));
  EXPECT_EQ(ftp.TransferSize, 13);
  EXPECT_EQ(ftp.LastTransfer.FinalReply, "226 done");
  EXPECT_EQ(succeeded, 1);
  ftp.SendCommand("PWD");
  EXPECT_THAT(Commands(server), ElementsAre("USER user", "PASS secret", "PORT", "NLST", "PWD"));
}

TEST(NmFtp, NameListFaults) {
  const struct {
    const char* Name;
    const char* Opening;
    std::function<void(TScript&)> Data;
    const char* Ending;
    const char* Error;
  } rows[] = {
      {"refused", "550 no files", {}, "", "550 no files"},
      {"stall", "150 names", [](TScript& s) { s.Reply("a.Z\r\n").Stall(); }, "426 cut\r\n",
       "Socket readln aborted"},
      {"never opens", "150 names", {}, "425 cannot\r\n", "Accepting Canceled"},
      {"endless line", "150 names", [](TScript& s) { s.Reply(std::string(200'000, 'x')); }, "226 done\r\n",
       "Line too long"},
      {"left open after the final reply", "150 names\r\n226 done",
       [](TScript& s) { s.Reply("a.Z\r\n").Stall(); }, "", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Name);
    TScript script = FtpLogin().ReadLine().Reply("200 ok\r\n").Exchange("NLST", row.Opening);
    TScript data;
    if (row.Data) {
      row.Data(data);
      script.ConnectBack(data);
    }
    TScriptedServer server(script.Reply(row.Ending).Exchange("PWD", "257 /").WaitForClose());
    TNMFTP ftp;
    Aim(ftp, server);
    ftp.TimeOut = *row.Error == '\0' ? 5000 : 200;
    ftp.OnFailure = [](TNMFTP&, bool&, TCmdType) { ADD_FAILURE() << "not asked here"; };
    ftp.Connect();
    EXPECT_EQ(Thrown([&] { ftp.NameList(); }), row.Error);
    ftp.OnFailure = nullptr;
    EXPECT_EQ(Thrown([&] { ftp.SendCommand("PWD"); }), "");
    EXPECT_EQ(ftp.LastReply, "257 /\r\n");
  }
}

TEST(NmFtp, AMillionNamesPassAndAnEndlessListingDoesNot) {
  for (const bool endless : {false, true}) {
    const std::string line = endless ? std::string(998, 'x') + "\r\n" : "2005111012.Z\r\n";
    const int count = endless ? 70'000 : 1'000'000;
    std::string listing;
    for (int n = 0; n < count; ++n) listing += line;
    TScript data;
    data.Reply(listing);
    TScriptedServer server(FtpLogin()
                               .ReadLine()
                               .Reply("200 ok\r\n")
                               .Exchange("NLST", "150 names")
                               .ConnectBack(data)
                               .Reply("226 done\r\n")
                               .WaitForClose());
    TNMFTP ftp;
    Aim(ftp, server);
    ftp.Connect();
    int names = 0;
    ftp.OnListItem = [&](TNMFTP&, const std::string&) { ++names; };
    EXPECT_EQ(Thrown([&] { ftp.NameList(); }), endless ? "Listing too large" : "");
    if (!endless) {
      EXPECT_EQ(names, count);
    }
  }
}

}  // namespace
}  // namespace skyreel
