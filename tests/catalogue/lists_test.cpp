#include <gmock/gmock.h>

#include "base/text.h"
#include "catalogue/json_list.h"
#include "catalogue/xml_lists.h"
#include "support/helpers.h"

namespace skyreel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using TRows = std::vector<std::string>;

/// "name|stamp" of each entry; of a list that is refused, the message.
template <typename TRead>
TRows Rows(const TRead& read, const std::string& list) {
  TRows rows;
  const auto take = [&](const TListed& listed) {
    rows.push_back(std::string(listed.Text) + "|" + std::string(listed.Stamp));
  };
  const std::string error = test::Failure<EListError>([&] { read(list, take); });
  if (!error.empty()) rows = {error};
  return rows;
}

TEST(Listings, LinksAndDatesOfEveryServerAreRead) {
  const std::pair<const char*, TRows> cases[] = {
      // nginx, with a folder and a name that is cut in the text
      {"<html><h1>Index of /a/</h1><hr><pre><a href=\"../\">../</a>\n<a href=\"old/\">old/</a>  26-Nov-2026 "
       "05:21  -\r\n"
       "<a href=\"a%20long.jpg\">a lo..&gt;</a>   26-Nov-2026 05:21      1234\r\n</pre>",
       {"a long.jpg|26-Nov-2026 05:21 1234"}},
      // Apache: a table with line breaks inside its rows, an icon that is a link, and columns to sort by
      {"<table><tr><th><a href=\"?C=N;O=D\">Name</a></th></tr>\n<tr><td><a href=\"x&amp;y.gif\"><img "
       "src=\"i.gif\"></a></td>\n"
       "<td><a href=\"x&amp;y.gif\">x</a></td><td align=\"right\">2026-11-26 05:21  "
       "</td><td>1.2M</td>\n<td>&nbsp;</td></tr>"
       "<tr><td><A HREF='/fax/z.gif?v=1#top'>z</A></td></tr></table>",
       {"x&y.gif|2026-11-26 05:21 1.2M", "z.gif|"}},
      // IIS: the date first, all in one line
      {"<pre>11/26/2026  5:21 AM  1234 <A HREF=\"/UA/A.gif\">A.gif</A><br>11/27/2026  5:22 PM 99 <A "
       "HREF=/UA/B.gif>B.gif</A><br>",
       {"A.gif|11/26/2026 5:21 AM 1234", "B.gif|11/27/2026 5:22 PM 99"}},
      // A bucket's page
      {"<pre>2026-11-26T05:21:00.000Z   12.3 kB   <a href=\"https://b.example/k/x.png\">x.png</a>\n</pre>",
       {"x.png|2026-11-26T05:21:00.000Z 12.3 kB"}},
      // A time of day, a year or an outline number is no date.
      {"<li><a href=a>a</a> chart of 12:00, 2026<li><a href=b>b</a> 1.2.2026-1 10:00<li><a href=c>c</a> "
       "1-2-2026 at noon",
       {"a|", "b|", "c|"}},
      // Scripts, comments and named places are no links. Bad file names are left out.
      {"<script>if (1<2) s = '<a href=\"s\">'</script><!-- <a href=c> --><a name=n></a><a href=\"..\"></a>"
       "<a href=\"x%2Fy\"></a><a href=\"x%00\"></a><a href=\"%zz%4\"></a><a href=\"cut",
       {"%zz%4|", "cut|"}},
      {"<html>none", {"the page is not a listing: it holds no link"}},
  };
  for (const auto& [page, rows] : cases) EXPECT_EQ(Rows(ReadHtmlListing, page), rows) << page;
}

TEST(Listings, FtpLinesOfEveryFormAreRead) {
  const std::string list =
      "total 12\r\n"
      "-rw-r--r--   1 ftp      ftp        147000 Nov 26 05:21 a file.gif\r\n"
      "-rw-r--r--   1 ftp 21 2026 May  3  2025 May 1 12:00\r\n"
      "-rw-r--r--   1 owner      99 Nov 26 05:21 short.gif\n"
      "lrwxrwxrwx   1 0  0  7 Nov 26 05:21 now.gif -> a.gif\n"
      "drwxr-xr-x   2 0  0  4096 Nov 26 05:21 folder\n"
      "11-26-26  05:21AM       12345 dos file.gif\n"
      "11-26-26  05:21AM       <DIR> folder\n"
      "/pub/plain.gif\n..\n";
  EXPECT_THAT(Rows(ReadFtpListing, list),
              ElementsAre("total 12|", "a file.gif|147000 Nov 26 05:21", "May 1 12:00|2026 May  3  2025",
                          "short.gif|99 Nov 26 05:21", "now.gif|",
                          "dos file.gif|11-26-26  05:21AM       12345", "plain.gif|"));
}

TEST(S3Lists, KeysAndTheNextPageAreRead) {
  std::string next;
  const auto read = [&](const std::string& list, const TTakeListed& take) { next = ReadS3List(list, take); };
  const std::string start =
      "<?xml version=\"1.0\"?><ListBucketResult xmlns=\"x\"><Contents><Key>a/b/x&amp;y%20.nc</Key>"
      "<LastModified>2026-11-26T05:21:00.000Z</LastModified><Size>7</Size></Contents>"
      "<Contents><Key>a/b/</Key></Contents><IsTruncated>";
  const std::tuple<std::string, const char*, const char*> cases[] = {
      {start + "false</IsTruncated></ListBucketResult>", "x&y .nc|2026-11-26T05:21:00.000Z 7", ""},
      {start + "true</IsTruncated><NextContinuationToken>1+/=</NextContinuationToken></ListBucketResult>",
       "x&y .nc|", "1+/="},
      {start + "true</IsTruncated></ListBucketResult>", "does not say how it goes on", ""},
      {"<Error><Code>AccessDenied</Code><Message>Access\nDenied</Message></Error>",
       "\"Error\" instead of a bucket's list: Access Denied", ""},
      {"<!DOCTYPE a [<!ENTITY b \"c\">]><ListBucketResult/>", "declares entities", ""},
      {start, "damaged at byte", ""},
      {"<!doctype html><title>502</title>", "an HTML page instead of a bucket's list", ""},
      {"<a" + std::string(5'000'000, '=') + ">", "too many elements", ""}};
  for (const auto& [list, row, token] : cases) {
    next.clear();
    EXPECT_THAT(Rows(read, list), ElementsAre(HasSubstr(row))) << list.substr(0, 500);
    EXPECT_EQ(next, token);
  }
}

TEST(JsonLists, PointersAreFollowedThroughArrays) {
  const std::string list =
      R"({"past": [{"time": 1764134400, "path": "/a"}, {"time": 1e3, "path": "/b"}, {"time": 7},
                              {"time": null, "path": "/c"}], "host": "h", "empty": [], "*": "star", "~/": [[1, 2], [3]]})";
  const std::tuple<std::string, const char*, std::vector<std::string>, TRows> cases[] = {
      {list, "/past/*/time", {"/past/*/path", "/host"}, {"1764134400 /a h", "1e3 /b h"}},
      {list, "/past/1/time", {"/past/*/path"}, {}},
      {list, "/host", {}, {"h"}},
      {list, "/~0~1/*/*", {"/~0~1/*/0"}, {"1 1", "2 1", "3 3"}},
      {list, "/empty/*", {}, {}},
      {list, "/*", {}, {"the JSON document has no /*"}},
      {list, "/past/time", {}, {"the JSON document has no /past/time"}},
      {"[1, 2", "/*", {}, {"the JSON document is damaged at byte 6"}},
      {"<html>", "/*", {}, {"the server sent an HTML page instead of a JSON document"}},
      {std::string(100'000, '['), "/*", {}, {"the JSON document has more than 100 levels"}}};
  for (const auto& [document, at, read, wanted] : cases) {
    TRows rows;
    const std::string error = test::Failure<EListError>([&, &document = document, &at = at, &read = read] {
      for (const TJsonEntry& entry : ReadJsonList(document, at, read)) {
        rows.push_back(entry.Time);
        for (const std::string& text : entry.Read) rows.back() += " " + text;
      }
    });
    if (!error.empty()) rows = {error};
    EXPECT_EQ(rows, wanted) << at;
  }
}

/// The four newest times of a list, "mmdd hh:nn" each.
std::string Newest(const std::vector<TTimeRange>& ranges) {
  std::string text;
  const TDateTime last = TDateTime::FromDate(2026, 11, 26, 5, 25);
  for (const TDateTime time : TimesWithin(ranges, last - std::chrono::days(800), last, 4)) {
    text += FormatDateTime("mmdd hh:nn ", time);
    EXPECT_TRUE(HasTime(ranges, time)) << text;
  }
  EXPECT_FALSE(HasTime(ranges, last + std::chrono::seconds(1)));
  return text;
}

TEST(WmsTimes, AreReadAsRangesHoweverLong) {
  const std::pair<const char*, const char*> cases[] = {
      {"2026-11-26T05:20:00.000Z, 2026-11-26 ,2026-11,2026-11-26T05:10Z,2027-01-01",
       "1126 05:20 1126 05:10 1126 00:00 1101 00:00 "},
      {"2026-11-26T00:00Z/2026-11-26T05:15Z/PT10M", "1126 05:10 1126 05:00 1126 04:50 1126 04:40 "},
      {"0001-01-01/9999-12-31/PT1M", "1126 05:25 1126 05:24 1126 05:23 1126 05:22 "},
      {"2026-01-31/2030-01-01/P1M", "1031 00:00 0930 00:00 0831 00:00 0731 00:00 "},
      {"2024-12-01/2026-11-25/P1Y,2026-11-25/2026-11-25/P1DT6H,2026-11-25/2026-11-25/P1D",
       "1125 00:00 1201 00:00 1201 00:00 "},
      {"2026-11-25/2026-11-26", "1126 00:00 1125 00:00 "},
      {"now,2026-13-01,2026-11-2,2026-11-26T,P1D,2026-11-26/2026-11-25/P1D,2026-11-25/2026-11-26/P1M1D,"
       "2026-11-25/2026-11-26/PT1.5S,2026-11-25/2026-11-26/P99999D",
       ""}};
  for (const auto& [text, newest] : cases) EXPECT_EQ(Newest(ReadTimeList(text)), newest) << text;
  std::string many = "2026-01-01/2026-12-31/PT1S";
  const std::vector<TTimeRange> same(3000, ReadTimeList(many).at(0));
  EXPECT_EQ(TimesWithin(same, same[0].First, same[0].Last, 1000).size(), 667U);
  for (int i = 0; i < 14; ++i) many += "," + many;
  EXPECT_THROW(ReadTimeList(many), EListError);
}

TEST(WmsTimes, BelongToTheLayerOrTheOneAroundIt) {
  const std::string document =
      "<?xml version='1.0'?><!DOCTYPE WMT_MS_Capabilities SYSTEM 'x.dtd'><w:WMS_Capabilities "
      "xmlns:w='w'><Capability>"
      "<Layer><Name>all</Name><Dimension name='time' "
      "default='x'>2026-11-20</Dimension><Layer><Name>b:rgb</Name></Layer>"
      "<Layer><Name>rgb</Name><Dimension name='TIME'/><Extent name='time'>2026-11-21</Extent></Layer>"
      "<Layer><Name>a:ir</Name><Dimension name='elevation'>1</Dimension><Dimension "
      "name='time'>soon</Dimension></Layer>"
      "</Layer><Layer><Name>plain</Name></Layer></Capability></w:WMS_Capabilities>";
  const std::tuple<std::string, const char*, const char*> cases[] = {
      {document, "b:rgb", "1120 00:00 "},
      {document, "a:rgb", "1121 00:00 "},
      {document, "rgb", "1121 00:00 "},
      {document, "ir", "the times of layer \"ir\" cannot be read"},
      {document, "b:ir", "the capabilities have no layer \"b:ir\""},
      {document, "plain", "the capabilities give no times for layer \"plain\""},
      {"<html>", "x", "the server sent an HTML page instead of the capabilities of a WMS"},
      {"<ServiceExceptionReport><ServiceException>\nno "
       "such\nworkspace</ServiceException></ServiceExceptionReport>",
       "x",
       "the server sent a document \"ServiceExceptionReport\" instead of the capabilities of a WMS: no such "
       "workspace"}};
  for (const auto& [text, layer, wanted] : cases) {
    std::string found;
    const std::string error = test::Failure<EListError>(
        [&, &text = text, &layer = layer] { found = Newest(ReadWmsTimes(text, layer)); });
    EXPECT_EQ(found + error, wanted) << layer;
  }
}

}  // namespace
}  // namespace skyreel
