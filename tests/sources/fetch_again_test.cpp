#include "sources/fetch_again.h"

#include "sources/goes_gsfc.h"
#include "sources/msfc_data.h"
#include "support/job_fixture.h"

namespace skyreel::test {
namespace {

using namespace testing;

const TSource& SourceOf(const std::string& caption) {
  return *std::ranges::find(Sources(), caption, [](const TSource& source) { return source.Caption; });
}

class TFetchAgainTest : public TJobTest {
 protected:
  void TearDown() override { EXPECT_EQ(Display.Panel(1), ""); }
  TAgainFile File(const std::string& address, const char* name) const {
    return {"product", At("2005-11-10 06:00"), address, Output(name)};
  }
};

TEST_F(TFetchAgainTest, KeepsTheOldPictureUntilTheNewOneIsWhole) {
  WriteOutput("a.jpg", "old");
  const std::string whole = Picture(3'000), announced = "HTTP/1.1 200 OK\r\nContent-Length: 9000\r\n\r\n";
  for (const std::string& reply : {announced + whole, HttpReply(Picture(10)), HttpReply("<html>"),
                                   HttpReply(whole, {}, "404 No"), HttpReply(whole)}) {
    EXPECT_EQ(Tree().at("a.jpg"), 3);
    Server.Handle("/a.jpg", [&](auto&...) { return reply; });
    FetchAgain(Context, SourceOf("GOES"), {}, {File(Server.Url("/a.jpg"), "a.jpg")});
  }
  EXPECT_THAT(Stored(), ElementsAre("a.jpg 3000 2005-11-10 06:00"));
  EXPECT_EQ(Display.Results.back().State, TFileState::Updated);
  Asked();
  FetchAgain(Context, SourceOf("GOES"), {}, {File("http://other.example/a.jpg", "a.jpg")});
  EXPECT_THAT(Asked(), IsEmpty()) << "a login is for the source's own server";
}

TEST_F(TFetchAgainTest, PutsADecodedImageInItsPlaceOnlyIfItHasTheOldSize) {
  const std::string packed("\x1f\x9d\x90\x61\xc4\x00", 6);  // of "ab"
  const auto run = [&](const char* name) {
    WithFtpServer(kMsfcServer, "user", "secret", {{"/data/b.ara.Z", packed}}, [&] {
      const std::string address = "ftp://" + Context.Servers.Root(kMsfcServer) + "/data/b.ara.Z";
      EXPECT_EQ(WhyNotAgain(SourceOf("MSFC"), File(address, name)), "");
      FetchAgain(Context, SourceOf("MSFC"), {"", "user", "secret"}, {File(address, name)});
    });
  };
  WriteOutput("b.ara", "old");
  for (const char* name : {"b.ara", "b.ara.Z"}) run(name);
  EXPECT_THAT(Stored(), ElementsAre(StartsWith("b.ara 3 "), "b.ara.Z 6 2005-11-10 06:00"));
  EXPECT_THAT(Lines(), Contains(HasSubstr("the old file stays: uncompressed to 2 bytes, expected 3")));
  WriteOutput("b.ara", "XY");
  run("b.ara");
  EXPECT_EQ(ReadWholeFile(Output("b.ara")), "ab");
  EXPECT_THAT(Tree(), SizeIs(2)) << "no temporary folder stays";
}

TEST_F(TFetchAgainTest, SaysWhyItCannot) {
  const std::tuple<const char*, std::string, const char*, const char*> cases[] = {
      {"RSS Archive", "http://a/b", "b", "closed"},
      {"Weather data", "http://a/b", "b", "newest file"},
      {"GOES", "not asked", "b", "address is not known"},
      {"MSFC", "ftp://a/b.Z", "c", "its name on the disk"},
      {"GOES", "http://a/b", "", "no place"}};
  for (const auto& [source, address, name, why] : cases) {
    TAgainFile file = File(address, name);
    if (*name == '\0') file.Path.clear();
    EXPECT_THAT(WhyNotAgain(SourceOf(source), file), HasSubstr(why));
  }
}

}  // namespace
}  // namespace skyreel::test
