// The lines that go to syslog, kept for tests: link syslog_lines.cc with -Wl,--wrap=syslog.
#pragma once

#include <string>
#include <vector>

struct t_syslog_line {
    int priority;
    std::string text;  // without the leading "function[line]: "
    bool operator==(const t_syslog_line &) const = default;
};

std::ostream &operator<<(std::ostream &out, const t_syslog_line &line);

// Hands out the lines since the last call.
std::vector<t_syslog_line> syslog_lines_take();
