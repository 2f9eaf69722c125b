#include "transfer/fetch_queue.h"

#include "support/https_server.h"
#include "support/job_fixture.h"
#include "transfer/http_header.h"

namespace skyreel {
namespace {

using namespace std::chrono_literals;
using namespace testing;
using test::HttpReply;

class TFetchQueueTest : public test::TJobTest {
 protected:
  /// Plays these replies for a path, one a request, the last one for all further requests. Notes what a
  /// request says about ranges and known copies.
  void Script(const std::string& path, const test::TWords& replies) {
    Server.Handle(path, [this, replies, asked = std::make_shared<std::size_t>(0)](
                            const std::string&, const std::string& request) {
      const std::lock_guard lock(mutex_);
      for (const std::string& line : SplitLines(request))
        for (const char* name : {"Range: ", "If-"})
          if (line.starts_with(name)) conditions_ += "|" + line;
      conditions_ += "|";
      return replies[std::min((*asked)++, replies.size() - 1)];
    });
  }
  TFetchRequest Request(const std::string& path, const std::string& host = "") {
    TFetchRequest request;
    request.Url = (host.empty() ? Server.Url() : "http://" + host + "/") + path.substr(1);
    request.Done = [this, path](const TFetchAnswer& answer) {
      const char* const ends[] = {"", "failed", "not kept", "not sent", "left out", "stopped"};
      std::string line = path + " " + ends[static_cast<int>(answer.End)];
      if (answer.End == TFetchEnd::Answered)
        line += std::to_string(answer.Code) + (answer.Text.empty() ? "" : " " + answer.Text);
      answers_.push_back(line);
      last_ = answer;
    };
    return request;
  }
  void Hosts(const test::TWords& names) {
    THttpsSettings settings;
    for (const std::string& name : names) settings.Overrides.push_back({name, "127.0.0.1", Server.Port()});
    Https.SetSettings(settings);
  }

  std::string conditions_;
  std::mutex mutex_;
  test::TWords answers_;
  TFetchAnswer last_;
};

/// A reply that announces ten bytes and breaks off after five.
std::string Cut(const std::string& header) {
  return "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n" + header + "\r\n\r\nABCDE";
}
std::string Part(const std::string& range, const std::string& body, const std::string& tag = "\"t\"") {
  return HttpReply(body, {"Content-Range: bytes " + range, "ETag: " + tag}, "206 Partial");
}

TEST_F(TFetchQueueTest, WhatMayPassIsTriedThreeTimesAndACutBodyIsResumed) {
  const std::string busy = HttpReply("busy", {}, "503 Busy"), whole = HttpReply("ABCDEFGHIJ");
  const std::string tagged = Cut("ETag: \"t\"");
  const std::string rest = "||Range: bytes=5-|If-Range: \"t\"|";
  const auto wait = [](const std::string& after, const std::string& status = "429 Slow down") {
    return HttpReply("", {"Retry-After: " + after}, status);
  };
  struct {
    test::TWords Replies;
    std::string Answer;
    int Tries, LeastSeconds, MostSeconds;
    std::string Conditions = "";
  } const cases[] = {
      {{whole}, "200 ABCDEFGHIJ", 1, 0, 0},
      {{HttpReply("gone", {}, "404 Not Found")}, "404", 1, 0, 0},
      {{"HTTP/1.1 404 Not Found\r\n\r\n" + std::string(2 << 20, 'x')}, "404", 1, 0, 0},
      {{busy, "<reset>", whole}, "200 ABCDEFGHIJ", 3, 45, 75},
      {{busy}, "failed", 3, 45, 75},
      {{"garbage"}, "failed", 3, 45, 75},
      {{wait("100")}, "failed", 3, 200, 200},
      {{wait("Thu, 10 Nov 2005 12:05:00 GMT", "503 Busy"), whole}, "200 ABCDEFGHIJ", 2, 300, 300},
      {{wait("soon"), whole}, "200 ABCDEFGHIJ", 2, 22, 38},
      {{wait("901"), whole}, "failed", 1, 0, 0},
      {{wait("99999999999999999999"), whole}, "failed", 1, 0, 0},
      {{tagged, Part("5-9/10", "FGHIJ")}, "200 ABCDEFGHIJ", 2, 22, 38, rest},
      {{tagged, HttpReply("other")}, "200 other", 2, 22, 38, rest},
      {{tagged, "<reset>", Part("5-9/10", "FGHIJ")}, "200 ABCDEFGHIJ", 3, 45, 75, rest + rest.substr(1)},
      // Another file, another place, a part that nobody asked for: all is fetched again.
      {{tagged, Part("5-9/11", "FGHIJ"), whole}, "200 ABCDEFGHIJ", 3, 45, 75, rest + "|"},
      {{tagged, Part("5-9/10", "FGHIJ", "\"u\""), whole}, "200 ABCDEFGHIJ", 3, 45, 75, rest + "|"},
      {{tagged, Part("4-9/10", "EFGHIJ"), whole}, "200 ABCDEFGHIJ", 3, 45, 75, rest + "|"},
      {{tagged, Part("5-7/10", "FGH"), Part("8-9/10", "IJ")},
       "200 ABCDEFGHIJ",
       3,
       45,
       75,
       rest + "|Range: bytes=8-|If-Range: \"t\"|"},
      {{Part("0-4/10", "ABCDE"), whole}, "200 ABCDEFGHIJ", 2, 22, 38, "||"},
      {{tagged, HttpReply("", {"Content-Range: bytes */5"}, "416 No")}, "200 ABCDE", 2, 22, 38, rest},
      {{tagged, HttpReply("", {"Content-Range: bytes */4"}, "416 No"), whole},
       "200 ABCDEFGHIJ",
       3,
       45,
       75,
       rest + "|"},
      {{Cut("ETag: W/\"t\"\r\nLast-Modified: now"), Part("5-9/10", "FGHIJ")},
       "200 ABCDEFGHIJ",
       2,
       22,
       38,
       "||Range: bytes=5-|If-Range: now|"},
      {{Cut("ETag: W/\"t\""), whole}, "200 ABCDEFGHIJ", 2, 22, 38, "||"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << &c - cases << ": " << c.Answer);
    Script("/a", c.Replies);
    conditions_.clear();
    answers_.clear();
    Clock.Slept = 0ms;
    Clock.Now = test::At("2005-11-10 12:00");
    TFetchQueue queue(Context);
    queue.Add(Request("/a"));
    queue.Run();
    EXPECT_THAT(answers_, ElementsAre("/a " + c.Answer));
    EXPECT_EQ(last_.Tries, c.Tries) << last_.Reason;
    EXPECT_EQ(last_.Reason.empty(), c.Answer != "failed");
    EXPECT_GE(Clock.Slept, std::chrono::seconds(c.LeastSeconds));
    EXPECT_LE(Clock.Slept, std::chrono::seconds(c.MostSeconds));
    EXPECT_THAT(conditions_, AnyOf(c.Conditions, Truly([&](const auto&) { return c.Conditions.empty(); })));
  }
}

TEST_F(TFetchQueueTest, ABodyGoesToItsFileUnlessItIsTooLargeOrCannotBeKept) {
  Script("/a", {Cut("ETag: \"t\""), Part("5-9/10", "FGHIJ")});
  Script("/same", {HttpReply("", {"ETag: \"new\""}, "304 Not Modified")});
  Script("/large", {HttpReply("1234567")});
  TFetchQueue queue(Context);
  for (const char* const path : {"/a", "/same", "/large", "/nowhere/a", "bad"}) {
    TFetchRequest request = Request(path);
    if (path == std::string("bad")) request.Url = "gopher://a/b";
    if (path == std::string("/nowhere/a")) request.Url = Server.Url("/large");
    if (path == std::string("/large")) request.Limit = 6;
    if (path == std::string("/same")) request.ETag = "\"old\"", request.LastModified = "then";
    request.File = OutputPath() + path;
    queue.Add(request);
  }
  queue.Run();
  EXPECT_THAT(answers_, UnorderedElementsAre("/a 200", "/same 304", "/large not kept", "/nowhere/a not kept",
                                             "bad not sent"));
  EXPECT_EQ(ReadWholeFile(Output("a")), "ABCDEFGHIJ");
  EXPECT_FALSE(std::filesystem::exists(Output("same")));
  EXPECT_THAT(conditions_, HasSubstr("|If-None-Match: \"old\"|If-Modified-Since: then|"));
}

TEST_F(TFetchQueueTest, AHostThatFailsIsLeftAndTheOthersGoOn) {
  Hosts({"bad.test", "good.test"});
  Server.Handle("*", [](const std::string& path, const std::string& request) {
    return request.find("Host: bad.test") == request.npos ? HttpReply(path) : "<reset>";
  });
  TFetchQueue queue(Context);
  for (const char* const path : {"/1", "/2", "/3", "/4"}) queue.Add(Request(path, "bad.test"));
  TFetchRequest first = Request("/5", "good.test");
  first.Done = [&, done = first.Done](const TFetchAnswer& answer) {
    done(answer);
    queue.Add(Request("/6", "good.test"));
    queue.Add(Request("/7", "bad.test"));
  };
  queue.Add(first);
  queue.Run();
  EXPECT_THAT(answers_, ElementsAre("/5 200 /5", "/6 200 /6", "/1 failed", "/2 failed", "/3 left out",
                                    "/4 left out", "/7 left out"));
  EXPECT_THAT(Lines(), ElementsAre(StartsWith("bad.test: 3 files were not asked for: 2 files failed")));
}

TEST_F(TFetchQueueTest, AGapHoldsUpItsOwnHostAloneAndAStopEndsAll) {
  Hosts({"slow.test", "quick.test"});
  Serve(3);
  test::TWords times;
  TFetchQueue queue(Context);
  for (const char* const path : {"/s1", "/s2", "/s3", "/q1", "/q2"}) {
    TFetchRequest request = Request(path, path[1] == 's' ? "slow.test" : "quick.test");
    if (path[1] == 's') request.Gap = 10s;
    request.Done = [&, path](const TFetchAnswer&) {
      times.push_back(path + std::to_string((Clock.Now - test::At("2005-11-10 12:00")) / 1s));
      if (path == std::string("/s2")) Run.Stop = true;
    };
    queue.Add(request);
  }
  queue.Run();
  EXPECT_THAT(times, UnorderedElementsAre("/s10", "/q10", "/q20", "/s210", "/s310"));
  EXPECT_EQ(Asked().size(), 4U);
  // A stop during a request.
  Run.Stop = false;
  Server.Handle("/stall", [this](const auto&, const auto&) { return Run.Stop = true, "<stall>"; });
  queue.Add(Request("/stall"));
  queue.Run();
  EXPECT_THAT(answers_, ElementsAre("/stall stopped"));
}

TEST_F(TFetchQueueTest, TilesComeSideBySideAndABrokenStreamIsResumedOverHttp11) {
  test::THttpsServer server;
  Https.SetSettings(server.Settings);
  std::atomic<int> asked = 0;
  // The first tile shows that the host speaks HTTP/2; each of the others waits for all.
  server.Upstream.Handle("*", [&asked](const std::string& path, const std::string& request) {
    if (path == "/cut/broken") {
      const bool again = request.find("If-Range: \"t\"") != request.npos;
      return again ? Part("5-9/10", "FGHIJ") : Cut("ETag: \"t\"") + "<later><reset>";
    }
    for (++asked; path != "/cut/0" && asked < 4;) std::this_thread::sleep_for(1ms);
    return HttpReply(path);
  });
  TFetchQueue queue(Context);
  for (const char* const path : {"/cut/0", "/cut/1", "/cut/2", "/cut/3", "/cut/broken"}) {
    TFetchRequest request = Request(path, "good.test");
    request.Url.insert(4, "s");
    request.Group = path == std::string("/cut/broken") ? "" : "tiles";
    queue.Add(request);
  }
  queue.Run();
  EXPECT_THAT(answers_, UnorderedElementsAre("/cut/0 200 /cut/0", "/cut/1 200 /cut/1", "/cut/2 200 /cut/2",
                                             "/cut/3 200 /cut/3", "/cut/broken 200 ABCDEFGHIJ"));
  EXPECT_THAT(last_.Header, StartsWith("HTTP/1.1 206"));
}

}  // namespace
}  // namespace skyreel
