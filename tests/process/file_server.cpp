#include "process/file_server.h"

#include <random>
#include <sstream>
#include <thread>

namespace skyreel::test {

using namespace std::chrono_literals;

std::string SomeBytes(std::size_t size, unsigned seed) {
  std::minstd_rand random(seed + 1);
  std::string bytes(size, '.');
  for (std::size_t i = 0; i < size; i += 4) bytes[i] = static_cast<char>(random());
  return bytes;
}

std::string HttpHeader(const std::string& status, std::size_t size, const std::string& more) {
  return "HTTP/1.0 " + status + "\r\nContent-Length: " + std::to_string(size) + "\r\n" + more + "\r\n";
}

bool TFileServer::StallsAt(TStall place, demo::TConnection& client) {
  if (stall_ != place) return false;
  ++events_;
  client.ReadLine();
  return true;
}

void TFileServer::Send(demo::TConnection& client, const std::string& content) {
  constexpr std::size_t kPiece = 64 << 10;
  for (std::size_t at = 0; at < content.size(); at += kPiece) {
    if (at > content.size() / 2 && StallsAt(TStall::Body, client)) return;
    if (!client.Write(std::string_view(content).substr(at, kPiece))) return;
    std::this_thread::sleep_for(10ms);
  }
}

void TFileServer::ServeHttp(demo::TConnection& client) {
  const auto request = client.ReadLine();
  if (!request) return;
  for (auto line = request; line && !line->empty();) line = client.ReadLine();
  ++events_;
  std::string method, path;
  std::istringstream(*request) >> method >> path;
  if (StallsAt(path.find("listImages") != std::string::npos ? TStall::Listing : TStall::Header, client))
    return;
  const auto file = files_.find(path);
  if (file == files_.end()) {
    client.Write(HttpHeader("404 Not Found", 6) + "<html>");
  } else {
    client.Write(HttpHeader(
        "200 OK", file->second.Content.size(),
        FormatDateTime("'Last-Modified: Thu, 'dd mmm yyyy hh:nn:ss' GMT'", file->second.Time) + "\r\n"));
    if (method == "GET") Send(client, file->second.Content);
  }
  client.Finish(5s);
}

void TFileServer::ServeFtp(demo::TConnection& client) {
  ++events_;
  if (StallsAt(TStall::Greeting, client)) return;
  client.Write("220 Ready\r\n");
  std::unique_ptr<demo::TListener> passive;
  while (const auto line = client.ReadLine()) {
    const std::string command = line->substr(0, 4);
    if (command == "USER") {
      if (StallsAt(TStall::Login, client)) return;
      client.Write("331 Password\r\n");
    } else if (command == "PASS" || command == "TYPE") {
      client.Write("230 Well\r\n");
    } else if (command == "PASV") {
      passive = std::make_unique<demo::TListener>(0);
      client.Write("227 Passive (127,0,0,1," + std::to_string(passive->Port() / 256) + "," +
                   std::to_string(passive->Port() % 256) + ")\r\n");
    } else if (const auto file = files_.find(line->substr(std::min<std::size_t>(5, line->size())));
               command == "RETR" && passive && file != files_.end()) {
      client.Write("150 Opening (" + std::to_string(file->second.Content.size()) + " bytes)\r\n");
      const auto data = passive->Accept(5s);
      if (!data || StallsAt(TStall::Data, client)) return;
      Send(*data, file->second.Content);
      data->Finish(5s);
      client.Write("226 Done\r\n");
    } else {
      client.Write(command == "QUIT" ? "221 Bye\r\n" : "550 No\r\n");
    }
  }
}

}  // namespace skyreel::test
