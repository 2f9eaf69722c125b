#include "catalogue/description_reader.h"

#include <gmock/gmock.h>

#include "catalogue/sample.h"
#include "catalogue/words.h"

namespace skyreel {
namespace {

using namespace std::chrono_literals;

/// All problems of a text, without the file's name.
std::string ProblemsOf(const std::string& text) {
  std::string problems;
  for (const TProblem& problem : ReadDescription(text, "a").Problems) {
    problems += (problems.empty() ? "" : "|") + problem.Message().substr(2);
  }
  return problems;
}

TEST(DescriptionReader, ReportsEachErrorAtItsPlace) {
  struct TCase {
    std::string Sound, Faulty, Problems;
  };
  const std::string line_6 = "every = \"10m\"", url = "{%Y%j%H%M}_{size}.jpg", name = "{size}_{%H%M}.jpg";
  const TCase cases[] = {
      {"format = 1", "format = 2\nnew_word = 1", "1:1: this file needs a newer Skyreel"},
      {"format = 1", "", "1:1: 'format' is missing"},
      {"org.example.sat", "sat",
       "2:6: 'id' must be a reverse domain name of letters, digits, dots and hyphens"},
      {"\"Sat\"", "5", "3:9: 'title' must be a text"},
      {"\"Sat\"", "\"\"", "3:9: 'title' is empty"},
      {"\"Sat\"", "\"a\\u0007\"", "3:9: 'title' holds a control character"},
      {"\"Sat\"", "\"Sat\"\ntitel = 1", "4:1: unknown word 'titel'"},
      {"\"Sat\"", "\"Sat\"\ntitle = 1",
       "4:9: Error while parsing key-value pair: cannot redefine existing string 'title'"},
      {"\"Sat\"", "\"Sat\"\nchecked = \"now\"", "4:11: 'checked' must be a date such as 2026-11-26"},
      {"\"Sat\"", "\"Sat\"\nchecked = 0000-01-01", "4:11: 'checked' must be a date of the years 1 to 9999"},
      {"\"Sat\"", "\"Sat\"\nhome = \"file:///etc\"",
       "4:8: 'home' must be an address such as \"https://example.org/\""},
      {", use = \"any\"", "", "4:11: licence 'use' is missing"},
      {"\"any\"", "\"all\"", "4:34: 'use' must be \"any\", \"personal\" or \"ask\""},
      {line_6, "every = \"7m\"", "6:1: 'every' must divide a day: \"10m\", \"6h\", \"1d\""},
      {line_6, "every = \"0s\"", "6:1: 'every' must divide a day: \"10m\", \"6h\", \"1d\""},
      {line_6, "every = \"2d\"", "6:1: 'every' must divide a day: \"10m\", \"6h\", \"1d\""},
      {"[time]", "[[\nvalues]]", "5:1: a table's name must follow '['"},
      {line_6, "every = [}", "6:10: this '}' closes no '{'"},
      {line_6, "every = 10m", "6:9: a text stands in quotes: \"10m\""},
      {line_6, "every = \"10m", "6:9: this quote is not closed in its line"},
      {line_6, "every = “10m”", "6:9: “ is no quote of this format; type the plain \""},
      {", use = \"any\"", ", credit = \"é\", use = an/y", "4:48: a text stands in quotes: \"an/y\""},
      {line_6, "every = \"10\"", "6:9: 'every' must be a duration such as \"1d6h\""},
      {line_6, line_6 + "\noffset = \"10m\"", "7:1: 'offset' must be below 'every'"},
      {line_6, line_6 + "\nzone = \"+99:00\"",
       "7:8: 'zone' must be \"UTC\" or from \"-12:00\" to \"+14:00\""},
      {line_6, line_6 + "\nwalk_back = -1", "7:13: 'walk_back' must be from 0 to 1000"},
      {"end =", "size =", "11:7: the name 'size' is defined twice"},
      {"end =", "x =", "8:11: the name 'x' has a meaning of its own"},
      {"end =", "\"a-b\" =", "8:11: 'a-b' is no name: letters, digits and '_', a letter first"},
      {"[\"1\", \"22\"]", "[\"a\", \"A\"]", "12:16: the value 'A' stands here twice"},
      {"[\"1\", \"22\"]", "[]", "12:10: 'values' is empty"},
      {"[\"1\", \"22\"]", "[\"1\", 22]",
       "12:16: a value must be a text or a row such as { value = \"13\", label = \"Infra-red\" }"},
      {", layer = \"i\"", "", "10:43: this row has other columns than the first row"},
      {"layer = \"i\"", "layer = 1", "10:67: 'layer' must be a text"},
      {"\"IR\",", "\"IR\", at = \"0305\",", "10:59: there is no slot at this time of the day"},
      {"many = false", "many = false\ndefault = \"all\"",
       "14:11: 'default' must be one value, since 'many' is false"},
      {"many = false", "default = [\"3\"]", "13:12: the variable 'size' has no value '3'"},
      {"many = false", "control = \"ListBox\"", "13:1: 'control' needs [page]"},
      {"2025-04-07T02:00:00+02:00", "2025-04-07T00:00:00",
       "15:49: 'from' must be a date and time with 'Z' or an offset"},
      {", from = 2025-04-07T02:00:00+02:00", "", "15:26: this row needs 'from'"},
      {"https://ex", "gopher://ex", "17:7: an address begins with https://, http:// or ftp://"},
      {"https://ex", "https://me@ex", "17:7: an address holds no user name"},
      {"https://ex", "https:///ex", "17:7: no host in the address"},
      {"https://example.org/{product}/{sat}", "https://{found}/{sat}", "17:7: no host in the address"},
      {url, "{%Y%j%H%M}_{siz}.jpg", "17:55: nothing defines '{siz}' here"},
      {url, "{%Y%j%H%M}_{size|up}.jpg", "17:55: '|up' is neither '|upper' nor '|lower'"},
      {url, "{%Y%j%H%M}_{product.v}.jpg", "17:55: nothing defines '{product.v}' here"},
      {url, "{start:%Y}{%Y%j%H%M}", "17:44: no time 'start' in [time] times"},
      {url, "{%Y%j%H%Q}", "17:44: '%Q' is not a word of a time; those are %Y %m %d %H %M %S %j %y %b %s"},
      {url, "{%Y%j%H%M}{*}", "17:54: '{*}' may stand in match alone"},
      {url, "{%Y%j%H%M}_{x}", "17:55: nothing defines '{x}' here"},
      {url, "{%Y%j%H%M}_}", "17:55: '}' without '{'; write '}}' for a brace"},
      {url, "{%Y%j%H%M", "17:44: '{' without '}'; write '{{' for a brace"},
      {url, "{%H%M}.jpg", "17:1: 'match' is missing, and the last part of 'url' holds no date"},
      {url, "{found}", "17:1: 'match' is missing, and the last part of 'url' cannot stand for it"},
      {"image/jpeg", "image/bmp",
       "18:8: 'type' must be image/jpeg, image/png, image/gif, image/tiff, application/x-tar, "
       "application/x-netcdf, application/x-hdf5 or application/pdf"},
      {"\"image/jpeg\"", "\"image/jpeg\"\nmin_size = \"2KB\"\nmax_size = \"1KB\"",
       "20:1: 'max_size' is below 'min_size'"},
      {"\"image/jpeg\"", "\"image/jpeg\"\nblank = [0]", "19:10: 'blank' must be a list of sizes in bytes"},
      {"\"image/jpeg\"", "\"image/jpeg\"\n[tiles]\ncolumns = 65\nrows = \"{product}\"",
       "20:11: 'columns' must be from 1 to 64, not \"65\"|21:8: 'rows' must be from 1 to 64, not \"VIS\""},
      {"\"image/jpeg\"", "\"image/jpeg\"\n[tiles]\ncolumns = 2", "19:1: [tiles] 'rows' is missing"},
      {"\"listing\"", "\"json\"", "19:1: [find] 'at' is missing|19:1: [find] 'match' is missing"},
      {"\"listing\"", "\"listing\"\nprefix = \"a\"", "21:1: 'prefix' is for the kind \"s3\" alone"},
      {"\"listing\"", "\"listing\"\nmatch = \"{%H}{*}{*}\"",
       "21:14: '{*}' just before a time or another '{*}'"},
      {"\"listing\"", "\"listing\"\nmatch = \"{%s}a{*}a{*}a{*}a{*}a{*}\"", "21:31: more than four '{*}'"},
      {"\"listing\"", "\"json\"\nmatch = \"{%s}\"\nat = \"a\"\nread = { end = \"/b\", p = \"/*\" }",
       "22:6: 'at' must begin with \"/\"|23:10: the name 'end' is defined twice|23:26: 'p' has a '*' and "
       "'at' has none"},
      {"\"listing\"", "\"wms-time\"\nmatch = \"{%s}\"",
       "19:1: [find] 'layer' is missing|21:1: 'match' is not for the kind \"wms-time\""},
      {line_6, "", "24:1: two slots have the same folder and name, since neither holds the second, %S"},
      {"{sat}_{%Y%j%H%M}_", "", "7:1: for a fixed name 'grace' (1h) must be below 'every'"},
      {"{product}/{%Y-%m-%d}", "../{%Y-%m-%d}", "23:1: the folder leaves the output folder"},
      {"{product}/{%Y-%m-%d}", "/{product}/{%Y-%m-%d}", "23:1: 'folder' begins or ends with \"/\""},
      {"{product}/{%Y-%m-%d}", "{%Y-%m-%d}",
       "24:1: two combinations of values can have the same folder and name, such as "
       "\"2000-01-01/1_0000.jpg\""},
      {name, "{size}{%H%M}{pad}.jpg\"\n[vary.pad]\nvalues = [\"11\", \"2\"] #",
       "24:1: two combinations of values can have the same folder and name, such as "
       "\"VIS/2000-01-01/2200002.jpg\""},
      {name, "{size}_{%H}.jpg",
       "24:1: two slots have the same folder and name, since neither holds the minute, %M"},
      {name, "{size}_{%H%M}{found}.jpg", "24:22: nothing defines '{found}' here"},
      {name, "{size}_{%H/%M}.jpg", "24:1: \"/\" has a character that does not fit into a file name"},
      {"{product}/{%Y-%m-%d}", "{product}/{%Y-%m-%d}/", "23:1: 'folder' begins or ends with \"/\""},
      {name, "{size}_{%H%M}", "24:1: the name has no extension; add .jpg"},
      {name, "{size}_{%H%M}.pdf", "24:1: the extension \".pdf\" does not fit the type of the file"},
      {"\"VIS\", layer", "\"V/S\", layer",
       "23:1: \"V/S\" has a character that does not fit into a file name|28:21: the variable 'product' has "
       "no value 'VIS'"},
      {"{ product = [", "{ produce = [", "28:10: there is no variable 'produce'"},
      {"\"VIS\"] }\n", "\"VIS\", \"UV\"] }\n", "28:28: the variable 'product' has no value 'UV'"},
  };
  for (const auto& [sound, faulty, problems] : cases) {
    EXPECT_EQ(ProblemsOf(test::With(test::kSample, sound, faulty)), problems) << faulty;
  }
}

TEST(DescriptionReader, RefusesWhatIsTooLargeOrTooDeep) {
  std::string many;
  for (int i = 0; i < 400; ++i) many += "\"" + std::to_string(i) + "\",";
  EXPECT_EQ(ProblemsOf(std::string(64'001, '#')), " larger than 64 KB");
  for (const char* part : {"a.", "[a.", "\"\"\"'.\"\"\"\"."}) {
    std::string deep = "k = \"\"\"\n";
    deep += "\"\"\"\n";
    while (deep.size() < 50'000) deep += part;
    EXPECT_THAT(ProblemsOf(deep), testing::EndsWith("more than 1,000 dots in keys")) << part;
  }
  EXPECT_EQ(ProblemsOf("# caf\xC3\xA9\ntitle = \"\xC3\xA9\" \xC2\xA0"),
            "2:13: only texts and comments may hold such a character");
  EXPECT_EQ(ProblemsOf("a = \"\"\"b\\"), "1:5: these three quotes are never closed");
  std::string alternates = test::kSample;
  for (int i = 0; i < 20; ++i) alternates += "[[alternate]]\n";
  EXPECT_EQ(ProblemsOf(alternates), "25:3: more than 20 alternates");
  EXPECT_EQ(ProblemsOf("a=" + std::string(60'000, '[')),
            "1:259: Error while parsing value: exceeded maximum nested value depth of 256");
  EXPECT_EQ(ProblemsOf(test::With(test::kSample, "[\"1\", \"22\"]",
                                  "[" + many + "]\n[vary.n]\nvalues = [" + many + "]")),
            "9:2: more than 100,000 combinations of values");
}

TEST(DescriptionReader, ReadsDurationsZonesAndSizes) {
  const auto span = [](auto parsed) {
    return parsed ? DurationText(*parsed < 0s ? -*parsed : *parsed) : "-";
  };
  for (const auto& [text, same] : {std::pair("1d6h", "1d6h"),
                                   {"90m", "1h30m"},
                                   {"0s", "0s"},
                                   {"", "-"},
                                   {"6h1d", "-"},
                                   {"1h1h", "-"},
                                   {"-1m", "-"},
                                   {"1", "-"},
                                   {"h", "-"},
                                   {"36526d", "-"},
                                   {"9999999999d", "-"},
                                   {"1.5h", "-"}}) {
    EXPECT_EQ(span(ParseDuration(text)), same) << text;
  }
  EXPECT_EQ(ParseSignedDuration("-1m"), -1min);
  for (const auto& [text, same] : {std::pair("UTC", "0s"),
                                   {"+14:00", "14h"},
                                   {"-12:00", "12h"},
                                   {"+14:01", "-"},
                                   {"-12:30", "-"},
                                   {"+3:00", "-"},
                                   {"+03:60", "-"}}) {
    EXPECT_EQ(span(ParseZone(text)), same) << text;
  }
  EXPECT_EQ(ParseZone("-03:30"), -210min);
  EXPECT_EQ(ParseSize("40MB"), 40'000'000);
  for (const char* bad : {"", "MB", "4", "-1KB", "1.5MB", "3000000000B", "1mb"})
    EXPECT_FALSE(ParseSize(bad)) << bad;
}

}  // namespace
}  // namespace skyreel
