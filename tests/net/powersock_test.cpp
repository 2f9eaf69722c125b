#include "net/powersock.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netdb.h>

#include <array>
#include <chrono>
#include <future>

#include "base/exceptions.h"
#include "base/files.h"
#include "support/failure.h"
#include "support/scripted_server.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace test;
using testing::HasSubstr;

/// A component that connects to `server`, and what happens in its waits.
struct TClient : TPowersock {
  explicit TClient(const TServer& server)
      : TPowersock([this] {
          if (InWait) InWait();
        }) {
    Host = "127.0.0.1";
    Port = server.Port();
  }
  void ConnectAgain() {
    Disconnect();
    Connect();
  }
  using TPowersock::SendAll;
  using TPowersock::WaitForInput;

  std::function<void()> InWait;
};

/// The port that `socket` listens on.
std::uint16_t PortOf(const TPowersock& socket) {
  const std::string pair = socket.LocalPortPair();
  return static_cast<std::uint16_t>(std::stoi(TPowersock::FieldAt(pair, ',', 2)) * 256 +
                                    std::stoi(TPowersock::FieldAt(pair, ',', 3)));
}

/// A port at which nobody listens.
std::uint16_t ClosedPort() {
  TScriptedServer server(std::vector<TScript>{});
  server.StopListening();
  return server.Port();
}

// --- Connecting ------------------------------------------------------------------------------------------

TEST(PowersockConnect, LooksUpNamesButNotDottedAddresses) {
  const struct {
    std::string Host, Proxy, LookedUp;
  } kCases[] = {{"127.0.0.1", "", ""},
                {"sky.example", "", "sky.example"},
                {"sky.example", "127.0.0.1", ""},
                {"sky.example", "proxy.example", "proxy.example"},
                {"127.0.0.1", "proxy.example", "proxy.example"}};
  for (const auto& c : kCases) {
    TScriptedServer server(TScript().WaitForClose());
    std::string looked_up, events;
    TClient socket(server);
    socket.Host = c.Host;
    socket.Proxy = c.Proxy;
    if (!c.Proxy.empty()) socket.ProxyPort = std::exchange(socket.Port, 1);
    socket.LookUp = [&](const std::string& host, in_addr& address) {
      looked_up = host;
      address.s_addr = htonl(INADDR_LOOPBACK);
      return 0;
    };
    socket.OnHostResolved = [&](TPowersock&) { events += "resolved "; };
    socket.OnConnect = [&](TPowersock&) { events += "connected"; };
    socket.Connect();
    EXPECT_EQ(looked_up, c.LookedUp);
    EXPECT_EQ(events, c.LookedUp.empty() ? "connected" : "resolved connected") << c.Host << c.Proxy;
    EXPECT_EQ(Failure<ESockError>([&] { socket.Connect(); }), "Already connected");
  }
}

TEST(PowersockConnect, EveryFailureHasItsMessageAndLeavesTheComponentUsable) {
  TScriptedServer good(std::vector<TScript>(12, TScript().Reply("hello\r\n")));
  // Connections beyond these two are neither taken nor refused: the queue is full.
  TPowersock full;
  full.Listen(true);
  std::array<TPowersock, 2> waiting;
  for (TPowersock& each : waiting) {
    each.Host = "127.0.0.1";
    each.Port = PortOf(full);
    each.Connect();
  }
  std::promise<void> answer;
  const auto slow = [answered = answer.get_future().share()](const std::string&, in_addr&) {
    answered.wait();
    return 0;
  };
  const auto fails_with = [](int error) { return [error](const std::string&, in_addr&) { return error; }; };
  const struct {
    const char *Message, *Host;
    std::uint16_t Port;
    int TimeOut;  // 0: cancelled in the event hook
    TLookupFunction LookUp;
    bool Failed;  // OnConnectionFailed
    int LastSocketError;
  } kCases[] = {
      {"Connection Failed", "127.0.0.1", ClosedPort(), 5000, LookUpHost, true, 10061},
      {"Connection Timed out", "127.0.0.1", PortOf(full), 40, LookUpHost, true, 0},
      {"Connection Canceled", "127.0.0.1", PortOf(full), 0, LookUpHost, true, 0},
      {"Host Lookup Timed Out", "slow.example", 80, 40, slow, false, 0},
      {"Host Lookup Canceled", "slow.example", 80, 0, slow, false, 0},
      {"Host Lookup Failed", "no.example", 80, 5000, fails_with(EAI_NONAME), false, 11001},
      {"Host Lookup Failed", "no.example", 80, 5000, fails_with(EAI_AGAIN), false, 11002},
      {"Host Lookup Failed", "127.0.0.1\n", 80, 5000, LookUpHost, false, 0},
      {"Null Remote Address", "0.0.0.0", 80, 5000, LookUpHost, false, 0},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.Message);
    TClient socket(good);
    int failed = 0;
    socket.OnConnectionFailed = [&](TPowersock&) { ++failed; };
    socket.Host = c.Host;
    socket.Port = c.Port;
    socket.TimeOut = c.TimeOut;
    socket.LookUp = c.LookUp;
    if (c.TimeOut == 0) socket.InWait = [&] { socket.Cancel(); };
    EXPECT_EQ(Failure<ESockError>([&] { socket.Connect(); }), c.Message);
    EXPECT_FALSE(socket.Connected);
    EXPECT_EQ(failed, c.Failed ? 1 : 0);
    EXPECT_EQ(socket.LastSocketError, c.LastSocketError);

    socket.InWait = {};
    socket.Host = "127.0.0.1";
    socket.Port = good.Port();
    socket.TimeOut = 5000;
    socket.Connect();
    EXPECT_EQ(socket.ReadLn(), "hello\r\n");
  }
  answer.set_value();
}

TEST(PowersockConnect, HandlersOfAnInvalidHostAndOfAMissingConnectionGetOneChance) {
  TScriptedServer server(TScript().WaitForClose());
  TClient socket(server);
  int asked = 0;
  bool handles = false;
  socket.OnInvalidHost = [&](TPowersock& sender, bool& handled) {
    EXPECT_FALSE(handled);
    // The third time, with an address that is one.
    if (++asked == 3) sender.Host = "127.0.0.1";
    handled = handles;
  };
  socket.Host = "0.0.0.0";
  EXPECT_EQ(Failure<ESockError>([&] { socket.Connect(); }), "Null Remote Address");
  handles = true;
  EXPECT_EQ(Failure<ESockError>([&] { socket.Connect(); }), "Null Remote Address");
  socket.Connect();
  EXPECT_EQ(asked, 3);

  socket.Disconnect();
  EXPECT_EQ(Failure([&] { socket.EnsureConnected(); }), "Not Connected");
  asked = 0;
  socket.OnConnectionRequired = [&](TPowersock& sender, bool& handled) {
    handled = true;
    if (++asked > 1) sender.Connect();
  };
  EXPECT_EQ(Failure([&] { socket.EnsureConnected(); }), "Not Connected");
  EXPECT_EQ(asked, 1);
  EXPECT_EQ(Failure([&] { socket.EnsureConnected(); }), "");
}

TEST(PowersockConnect, ArrivalAndCloseAreToldOnceAndTheCloseOnlyWhenTheDataAreRead) {
  TScriptedServer server(TScript().Reply("one\r\n").Stall().Reply("last words\r\n"));
  TClient socket(server);
  int arrived = 0, disconnected = 0;
  socket.OnDataArrived = [&](TPowersock&) { ++arrived; };
  socket.OnDisconnect = [&](TPowersock&) { ++disconnected; };
  socket.Connect();
  while (arrived == 0) socket.WaitForInput();
  socket.WaitForInput();
  EXPECT_EQ(arrived, 1);
  EXPECT_EQ(socket.ReadLn(), "one\r\n");
  server.Release();
  while (arrived == 1) socket.WaitForInput();
  socket.EnsureConnected();
  EXPECT_EQ(socket.ReadLn(), "last words\r\n");
  EXPECT_EQ(arrived, 2);
  while (socket.Connected) socket.WaitForInput();
  EXPECT_EQ(disconnected, 1);
  EXPECT_EQ(Failure([&] { socket.EnsureConnected(); }), "Not Connected");
}

// --- Receiving -------------------------------------------------------------------------------------------

TEST(PowersockReceive, ReadLnTakesOneLineOfLimitedLengthAndLeavesTheNext) {
  const std::string longest = std::string(TPowersock::kMaxLine - 1, 'x') + "\n";
  TScriptedServer server({TScript().Reply("1\r\n2\n").Drip("222 three\r\npart", 1ms, 3),
                          TScript().Reply("noise").Stall().Reply(longest + "y" + longest).WaitForClose()});
  TClient socket(server);
  socket.Connect();
  EXPECT_EQ(socket.ReadLn(), "1\r\n");
  EXPECT_TRUE(socket.HasPendingData());
  EXPECT_EQ(socket.ReadLn(), "2\n");
  EXPECT_EQ(socket.ReadLn(), "222 three\r\n");
  EXPECT_EQ(socket.ReadLn(), "") << "a line without an end is none";

  socket.ConnectAgain();
  while (!socket.HasPendingData()) socket.WaitForInput();
  socket.ClearInput();
  EXPECT_FALSE(socket.HasPendingData());
  server.Release();
  EXPECT_TRUE(socket.ReadLn() == longest);
  EXPECT_EQ(Failure<ESockError>([&] { socket.ReadLn(); }), "Line too long");
}

TEST(PowersockReceive, ReadWaitsForTheCount) {
  TScriptedServer server(TScript().Drip("abcdefgh", 2ms).Stall().Reply("ij"));
  TClient socket(server);
  socket.TimeOut = 5000;
  socket.Connect();
  EXPECT_EQ(socket.Read(5), "abcde");
  EXPECT_EQ(socket.Read(3), "fgh");
  EXPECT_EQ(socket.Read(0), "");
  server.Release();
  EXPECT_EQ(socket.Read(3), "") << "the third byte can not come any more";
  EXPECT_EQ(socket.Read(0), "ij");
  EXPECT_EQ(socket.Read(1), "");
}

TEST(PowersockReceive, TimeOutBoundsTheSilenceNotTheTransfer) {
  TScriptedServer server(TScript().Drip(std::string(60, 'x'), 10ms, 2));
  TTempFolder folder;
  TClient socket(server);
  socket.TimeOut = 200;
  socket.Connect();
  socket.CaptureFile(folder.Write("body", std::string(300, 'o')));
  EXPECT_EQ(ReadWholeFile(folder / "body"), std::string(60, 'x'));
}

TEST(PowersockReceive, CaptureStringDropsASingleByte) {
  TScriptedServer server(
      {TScript().Reply("x"), TScript().Reply("ab").Stall().Reply("c"), TScript().Reply("abcdef")});
  TClient socket(server);
  socket.OnPacketRecvd = [&](TPowersock& sender) {
    if (sender.ReceivedByteCount == 2) server.Release();
  };
  const std::pair<std::int64_t, const char*> kCases[] = {{-1, ""}, {-1, "ab"}, {1, "abcdef"}};
  for (const auto& [maximum, kept] : kCases) {
    std::string text = "older";
    socket.ConnectAgain();
    socket.CaptureString(text, maximum);
    EXPECT_EQ(text, kept) << "the last receive may pass the maximum";
    EXPECT_EQ(socket.ReceivedByteCount, static_cast<std::int64_t>(text.size()));
  }
  EXPECT_TRUE(socket.Connected);
  std::string text = "older";
  socket.CaptureString(text, 0);
  EXPECT_EQ(text, "");
}

TEST(PowersockReceive, ResetIsAnErrorWithItsNumberAndNoConnectionHasNothingToRead) {
  TScriptedServer server(TScript().ReadLine().Reset());
  TClient socket(server);
  std::string text = "older";
  EXPECT_EQ(socket.ReadLn(), "");
  EXPECT_EQ(socket.LastSocketError, 10057);
  socket.CaptureString(text);
  EXPECT_EQ(text, "");
  std::uint16_t number = 0;
  socket.OnError = [&](TPowersock&, std::uint16_t error, const std::string&) { number = error; };
  socket.Connect();
  socket.Writeln("go");
  EXPECT_EQ(Failure<ESockError>([&] { socket.CaptureString(text); }), "10054:Connection reset by peer");
  EXPECT_EQ(number, 10054);
  EXPECT_EQ(socket.LastSocketError, 10054);
  EXPECT_EQ(Failure<ESockError>([&] { socket.Write("x"); }), "10053:Software caused connection abort");
}

// --- Sending ---------------------------------------------------------------------------------------------

TEST(PowersockSend, WriteEndsAtNulAndRefusesTooMuch) {
  TScriptedServer server({TScript().ReadLine().Reply("ok\r\n"), TScript().ReadAll()});
  TClient socket(server);
  socket.Connect();
  socket.Write("");
  socket.Write("ab\0cd"s);
  socket.Writeln("ef");
  EXPECT_EQ(socket.ReadLn(), "ok\r\n");
  EXPECT_EQ(server.Lines(), std::vector<std::string>{"abef"});
  EXPECT_THROW(socket.Write(std::string(65'536, 'x')), ERangeError);
  EXPECT_THROW(socket.SendBuffer(std::string(70'000, 'x').c_str(), 0), ERangeError);
  socket.ConnectAgain();
  socket.SendBuffer("a\0b", 3);
  socket.Write(std::string(65'535, 'x'));
  socket.Disconnect();
  server.WaitForConnections(2);
  EXPECT_TRUE(server.Received()[1] == "a\0b"s + std::string(65'535, 'x'));
}

TEST(PowersockSend, TransactionReadsTheCode) {
  const std::pair<const char*, int> kCases[] = {
      {"220 ready", 220}, {"226-many", 226}, {"  x", 0}, {"99999999999999 x", INT16_MAX}, {"-5", 0}};
  TScript script;
  for (const auto& [reply, code] : kCases) script.Exchange("NOOP", reply);
  TScriptedServer server(script);
  TClient socket(server);
  socket.Connect();
  for (const auto& [reply, code] : kCases) {
    EXPECT_EQ(socket.Transaction("NOOP"), reply + "\r\n"s);
    EXPECT_EQ(socket.LastReply, reply + "\r\n"s);
    EXPECT_EQ(socket.ReplyCode, code);
  }
}

// --- Waiting ---------------------------------------------------------------------------------------------

TEST(PowersockWait, CancelAndTimeOutEndEveryWait) {
  std::string text;
  TTempFolder folder;
  const struct {
    const char* Message;
    std::function<void(TClient&)> Operation;
    bool GoesOn = true;
  } kCases[] = {
      {"Socket readln aborted", [](TClient& s) { s.ReadLn(); }},
      {"Socket send aborted", [](TClient& s) { s.Read(10); }},
      {"Socket send aborted", [&](TClient& s) { s.CaptureFile(folder / "f"); }},
      {"Socket capture aborted", [&](TClient& s) { s.CaptureString(text); }},
      {"Socket send aborted", [](TClient& s) { s.SendAll(std::string(64 << 20, 'x')); }, false},
      {"Accepting Canceled",
       [](TClient& s) {
         s.Port = 0;
         s.Disconnect();
         s.Listen(true);
         s.TimerOn();
         s.Accept();
       },
       false},
  };
  enum class TEnd { TimeOut, Abort, Disconnect };
  for (const TEnd end : {TEnd::TimeOut, TEnd::Abort, TEnd::Disconnect}) {
    for (const auto& c : kCases) {
      TScriptedServer server(TScript().Reply("abc").Stall().Reply("d\r\n"));
      TClient socket(server);
      socket.Connect();
      socket.TimeOut = end == TEnd::TimeOut ? 40 : 0;
      if (end == TEnd::Abort) socket.InWait = [&] { socket.Abort(); };
      if (end == TEnd::Disconnect) socket.InWait = [&] { socket.Disconnect(); };
      EXPECT_EQ(Failure<ESockError>([&] { c.Operation(socket); }), c.Message);
      EXPECT_EQ(socket.TimedOut(), end == TEnd::TimeOut);
      if (!c.GoesOn) continue;
      // The flag is used up: the connection goes on.
      EXPECT_FALSE(socket.Canceled());
      socket.InWait = {};
      socket.TimeOut = 0;
      server.Release();
      EXPECT_THAT(socket.ReadLn(), HasSubstr("d\r\n"));
    }
  }
}

TEST(PowersockWait, NothingElseStartsInsideAWaitThatAFailureOfTheHookLeaves) {
  TScriptedServer server(TScript().Stall().Reply("220 ok\r\n"));
  TClient socket(server);
  socket.Connect();
  socket.InWait = [&] {
    for (const std::function<void()>& start : std::initializer_list<std::function<void()>>{
             [&] { socket.Connect(); }, [&] { socket.Write("x"); }, [&] { socket.ReadLn(); },
             [&] { socket.Read(1); }, [&] { socket.SendFile("x"); },
             [&] { socket.CaptureFile("/nonexistent/x"); }, [&] { socket.Accept(); }}) {
      EXPECT_EQ(Failure<ESockError>(start), "Busy with another operation");
    }
    throw std::logic_error("hook");
  };
  EXPECT_EQ(Failure<std::logic_error>([&] { socket.ReadLn(); }), "hook");
  socket.InWait = {};
  server.Release();
  EXPECT_EQ(socket.ReadLn(), "220 ok\r\n");
}

TEST(PowersockWait, EventsGoThroughWhileDataStreamButNotOncePerPacket) {
  TScriptedServer server(TScript().Drip(std::string(200, 'x'), 1ms, 2));
  int turns = 0;
  TClient socket(server);
  socket.Connect();
  socket.InWait = [&] { ++turns; };
  std::string text;
  const auto start = std::chrono::steady_clock::now();
  socket.CaptureString(text);
  EXPECT_GE(turns, 3);
  EXPECT_LE(turns, (std::chrono::steady_clock::now() - start) / 2ms + 2);
}

TEST(PowersockListen, AcceptedSocketTakesThePlaceOfTheListeningOne) {
  for (const bool lookup_channel : {true, false}) {
    TPowersock data, peer, late;
    std::string events;
    data.OnIncoming = [&](TPowersock&) { events += "incoming"; };
    data.OnDisconnect = [&](TPowersock&) { events += "disconnected"; };
    data.Listen(lookup_channel);
    peer.Host = late.Host = "127.0.0.1";
    peer.Port = late.Port = PortOf(data);
    peer.Connect();
    EXPECT_EQ(peer.LocalAddressWithCommas(), "127,0,0,1");
    data.TimeOut = 5000;
    data.TimerOn();
    data.AdoptSocket(data.Accept());
    data.TimerOff();
    EXPECT_EQ(events, lookup_channel ? "disconnected" : "incoming");
    EXPECT_EQ(data.RemoteAddress().sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    peer.Writeln("through");
    EXPECT_EQ(data.ReadLn(), "through\r\n");
    EXPECT_EQ(Failure<ESockError>([&] { late.Connect(); }), "Connection Failed") << "no longer listening";
  }
}

// --- Status and text -------------------------------------------------------------------------------------

TEST(PowersockStatus, LevelFiltersTheTexts) {
  const std::pair<int, std::string> kCases[] = {
      {0, ""},
      {1, "200 fine\r\n|"},
      {4, "Sending Buffer|200 fine\r\n|"},
      {8,
       "Transaction|Writeln|Write|Sending Buffer|Timer On|Timer Off|ReadLn|Timer On|Timer Off|200 fine\r\n|"},
  };
  for (const auto& [level, texts] : kCases) {
    TScriptedServer server(TScript().Exchange("NOOP", "200 fine"));
    TClient socket(server);
    socket.Connect();
    std::string told;
    socket.OnStatus = [&](TPowersock&, const std::string& text) { told += text + "|"; };
    socket.ReportLevel = level;
    socket.Transaction("NOOP");
    EXPECT_EQ(told, texts);
    EXPECT_EQ(socket.Status, level == 0 ? "" : "200 fine\r\n");
  }
}

TEST(PowersockStatus, ErrorMessageTellsThePreviousOne) {
  TPowersock socket;
  socket.ReportLevel = 8;
  EXPECT_EQ(socket.GetErrorMessage(10061), "10061:Connection refused");
  EXPECT_EQ(socket.Status, "Looking Up Error Message");
  EXPECT_EQ(socket.GetErrorMessage(0), "");
  EXPECT_EQ(socket.Status, "Looking Up Error Message10061:Connection refused");
}

// The first two components of this process, made before the tests begin.
const std::array<TPowersock, 2> first_components;

TEST(PowersockStatus, TheFirstComponentOfTheProcessListsTheSocketLibrary) {
  ASSERT_EQ(first_components[0].NetworkInfo.size(), 6u);
  EXPECT_EQ(first_components[0].NetworkInfo[0], "Version= 1.1");
  EXPECT_THAT(first_components[0].NetworkInfo[4], testing::StartsWith("Max Sockets= "));
  EXPECT_TRUE(first_components[1].NetworkInfo.empty());
}

TEST(PowersockText, FieldsAndPositionsCountFromOne) {
  const struct {
    const char* Text;
    int N;
    const char* Field;
  } kCases[] = {{"a,b,c", 1, "a"}, {"a,b,c", 3, "c"}, {"a,b,c", 4, ""}, {"a,,c", 2, ""},
                {",a", 1, ""},     {"", 1, ""},       {"a", 0, ""},     {"a,", 2, ""}};
  for (const auto& c : kCases) EXPECT_EQ(TPowersock::FieldAt(c.Text, ',', c.N), c.Field) << c.Text << c.N;
  EXPECT_EQ(TPowersock::NthCharPosition("http://x/y", '/', 3), 9u);
  EXPECT_EQ(TPowersock::NthCharPosition("http://x", '/', 3), 9u);
  EXPECT_EQ(TPowersock::NthCharPosition("", '/', 1), 1u);
}

}  // namespace
}  // namespace skyreel
