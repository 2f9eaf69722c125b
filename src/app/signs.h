#pragma once

#include <QIcon>

#include "journal/journal.h"
#include "transfer/file_result.h"

namespace skyreel {

/// A small painted sign. Shape and colour both tell it, so that nobody depends on colours.
enum class TSign { Ok, NotYet, Problem, Running };

/// Sharp at every size and screen scale.
QIcon SignIcon(TSign sign);
/// "ok", "not yet", "problem", "running": for screen readers and tool tips.
QString SignText(TSign sign);

TSign SignOf(TJournalOutcome outcome);
TSign SignOf(TFileState state);

}  // namespace skyreel
