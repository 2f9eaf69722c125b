#include "demo/http_service.h"

#include <array>

#include "base/text.h"

namespace skyreel::demo {

namespace {

using namespace std::chrono_literals;

constexpr int kMostHeaderLines = 100;
/// A stalled reply lasts longer than any client waits.
constexpr auto kStall = 3600s;

/// "Thu, 10 Nov 2005 12:00:00 GMT"
std::string HttpDate(TDateTime time) {
  constexpr std::array days = {"Sat", "Sun", "Mon", "Tue", "Wed", "Thu", "Fri"};  // day 0 was a Saturday
  const auto day = static_cast<std::size_t>(time.Milliseconds() / 86400000 % 7);
  return days[day] + FormatDateTime("', 'dd mmm yyyy hh:nn:ss' GMT'", time);
}

void ReplyWithText(TConnection& client, const std::string& status, const std::string& extra_header,
                   bool head) {
  const std::string page = "<html><body><h1>" + status + "</h1></body></html>\n";
  client.Write("HTTP/1.1 " + status + "\r\n" + extra_header + "Content-Type: text/html\r\nContent-Length: " +
               std::to_string(page.size()) + "\r\nConnection: close\r\n\r\n" + (head ? "" : page));
}

void Answer(TDemoArchive& archive, TConnection& client, const std::string& request,
            const std::string& login) {
  const auto method_end = request.find(' ');
  const auto target_end = request.find(' ', method_end + 1);
  if (method_end == std::string::npos || target_end == std::string::npos)
    return ReplyWithText(client, "400 Bad Request", "", false);
  const std::string method = request.substr(0, method_end);
  std::string path = request.substr(method_end + 1, target_end - method_end - 1);
  const bool head = method == "HEAD";
  if (!head && method != "GET")
    return ReplyWithText(client, "405 Method Not Allowed", "Allow: GET, HEAD\r\n", false);
  // A proxy is asked with the whole address.
  if (StartsWithText(path, "http://")) path.erase(0, std::min(path.find('/', 7), path.size()));

  const auto file = archive.Find(path);
  if (!file) return ReplyWithText(client, "404 Not Found", "", head);
  if (file->NeedsLogin && login != "Basic " + Base64(kDemoUser + std::string(":") + kDemoPassword))
    return ReplyWithText(client, "401 Unauthorized", "WWW-Authenticate: Basic realm=\"archive\"\r\n", head);
  if (file->Fault == TFault::Stall) return client.Finish(kStall);

  std::string_view body = *file->Content;
  client.Write("HTTP/1.1 200 OK\r\nContent-Type: " + file->Type +
               "\r\nContent-Length: " + std::to_string(body.size()) +
               "\r\nLast-Modified: " + HttpDate(file->Modified) + "\r\nConnection: close\r\n\r\n");
  if (head) return;
  client.Write(file->Fault == TFault::Cut ? body.substr(0, body.size() / 2) : body);
}

}  // namespace

void ServeHttp(TDemoArchive& archive, TConnection& client) {
  const auto request = client.ReadLine();
  if (!request) return;
  std::string login;
  for (int i = 0; i < kMostHeaderLines; ++i) {
    const auto line = client.ReadLine();
    if (!line) return;
    if (line->empty()) break;
    constexpr std::string_view name = "Authorization:";
    if (StartsWithText(*line, name)) login = Trim(std::string_view(*line).substr(name.size()));
  }
  Answer(archive, client, *request, login);
  client.Finish(5s);
}

}  // namespace skyreel::demo
