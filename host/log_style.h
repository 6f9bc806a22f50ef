#pragma once

#include <string>
#include <string_view>

namespace corvanis::monitoring_modules::host {

enum class log_format {
    automatic,  // journal when stderr is connected to the systemd journal, else plain
    plain,
    journal,
};

// Decided once by the command line, before any thread logs.
void set_log_format(log_format format);
bool journal_logs();

// One event as one line without its end: for the journal "<N>" (the severity, 0 .. 7)
// and the text with its line ends written as "\n"; plain text unchanged.
std::string log_line(int severity, std::string_view text);

// log_line to stderr, whole lines even from several threads.
void log_event(int severity, std::string_view text);

}  // namespace corvanis::monitoring_modules::host
