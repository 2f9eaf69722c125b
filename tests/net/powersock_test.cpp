#include "net/powersock.h"

#include <gmock/gmock.h>
#include <poll.h>

#include <array>
#include <future>

#include "net/thread_timer.h"
#include "support/helpers.h"
#include "support/scripted_server.h"

namespace skyreel {
namespace {

using namespace std::string_literals;
using namespace test;
using TMonotonic = std::chrono::steady_clock;

/// A component for a port, and what happens in its waits.
struct TClient : TPowersock {
  explicit TClient(std::uint16_t port, bool connect = true) : TPowersock([this] { Fire(InWait); }) {
    Host = "127.0.0.1";
    Port = port;
    if (connect) Connect();
  }
  using TPowersock::SendAll;
  using TPowersock::WaitForInput;
  std::function<void()> InWait;
};

/// The port that `socket` listens on.
std::uint16_t PortOf(const TPowersock& socket) {
  int high = 0, low = 0;
  std::sscanf(socket.LocalPortPair().c_str(), ",%d,%d", &high, &low);
  return static_cast<std::uint16_t>(high * 256 + low);
}

TEST(Powersock, EveryOutcomeOfConnectHasItsMessageAndLeavesTheComponentUsable) {
  TScriptedServer good("hello\r\n");
  // Connections beyond these two are neither taken nor refused: the queue is full.
  TPowersock full, taken;
  bool incoming = false;
  full.OnIncoming = [&](TPowersock&) { incoming = true; };
  full.Listen(false);
  taken.Port = PortOf(full);
  EXPECT_THROW(taken.Listen(true), ESockError);
  const TClient first(PortOf(full)), second(PortOf(full));
  std::promise<void> answer;
  const auto look_up = [slow = answer.get_future().share()](const std::string& host, in_addr& address) {
    if (host == "slow.example") slow.wait();
    return LookUpHost(host, address);
  };
  // The events: r host resolved, c connected, f connection failed; the socket error.
  const std::tuple<std::string, const char*, std::uint16_t, std::string, int> rows[] = {
      {"", "localhost", good.Port(), "rc", 0},
      {"Connection Failed", "127.0.0.1", ClosedPort(), "f", 10061},
      {"Connection Timed out", "127.0.0.1", PortOf(full), "f", 0},
      {"Connection Canceled", "127.0.0.1", PortOf(full), "f", 0},
      {"Host Lookup Timed Out", "slow.example", 80, "", 0},
      {"Host Lookup Canceled", "slow.example", 80, "", 0},
      {"Host Lookup Failed", "a..b", 80, "", 11001},
      {"Host Lookup Failed", "127.0.0.1\n", 80, "", 0},
  };
  for (const auto& [message, host, port, expected, error] : rows) {
    SCOPED_TRACE(host + message);
    TClient socket(port, false);
    std::string events;
    socket.OnHostResolved = [&](TPowersock&) { events += "r"; };
    socket.OnConnect = [&](TPowersock&) { events += "c"; };
    socket.OnConnectionFailed = [&](TPowersock&) { events += "f"; };
    socket.Host = host;
    socket.LookUp = look_up;
    if (message.find("Timed") != message.npos) socket.TimeOut = 40;
    if (message.ends_with("Canceled")) socket.InWait = [&] { socket.Cancel(); };
    EXPECT_EQ(Failure<ESockError>([&] { socket.Connect(); }), message);
    EXPECT_EQ(events, expected);
    EXPECT_EQ(socket.LastSocketError, error);
    if (socket.Connected) socket.Disconnect();
    socket.InWait = {};
    socket.TimeOut = 0;
    socket.Proxy = "127.0.0.1";
    socket.ProxyPort = good.Port();
    socket.Connect();
    EXPECT_EQ(socket.ReadLn(), "hello\r\n");
  }
  answer.set_value();
  full.AdoptSocket(full.Accept());
  EXPECT_TRUE(incoming);
}

TEST(Powersock, HandlersOfAnInvalidHostAndOfAMissingConnectionGetOneChance) {
  TScriptedServer server("<stall>");
  TClient socket(server.Port(), false);
  socket.Host = "0.0.0.0";
  EXPECT_EQ(Failure([&] { socket.EnsureConnected(); }), "Not Connected");
  socket.OnConnectionRequired = [&](TPowersock& sender, bool& handled) { sender.Connect(), handled = true; };
  // It says that it helped, and helps the second time.
  int asked = 0;
  socket.OnInvalidHost = [&](TPowersock& sender, bool& handled) {
    handled = true;
    if (++asked == 2) sender.Host = "127.0.0.1";
  };
  EXPECT_EQ(Failure([&] { socket.Connect(); }), "Null Remote Address");
  socket.EnsureConnected();
}

TEST(Powersock, AnArrivalIsToldOnceAndACloseOnlyWhenTheDataAreRead) {
  TScriptedServer server("one\r\n<line>last words\r\n");
  TClient socket(server.Port());
  int arrived = 0, disconnected = 0;
  socket.OnDataArrived = [&](TPowersock&) { ++arrived; };
  socket.OnDisconnect = [&](TPowersock&) { ++disconnected; };
  for (int turns = 0; arrived == 0 || turns < 2; ++turns) socket.WaitForInput();
  EXPECT_EQ(arrived, 1);
  EXPECT_EQ(socket.Transaction("go"), "one\r\n");
  while (arrived == 1) socket.WaitForInput();
  socket.EnsureConnected();
  EXPECT_EQ(socket.ReadLn(), "last words\r\n");
  while (socket.Connected) socket.WaitForInput();
  EXPECT_EQ(disconnected, 1);
}

using TOperation = std::function<std::string(TClient&)>;
TOperation Read(std::uint16_t count) {
  return [=](TClient& s) { return s.Read(count); };
}
TOperation Capture(std::int64_t maximum) {
  return [=](TClient& s) {
    std::string text = "older";
    s.CaptureString(text, maximum);
    return text;
  };
}

TEST(Powersock, LinesBytesAndStreamsAreReceived) {
  const TOperation line = &TClient::ReadLn, go = [](TClient&s) { return s.Writeln("go"), ""; };
  const TOperation clear = [](TClient& s) {
    while (!s.HasPendingData()) s.WaitForInput();
    return s.ClearInput(), s.Read(0);
  };
  const std::string longest = std::string(TPowersock::kMaxLine - 1, 'x') + "\n";
  // What the server plays; operations, and what comes of each or its failure.
  const std::pair<std::string, std::vector<std::pair<TOperation, std::string>>> rows[] = {
      {"1\r\n2\n<drip>3 three\r\npart", {{line, "1\r\n"}, {line, "2\n"}, {line, "3 three\r\n"}, {line, ""}}},
      {"noise<line>" + longest + "y" + longest + "<stall>",
       {{clear, ""}, {go, ""}, {line, longest}, {line, "Line too long"}}},
      {"<drip>abcdefgh<line>ij",
       {{Read(5), "abcde"}, {Read(3), "fgh"}, {go, ""}, {Read(3), ""}, {Read(0), "ij"}}},
      // A single byte is dropped, and the last receive may pass the maximum.
      {"x", {{Capture(-1), ""}}},
      {"abcdef<line>", {{Capture(6), "abcdef"}, {go, ""}}},
      {"ab", {{Capture(1), "ab"}, {Capture(0), ""}}},
      {"<line><reset>",
       {{go, ""},
        {Capture(-1), "10054:Connection reset by peer"},
        {go, "10053:Software caused connection abort"}}},
  };
  for (const auto& [text, steps] : rows) {
    TScriptedServer server(text);
    TClient socket(server.Port());
    std::string told;
    socket.OnError = [&](TPowersock&, std::uint16_t, const std::string& message) { told = message; };
    for (const auto& [operation, result] : steps) {
      std::string got;
      got += Failure<ESockError>([&] { got = operation(socket); });
      EXPECT_TRUE(got == result) << got.substr(0, 100) << ", not " << result.substr(0, 100);
      EXPECT_EQ(std::exchange(told, ""), got.starts_with("100") ? got : "");
    }
  }
  TClient socket(1, false);
  EXPECT_EQ(socket.ReadLn() + Capture(-1)(socket), "") << "without a connection";
}

TEST(Powersock, ATransactionReadsTheCodeAndTheLevelFiltersTheTexts) {
  TScriptedServer server("<line>220 ready\r\n<line>226-many\r\n<line>99999999999999 x\r\n<line>-5\r\n");
  TClient socket(server.Port());
  std::string told;
  socket.OnStatus = [&](TPowersock&, const std::string& text) { told += text + "|"; };
  for (const auto& [code, level] : {std::pair(220, 0), {226, 1}, {INT16_MAX, 0}, {0, 8}}) {
    socket.ReportLevel = level;
    EXPECT_EQ(socket.Transaction("NOOP"), socket.LastReply);
    EXPECT_EQ(socket.ReplyCode, code);
  }
  EXPECT_EQ(told,
            "226-many\r\n|"
            "Transaction|Writeln|Write|Sending Buffer|Timer On|Timer Off|ReadLn|Timer On|Timer Off|-5\r\n|");
}

TEST(Powersock, CancelAndTimeOutEndEveryWait) {
  const std::pair<const char*, TOperation> rows[] = {
      {"Socket readln aborted", &TClient::ReadLn},
      {"Socket send aborted", Read(10)},
      {"Socket capture aborted", Capture(-1)},
      {"Socket send aborted", [](TClient& s) { return s.SendAll(std::string(64 << 20, 'x')), ""; }},
  };
  for (const std::string end : {"time-out", "abort", "disconnect"}) {
    for (const auto& [message, operation] : rows) {
      const bool sends = &message == &rows[3].first;
      TScriptedServer server(sends ? "<stall>" : "abc<line>d\r\n");
      TClient socket(server.Port());
      socket.TimeOut = end == "time-out" ? 40 : 0;
      if (end == "abort") socket.InWait = [&] { socket.Abort(); };
      if (end == "disconnect") socket.InWait = [&] { socket.Disconnect(); };
      EXPECT_EQ(Failure<ESockError>([&, &wait = operation] { wait(socket); }), message);
      EXPECT_EQ(socket.TimedOut(), end == "time-out");
      if (sends) continue;
      // The flag is used up: the connection goes on.
      socket.InWait = {};
      socket.TimeOut = 0;
      EXPECT_THAT(socket.Transaction("go"), testing::HasSubstr("d\r\n"));
    }
  }
}

TEST(Powersock, NothingElseStartsInsideAWait) {
  const TTempFolder folder;
  const std::string content = std::string(8 << 20, 'f') + "\n";
  std::promise<void> halted;
  TScriptedServer server([&](TScriptedServer::TPeer& peer) {
    halted.get_future().wait_for(60s);
    peer.Play("<line>all\r\n");
  });
  TClient socket(server.Port());
  const std::function<void()> starts[] = {
      [&] { socket.Connect(); }, [&] { socket.Write(std::string(65'000, 'x')); }, [&] { socket.ReadLn(); },
      [&] { socket.Read(1); },   [&] { socket.CaptureFile("/nonexistent/x"); },   [&] { socket.Accept(); }};
  std::int64_t sent = -1;
  int halts = 0;
  socket.InWait = [&] {
    for (const auto& start : starts) EXPECT_EQ(Failure<ESockError>(start), "Busy with another operation");
    // The server reads only when the sending has come to a halt inside a block.
    if (std::exchange(sent, socket.SentByteCount) == socket.SentByteCount && halts++ == 0) halted.set_value();
  };
  socket.SendFile(folder.Write("file", content));
  socket.InWait = {};
  EXPECT_EQ(socket.ReadLn(), "all\r\n");
  EXPECT_TRUE(server.Received()[0] == content);
}

// These two hold however slow the machine is: they judge by the times that they measure.
TEST(Powersock, EventsGoThroughWhileDataStreamButNotOncePerPacket) {
  TScriptedServer server(std::string(4 << 20, 'x'));
  TClient socket(server.Port());
  int turns = 0;
  socket.InWait = [&] { ++turns; };
  // Slower than the server: more data are always there.
  socket.OnPacketRecvd = [&](TPowersock&) { std::this_thread::sleep_for(2ms); };
  const auto start = TMonotonic::now();
  socket.CaptureFile("/dev/null");
  EXPECT_GE(turns, 6);
  EXPECT_LE(turns, (TMonotonic::now() - start) / 2ms + 2);
}

TEST(Powersock, TheTimeOutBoundsEachSilenceNotTheWhole) {
  TScriptedServer server("<drip>" + std::string(400, 'x'));
  TClient socket(server.Port());
  socket.TimeOut = 200;
  TMonotonic::time_point last = TMonotonic::now();
  socket.OnPacketRecvd = [&](TPowersock&) { last = TMonotonic::now(); };
  const std::string failure = Failure([&] { socket.CaptureFile("/dev/null"); });
  EXPECT_TRUE(failure.empty() || TMonotonic::now() - last >= 200ms) << failure;
}

// The first two components of this process, made before the tests begin.
std::array<TPowersock, 2> first_components;

TEST(Powersock, TheFirstComponentListsTheLibraryAndAMessageTellsThePreviousOne) {
  TPowersock& socket = first_components[0];
  EXPECT_EQ(socket.NetworkInfo.size() + 10 * first_components[1].NetworkInfo.size(), 6u);
  socket.ReportLevel = 8;
  EXPECT_EQ(socket.GetErrorMessage(10061), "10061:Connection refused");
  socket.GetErrorMessage(0);
  EXPECT_EQ(socket.Status, "Looking Up Error Message10061:Connection refused");
  EXPECT_EQ(TPowersock::FieldAt("a,,c", ',', 3) + TPowersock::FieldAt("a,,c", ',', 2), "c");
  EXPECT_EQ(TPowersock::NthCharPosition("http://x/y", '/', 3), 9u);
}

// --- TThreadTimer ----------------------------------------------------------------------------------------

TEST(ThreadTimer, FiresAtEachExpiryUntilItIsStoppedAndAChangeStartsItAgain) {
  int fired = 0;
  TThreadTimer timer;
  const auto expires = [&](int limit) {
    pollfd wanted{timer.Descriptor(), POLLIN, 0};
    return ::poll(&wanted, 1, limit) > 0;
  };
  timer.SetInterval(5);
  timer.SetOnTimer([&](TThreadTimer&) { ++fired; });
  for (int i = 1; i <= 2; ++i) EXPECT_TRUE(expires(20'000) && timer.FireIfExpired() && fired == i);
  EXPECT_TRUE(expires(20'000));
  timer.SetInterval(5);  // no change
  EXPECT_TRUE(expires(0));
  const auto restart = TMonotonic::now();
  timer.SetInterval(30);
  EXPECT_TRUE(expires(20'000));
  EXPECT_GE(TMonotonic::now() - restart, 29ms);
  // A stop also forgets the expiry that nobody has looked at yet.
  timer.SetEnabled(false);
  EXPECT_FALSE(expires(60) || timer.FireIfExpired());
}

}  // namespace
}  // namespace skyreel
