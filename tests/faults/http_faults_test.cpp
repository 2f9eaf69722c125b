#include <gmock/gmock.h>

#include <algorithm>

#include "base/text.h"
#include "faults/stage.h"
#include "sources/eu_archive.h"

namespace skyreel {
namespace {

using std::chrono::milliseconds;
using test::Judge;
using test::TFamily;
using test::TOutcome;
using test::TScript;
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
  Part,          ///< what says of itself that it is a part
  Empty,         ///< a good reply without a body
  Almost,        ///< all but the last byte, and nothing announced
  ErrorReply,
  Page,
  Nothing,
  Other,   ///< an error reply as large as a picture, or a reply that says nothing of itself
  Silent,  ///< no reply proper
};

/// The request that the fault answers.
struct TAsked {
  std::string Body;  ///< the right one
  std::string Path;
  std::string Port;    ///< the server's
  std::string Closed;  ///< a port where nobody listens
};

struct THttpFault {
  const char* Name;
  TComes Comes;
  const char* Text;                        ///< what the client says, or the error reply
  TScript (*Script)(const TAsked& asked);  ///< what the server does with it
  bool Stalls = false, Endless = false;
};

// What replies are made of.
const std::string kOk = "HTTP/1.0 200 OK\r\n";
std::string Announced(std::size_t size) {
  return "Content-Length: " + std::to_string(size) + "\r\n";
}
std::string HalfOf(const std::string& body) {
  return body.substr(0, body.size() / 2);
}
std::string Chunk(const std::string& data) {
  char size[20];
  std::snprintf(size, sizeof size, "%zX\r\n", data.size());
  return size + data + "\r\n";
}
const std::string kChunked = kOk + "Transfer-Encoding: chunked\r\n\r\n";

/// The server answers so: the whole reply with this status, this header and this body.
#define SAYS(...)                                          \
  [](const TAsked& asked) {                                \
    [[maybe_unused]] const std::string& body = asked.Body; \
    return TScript().Reply(__VA_ARGS__);                   \
  }

const THttpFault kFaults[] = {
    {"server says nothing", TComes::Broken, "Socket readln aborted",
     [](const TAsked&) { return TScript().Stall(); }, true},
    {"silence inside the header", TComes::Broken, "Socket readln aborted",
     [](const TAsked&) { return TScript().Reply(kOk + "Content-Le").Stall(); }, true},
    {"silence inside the body", TComes::BrokenInBody, "Socket send aborted",
     [](const TAsked& asked) {
       return TScript().Reply(kOk + Announced(asked.Body.size()) + "\r\n" + HalfOf(asked.Body)).Stall();
     },
     true},
    {"header that drips byte by byte", TComes::Whole, "",
     [](const TAsked& asked) {
       return TScript().Drip(kOk + Announced(asked.Body.size()) + "\r\n", milliseconds(1)).Reply(asked.Body);
     }},
    {"header that drips without end", TComes::Broken, "Socket readln aborted",
     [](const TAsked&) { return TScript().Drip(kOk + std::string(60'000, 'h'), milliseconds(5)); }, false,
     true},
    {"body that drips without end", TComes::BrokenInBody, "Socket send aborted",
     [](const TAsked& asked) {
       return TScript()
           .Reply(kOk + Announced(asked.Body.size()) + "\r\n" + HalfOf(asked.Body))
           .Drip(asked.Body.substr(0, asked.Body.size() / 2 - 1), milliseconds(50));
     },
     false, true},
    {"header of more than 1 MiB", TComes::Broken, "Header too long", SAYS([] {
       std::string lines = kOk;
       while (lines.size() < 1'100'000) lines += "X: " + std::string(1000, 'h') + "\r\n";
       return lines;
     }())},
    {"header line of 1 MiB", TComes::Broken, "Line too long", SAYS(kOk + std::string(1 << 20, 'h'))},
    {"closes before the reply", TComes::Broken, "Connection closed before the reply",
     [](const TAsked&) { return TScript().Close(); }},
    {"closes inside the header", TComes::Empty, "", SAYS(kOk + "Content-Le")},
    {"resets before the reply", TComes::Broken, "10054:Connection reset by peer",
     [](const TAsked&) { return TScript().Reset(); }},
    {"resets inside the header", TComes::Broken, "10054:Connection reset by peer",
     [](const TAsked&) { return TScript().Reply(kOk + "Content-Le").Reset(); }},
    {"resets inside the body", TComes::BrokenInBody, "10054:Connection reset by peer",
     [](const TAsked& asked) {
       return TScript().Reply(kOk + Announced(asked.Body.size()) + "\r\n" + HalfOf(asked.Body)).Reset();
     }},
    {"body shorter than announced", TComes::Cut, "",
     SAYS(kOk + Announced(body.size()) + "\r\n" + HalfOf(body))},
    {"body longer than announced", TComes::Whole, "",
     SAYS(kOk + Announced(body.size()) + "\r\n" + body + "more")},
    {"size not announced", TComes::Whole, "", SAYS(kOk + "\r\n" + body)},
    {"size not announced, half of it comes", TComes::Half, "", SAYS(kOk + "\r\n" + HalfOf(body))},
    {"size not announced, one byte missing", TComes::Almost, "",
     SAYS(kOk + "\r\n" + body.substr(0, body.size() - 1))},
    {"two Content-Lengths, the same", TComes::Whole, "",
     SAYS(kOk + Announced(body.size()) + Announced(body.size()) + "\r\n" + body)},
    {"two Content-Lengths, the second greater", TComes::Cut, "",
     SAYS(kOk + Announced(7) + Announced(body.size()) + "\r\n" + HalfOf(body))},
    {"Content-Length beyond all measure", TComes::Cut, "9000000000000",
     SAYS(kOk + "Content-Length: 9000000000000\r\n\r\n" + HalfOf(body))},
    {"Content-Length beyond 64 bits", TComes::Cut, "9223372036854775807",
     SAYS(kOk + "Content-Length: 99999999999999999999\r\n\r\n" + HalfOf(body))},
    {"Content-Length negative", TComes::Whole, "", SAYS(kOk + "Content-Length: -5\r\n\r\n" + body)},
    {"Content-Length that is no number", TComes::Whole, "", SAYS(kOk + "Content-Length: 12x\r\n\r\n" + body)},
    {"100 and 102 before the reply", TComes::Whole, "",
     SAYS("HTTP/1.0 100 Continue\r\n\r\nHTTP/1.0 102 Processing\r\nX: y\r\n\r\n" + kOk +
          Announced(body.size()) + "\r\n" + body)},
    {"100 and then nothing", TComes::Silent, "without a status", SAYS("HTTP/1.0 100 Continue\r\n\r\n")},
    {"100 without end", TComes::Broken, "Header too long", SAYS([] {
       std::string replies;
       while (replies.size() < 1'100'000)
         replies += "HTTP/1.0 100 Continue\r\nX: " + std::string(1000, 'h') + "\r\n\r\n";
       return replies;
     }())},
    {"204", TComes::Nothing, "", SAYS("HTTP/1.0 204 No Content\r\n\r\n" + body)},
    {"206, a part that nobody asked for", TComes::Part, "",
     SAYS(test::HttpReply(body.substr(0, body.size() - 1), {"Content-Range: bytes 0-5/12"},
                          "206 Partial Content"))},
    {"304 for ever", TComes::Broken, "Too many redirects", SAYS("HTTP/1.0 304 Not Modified\r\n\r\n")},
    {"401", TComes::ErrorReply, "401 Unauthorized",
     SAYS(test::HttpReply("no", {"WWW-Authenticate: Basic"}, "401 Unauthorized"))},
    {"404", TComes::ErrorReply, "404 Not Found", SAYS(test::HttpReply("no", {}, "404 Not Found"))},
    {"416", TComes::ErrorReply, "416 Bad Range", SAYS(test::HttpReply("no", {}, "416 Bad Range"))},
    {"500 with a text", TComes::ErrorReply, "500 Oops", SAYS(test::HttpReply("sorry", {}, "500 Oops"))},
    {"500 with bytes as many as a picture", TComes::Other, "500 Oops",
     SAYS(test::HttpReply(std::string(body.size(), 'e'), {}, "500 Oops"))},
    {"HTML page in place of the file", TComes::Page, "",
     SAYS(test::HttpReply(" <!DOCTYPE html>" + std::string(body.size(), ' ')))},
    {"chunked reply to HTTP/1.0", TComes::Whole, "",
     SAYS(kChunked + Chunk(HalfOf(body)) + Chunk(body.substr(body.size() / 2)) + "0\r\n\r\n")},
    {"chunked reply, cut", TComes::BrokenInBody, "Connection closed inside the reply",
     SAYS(kChunked + Chunk(HalfOf(body)))},
    {"chunked reply, bad size", TComes::BrokenInBody, "Damaged chunk in the reply",
     SAYS(kChunked + Chunk(HalfOf(body)) + "xyz\r\n" + body)},
    {"chunk of 16 exabytes", TComes::BrokenInBody, "Damaged chunk in the reply",
     SAYS(kChunked + Chunk(HalfOf(body)) + "FFFFFFFFFFFFFFFF\r\n" + body)},
    {"gzip as transfer encoding", TComes::Broken, "Transfer encoding not supported",
     SAYS(kOk + "Transfer-Encoding: gzip\r\n\r\n" + body)},
    {"NUL bytes in the header", TComes::Whole, "",
     SAYS(kOk + std::string("X\0: a\0b\r\n", 10) + Announced(body.size()) + "\r\n" + body)},
    {"binary rubbish as status line", TComes::Broken, "Not an HTTP reply",
     SAYS(std::string(300, '\xfe') + "\n" + body)},
    {"body without a header", TComes::Broken, "Not an HTTP reply", SAYS("GIF89a\n" + body)},
    {"status line without a code", TComes::Other, "without a status",
     SAYS("HTTP/1.0\r\n\r\n" + std::string(body.size(), 'e'))},
    {"redirect to another path of the server", TComes::Whole, "",
     SAYS("HTTP/1.0 302 Found\r\nLocation: /moved\r\n\r\n")},
    {"redirect to another host", TComes::Whole, "",
     SAYS("HTTP/1.0 302 Found\r\nLocation: http://localhost:" + asked.Port + "/moved\r\n\r\n")},
    {"redirect to a host that has no address", TComes::Broken, "Host Lookup Failed",
     SAYS("HTTP/1.0 302 Found\r\nLocation: http://nowhere.invalid/a\r\n\r\n")},
    {"redirect to a port where nobody listens", TComes::Broken, "Connection Failed",
     SAYS("HTTP/1.0 302 Found\r\nLocation: http://127.0.0.1:" + asked.Closed + "/a\r\n\r\n")},
    {"redirect to https", TComes::Refused, "HTTP Secure Socket is not supported",
     SAYS("HTTP/1.0 302 Found\r\nLocation: https://127.0.0.1/a\r\n\r\n")},
    {"redirect to itself", TComes::Broken, "Too many redirects",
     SAYS("HTTP/1.0 302 Found\r\nLocation: " + asked.Path + "\r\n\r\n")},
    {"redirect without a location", TComes::Broken, "Too many redirects", SAYS("HTTP/1.0 302 Found\r\n\r\n")},
    {"redirect to a URL with control characters", TComes::Refused, "Control character in URL",
     SAYS("HTTP/1.0 302 Found\r\nLocation: http://127.0.0.1/a\x01"
          "b\r\n\r\n")},
    {"redirect to port 0", TComes::Refused, "Bad port in URL",
     SAYS("HTTP/1.0 302 Found\r\nLocation: http://127.0.0.1:0/a\r\n\r\n")},
    {"redirect to a file: URL", TComes::ErrorReply, "404 Not Found",
     SAYS("HTTP/1.0 302 Found\r\nLocation: file://127.0.0.1:" + asked.Port + "/etc/passwd\r\n\r\n")},
};

/// What each family makes of what came.
TOutcome Expected(TFamily family, const THttpFault& fault) {
  const TComes comes = fault.Comes;
  const auto among = [comes](std::initializer_list<TComes> list) {
    return std::find(list.begin(), list.end(), comes) != list.end();
  };
  std::string text = fault.Text;
  if (comes == TComes::Whole) {
    return {family == TFamily::Pdus                                ? "Get: NAME; NAME - OK"
            : family == TFamily::Fetch || family == TFamily::Chart ? "NAME - OK"
                                                                   : "",
            "whole"};
  }
  const bool fails = among({TComes::Broken, TComes::BrokenInBody, TComes::Refused});
  const bool page = among({TComes::ErrorReply, TComes::Page, TComes::Other, TComes::Silent});
  const bool part =
      among({TComes::BrokenInBody, TComes::Cut, TComes::Half, TComes::Almost, TComes::Part, TComes::Empty});
  const std::string disk = part ? "short" : page && comes != TComes::Silent ? "another content" : "nothing";
  switch (family) {
    case TFamily::Client:
      return {fails ? text : "", disk};
    case TFamily::Memory:
    case TFamily::Stream:
      if (text == "Socket send aborted") text = "Socket capture aborted";
      return {fails && family == TFamily::Memory ? text : "",
              fails || comes == TComes::Empty ? "nothing" : disk};
    case TFamily::Fetch:
      // Nothing gives away that a byte is missing, or that the reply is an error as large as a picture.
      if (among({TComes::Almost, TComes::Other})) return {"NAME - OK", disk};
      if (comes == TComes::Refused) return {"NAME - not fetched: " + text, "nothing"};
      return {fails || among({TComes::Nothing, TComes::Empty, TComes::Silent})
                  ? "NAME - timed out"
                  : "NAME - missing or incomplete",
              "nothing"};
    default:
      break;
  }
  std::string reason = fails                   ? text
                       : comes == TComes::Page ? "a page came in its place"
                       : comes == TComes::Part ? "the server sent only a part"
                       : page                  ? "the server answered " + text
                                               : (among({TComes::Nothing, TComes::Empty}) ? "0"
                                                  : comes == TComes::Almost               ? "ALL - 1"
                                                                                          : "HALF") +
                                    std::string(" of ") + (text.empty() ? "ALL" : text) + " bytes came";
  const std::string kept = family == TFamily::Older ? "the older file" : part ? "short, noted" : "nothing";
  if (family == TFamily::Pdus) return {"Get: NAME; NAME - incomplete?", kept};
  if (family == TFamily::Chart)
    return {fails ? "NAME - timed out" : "NAME - missing or incomplete: " + reason, kept};
  return {(fails ? "timed out: " : page ? "refused: " : "cut: ") + reason, kept};
}

class HttpFaults : public testing::TestWithParam<THttpFault> {};

TEST_P(HttpFaults, CostsOneFile) {
  const THttpFault& fault = GetParam();
  for (const TSubject& subject : test::HttpSubjects()) {
    SCOPED_TRACE(subject.Name);
    TStage stage(subject.Size);
    subject.Prepare(stage);
    ServeHttp(stage);
    stage.Server.Answer("/moved", stage.Body(stage.Hit));
    stage.Server.AnswerScript(
        "GET " + stage.HitFile().Remote,
        fault.Script({stage.Body(stage.Hit), stage.HitFile().Remote, std::to_string(stage.Server.Port()),
                      std::to_string(test::ClosedPort())}));
    const TOutcome seen = stage.Play(fault.Stalls ? 250 : 20'000, fault.Endless ? 250 : 0);
    Judge("HTTP: replies", fault.Name, subject, stage, seen, Expected(subject.Family, fault));
  }
}

INSTANTIATE_TEST_SUITE_P(Reply, HttpFaults, testing::ValuesIn(kFaults),
                         [](const auto& info) { return test::TestName(info.param.Name); });

}  // namespace
}  // namespace skyreel
