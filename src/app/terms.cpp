#include "app/terms.h"

#include <algorithm>

#include "base/comma_text.h"
#include "catalogue/combinations.h"

namespace skyreel {

namespace {

bool NeedsYes(const TLicence& licence) {
  return licence.Use != TLicence::TUse::Any;
}

/// One of the chosen pictures can come that way.
bool IsChosen(const TWantedSource& wanted, const TWay& way) {
  bool chosen = false;
  ForEachCombination(ChosenRows(wanted.Source, wanted.Choices), [&](const TCombination& combination) {
    chosen = way.Serves(combination);
    return !chosen;
  });
  return chosen;
}

/// The terms of the source's ways, a line for each.
std::string WaysText(const TDescription& source) {
  std::string text;
  for (const TWay* way : WaysWithTerms(source))
    text += "\n" + source.Title + ", " + way->Title + ": " + TermsText(*way->Licence) + ".";
  return text;
}

}  // namespace

std::string TermsText(const TLicence& licence) {
  switch (licence.Use) {
    case TLicence::TUse::Any:
      return licence.Name;
    case TLicence::TUse::Personal:
      return licence.Name + "; for personal use only: do not sell the pictures or pass them on";
    case TLicence::TUse::Ask:
      break;
  }
  return licence.Name + "; ask the provider before you use the pictures";
}

std::vector<const TWay*> WaysWithTerms(const TDescription& source) {
  std::vector<const TWay*> ways;
  for (const TWay& way : source.Ways)
    if (way.Licence && NeedsYes(*way.Licence)) ways.push_back(&way);
  return ways;
}

TTermsAnswers::TTermsAnswers(const std::string& comma_text) {
  const std::vector<std::string> entries = FromCommaText(comma_text);
  entries_ = {entries.begin(), entries.end()};
}

std::string TTermsAnswers::Text() const {
  return ToCommaText({entries_.begin(), entries_.end()});
}

bool TTermsAnswers::LetRun(const TDescription& source) const {
  return !NeedsYes(source.Licence) || Accepts(source.Id);
}

void TTermsAnswers::Answer(const std::string& id, bool accepts) {
  entries_.erase((accepts ? "-" : "") + id);
  entries_.insert((accepts ? "" : "-") + id);
}

void AskAboutTerms(const TSourcePage& page, const std::vector<TWantedSource>& wanted, TTermsAnswers& answers,
                   const std::string& large_run, const std::function<void()>& run) {
  std::string needed_text, ways_text;
  std::vector<std::string> needed, with_ways;
  for (const TWantedSource& each : wanted) {
    const TDescription& source = each.Source;
    if (!answers.LetRun(source)) {
      needed.push_back(source.Id);
      needed_text += "\n" + source.Title + ": " + TermsText(source.Licence) + "." + WaysText(source);
    } else if (!answers.Knows(source.Id) && std::ranges::any_of(WaysWithTerms(source), [&](const TWay* way) {
                 return IsChosen(each, *way);
               })) {
      with_ways.push_back(source.Id);
      ways_text += WaysText(source);
    }
  }
  const auto then = [&page, &answers, run](const std::vector<std::string>& ids, bool accepts) {
    return [&page, &answers, run, ids, accepts] {
      for (const std::string& id : ids) answers.Answer(id, accepts);
      // Another job may have begun meanwhile, and a run would stop it.
      if (!page.IsBusy()) run();
    };
  };
  const char* const caption = page.Source().Caption;
  if (!needed.empty()) {
    page.OnAsk(
        caption,
        "These sources have terms of use:\n" + needed_text + "\n\n" +
            (large_run.empty() ? "Do you accept them?" : large_run + " Do you accept the terms, and go on?"),
        then(needed, true), nullptr);
  } else if (!large_run.empty()) {
    page.OnAsk(caption, large_run + " Go on?", then({}, true), nullptr);
  } else if (!with_ways.empty()) {
    page.OnAsk(caption,
               "Some pictures can come another way when the first one fails. That way has its own terms of "
               "use:\n" +
                   ways_text + "\n\nDo you accept them? With No, the run does without it.",
               then(with_ways, true), then(with_ways, false));
  } else {
    run();
  }
}

}  // namespace skyreel
