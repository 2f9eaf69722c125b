#pragma once

#include <functional>
#include <optional>

#include "sources/source_test.h"

namespace skyreel::test {

/// A file that a session is expected to ask for, and what the server does then.
struct TFtpAsked {
  std::string Path;
  std::optional<std::string> Content;  ///< none: the server has no such file
  std::size_t Announced = 0;           ///< bytes announced, if not those of the content
};

/// A job against an FTP server of this process.
class TFtpSourceTest : public TSourceTest {
 protected:
  using TSourceTest::TSourceTest;
  /// The form resets the rest at the end of a run.
  void TearDown() override { EXPECT_EQ(Panel(1), ""); }

  /// Runs the job against a server, at `root`, that expects one session in active mode in which exactly these
  /// files are asked for.
  void Session(std::string& root, const std::string& user, const std::string& password,
               const std::vector<TFtpAsked>& files, const std::function<void()>& job) {
    TScript script;
    script.Reply("220 ready\r\n")
        .Exchange("USER " + user, "331 password")
        .Exchange("PASS " + password, "230 in")
        .Exchange("TYPE I", "200 binary");
    for (const TFtpAsked& file : files) {
      script.ReadLine().Reply("200 port\r\n").Expect("RETR " + file.Path);
      if (!file.Content) {
        script.Reply("550 No such file\r\n");
        continue;
      }
      const std::size_t announced = file.Announced > 0 ? file.Announced : file.Content->size();
      script.Reply("150 Opening data connection (" + std::to_string(announced) + " bytes)\r\n")
          .ConnectBack(TScript().Reply(*file.Content))
          .Reply("226 done\r\n");
    }
    TScriptedServer server(script.Exchange("QUIT", "221 bye"));
    root = server.Address();
    job();
    server.WaitForConnections(1);
    EXPECT_THAT(server.Errors(), testing::IsEmpty());
  }
  std::string Panel(int panel) const {
    std::string last;
    for (const auto& [number, text] : Display.Panels) last = number == panel ? text : last;
    return last;
  }
};

/// `size` bytes as a picture has them: neither equal nor random.
inline std::string ImageBytes(std::size_t size) {
  std::string bytes(size, '\0');
  std::uint32_t noise = 1;
  for (std::size_t i = 0; i < size; ++i) {
    noise = noise * 1664525 + 1013904223;
    bytes[i] = static_cast<char>((i / 900) % 64 + (noise >> 30));
  }
  return bytes;
}

}  // namespace skyreel::test
