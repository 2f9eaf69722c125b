#include "net/powersock.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netdb.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <system_error>

#include "base/exceptions.h"
#include "base/files.h"
#include "support/failure.h"
#include "support/scripted_server.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

using namespace std::chrono_literals;
using test::Failure;
using test::TScript;
using test::TScriptedServer;
using test::TTempFolder;
using testing::ElementsAre;
using testing::HasSubstr;

/// A component that connects to `server`.
struct TClient : TPowersock {
  explicit TClient(const test::TServer& server, TEventHook hook = {}) : TPowersock(std::move(hook)) {
    Host = "127.0.0.1";
    Port = server.Port();
  }
  using TPowersock::SendAll;
  using TPowersock::WaitForInput;
};

/// A lookup that answers only when told to.
class TSlowLookup {
 public:
  ~TSlowLookup() { answer_.set_value(); }
  TLookupFunction Function() {
    return [answered = answer_.get_future().share()](const std::string&, in_addr&) {
      answered.wait();
      return EAI_AGAIN;
    };
  }

 private:
  std::promise<void> answer_;
};

/// A port at which connections are neither taken nor refused: its queue is full.
class TFullPort {
 public:
  TFullPort() : listener_(Socket()) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const raw = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener_.Get(), raw, size) != 0 || ::listen(listener_.Get(), 0) != 0 ||
        ::getsockname(listener_.Get(), raw, &size) != 0) {
      throw std::runtime_error("no test port");
    }
    Port = ntohs(address.sin_port);
    for (TDescriptor& each : waiting_) {
      each = Socket();
      ::connect(each.Get(), raw, size);
    }
  }
  std::uint16_t Port = 0;

 private:
  static TDescriptor Socket() { return TDescriptor(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0)); }
  TDescriptor listener_;
  std::array<TDescriptor, 4> waiting_;
};

/// A port at which nobody listens.
std::uint16_t ClosedPort() {
  TScriptedServer server(std::vector<TScript>{});
  server.StopListening();
  return server.Port();
}

// --- Connecting ------------------------------------------------------------------------------------------

TEST(PowersockConnect, LooksUpNamesButNotDottedAddresses) {
  const struct {
    const char *Host, *Proxy, *LookedUp;
  } kCases[] = {{"127.0.0.1", "", ""},
                {"sky.example", "", "sky.example"},
                {"sky.example", "127.0.0.1", ""},
                {"sky.example", "proxy.example", "proxy.example"},
                {"127.0.0.1", "proxy.example", "proxy.example"}};
  for (const auto& c : kCases) {
    TScriptedServer server(TScript().WaitForClose());
    std::string looked_up;
    int resolved = 0, connected = 0;
    TPowersock socket;
    socket.Host = c.Host;
    socket.Proxy = c.Proxy;
    (*c.Proxy ? socket.ProxyPort : socket.Port) = server.Port();
    socket.LookUp = [&](const std::string& host, in_addr& address) {
      looked_up = host;
      address.s_addr = htonl(INADDR_LOOPBACK);
      return 0;
    };
    socket.OnHostResolved = [&](TPowersock&) { ++resolved; };
    socket.OnConnect = [&](TPowersock&) { ++connected; };
    socket.Connect();
    EXPECT_TRUE(socket.Connected);
    EXPECT_EQ(looked_up, c.LookedUp);
    EXPECT_EQ(resolved, *c.LookedUp ? 1 : 0) << c.Host << c.Proxy;
    EXPECT_EQ(connected, 1);
    EXPECT_EQ(Failure<ESockError>([&] { socket.Connect(); }), "Already connected");
  }
}

TEST(PowersockConnect, EveryFailureHasItsMessageAndLeavesTheComponentUsable) {
  TScriptedServer good(std::vector<TScript>(12, TScript().Reply("hello\r\n")));
  const TFullPort full;
  TSlowLookup slow;
  const auto fails_with = [](int error) { return [error](const std::string&, in_addr&) { return error; }; };
  const struct {
    const char* Message;
    std::string Host;
    std::uint16_t Port;
    int TimeOut;  // 0: cancelled in the event hook
    TLookupFunction LookUp;
    bool Failed;  // OnConnectionFailed
    int LastSocketError;
  } kCases[] = {
      {"Connection Failed", "127.0.0.1", ClosedPort(), 5000, LookUpHost, true, 10061},
      {"Connection Timed out", "127.0.0.1", full.Port, 40, LookUpHost, true, 0},
      {"Connection Canceled", "127.0.0.1", full.Port, 0, LookUpHost, true, 0},
      {"Host Lookup Timed Out", "slow.example", 80, 40, slow.Function(), false, 0},
      {"Host Lookup Failed", "no.example", 80, 5000, fails_with(EAI_NONAME), false, 11001},
      {"Host Lookup Failed", "no.example", 80, 5000, fails_with(EAI_AGAIN), false, 11002},
      {"Host Lookup Failed", "127.0.0.1\n", 80, 5000, LookUpHost, false, 0},
      {"Null Remote Address", "0.0.0.0", 80, 5000, LookUpHost, false, 0},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.Message);
    TPowersock* running = nullptr;
    TPowersock socket([&] {
      if (running) running->Cancel();
    });
    int failed = 0;
    socket.OnConnectionFailed = [&](TPowersock&) { ++failed; };
    socket.Host = c.Host;
    socket.Port = c.Port;
    socket.TimeOut = c.TimeOut;
    socket.LookUp = c.LookUp;
    running = c.TimeOut == 0 ? &socket : nullptr;
    EXPECT_EQ(Failure<ESockError>([&] { socket.Connect(); }), c.Message);
    EXPECT_FALSE(socket.Connected);
    EXPECT_EQ(failed, c.Failed ? 1 : 0);
    EXPECT_EQ(socket.LastSocketError, c.LastSocketError);

    running = nullptr;
    socket.Host = "127.0.0.1";
    socket.Port = good.Port();
    socket.TimeOut = 5000;
    socket.Connect();
    EXPECT_EQ(socket.ReadLn(), "hello\r\n");
  }
}

TEST(PowersockConnect, CancelEndsALookupWithoutTimeOut) {
  TSlowLookup slow;
  TPowersock* self = nullptr;
  TPowersock socket([&] { self->Cancel(); });
  self = &socket;
  socket.Host = "slow.example";
  socket.LookUp = slow.Function();
  EXPECT_EQ(Failure<ESockError>([&] { socket.Connect(); }), "Host Lookup Canceled");
}

TEST(PowersockConnect, InvalidHostHandlerGetsExactlyOneChance) {
  TScriptedServer server(TScript().WaitForClose());
  const struct {
    const char* NewHost;
    bool Handled;
    const char* Message;
  } kCases[] = {{"127.0.0.1", true, ""},
                {"0.0.0.0", true, "Null Remote Address"},
                {"127.0.0.1", false, "Null Remote Address"}};
  for (const auto& c : kCases) {
    TClient socket(server);
    socket.Host = "0.0.0.0";
    int asked = 0;
    socket.OnInvalidHost = [&](TPowersock& sender, bool& handled) {
      EXPECT_FALSE(handled);
      ++asked;
      sender.Host = c.NewHost;
      handled = c.Handled;
    };
    EXPECT_EQ(Failure<ESockError>([&] { socket.Connect(); }), c.Message);
    EXPECT_EQ(asked, 1);
  }
}

TEST(PowersockConnect, EnsureConnectedAsksOnce) {
  TScriptedServer server(TScript().WaitForClose());
  TClient socket(server);
  EXPECT_EQ(Failure([&] { socket.EnsureConnected(); }), "Not Connected");
  int asked = 0;
  socket.OnConnectionRequired = [&](TPowersock&, bool& handled) {
    ++asked;
    handled = true;
  };
  EXPECT_EQ(Failure([&] { socket.EnsureConnected(); }), "Not Connected");
  EXPECT_EQ(asked, 1);
  socket.OnConnectionRequired = [](TPowersock& sender, bool& handled) {
    sender.Connect();
    handled = true;
  };
  EXPECT_EQ(Failure([&] { socket.EnsureConnected(); }), "");
}

TEST(PowersockConnect, CloseByThePeerIsSeenOnceItsDataIsRead) {
  TScriptedServer server(TScript().Reply("last words\r\n"));
  TClient socket(server);
  int disconnected = 0;
  socket.OnDisconnect = [&](TPowersock&) { ++disconnected; };
  socket.Connect();
  while (!socket.HasPendingData()) socket.WaitForInput();
  socket.EnsureConnected();
  EXPECT_EQ(socket.ReadLn(), "last words\r\n");
  while (socket.Connected) socket.WaitForInput();
  EXPECT_EQ(disconnected, 1);
  EXPECT_EQ(Failure([&] { socket.EnsureConnected(); }), "Not Connected");
}

// --- Receiving -------------------------------------------------------------------------------------------

TEST(PowersockReceive, ReadLnTakesOneLineAndLeavesTheNext) {
  TScriptedServer server(TScript().Reply("220 one\r\n221 two\n").Drip("222 three\r\npart", 1ms, 3));
  TClient socket(server);
  socket.Connect();
  EXPECT_EQ(socket.ReadLn(), "220 one\r\n");
  EXPECT_TRUE(socket.HasPendingData());
  EXPECT_EQ(socket.ReadLn(), "221 two\n");
  EXPECT_EQ(socket.ReadLn(), "222 three\r\n");
  EXPECT_EQ(socket.ReadLn(), "") << "a line without an end is none";
}

TEST(PowersockReceive, LinesHaveALimit) {
  const std::string longest(TPowersock::kMaxLine - 1, 'x');
  TScriptedServer server({TScript().Reply(longest + "\n"), TScript().Reply(longest + "y\n").WaitForClose()});
  for (const char* message : {"", "Line too long"}) {
    TClient socket(server);
    socket.Connect();
    EXPECT_EQ(Failure<ESockError>([&] { EXPECT_EQ(socket.ReadLn(), longest + "\n"); }), message);
  }
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

TEST(PowersockReceive, ClearInputThrowsAwayWhatWaits) {
  TScriptedServer server(TScript().Reply("noise").Stall().Reply("220 signal\r\n"));
  TClient socket(server);
  socket.Connect();
  while (!socket.HasPendingData()) socket.WaitForInput();
  socket.ClearInput();
  EXPECT_FALSE(socket.HasPendingData());
  server.Release();
  EXPECT_EQ(socket.ReadLn(), "220 signal\r\n");
}

TEST(PowersockReceive, CaptureFileReplacesTheFileAndCounts) {
  std::string body;
  for (int i = 0; i < 50'000; ++i) body += std::to_string(i);
  TScriptedServer server(TScript().Reply(body));
  TTempFolder folder;
  const auto path = folder.Write("body", std::string(300'000, 'o'));
  TClient socket(server);
  socket.Connect();
  std::vector<std::int64_t> counts;
  socket.OnPacketRecvd = [&](TPowersock& sender) { counts.push_back(sender.ReceivedByteCount); };
  socket.CaptureFile(path);
  EXPECT_TRUE(ReadWholeFile(path) == body);
  EXPECT_EQ(socket.ReceivedByteCount, static_cast<std::int64_t>(body.size()));
  ASSERT_FALSE(counts.empty());
  EXPECT_TRUE(std::is_sorted(counts.begin(), counts.end()));
  EXPECT_EQ(counts.back(), socket.ReceivedByteCount);
}

TEST(PowersockReceive, CaptureStringDropsASingleByte) {
  TScriptedServer server(
      {TScript().Reply("x"), TScript().Reply("ab").Stall().Reply("c"), TScript().Reply("abcdef")});
  TClient socket(server);
  std::string text = "older";
  socket.Connect();
  socket.CaptureString(text);
  EXPECT_EQ(text, "");
  EXPECT_EQ(socket.ReceivedByteCount, 0);

  socket.Disconnect();
  socket.Connect();
  socket.OnPacketRecvd = [&](TPowersock&) { server.Release(); };
  socket.CaptureString(text);
  EXPECT_EQ(text, "ab");
  EXPECT_EQ(socket.ReceivedByteCount, 2);

  socket.Disconnect();
  socket.Connect();
  socket.CaptureString(text, 1);
  EXPECT_EQ(text, "abcdef") << "the last receive may pass the maximum";
  EXPECT_TRUE(socket.Connected);
  socket.CaptureString(text, 0);
  EXPECT_EQ(text, "");
}

TEST(PowersockReceive, TimeOutBoundsTheSilenceNotTheTransfer) {
  TScriptedServer server(
      {TScript().Drip(std::string(60, 'x'), 10ms, 2).Close(), TScript().Reply("half").Stall()});
  TTempFolder folder;
  TClient socket(server);
  socket.TimeOut = 200;
  socket.Connect();
  socket.CaptureFile(folder / "a");
  EXPECT_EQ(FileSizeOf(folder / "a"), 60);

  socket.Disconnect();
  socket.Connect();
  EXPECT_EQ(Failure<EAbortError>([&] { socket.CaptureFile(folder / "b"); }), "Socket send aborted");
  EXPECT_TRUE(socket.TimedOut());
  EXPECT_FALSE(socket.Canceled());
  EXPECT_EQ(FileSizeOf(folder / "b"), 4);
}

TEST(PowersockReceive, CancelAndTimeOutEndEveryWait) {
  std::string text;
  TTempFolder folder;
  const std::string file = folder / "f";
  const struct {
    const char* Message;
    std::function<void(TPowersock&)> Operation;
  } kCases[] = {
      {"Socket readln aborted", [](TPowersock& s) { s.ReadLn(); }},
      {"Socket send aborted", [](TPowersock& s) { s.Read(10); }},
      {"Socket send aborted", [&](TPowersock& s) { s.CaptureFile(file); }},
      {"Socket capture aborted", [&](TPowersock& s) { s.CaptureString(text); }},
  };
  for (const bool by_time_out : {false, true}) {
    for (const auto& c : kCases) {
      TScriptedServer server(TScript().Reply("abc").Stall().Reply("d\r\n"));
      TPowersock* running = nullptr;
      TClient socket(server, [&] {
        if (running) running->Abort();
      });
      socket.Connect();
      socket.TimeOut = by_time_out ? 40 : 0;
      running = by_time_out ? nullptr : &socket;
      EXPECT_EQ(Failure<EAbortError>([&] { c.Operation(socket); }), c.Message);
      EXPECT_EQ(socket.TimedOut(), by_time_out);
      // The flag is used up: the connection goes on.
      running = nullptr;
      socket.TimeOut = 0;
      server.Release();
      EXPECT_THAT(socket.ReadLn(), HasSubstr("d\r\n"));
    }
  }
}

TEST(PowersockReceive, ResetIsAnErrorWithItsNumber) {
  TScriptedServer server(TScript().ReadLine().Reset());
  TClient socket(server);
  std::uint16_t number = 0;
  socket.OnError = [&](TPowersock&, std::uint16_t error, const std::string&) { number = error; };
  socket.Connect();
  socket.Writeln("go");
  std::string text;
  EXPECT_EQ(Failure<ESockError>([&] { socket.CaptureString(text); }), "10054:Connection reset by peer");
  EXPECT_EQ(number, 10054);
  EXPECT_EQ(socket.LastSocketError, 10054);
}

TEST(PowersockReceive, UnconnectedSocketHasNothingToRead) {
  TPowersock socket;
  std::string text = "older";
  EXPECT_EQ(socket.ReadLn(), "");
  EXPECT_EQ(socket.LastSocketError, 10057);
  socket.CaptureString(text);
  EXPECT_EQ(text, "");
}

TEST(PowersockReceive, FullDiskIsToldAndTheComponentStaysUsable) {
  TScriptedServer server({TScript().Reply(std::string(100'000, 'x')), TScript().Reply("220 again\r\n")});
  TClient socket(server);
  socket.Connect();
  EXPECT_THAT(Failure<std::system_error>([&] { socket.CaptureFile("/dev/full"); }),
              HasSubstr("/dev/full: No space"));
  socket.Disconnect();
  socket.Connect();
  EXPECT_EQ(socket.ReadLn(), "220 again\r\n");
}

// --- Sending ---------------------------------------------------------------------------------------------

TEST(PowersockSend, WriteEndsAtNulAndRefusesTooMuch) {
  using namespace std::string_literals;
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
  socket.SendBuffer("a\0b", 3);

  socket.Disconnect();
  socket.Connect();
  socket.Write(std::string(65'535, 'x'));
  socket.Disconnect();
  server.WaitForConnections(2);
  EXPECT_EQ(server.Received()[1].size(), 65'535u);
}

TEST(PowersockSend, SendFileSendsAllThroughASlowReader) {
  std::string data;
  for (int i = 0; i < 1'000'000; ++i) data += static_cast<char>(i * 7);
  TTempFolder folder;
  const auto path = folder.Write("data", data);
  TScriptedServer server({TScript().Close(), TScript().ReadAll()});
  TClient socket(server);
  socket.Connect();
  socket.Disconnect();
  socket.Connect();
  int packets = 0;
  socket.OnPacketSent = [&](TPowersock&) { ++packets; };
  socket.SendFile(path);
  socket.Disconnect();
  server.WaitForConnections(2);
  EXPECT_TRUE(server.Received()[1] == data);
  EXPECT_EQ(socket.SentByteCount, static_cast<std::int64_t>(data.size()));
  EXPECT_EQ(packets, 16);
  EXPECT_THAT(Failure<std::system_error>([&] { socket.SendFile(folder / "none"); }),
              HasSubstr("No such file"));
}

TEST(PowersockSend, StalledReaderIsTimedOutOrCancelled) {
  for (const bool by_time_out : {false, true}) {
    TScriptedServer server(TScript().Stall());
    TPowersock* running = nullptr;
    int turns = 0;
    TClient socket(server, [&] {
      if (running && ++turns > 5) running->Cancel();
    });
    socket.Connect();
    socket.TimeOut = by_time_out ? 40 : 0;
    running = by_time_out ? nullptr : &socket;
    const std::string much(64 << 20, 'x');
    EXPECT_EQ(Failure<EAbortError>([&] { socket.SendAll(much); }), "Socket send aborted");
  }
}

TEST(PowersockSend, PeerThatIsGoneIsAnErrorAndNoSignal) {
  TScriptedServer server(TScript().ReadLine().Reset());
  TClient socket(server);
  socket.Connect();
  socket.Writeln("go");
  server.WaitForConnections(1);
  const std::string message = Failure<ESockError>([&] {
    while (true) socket.Write("into the void");
  });
  EXPECT_THAT(message,
              testing::AnyOf("10053:Software caused connection abort", "10054:Connection reset by peer"));
}

TEST(PowersockSend, TransactionReadsTheCode) {
  const struct {
    const char* Reply;
    int Code;
  } kCases[] = {{"220 ready\r\n", 220},
                {"226-many\r\n", 226},
                {"  x\r\n", 0},
                {"99999999999999 x\r\n", INT16_MAX},
                {"-5\r\n", 0}};
  for (const auto& c : kCases) {
    TScriptedServer server(TScript().ReadLine().Reply(c.Reply));
    TClient socket(server);
    socket.Connect();
    EXPECT_EQ(socket.Transaction("NOOP"), c.Reply);
    EXPECT_EQ(socket.LastReply, c.Reply);
    EXPECT_EQ(socket.ReplyCode, c.Code);
    EXPECT_EQ(server.Lines(), std::vector<std::string>{"NOOP"});
  }
}

// --- Events inside a wait --------------------------------------------------------------------------------

TEST(PowersockWait, NothingElseStartsInsideAWait) {
  TScriptedServer server(TScript().Stall().Reply("220 ok\r\n"));
  TPowersock* self = nullptr;
  std::vector<std::string> messages;
  TClient socket(server, [&] {
    if (!self || !messages.empty()) return;
    for (const std::function<void()>& start : std::initializer_list<std::function<void()>>{
             [&] { self->Connect(); }, [&] { self->Write("x"); }, [&] { self->ReadLn(); },
             [&] { self->Read(1); }, [&] { self->SendFile("x"); },
             [&] { self->CaptureFile("/nonexistent/x"); }, [&] { self->Accept(); }}) {
      messages.push_back(Failure<ESockError>(start));
    }
    server.Release();
  });
  socket.Connect();
  self = &socket;
  EXPECT_EQ(socket.ReadLn(), "220 ok\r\n");
  EXPECT_EQ(messages, std::vector<std::string>(7, "Busy with another operation"));
}

TEST(PowersockWait, DisconnectInsideAWaitCancelsIt) {
  TScriptedServer server(TScript().Stall());
  TPowersock* self = nullptr;
  TClient socket(server, [&] {
    if (self) self->Disconnect();
  });
  socket.Connect();
  self = &socket;
  EXPECT_EQ(Failure<EAbortError>([&] { socket.ReadLn(); }), "Socket readln aborted");
}

TEST(PowersockWait, FailureInTheHookLeavesTheWait) {
  TScriptedServer server(TScript().Stall().Reply("220 ok\r\n"));
  bool fail = false;
  TClient socket(server, [&] {
    if (fail) throw std::logic_error("hook");
  });
  socket.Connect();
  fail = true;
  EXPECT_EQ(Failure<std::logic_error>([&] { socket.ReadLn(); }), "hook");
  fail = false;
  server.Release();
  EXPECT_EQ(socket.ReadLn(), "220 ok\r\n");
}

TEST(PowersockWait, EventsGoThroughWhileDataStreamsAndWhileNothingComes) {
  // A turn takes 2 ms or more, so a stall of 60 ms sees at most 30.
  TScriptedServer server({TScript().Stall(), TScript().Drip(std::string(200, 'x'), 1ms, 2)});
  int turns = 0;
  TClient socket(server, [&] { ++turns; });
  socket.Connect();
  socket.TimeOut = 60;
  turns = 0;
  EXPECT_THROW(socket.ReadLn(), EAbortError);
  EXPECT_GE(turns, 3);
  EXPECT_LE(turns, 31);

  socket.Disconnect();
  socket.Connect();
  socket.TimeOut = 5000;
  turns = 0;
  std::string text;
  const auto start = std::chrono::steady_clock::now();
  socket.CaptureString(text);
  const auto spent = std::chrono::steady_clock::now() - start;
  EXPECT_GE(turns, 3);
  EXPECT_LE(turns, spent / 2ms + 2) << "not once per packet";
}

TEST(PowersockWait, DataArrivedIsToldOncePerArrival) {
  TScriptedServer server(TScript().Reply("one\r\n").Stall().Reply("two\r\n"));
  TClient socket(server);
  int arrived = 0;
  socket.OnDataArrived = [&](TPowersock&) { ++arrived; };
  socket.Connect();
  while (arrived == 0) socket.WaitForInput();
  socket.WaitForInput();
  EXPECT_EQ(arrived, 1);
  EXPECT_EQ(socket.ReadLn(), "one\r\n");
  server.Release();
  while (arrived == 1) socket.WaitForInput();
  EXPECT_EQ(socket.ReadLn(), "two\r\n");
  EXPECT_EQ(arrived, 2);
}

// --- Listening -------------------------------------------------------------------------------------------

TEST(PowersockListen, AcceptedSocketTakesThePlaceOfTheListeningOne) {
  for (const bool lookup_channel : {true, false}) {
    TPowersock data;
    int incoming = 0, disconnected = 0;
    data.OnIncoming = [&](TPowersock&) { ++incoming; };
    data.OnDisconnect = [&](TPowersock&) { ++disconnected; };
    data.Listen(lookup_channel);
    const std::string pair = data.LocalPortPair();
    const int port =
        std::stoi(TPowersock::FieldAt(pair, ',', 2)) * 256 + std::stoi(TPowersock::FieldAt(pair, ',', 3));

    TPowersock peer;
    peer.Host = "127.0.0.1";
    peer.Port = static_cast<std::uint16_t>(port);
    peer.Connect();
    EXPECT_EQ(peer.LocalAddressWithCommas(), "127,0,0,1");
    data.TimeOut = 5000;
    data.TimerOn();
    data.AdoptSocket(data.Accept());
    data.TimerOff();
    EXPECT_EQ(incoming, lookup_channel ? 0 : 1);
    EXPECT_EQ(disconnected, lookup_channel ? 1 : 0);
    EXPECT_EQ(data.RemoteAddress().sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    peer.Writeln("through");
    EXPECT_EQ(data.ReadLn(), "through\r\n");

    TPowersock late;
    late.Host = "127.0.0.1";
    late.Port = peer.Port;
    EXPECT_EQ(Failure<ESockError>([&] { late.Connect(); }), "Connection Failed") << "no longer listening";
  }
}

TEST(PowersockListen, AcceptEndsByCancelAndTimeOut) {
  for (const bool by_time_out : {false, true}) {
    TPowersock* running = nullptr;
    TPowersock data([&] {
      if (running) running->Cancel();
    });
    data.Listen(true);
    data.TimeOut = by_time_out ? 40 : 0;
    running = by_time_out ? nullptr : &data;
    data.TimerOn();
    EXPECT_EQ(Failure<ESockError>([&] { data.Accept(); }), "Accepting Canceled");
    EXPECT_EQ(data.TimedOut(), by_time_out);
  }
}

// --- Status and text -------------------------------------------------------------------------------------

TEST(PowersockStatus, LevelFiltersTheTexts) {
  const struct {
    int Level;
    std::vector<std::string> Texts;
  } kCases[] = {
      {0, {}},
      {1, {"200 fine\r\n"}},
      {4, {"Sending Buffer", "200 fine\r\n"}},
      {8,
       {"Transaction", "Writeln", "Write", "Sending Buffer", "Timer On", "Timer Off", "ReadLn", "Timer On",
        "Timer Off", "200 fine\r\n"}},
  };
  for (const auto& c : kCases) {
    TScriptedServer server(TScript().Exchange("NOOP", "200 fine"));
    TClient socket(server);
    socket.Connect();
    std::vector<std::string> texts;
    socket.OnStatus = [&](TPowersock&, const std::string& text) { texts.push_back(text); };
    socket.ReportLevel = c.Level;
    socket.Transaction("NOOP");
    EXPECT_EQ(texts, c.Texts);
    EXPECT_EQ(socket.Status, c.Texts.empty() ? "" : c.Texts.back());
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

TEST(PowersockStatusDeathTest, TheFirstComponentOfTheProcessListsTheSocketLibrary) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_EXIT(
      {
        const TPowersock first;
        const TPowersock second;
        const bool listed = first.NetworkInfo.size() == 6 && first.NetworkInfo[0] == "Version= 1.1" &&
                            first.NetworkInfo[4].starts_with("Max Sockets= ") && second.NetworkInfo.empty();
        std::exit(listed ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST(PowersockText, FieldAt) {
  const struct {
    const char* Text;
    int N;
    const char* Field;
  } kCases[] = {{"a,b,c", 1, "a"}, {"a,b,c", 3, "c"}, {"a,b,c", 4, ""}, {"a,,c", 2, ""}, {"a,,c", 3, "c"},
                {",a", 1, ""},     {",a", 2, "a"},    {"", 1, ""},      {"a", 0, ""},    {"a,", 2, ""}};
  for (const auto& c : kCases) EXPECT_EQ(TPowersock::FieldAt(c.Text, ',', c.N), c.Field) << c.Text << c.N;
}

TEST(PowersockText, NthCharPosition) {
  EXPECT_EQ(TPowersock::NthCharPosition("http://x/y", '/', 3), 9u);
  EXPECT_EQ(TPowersock::NthCharPosition("http://x", '/', 3), 9u);
  EXPECT_EQ(TPowersock::NthCharPosition("/", '/', 1), 1u);
  EXPECT_EQ(TPowersock::NthCharPosition("", '/', 1), 1u);
}

}  // namespace
}  // namespace skyreel
