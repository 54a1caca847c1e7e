#pragma once

#include <string_view>

namespace gk::app {

/// How grave a line is: syslog's numbers.
enum class Severity { Critical = 2, Error = 3, Warning = 4, Info = 6, Debug = 7 };

/// Whether standard error is the journal of systemd: $JOURNAL_STREAM names it (systemd.exec(5)).
/// What it was when first asked for holds.
bool isJournal();

/// What stands before a line in the journal, "<4>" (sd-daemon(3)); elsewhere nothing.
std::string_view journalLevel(Severity severity);

} // namespace gk::app
