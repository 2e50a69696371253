#include "tests/common/syslog_lines.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <ostream>
#include <utility>

static std::mutex g_lock;  // threads log, too
// Never destroyed: threads log while the process ends.
static std::vector<t_syslog_line> &g_lines = *new std::vector<t_syslog_line>;

std::ostream &operator<<(std::ostream &out, const t_syslog_line &line)
{
    return out << line.priority << " \"" << line.text << '"';
}

std::vector<t_syslog_line> syslog_lines_take()
{
    std::lock_guard guard(g_lock);
    return std::exchange(g_lines, {});
}

extern "C" __attribute__((format(printf, 2, 3))) void __wrap_syslog(int priority, const char *format, ...)
{
    char text[4096];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    std::string line = text;
    std::lock_guard guard(g_lock);
    size_t prefix_end = line.find("]: ");
    g_lines.push_back({priority, prefix_end == std::string::npos ? line : line.substr(prefix_end + 3)});
}
