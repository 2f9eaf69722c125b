#pragma once

#include <gmock/gmock.h>

#include <cstdio>
#include <utility>

#include "base/files.h"
#include "support/job_fixture.h"

namespace skyreel::test {

using TWords = std::vector<std::string>;

/// "2005-11-10 12:30", with ":59" if need be; UTC.
inline TDateTime At(const char* text) {
  int part[6] = {};
  std::sscanf(text, "%d-%d-%d %d:%d:%d", part, part + 1, part + 2, part + 3, part + 4, part + 5);
  return TDateTime::FromDate(part[0], part[1], part[2], part[3], part[4], part[5]);
}

/// A job against the servers of this process, with one day back. Each question below is about what came
/// since it was last asked. At the end the display must be at rest and must never have shown the "secret".
class TSourceTest : public testing::Test, public TJobFixture {
 protected:
  using TJobFixture::Run;  // a test has one too

  explicit TSourceTest(const char* now) : TJobFixture(At(now)) { Context.Shared.BackDays = 1; }
  ~TSourceTest() override {
    for (const std::string& line : Display.AllLines) EXPECT_EQ(line.find("secret"), line.npos) << line;
    EXPECT_THAT(Server.Errors(), testing::IsEmpty());
  }
  void TearDown() override { EXPECT_EQ(AtRest(), ""); }

  /// Answers every path with a picture of `size` bytes; one that begins with `page_path` with `page`. Once a
  /// path that ends with `last` is asked for, a stop is requested.
  void Serve(std::size_t size, const std::string& page_path = "-", const std::string& page = "",
             const std::string& last = "-") {
    Run.Stop = false;
    Server.SetHandler([=, this](const std::string& path, const std::string& request) {
      if (path.ends_with(last)) Run.Stop = true;
      const std::string reply =
          HttpReply(path.starts_with(page_path) ? page : Picture(size), {"Last-Modified: " + Modified});
      return request.starts_with("HEAD") ? reply.substr(0, reply.find("\r\n\r\n") + 4) : reply;
    });
  }
  /// A stop while a path that ends with `last` is served lets no further one be asked for.
  void ExpectStopAt(const std::string& last, const std::function<void()>& run,
                    const std::string& page_path = "-", const std::string& page = "") {
    Serve(20'000, page_path, page, last);
    run();
    EXPECT_THAT(Asked().back(), testing::EndsWith(last));
  }
  /// "GET" and "HEAD" as they came.
  TWords Requests() {
    const TWords all = Server.RequestLines();
    const std::size_t before = std::exchange(asked_, all.size());
    TWords requests;
    for (std::size_t i = before; i < all.size(); ++i) requests.push_back(all[i].substr(0, all[i].rfind(' ')));
    return requests;
  }
  TWords Asked() {
    TWords paths = Requests();
    for (std::string& path : paths) path.erase(0, path.find(' ') + 1);
    return paths;
  }
  TWords Lines() { return std::exchange(Display.Lines, {}); }
  /// Every file with its size and time, "2005/11/10/a.gif 2000 2005-11-10 12:30".
  TWords Stored() const {
    TWords files;
    for (const auto& [name, size] : Tree()) {
      files.push_back(name + " " + std::to_string(size) +
                      FormatDateTime(" yyyy-mm-dd hh':'nn", GetFileDateTime(Output(name))));
    }
    return files;
  }

  std::string Modified = "Thu, 10 Nov 2005 13:47:00 GMT";

 private:
  std::size_t asked_ = 0;
};

}  // namespace skyreel::test
