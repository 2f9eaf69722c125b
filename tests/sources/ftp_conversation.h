#pragma once

#include <bzlib.h>

#include <optional>
#include <string>
#include <vector>

#include "support/scripted_server.h"

namespace skyreel::test {

/// A file that a session is expected to ask for, and what the server does then.
struct TFtpAsked {
  std::string Path;
  std::optional<std::string> Content;  ///< none: the server has no such file
  std::size_t Announced = 0;           ///< bytes announced, if not those of the content
};

/// A session in active mode that asks for exactly these files, in this order.
inline TScript FtpConversation(const std::string& user, const std::string& password,
                               const std::vector<TFtpAsked>& files) {
  TScript script;
  script.Reply("220 ready\r\n")
      .Exchange("USER " + user, "331 password")
      .Exchange("PASS " + password, "230 in");
  script.Exchange("TYPE I", "200 binary");
  for (const TFtpAsked& file : files) {
    script.ReadLine().Reply("200 port\r\n").Expect("RETR " + file.Path);
    if (!file.Content) {
      script.Reply("550 No such file\r\n");
      continue;
    }
    const std::size_t announced = file.Announced > 0 ? file.Announced : file.Content->size();
    script.Reply("150 Opening data connection (" + std::to_string(announced) + " bytes)\r\n");
    script.ConnectBack(TScript().Reply(*file.Content)).Reply("226 done\r\n");
  }
  return script.Exchange("QUIT", "221 bye");
}

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

/// As bzip2 writes it.
inline std::string Bzip2(std::string data) {
  auto size = static_cast<unsigned>(data.size() + data.size() / 100 + 600);
  std::string packed(size, '\0');
  BZ2_bzBuffToBuffCompress(packed.data(), &size, data.data(), static_cast<unsigned>(data.size()), 1, 0, 0);
  packed.resize(size);
  return packed;
}

}  // namespace skyreel::test
