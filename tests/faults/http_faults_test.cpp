#include <gmock/gmock.h>

#include <algorithm>

#include "base/text.h"
#include "faults/stage.h"

namespace skyreel {
namespace {

using test::Filled;
using test::Judge;
using test::Repeated;
using test::TFamily;
using test::TOutcome;
using test::TStage;
using test::TSubject;

/// What a reply comes to.
enum class TComes {
  Whole,
  Broken,        ///< an exception before any of the body
  BrokenInBody,  ///< an exception behind half of the body
  Refused,       ///< an exception that says what the program does not do
  Cut,           ///< half of what was announced
  Half,          ///< half, and nothing announced
  Almost,        ///< all but the last byte, and nothing announced
  Part,          ///< what says of itself that it is a part
  Empty,         ///< a good reply without a body, for want of a header's end
  Nothing,       ///< a good reply that has no body
  Silent,        ///< no reply proper
  ErrorReply,
  Page,
  Other,  ///< other bytes, as many as of a picture, with an error status or none
};
using enum TComes;

struct THttpFault {
  const char* Name;
  TComes Comes;
  std::string Text;    ///< what the client says, or the status
  std::string Script;  ///< what the server does, as test::Script reads it
};

const std::string kLine = "X: " + std::string(1000, 'h') + "\n";
constexpr auto kReset = "10054:Connection reset by peer";

// "<ok>" is a good status line, "<size>" and "<found>" the lines Content-Length and Location.
const THttpFault kFaults[] = {
    {"server says nothing", Broken, "Socket readln aborted", "<stall>"},
    {"silence inside the header", Broken, "Socket readln aborted", "<ok>Content-Le<stall>"},
    {"silence inside the body", BrokenInBody, "Socket send aborted", "<ok><size>\n<half><stall>"},
    {"header that drips byte by byte", Whole, "", "<drip><ok><size>\n<go><body>"},
    {"header that drips without end", Broken, "Socket readln aborted", "<ok><drip>" + Repeated("h")},
    {"body that drips without end", BrokenInBody, "Socket send aborted", "<ok><size>\n<half><drip><half>"},
    {"header of more than 1 MiB", Broken, "Header too long", "<ok>" + Repeated(kLine)},
    {"header line of more than 1 MiB", Broken, "Line too long", "<ok>" + Repeated("h")},
    {"closes before the reply", Broken, "Connection closed before the reply", ""},
    {"closes inside the header", Empty, "", "<ok>Content-Le"},
    {"resets before the reply", Broken, kReset, "<reset>"},
    {"resets inside the header", Broken, kReset, "<ok>Content-Le<reset>"},
    {"resets inside the body", BrokenInBody, kReset, "<ok><size>\n<half><reset>"},
    {"body shorter than announced", Cut, "", "<ok><size>\n<half>"},
    {"body longer than announced", Whole, "", "<ok><size>\n<body>more"},
    {"size not announced", Whole, "", "<ok>\n<body>"},
    {"size not announced, half of it comes", Half, "", "<ok>\n<half>"},
    {"size not announced, one byte missing", Almost, "", "<ok>\n<almost>"},
    {"two Content-Lengths, the same", Whole, "", "<ok><size><size>\n<body>"},
    {"two Content-Lengths, the second greater", Cut, "", "<ok>Content-Length: 7\n<size>\n<half>"},
    {"Content-Length of 9 TB", Cut, "9000000000000", "<ok>Content-Length: 9000000000000\n\n<half>"},
    {"Content-Length beyond 64 bits", Cut, "9223372036854775807",
     "<ok>Content-Length: 99999999999999999999\n\n<half>"},
    {"Content-Length negative", Whole, "", "<ok>Content-Length: -5\n\n<body>"},
    {"Content-Length that is no number", Whole, "", "<ok>Content-Length: 12x\n\n<body>"},
    {"100 and 102 before the reply", Whole, "",
     "HTTP/1.0 100 Go on\n\nHTTP/1.0 102 Wait\nX: y\n\n<ok><size>\n<body>"},
    {"100 and then nothing", Silent, "without a status", "HTTP/1.0 100 Go on\n\n"},
    {"100 without end", Broken, "Header too long", Repeated("HTTP/1.0 100 Go on\n" + kLine + "\n")},
    {"204", Nothing, "", "HTTP/1.0 204 No Content\n\n<body>"},
    {"206, a part that nobody asked for", Part, "",
     "HTTP/1.0 206 Part\nContent-Range: bytes 0-5/12\n\n<almost>"},
    {"304 for ever", Broken, "Too many redirects", "HTTP/1.0 304 Not Modified\n\n"},
    {"401", ErrorReply, "401 Who", "HTTP/1.0 401 Who\nWWW-Authenticate: Basic\nContent-Length: 2\n\nno"},
    {"404", ErrorReply, "404 Not Found", "HTTP/1.0 404 Not Found\nContent-Length: 2\n\nno"},
    {"416", ErrorReply, "416 Range", "HTTP/1.0 416 Range\n\nno"},
    {"500 with a text", ErrorReply, "500 Oops", "HTTP/1.0 500 Oops\n\nsorry"},
    {"500 with bytes as many as a picture", Other, "500 Oops", "HTTP/1.0 500 Oops\n\n<other>"},
    {"status line without a code", Other, "without a status", "HTTP/1.0\n\n<other>"},
    {"HTML page in place of the file", Page, "", "<ok>\n <!DOCTYPE html><other>"},
    {"page of more than 64 MiB", BrokenInBody, "Reply too large", "<ok>\n<huge>"},
    {"chunked reply to HTTP/1.0", Whole, "", "<chunked><half>\n<rest chunk>0\n\n"},
    {"chunked reply, cut", BrokenInBody, "Connection closed inside the reply", "<chunked><half>\n"},
    {"chunked reply, bad size", BrokenInBody, "Damaged chunk in the reply", "<chunked><half>\nxyz\n<half>"},
    {"chunk of 16 exabytes", BrokenInBody, "Damaged chunk in the reply",
     "<chunked><half>\nFFFFFFFFFFFFFFFF\n<half>"},
    {"gzip as transfer encoding", Broken, "Transfer encoding not supported",
     "<ok>Transfer-Encoding: gzip\n\n<body>"},
    {"NUL bytes in the header", Whole, "", std::string("<ok>X\0: a\0b\n<size>\n<body>", 25)},
    {"binary rubbish as status line", Broken, "Not an HTTP reply", std::string(300, '\xfe') + "\n<body>"},
    {"body without a header", Broken, "Not an HTTP reply", "GIF89a\n<body>"},
    {"redirect to another path", Whole, "", "<found>/moved\n\n"},
    {"redirect to another host", Whole, "", "<found>http://localhost:<port>/moved\n\n"},
    {"redirect to a host without an address", Broken, "Host Lookup Failed",
     "<found>http://nowhere.invalid/a\n\n"},
    {"redirect to a port where nobody listens", Broken, "Connection Failed",
     "<found>http://127.0.0.1:<closed>/a\n\n"},
    {"redirect to https", Refused, "HTTP Secure Socket is not supported", "<found>https://127.0.0.1/a\n\n"},
    {"redirect to itself", Broken, "Too many redirects", "<found><self>\n\n"},
    {"redirect without a location", Broken, "Too many redirects", "HTTP/1.0 302 Found\n\n"},
    {"redirect with a control character", Refused, "Control character in URL",
     "<found>http://127.0.0.1/a\x01/b\n\n"},
    {"redirect to port 0", Refused, "Bad port in URL", "<found>http://127.0.0.1:0/a\n\n"},
    {"redirect to a file: URL", ErrorReply, "404 Not Found", "<found>file://127.0.0.1:<port>/etc/passwd\n\n"},
};

void PrintTo(const THttpFault& fault, std::ostream* out) {
  *out << fault.Name;
}

/// Lets the server answer a request for `path` (with its method in front) with the fault; plays.
TOutcome Play(TStage& stage, const THttpFault& fault, const std::string& method, const std::string& path,
              const std::string& body) {
  const auto has = [&fault](const char* mark) { return fault.Script.find(mark) != std::string::npos; };
  const std::string half = body.substr(0, body.size() / 2), rest = body.substr(body.size() / 2);
  char chunk[40];
  std::snprintf(chunk, sizeof chunk, "%zX\n", half.size());
  // First what holds line ends, and further words.
  std::string text =
      ReplaceAll(fault.Script, "<chunked>", "<ok>Transfer-Encoding: chunked\n\n" + std::string(chunk));
  text = ReplaceAll(text, "<rest chunk>", chunk + std::string("<rest>\n"));
  text = ReplaceAll(text, "<ok>", "HTTP/1.0 200 OK\n");
  text = ReplaceAll(text, "<found>", "HTTP/1.0 302 Found\nLocation: ");
  text = ReplaceAll(text, "<size>", "Content-Length: " + std::to_string(body.size()) + "\n");
  text = Filled(ReplaceAll(text, "\n", "\r\n"), {{"body", body},
                                                 {"half", half},
                                                 {"rest", rest},
                                                 {"almost", body.substr(0, body.size() - 1)},
                                                 {"other", std::string(body.size(), 'e')},
                                                 {"huge", has("<huge>") ? std::string(65 << 20, 'x') : ""},
                                                 {"self", path},
                                                 {"port", std::to_string(stage.Server.Port())},
                                                 {"closed", std::to_string(test::ClosedPort())}});
  stage.Server.Answer("/moved", body);
  stage.Server.Script(method + " " + path, text);
  return stage.Play(has("<stall>") ? 250 : 20'000, has("<drip>") && !has("<go>") ? 250 : 0);
}

/// What each family makes of what came.
TOutcome Expected(TFamily family, const THttpFault& fault) {
  const auto among = [&](std::initializer_list<TComes> list) {
    return std::find(list.begin(), list.end(), fault.Comes) != list.end();
  };
  std::string text = fault.Text;
  if (fault.Comes == Whole) {
    return {family == TFamily::Pdus                                ? "Get: NAME; NAME - OK"
            : family == TFamily::Fetch || family == TFamily::Chart ? "NAME - OK"
                                                                   : "",
            "whole"};
  }
  const bool fails = among({Broken, BrokenInBody, Refused});
  const bool refused = among({ErrorReply, Page, Other, Silent});
  const bool part = among({BrokenInBody, Cut, Half, Almost, Part, Empty});
  const std::string disk = part ? "short" : refused && fault.Comes != Silent ? "other bytes" : "nothing";
  switch (family) {
    case TFamily::Client:
      return {fails ? text : "", disk};
    case TFamily::Memory:
    case TFamily::Stream:
      text = ReplaceAll(text, "send", "capture");
      return {fails && family == TFamily::Memory ? text : "",
              fails || fault.Comes == Empty ? "nothing" : disk};
    case TFamily::Fetch:
      // Nothing gives away that a byte is missing, or that bytes as many as of a picture are none.
      if (among({Almost, Other})) return {"NAME - OK", disk};
      if (fault.Comes == Refused) return {"NAME - not fetched: " + text, "nothing"};
      return {fails || among({Nothing, Empty, Silent}) ? "NAME - timed out" : "NAME - missing or incomplete",
              "nothing"};
    default:
      break;
  }
  text = ReplaceAll(text, "send", "capture");
  const std::string came = among({Nothing, Empty}) ? "0" : fault.Comes == Almost ? "ALL - 1" : "HALF";
  const std::string reason = fails                 ? text
                             : fault.Comes == Page ? "received an HTML page"
                             : fault.Comes == Part ? "the server sent only a part"
                             : refused
                                 ? "the server answered " + text
                                 : "received " + came + " of " + (text.empty() ? "ALL" : text) + " bytes";
  const bool some = part && fault.Comes != Empty;
  const std::string kept = family == TFamily::Older ? "the older file" : some ? "short, noted" : "nothing";
  if (family == TFamily::Pdus) return {"Get: NAME; NAME - incomplete?", kept};
  if (family == TFamily::Chart)
    return {fails ? "NAME - timed out" : "NAME - missing or incomplete: " + reason, kept};
  return {(fault.Comes == Refused ? "not asked: "
           : fails                ? "timed out: "
           : refused              ? "refused: "
                                  : "cut: ") +
              reason,
          kept};
}

class HttpFaults : public testing::TestWithParam<THttpFault> {};
INSTANTIATE_TEST_SUITE_P(Reply, HttpFaults, testing::ValuesIn(kFaults),
                         [](const auto& info) { return test::TestName(info.param.Name); });

TEST_P(HttpFaults, CostOneFile) {
  for (const TSubject& subject : test::HttpSubjects()) {
    SCOPED_TRACE(subject.Name);
    // A file may be larger than what is kept in memory.
    if (GetParam().Text == "Reply too large" && subject.Family != TFamily::Memory) continue;
    TStage stage(subject.Size);
    subject.Prepare(stage);
    ServeHttp(stage);
    const TOutcome seen = Play(stage, GetParam(), "GET", stage.HitFile().Remote, stage.Body(stage.Hit));
    Judge(subject, stage, seen, Expected(subject.Family, GetParam()));
  }
}

/// A server that is not there is told of for each file, or once where a page is asked for first. The charts'
/// servers are asked again by the next run, without a word.
TEST(HttpServerFaults, ARefusedConnectionIsTold) {
  const std::map<TFamily, std::string> lines = {{TFamily::Memory, "Connection Failed"},
                                                {TFamily::Client, "Connection Failed"},
                                                {TFamily::Fetch, "NAME - timed out"},
                                                {TFamily::Save, "timed out: Connection Failed"},
                                                {TFamily::Older, "timed out: Connection Failed"},
                                                {TFamily::Pdus, "Dundee PDUS file list - Connection Failed"}};
  for (const TSubject& subject : test::HttpSubjects()) {
    SCOPED_TRACE(subject.Name);
    TStage stage(subject.Size);
    subject.Prepare(stage);
    stage.Server.Stop();
    for (const TSource& source : Sources())
      for (const TServerSetting& server : source.Servers)
        if (!server.Ftp) stage.Context.Servers.Set(server, stage.Server.Url(""));
    TOutcome seen = stage.Play();
    const std::string line = subject.Name == std::string("EUMETSAT images (old naming)")
                                 ? "D1 20051110 - failed to get file list: Connection Failed"
                             : lines.contains(subject.Family) ? lines.at(subject.Family)
                                                              : "";
    EXPECT_THAT(seen.Sees, testing::HasSubstr(line));
    EXPECT_EQ(seen.Sees.empty(), line.empty());
    // The others have lines of their own.
    seen.Sees = line;
    Judge(subject, stage, seen, {line, subject.Family == TFamily::Older ? "the older file" : "nothing"},
          "no");
  }
}

/// A page that names files, in its first half.
TEST_P(HttpFaults, OfPagesAreTold) {
  const THttpFault& fault = GetParam();
  for (const TSubject& subject : test::PageSubjects()) {
    SCOPED_TRACE(subject.Name);
    TStage stage(subject.Size);
    subject.Prepare(stage);
    ServeHttp(stage);
    const TOutcome seen = Play(stage, fault, "GET", stage.PagePath, stage.Page);
    const bool pdus = subject.Family == TFamily::Pdus;
    const auto among = [&](std::initializer_list<TComes> list) {
      return std::find(list.begin(), list.end(), fault.Comes) != list.end();
    };
    const bool fetched = among({Whole, Half, Almost, Cut, Part});
    std::string why = pdus ? "the server answered " + fault.Text : "the page holds no list";
    if (among({Broken, BrokenInBody, Refused})) why = ReplaceAll(fault.Text, "send", "capture");
    if (fault.Text == "Reply too large") why = "given up: larger than 64 MiB";
    if (pdus && among({Nothing, Empty})) why = "the page is empty";
    // Of a page without a length only the list tells that it goes on.
    if (among({Half, Almost, Cut, Part})) why = "incomplete";
    std::string line = pdus      ? "Dundee PDUS file list - "
                       : fetched ? "D2 20051110 - file list "
                                 : "D2 20051110 - failed to get file list: ";
    line += why;
    if (pdus && fault.Text == "401 Who")
      line = "Dundee PDUS: the server refused the user name or the password";
    // A good page may hold nothing that is wanted.
    if (fault.Comes == Whole || (pdus && among({Half, Almost, Page}))) line = "";
    if (fetched)
      line += std::string(line.empty() ? "" : "; ") + (pdus ? "Get: NAME; NAME - OK" : "NAME - OK");
    const TOutcome expected{line, fetched ? "whole" : "nothing"};
    Judge(subject, stage, seen, expected, pdus ? "-" : "yes");
  }
}

/// Charts and PDUS ask for a file's header first. Expected are lines, and whether the file is fetched.
TEST(HttpHeaderFaults, CostNoMoreThanTheFile) {
  const std::string date = "Last-Modified: Wed, 09 Nov 2005 12:00:00 GMT\n", ok = "NAME - OK",
                    get = "Get: NAME; NAME - ";
  const struct {
    const char* Name;
    std::string Script, Chart;
    const char* Pdus;
  } rows[] = {
      {"no reply", "", "", "incomplete?"},
      {"silence", "<stall>", "", "incomplete?"},
      {"404", "HTTP/1.0 404 Not Found\n\n", "", "incomplete?"},
      {"405", "HTTP/1.0 405 No\n\n", "NAME - refused by the server: 405", "incomplete?"},
      {"redirect to https", "<found>https://h/\n\n", "NAME - HTTP Secure Socket is not supported",
       "incomplete?"},
      {"other letter case", "<ok>last-MODIFIED: Wed, 09 Nov 2005 12:00:00 GMT\nCONTENT-length: <all>\n\n", ok,
       "OK"},
      {"no Last-Modified", "<ok><size>\n", "", "OK"},
      {"Last-Modified in a foreign month", "<ok><size>Last-Modified: Mi, 09 Dez 2005 12:00:00 GMT\n\n", "",
       "OK"},
      {"Last-Modified in 1959", "<ok><size>Last-Modified: Mon, 09 Nov 1959 12:00:00 GMT\n\n", "", "OK"},
      {"Last-Modified in 2099", "<ok><size>Last-Modified: Mon, 09 Nov 2099 12:00:00 GMT\n\n", ok, "OK"},
      {"no Content-Length", "<ok>" + date + "\n", "", "incomplete?"},
      {"Content-Length negative", "<ok>" + date + "Content-Length: -5\n\n", "", "incomplete?"},
      {"Content-Length beyond 2 GiB", "<ok>" + date + "Content-Length: 3000000000\n\n", "", "incomplete?"},
      {"two Content-Lengths, the second right", "<ok>" + date + "Content-Length: 7\n<size>\n", ok, "OK"},
      {"a body that HEAD has not", "<ok>" + date + "<size>\n<body>", ok, "OK"},
  };
  for (const auto& row : rows) {
    for (const TSubject& subject : test::HttpSubjects()) {
      if (subject.Family < TFamily::Chart) continue;
      SCOPED_TRACE(std::string(row.Name) + ": " + subject.Name);
      TStage stage(subject.Size);
      subject.Prepare(stage);
      ServeHttp(stage);
      const std::string script = ReplaceAll(row.Script, "<all>", std::to_string(subject.Size));
      const TOutcome seen =
          Play(stage, {"", Whole, "", script}, "HEAD", stage.HitFile().Remote, stage.Body(stage.Hit));
      const bool chart = subject.Family == TFamily::Chart;
      Judge(subject, stage, seen,
            {chart ? row.Chart : get + row.Pdus, chart && row.Chart != ok ? "nothing" : "whole"});
    }
  }
}

}  // namespace
}  // namespace skyreel
