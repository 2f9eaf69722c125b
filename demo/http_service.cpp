#include "demo/http_service.h"

#include <algorithm>
#include <array>
#include <map>

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

/// Header fields by their names in lower case.
using TFields = std::map<std::string, std::string>;

void Answer(const TFindFile& find, TConnection& client, const std::string& request, TFields fields) {
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

  const std::string host = fields["host"].substr(0, fields["host"].find(':'));
  const auto file = find(host, path);
  if (!file) return ReplyWithText(client, "404 Not Found", "", head);
  if (file->NeedsLogin &&
      fields["authorization"] != "Basic " + Base64(kDemoUser + std::string(":") + kDemoPassword))
    return ReplyWithText(client, "401 Unauthorized", "WWW-Authenticate: Basic realm=\"archive\"\r\n", head);
  if (file->Fault == TFault::Stall) return client.Finish(kStall);

  std::string_view body = *file->Content;
  const std::string date = HttpDate(file->Modified);
  const std::string tag =
      "\"" + std::to_string(file->Modified.UnixTime()) + "-" + std::to_string(body.size()) + "\"";
  const std::string last_fields =
      "ETag: " + tag + "\r\nLast-Modified: " + date + "\r\nConnection: close\r\n\r\n";
  const std::string known_tag = fields["if-none-match"];
  // The tag decides when the client has one.
  if (known_tag.empty() ? fields["if-modified-since"] == date : known_tag == tag) {
    client.Write("HTTP/1.1 304 Not Modified\r\n" + last_fields);
    return;
  }
  client.Write("HTTP/1.1 200 OK\r\nContent-Type: " + file->Type +
               "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" + last_fields);
  if (head) return;
  client.Write(file->Fault == TFault::Cut ? body.substr(0, body.size() / 2) : body);
}

}  // namespace

void ServeHttp(const TFindFile& find, TConnection& client) {
  const auto request = client.ReadLine();
  if (!request) return;
  TFields fields;
  for (int i = 0; i < kMostHeaderLines; ++i) {
    const auto line = client.ReadLine();
    if (!line) return;
    if (line->empty()) break;
    const std::size_t colon = std::min(line->find(':'), line->size() - 1);
    fields[LowerCase(line->substr(0, colon))] = Trim(std::string_view(*line).substr(colon + 1));
  }
  Answer(find, client, *request, std::move(fields));
  client.Finish(5s);
}

void ServeHttp(TDemoArchive& archive, TConnection& client) {
  ServeHttp([&](const std::string&, const std::string& path) { return archive.Find(path); }, client);
}

}  // namespace skyreel::demo
