#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "app/source_page.h"
#include "catalogue/described_run.h"

namespace skyreel {

/// The terms of a licence in words: "CC BY 4.0", "Crown copyright; for personal use only".
std::string TermsText(const TLicence& licence);

/// The ways of a source that have terms of their own, which the user must accept first.
std::vector<const TWay*> WaysWithTerms(const TDescription& source);

/// What the user has said about the terms of sources, by their ids. In the settings this is comma text: "id"
/// for accepted terms, "-id" when the user does without the ways that have terms of their own.
class TTermsAnswers {
 public:
  explicit TTermsAnswers(const std::string& comma_text);
  std::string Text() const;

  bool Accepts(const std::string& id) const { return entries_.contains(id); }
  /// The source may run, perhaps without some of its ways.
  bool LetRun(const TDescription& source) const;
  /// The user has said yes or no.
  bool Knows(const std::string& id) const { return Accepts(id) || entries_.contains("-" + id); }
  void Answer(const std::string& id, bool accepts);

 private:
  std::set<std::string> entries_;
};

/// Why a source without accepted terms does not run in a batch.
inline constexpr const char* kTermsNotAccepted =
    "not run, since its terms were not accepted; run it once in the window";

/// Asks about terms that the user has not answered yet, then calls `run`; in one question box. A source
/// whose own terms are refused does not run; one whose alternate's terms are refused runs without it.
/// `large_run` is a sentence about a run that needs a yes; else empty. Page and answers outlive the box.
void AskAboutTerms(const TSourcePage& page, const std::vector<TWantedSource>& wanted, TTermsAnswers& answers,
                   const std::string& large_run, const std::function<void()>& run);

}  // namespace skyreel
