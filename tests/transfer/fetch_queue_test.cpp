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
      times_.push_back(path + std::to_string((Clock.Now - test::At("2005-11-10 12:00")) / 1s));
      last_ = answer;
    };
    return request;
  }
  THttpsSettings Hosts() {
    return {"", {{"a.test", "127.0.0.1", Server.Port()}, {"b.test", "127.0.0.1", Server.Port()}}};
  }

  std::string conditions_;
  std::mutex mutex_;
  test::TWords answers_, times_;
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
  const std::string tagged = Cut("ETag: \"t\""), good = Part("5-9/10", "FGHIJ"), all = "200 ABCDEFGHIJ";
  const std::string rest = "||Range: bytes=5-|If-Range: \"t\"|";
  const auto wait = [](const std::string& after) {
    return HttpReply("", {"Retry-After: " + after}, "429 Slow down");
  };
  const auto no_range = [](const std::string& total) {
    return HttpReply("", {"Content-Range: bytes */" + total}, "416 No");
  };
  struct {
    test::TWords Replies;
    std::string Answer;
    int Tries;
    std::string Conditions;
    int Seconds = -1;  ///< waited in all; -1: 30 s before each further try, more or less
  } const cases[] = {
      {{whole}, all, 1, "|"},
      {{"HTTP/1.1 404 No\r\n\r\n" + std::string(2 << 20, 'x')}, "404", 1, "|"},
      {{busy, "<reset>", whole}, all, 3, "|||"},
      {{wait("100")}, "failed", 3, "|||", 200},
      {{wait("Thu, 10 Nov 2005 12:05:00 GMT"), whole}, all, 2, "||", 300},
      {{wait("soon"), whole}, all, 2, "||"},
      {{wait("901"), whole}, "failed", 1, "|"},
      {{tagged, good}, all, 2, rest},
      {{tagged, HttpReply("other")}, "200 other", 2, rest},
      {{tagged, "<reset>", good}, all, 3, rest + rest.substr(1)},
      // Another file, another place, a part that nobody asked for: all is fetched again.
      {{tagged, Part("5-9/11", "FGHIJ"), whole}, all, 3, rest + "|"},
      {{tagged, Part("5-9/10", "FGHIJ", "\"u\""), whole}, all, 3, rest + "|"},
      {{tagged, Part("4-9/10", "EFGHIJ"), whole}, all, 3, rest + "|"},
      {{Part("0-4/10", "ABCDE"), whole}, all, 2, "||"},
      {{tagged, Part("5-7/10", "FG"), whole}, all, 3, rest + "|Range: bytes=7-|If-Range: \"t\"|"},
      {{tagged, no_range("5")}, "200 ABCDE", 2, rest},
      {{tagged, no_range("4"), whole}, all, 3, rest + "|"},
      {{Cut("ETag: W/\"t\"\r\nLast-Modified: now"), good}, all, 2, "||Range: bytes=5-|If-Range: now|"},
      {{Cut("ETag: W/\"t\""), whole}, all, 2, "||"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << &c - cases << ": " << c.Answer);
    Script("/a", c.Replies);
    conditions_.clear();
    Display.Panels.clear();
    answers_.clear();
    Clock.Slept = 0ms;
    Clock.Now = test::At("2005-11-10 12:00");
    TFetchQueue queue(Context);
    queue.Add(Request("/a"));
    queue.Run();
    EXPECT_THAT(answers_, ElementsAre("/a " + c.Answer));
    EXPECT_EQ(last_.Tries, c.Tries) << last_.Reason;
    EXPECT_THAT(Display.Panels, SizeIs(2 * (c.Tries - 1))) << "each wait is shown, and its end";
    const std::string shown = c.Tries > 1 ? Display.Panels.at(0).second : "";
    EXPECT_EQ(shown, c.Tries > 1 ? "waiting for " + Server.Address() + ", try 2 of 3" : "");
    EXPECT_EQ(last_.Reason.empty(), c.Answer != "failed");
    EXPECT_EQ(conditions_, c.Conditions);
    const auto wait = c.Seconds < 0 ? 30'000ms * (c.Tries - 1) : std::chrono::seconds(c.Seconds);
    EXPECT_LE(std::abs((Clock.Slept - wait).count()), c.Seconds < 0 ? wait.count() / 4 : 0);
  }
}

TEST_F(TFetchQueueTest, ABodyGoesToItsFileUnlessItIsTooLargeOrCannotBeKept) {
  Script("/a", {Cut("ETag: \"t\""), Part("5-9/10", "FGHIJ")});
  Script("/same", {HttpReply("", {}, "304 Same")});
  Script("/large", {HttpReply("1234567")});
  Script("/no/folder", {HttpReply("1")});
  TFetchQueue queue(Context);
  for (const char* const path : {"/a", "/same", "/large", "/no/folder", "//bad:"}) {
    TFetchRequest request = Request(path, path[1] == '/' ? "b a" : "");
    request.Limit = path[1] == 'l' ? 6 : 0;
    if (path[1] == 's') request.ETag = "\"old\"", request.LastModified = "then";
    request.File = OutputPath() + path;
    queue.Add(request);
  }
  queue.Run();
  EXPECT_THAT(answers_, UnorderedElementsAre("/a 200", "/same 304", "/large not kept", "/no/folder not kept",
                                             "//bad: not sent"));
  EXPECT_EQ(ReadWholeFile(Output("a")), "ABCDEFGHIJ");
  EXPECT_THAT(conditions_, HasSubstr("|If-None-Match: \"old\"|If-Modified-Since: then|"));
}

TEST_F(TFetchQueueTest, AHostThatFailsIsLeftAndTheOthersGoOn) {
  Https.SetSettings(Hosts());
  Server.Handle("*", [](const std::string& path, const std::string& request) {
    return request.find("Host: a.test") == request.npos ? HttpReply(path) : "<reset>";
  });
  TFetchQueue queue(Context);
  for (const char* const path : {"/1", "/2", "/3"}) queue.Add(Request(path, "a.test"));
  TFetchRequest first = Request("/5", "b.test");
  first.Done = [&, done = first.Done](const TFetchAnswer& answer) {
    done(answer);
    queue.Add(Request("/6", "b.test"));
    queue.Add(Request("/4", "a.test"));
  };
  queue.Add(first);
  queue.Run();
  EXPECT_THAT(answers_,
              ElementsAre("/5 200 /5", "/6 200 /6", "/1 failed", "/2 failed", "/3 left out", "/4 left out"));
  EXPECT_THAT(Lines(), ElementsAre(StartsWith("a.test: not asked for 2 files: 2 files failed")));
}

TEST_F(TFetchQueueTest, AGapHoldsUpItsOwnHostAloneAndAStopEndsAll) {
  Https.SetSettings(Hosts());
  Server.Handle("*", [this](const std::string& path, const auto&) {
    return path == "/s3" ? (Run.Stop = true, "<stall>") : HttpReply(path);
  });
  TFetchQueue queue(Context);
  for (const char* const path : {"/s1", "/s2", "/s3", "/s4", "/q1", "/q2"}) {
    queue.Add(Request(path, path[1] == 's' ? "a.test" : "b.test"));
  }
  TFetchRequest last = Request("/s5", "a.test");
  last.Gap = 10s;
  queue.Add(last);
  queue.Run();
  EXPECT_THAT(times_, UnorderedElementsAre("/s10", "/q10", "/q20", "/s210", "/s320", "/s420", "/s520"));
  EXPECT_THAT(answers_, IsSupersetOf({"/s3 stopped", "/s4 stopped", "/s5 stopped"}));
  EXPECT_EQ(Asked().size(), 5U);
}

TEST_F(TFetchQueueTest, TilesComeSideBySideAndABrokenStreamIsResumedOverHttp11) {
  test::THttpsServer server(Https);
  std::atomic<int> asked = 0;
  // The first tile shows that the host speaks HTTP/2; each of the others waits for all.
  server.Upstream.Handle("*", [&asked](const std::string& path, const std::string& request) {
    for (++asked; path > "/cut/0" && asked < 4;) std::this_thread::sleep_for(1ms);
    if (path != "/cut/3") return HttpReply(path);
    return request.find("If-Range: ") == request.npos ? Cut("ETag: \"t\"") + "<later><reset>"
                                                      : Part("5-9/10", "FGHIJ");
  });
  TFetchQueue queue(Context);
  for (const char* const path : {"/cut/0", "/cut/1", "/cut/2", "/cut/3"}) {
    TFetchRequest request = Request(path, "good.test");
    request.Url.insert(4, "s");
    request.Group = "tiles";
    queue.Add(request);
  }
  queue.Run();
  EXPECT_THAT(answers_, UnorderedElementsAre("/cut/0 200 /cut/0", "/cut/1 200 /cut/1", "/cut/2 200 /cut/2",
                                             "/cut/3 200 ABCDEFGHIJ"));
  EXPECT_THAT(last_.Header, StartsWith("HTTP/1.1 206"));
}

}  // namespace
}  // namespace skyreel
