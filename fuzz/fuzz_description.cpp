// A description file, and in its lines behind the first NUL what a server lists. A sound one has a plan, and
// every file of the plan has safe path components and an address that names a host, or a reason why not.

#include <map>

#include "base/text.h"
#include "catalogue/description_reader.h"
#include "catalogue/terminal_text.h"
#include "require.h"

using namespace skyreel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = AsText(data, size);
  const std::string_view text = input.substr(0, input.find('\0'));
  const TReadDescription read = ReadDescription(text, "f");
  Require(read.Description.has_value() == read.Problems.empty());
  for (const TProblem& problem : read.Problems) Require(!problem.Text.empty());
  if (!read.Description) return 0;
  const TDescription& source = *read.Description;
  const TDateTime now = TDateTime::FromDate(2026, 11, 26, 6, 2, 30);
  CheckSourceText(source, now);

  std::map<TListRequest, TListAnswer> answers;
  TPlanRequest request{source, now};
  request.Lists = [&](const TListRequest& list) {
    TListAnswer& answer = answers[list];
    answer.HasTime = [now](TDateTime time) { return time < now; };
    answer.TimesWithin = [](TDateTime first, TDateTime last) { return std::vector{last, first}; };
    for (const std::string& line : SplitLines(input.substr(text.size()))) {
      answer.Entries.push_back({line, std::vector<std::string>(list.Read.size(), line)});
    }
    return &answer;
  };
  const TPlan plan = MakePlan(request);
  for (const TPlannedFile& file : plan.Files) {
    for (std::size_t at = 0; at < file.Path.size();) {
      const std::size_t end = std::min(file.Path.find('/', at), file.Path.size());
      Require(IsSafeFileName(file.Path.substr(at, end - at)));
      at = end + 1;
    }
    for (const TPlannedWay& way : file.Ways) {
      const auto picture = AddressesOf(source, plan.Combinations[file.Combination], way, now);
      Require(picture.Addresses.size() == static_cast<std::size_t>(picture.Columns * picture.Rows));
      for (const TAddress& address : picture.Addresses) {
        Require(!HasControlCharacter(address.Text) && address.Text.find(' ') == std::string::npos);
        Require(address.Problem == AddressProblem(address.Text) || !address.Problem.empty());
      }
    }
  }
  return 0;
}
