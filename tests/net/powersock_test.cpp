#include "net/powersock.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netdb.h>

#include <array>
#include <future>

#include "base/exceptions.h"
#include "support/failure.h"
#include "support/scripted_server.h"

namespace skyreel {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace test;

/// A component for `server`, and what happens in its waits.
struct TClient : TPowersock {
  explicit TClient(const TScriptedServer& server, bool connect = true)
      : TPowersock([this] {
          if (InWait) InWait();
        }) {
    Host = "127.0.0.1";
    Port = server.Port();
    if (connect) Connect();
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

// --- Connecting ------------------------------------------------------------------------------------------

TEST(PowersockConnect, EveryOutcomeHasItsMessageAndLeavesTheComponentUsable) {
  TScriptedServer good("hello\r\n", 20);
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
  const auto knows = [](const std::string& name, int error = EAI_NONAME) {
    return [=](const std::string& host, in_addr& address) {
      address.s_addr = htonl(INADDR_LOOPBACK);
      return host == name ? 0 : error;
    };
  };
  const TLookupFunction none = knows("");
  const struct {
    const char *Message, *Host, *Proxy;
    std::uint16_t Port;
    int TimeOut;  // 0: cancelled in the event hook
    TLookupFunction LookUp;
    const char* Events;  // resolved, connected, failed
    int LastSocketError = 0;
  } rows[] = {
      {"", "127.0.0.1", "", good.Port(), 5000, none, "c"},
      {"", "sky.example", "", good.Port(), 5000, knows("sky.example"), "rc"},
      {"", "sky.example", "127.0.0.1", good.Port(), 5000, none, "c"},
      {"", "127.0.0.1", "proxy.example", good.Port(), 5000, knows("proxy.example"), "rc"},
      {"Connection Failed", "127.0.0.1", "", ClosedPort(), 5000, none, "f", 10061},
      {"Connection Timed out", "127.0.0.1", "", PortOf(full), 40, none, "f"},
      {"Connection Canceled", "127.0.0.1", "", PortOf(full), 0, none, "f"},
      {"Host Lookup Timed Out", "slow.example", "", 80, 40, slow, ""},
      {"Host Lookup Canceled", "slow.example", "", 80, 0, slow, ""},
      {"Host Lookup Failed", "no.example", "", 80, 5000, none, "", 11001},
      {"Host Lookup Failed", "no.example", "", 80, 5000, knows("", EAI_AGAIN), "", 11002},
      {"Host Lookup Failed", "127.0.0.1\n", "", 80, 5000, LookUpHost, ""},
      {"Null Remote Address", "0.0.0.0", "", 80, 5000, none, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Host + std::string(row.Message));
    TClient socket(good, false);
    std::string events;
    socket.OnHostResolved = [&](TPowersock&) { events += "r"; };
    socket.OnConnect = [&](TPowersock&) { events += "c"; };
    socket.OnConnectionFailed = [&](TPowersock&) { events += "f"; };
    socket.Host = row.Host;
    socket.Proxy = row.Proxy;
    (socket.Proxy.empty() ? socket.Port : socket.ProxyPort) = row.Port;
    socket.TimeOut = row.TimeOut;
    socket.LookUp = row.LookUp;
    if (row.TimeOut == 0) socket.InWait = [&] { socket.Cancel(); };
    EXPECT_EQ(Failure<ESockError>([&] { socket.Connect(); }), row.Message);
    EXPECT_EQ(events, row.Events);
    EXPECT_EQ(socket.LastSocketError, row.LastSocketError);
    if (socket.Connected) {
      EXPECT_EQ(Failure<ESockError>([&] { socket.Connect(); }), "Already connected");
      socket.Disconnect();
    }
    socket.InWait = {};
    socket.Proxy = "";
    socket.Host = "127.0.0.1";
    socket.Port = good.Port();
    socket.TimeOut = 5000;
    socket.Connect();
    EXPECT_EQ(socket.ReadLn(), "hello\r\n");
  }
  answer.set_value();
}

TEST(PowersockConnect, HandlersOfAnInvalidHostAndOfAMissingConnectionGetOneChance) {
  TScriptedServer server("<wait>", 2);
  TClient socket(server, false);
  socket.Host = "0.0.0.0";
  int asked = 0;
  // Both say the second time that they helped, and do help the third time.
  socket.OnInvalidHost = [&](TPowersock& sender, bool& handled) {
    handled = ++asked > 1;
    if (asked == 3) sender.Host = "127.0.0.1";
  };
  socket.OnConnectionRequired = [&](TPowersock& sender, bool& handled) {
    handled = ++asked > 1;
    if (asked == 3) sender.Connect();
  };
  for (const char* message : {"Null Remote Address", "Null Remote Address", ""})
    EXPECT_EQ(Failure<ESockError>([&] { socket.Connect(); }), message);
  socket.Disconnect();
  asked = 0;
  for (const char* message : {"Not Connected", "Not Connected", ""})
    EXPECT_EQ(Failure([&] { socket.EnsureConnected(); }), message);
}

TEST(PowersockConnect, ArrivalAndCloseAreToldOnceAndTheCloseOnlyWhenTheDataAreRead) {
  TScriptedServer server("one\r\n<stall>last words\r\n");
  TClient socket(server);
  int arrived = 0, disconnected = 0;
  socket.OnDataArrived = [&](TPowersock&) { ++arrived; };
  socket.OnDisconnect = [&](TPowersock&) { ++disconnected; };
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
    data.AdoptSocket(data.Accept());
    EXPECT_EQ(events, lookup_channel ? "disconnected" : "incoming");
    EXPECT_EQ(data.RemoteAddress().sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    peer.Writeln("through");
    EXPECT_EQ(data.ReadLn(), "through\r\n");
    EXPECT_EQ(Failure<ESockError>([&] { late.Connect(); }), "Connection Failed") << "no longer listening";
  }
}

// --- Receiving and sending -------------------------------------------------------------------------------

TEST(PowersockReceive, LinesBytesAndStreams) {
  using TOperation = std::function<std::string(TClient&)>;
  const TOperation line = &TClient::ReadLn;
  const auto read = [](std::uint16_t count) { return [=](TClient& s) { return s.Read(count); }; };
  const auto capture = [](std::int64_t maximum) {
    return [=](TClient& s) {
      std::string text = "older";
      s.CaptureString(text, maximum);
      EXPECT_EQ(s.ReceivedByteCount, static_cast<std::int64_t>(text.size()));
      return text;
    };
  };
  const TOperation clear = [](TClient& s) {
    while (!s.HasPendingData()) s.WaitForInput();
    s.ClearInput();
    return "";
  };
  const TOperation write = [](TClient& s) {
    s.Writeln("go");
    return "";
  };
  const std::string longest = std::string(TPowersock::kMaxLine - 1, 'x') + "\n";
  const struct {
    std::string Server;
    std::vector<std::pair<TOperation, std::string>> Steps;  ///< what comes of each, or its failure
  } rows[] = {
      {"1\r\n2\n<drip>222 three\r\npart",
       {{line, "1\r\n"}, {line, "2\n"}, {line, "222 three\r\n"}, {line, ""}}},
      {"noise<line>" + longest + "y" + longest + "<wait>",
       {{clear, ""}, {read(0), ""}, {write, ""}, {line, longest}, {line, "Line too long"}}},
      {"<drip>abcdefgh<line><go>ij",
       {{read(5), "abcde"}, {read(3), "fgh"}, {write, ""}, {read(3), ""}, {read(0), "ij"}, {read(1), ""}}},
      // A single byte is dropped, and the last receive may pass the maximum.
      {"x", {{capture(-1), ""}}},
      {"abcdef", {{capture(1), "abcdef"}, {capture(0), ""}}},
      {"<line><reset>",
       {{write, ""},
        {capture(-1), "10054:Connection reset by peer"},
        {write, "10053:Software caused connection abort"}}},
  };
  for (const auto& row : rows) {
    TScriptedServer server(row.Server);
    TClient socket(server);
    socket.TimeOut = 200;
    std::string told;
    socket.OnError = [&](TPowersock&, std::uint16_t, const std::string& message) { told = message; };
    for (const auto& [operation, result] : row.Steps) {
      std::string got;
      got += Failure<ESockError>([&] { got = operation(socket); });
      EXPECT_TRUE(got == result) << got.substr(0, 100) << " in place of " << result.substr(0, 100);
      EXPECT_EQ(std::exchange(told, ""), got.starts_with("100") ? got : "");
    }
  }
  TClient socket(TScriptedServer(""), false);
  EXPECT_EQ(socket.ReadLn() + capture(-1)(socket), "") << "without a connection";
  EXPECT_EQ(socket.LastSocketError, 10057);
}

TEST(PowersockSend, WriteEndsAtNulAndRefusesTooMuch) {
  TScriptedServer server("<wait>");
  TClient socket(server);
  socket.Write("");
  socket.Write("ab\0cd"s);
  socket.Writeln("ef");
  EXPECT_THROW(socket.Write(std::string(65'536, 'x')), ERangeError);
  EXPECT_THROW(socket.SendBuffer(std::string(70'000, 'x').c_str(), 0), ERangeError);
  socket.SendBuffer("a\0b", 3);
  socket.Write(std::string(65'535, 'x'));
  EXPECT_THROW(socket.SendFile("/nonexistent"), std::system_error);
  socket.Disconnect();
  EXPECT_TRUE(server.Received(1)[0] == "abef\r\na\0b"s + std::string(65'535, 'x'));
}

TEST(PowersockSend, TransactionReadsTheCodeAndTheLevelFiltersTheTexts) {
  const struct {
    const char* Reply;
    int Code, Level;
    std::string Texts;
  } rows[] = {
      {"220 ready", 220, 0, ""},
      {"226-many", 226, 1, "226-many\r\n|"},
      {"  x", 0, 4, "Sending Buffer|  x\r\n|"},
      {"99999999999999 x", INT16_MAX, 0, ""},
      {"-5", 0, 8,
       "Transaction|Writeln|Write|Sending Buffer|Timer On|Timer Off|ReadLn|Timer On|Timer Off|-5\r\n|"},
  };
  std::string script;
  for (const auto& row : rows) script += "<line>"s + row.Reply + "\r\n";
  TScriptedServer server(script);
  TClient socket(server);
  std::string told;
  socket.OnStatus = [&](TPowersock&, const std::string& text) { told += text + "|"; };
  for (const auto& row : rows) {
    told.clear();
    socket.ReportLevel = row.Level;
    EXPECT_EQ(socket.Transaction("NOOP"), row.Reply + "\r\n"s);
    EXPECT_EQ(socket.LastReply, row.Reply + "\r\n"s);
    EXPECT_EQ(socket.ReplyCode, row.Code);
    EXPECT_EQ(told, row.Texts);
  }
}

// --- Waiting ---------------------------------------------------------------------------------------------

TEST(PowersockWait, CancelAndTimeOutEndEveryWait) {
  std::string text;
  const struct {
    const char* Message;
    std::function<void(TClient&)> Operation;
    bool GoesOn = true;
  } rows[] = {
      {"Socket readln aborted", &TClient::ReadLn},
      {"Socket send aborted", [](TClient& s) { s.Read(10); }},
      {"Socket send aborted", [](TClient& s) { s.CaptureFile("/dev/null"); }},
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
    for (const auto& row : rows) {
      TScriptedServer server("abc<stall>d\r\n");
      TClient socket(server);
      socket.TimeOut = end == TEnd::TimeOut ? 40 : 0;
      if (end == TEnd::Abort) socket.InWait = [&] { socket.Abort(); };
      if (end == TEnd::Disconnect) socket.InWait = [&] { socket.Disconnect(); };
      EXPECT_EQ(Failure<ESockError>([&] { row.Operation(socket); }), row.Message);
      EXPECT_EQ(socket.TimedOut(), end == TEnd::TimeOut);
      if (!row.GoesOn) continue;
      // The flag is used up: the connection goes on.
      EXPECT_FALSE(socket.Canceled());
      socket.InWait = {};
      socket.TimeOut = 0;
      server.Release();
      EXPECT_THAT(socket.ReadLn(), testing::HasSubstr("d\r\n"));
    }
  }
}

TEST(PowersockWait, NothingElseStartsInsideAWaitThatAFailureOfTheHookLeaves) {
  TScriptedServer server("<stall>220 ok\r\n");
  TClient socket(server);
  const std::function<void()> starts[] = {
      [&] { socket.Connect(); }, [&] { socket.Write("x"); },    [&] { socket.ReadLn(); },
      [&] { socket.Read(1); },   [&] { socket.SendFile("x"); }, [&] { socket.CaptureFile("/nonexistent/x"); },
      [&] { socket.Accept(); },
  };
  socket.InWait = [&] {
    for (const auto& start : starts) EXPECT_EQ(Failure<ESockError>(start), "Busy with another operation");
    throw std::logic_error("hook");
  };
  EXPECT_EQ(Failure<std::logic_error>([&] { socket.ReadLn(); }), "hook");
  socket.InWait = {};
  server.Release();
  EXPECT_EQ(socket.ReadLn(), "220 ok\r\n");
}

TEST(PowersockWait, EventsGoThroughWhileDataStreamButNotOncePerPacket) {
  TScriptedServer server("<drip>" + std::string(100, 'x'));
  TClient socket(server);
  int turns = 0;
  socket.InWait = [&] { ++turns; };
  std::string text;
  const auto start = std::chrono::steady_clock::now();
  socket.CaptureString(text);
  EXPECT_GE(turns, 3);
  EXPECT_LE(turns, (std::chrono::steady_clock::now() - start) / 2ms + 2);
}

// --- Text ------------------------------------------------------------------------------------------------

// The first two components of this process, made before the tests begin.
std::array<TPowersock, 2> first_components;

TEST(PowersockStatus, TheFirstComponentListsTheLibraryAndAMessageTellsThePreviousOne) {
  TPowersock& socket = first_components[0];
  ASSERT_EQ(socket.NetworkInfo.size(), 6u);
  EXPECT_THAT(socket.NetworkInfo[4], testing::StartsWith("Max Sockets= "));
  EXPECT_TRUE(first_components[1].NetworkInfo.empty());
  socket.ReportLevel = 8;
  EXPECT_EQ(socket.GetErrorMessage(10061), "10061:Connection refused");
  EXPECT_EQ(socket.GetErrorMessage(0), "");
  EXPECT_EQ(socket.Status, "Looking Up Error Message10061:Connection refused");
}

TEST(PowersockText, FieldsAndPositionsCountFromOne) {
  const struct {
    const char* Text;
    int N;
    const char* Field;
  } rows[] = {{"a,b,c", 1, "a"}, {"a,b,c", 4, ""}, {"a,,c", 2, ""}, {"", 1, ""}, {"a", 0, ""}, {"a,", 2, ""}};
  for (const auto& row : rows) EXPECT_EQ(TPowersock::FieldAt(row.Text, ',', row.N), row.Field) << row.Text;
  EXPECT_EQ(TPowersock::NthCharPosition("http://x/y", '/', 3), 9u);
  EXPECT_EQ(TPowersock::NthCharPosition("", '/', 1), 1u);
}

}  // namespace
}  // namespace skyreel
