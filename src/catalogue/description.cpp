#include "catalogue/description.h"

#include <algorithm>

namespace skyreel {

std::string TProblem::Message() const {
  const std::string at = Line == 0 ? "" : ":" + std::to_string(Line) + ":" + std::to_string(Column);
  return File + at + ": " + Text;
}

const std::string& TAlias::At(TDateTime slot) const {
  const auto row = std::find_if(Rows.rbegin(), Rows.rend(),
                                [slot](const TAliasRow& each) { return !each.From || *each.From <= slot; });
  return row->Value;
}

bool TWay::Serves(const TCombination& combination) const {
  for (std::size_t i = 0; i < Only.size(); ++i) {
    if (!Only[i].empty() && std::ranges::find(Only[i], combination[i]) == Only[i].end()) return false;
  }
  return true;
}

bool TWay::IsFixedName() const {
  return !Url.Has(TFieldText::TKind::Time) && !Url.NeedsFound();
}

}  // namespace skyreel
