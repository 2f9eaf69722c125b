#pragma once

#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "catalogue/matcher.h"
#include "catalogue/plan.h"

namespace skyreel {

/// What the lists of one way show for one combination.
class TFoundSlots {
 public:
  TFoundSlots(const TDescription& source, const TFind& find, const TCombination& combination);

  /// Adds an answer that did not fail.
  void Add(const TListAnswer& answer);
  bool Has(TDateTime slot) const;
  /// The slots from `first` to `last`.
  std::vector<TDateTime> Within(TDateTime first, TDateTime last) const;
  /// What the list said of a slot; nothing where it only said that the slot is there.
  std::optional<TFound> Of(TDateTime slot) const;

 private:
  const TFind& find_;
  const TMatcher matcher_;
  std::map<TDateTime, TFound> slots_;
  std::vector<const TListAnswer*> times_;  ///< answers of kind WmsTime
};

}  // namespace skyreel
