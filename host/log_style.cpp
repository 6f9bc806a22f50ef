#include "host/log_style.h"

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <mutex>

namespace corvanis::monitoring_modules::host {

namespace {

std::atomic<bool> journal{false};
std::mutex stderr_mutex;

// systemd sets JOURNAL_STREAM to "DEVICE:INODE" of the stream it connects to the journal;
// stderr is that stream unless the service redirected it.
bool stderr_is_journal() {
    const char* stream = std::getenv("JOURNAL_STREAM");
    struct stat st {};
    if (stream == nullptr || fstat(2, &st) != 0) return false;
    unsigned long long device = 0, inode = 0;
    if (std::sscanf(stream, "%llu:%llu", &device, &inode) != 2) return false;
    return device == static_cast<unsigned long long>(st.st_dev) &&
           inode == static_cast<unsigned long long>(st.st_ino);
}

}  // namespace

void set_log_format(log_format format) {
    journal =
        format == log_format::journal || (format == log_format::automatic && stderr_is_journal());
}

bool journal_logs() {
    return journal;
}

std::string log_line(int severity, std::string_view text) {
    if (!journal) return std::string(text);
    std::string out = "<" + std::to_string(std::clamp(severity, 0, 7)) + ">";
    out.reserve(out.size() + text.size());
    for (const char c : text) {
        if (c == '\n') {
            out += "\\n";
        } else if (c != '\r') {
            out += c;
        }
    }
    return out;
}

void log_event(int severity, std::string_view text) {
    const std::string line = log_line(severity, text) + "\n";
    std::lock_guard lock(stderr_mutex);
    std::cerr << line << std::flush;
}

}  // namespace corvanis::monitoring_modules::host
