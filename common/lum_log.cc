#include "common/lum_log.h"

#include <cstdarg>
#include <cstdio>
#include <syslog.h>

uint64_t g_tarn_debug_flags;

// One line of log text: prefix and message together, cut to what a syslog record holds.
struct t_log_line {
    char text[2048];
};

__attribute__((format(printf, 2, 0))) static void line_append(t_log_line *p_line, const char *format,
                                                              va_list args, int used)
{
    if (used < 0 || static_cast<size_t>(used) >= sizeof(p_line->text))
        return;
    vsnprintf(p_line->text + used, sizeof(p_line->text) - static_cast<size_t>(used), format, args);
}

void tarn_log_write(const char *function, int line, const char *format, ...)
{
    bool to_stdout = (g_tarn_debug_flags & TARN_DEBUG_STDOUT) != 0;
    t_log_line text;
    int used = to_stdout ? snprintf(text.text, sizeof(text.text), "%s:%d: ", function, line)
                         : snprintf(text.text, sizeof(text.text), "%s[%d]: ", function, line);
    va_list args;
    va_start(args, format);
    line_append(&text, format, args, used);
    va_end(args);
    if (to_stdout)
        printf("%s\n", text.text);
    else
        syslog(LUM_LOG_DEBUG, "%s", text.text);
}

void lum_log_write(int priority, const char *function, int line, const char *format, ...)
{
    t_log_line text;
    int used = snprintf(text.text, sizeof(text.text), "%s[%d]: ", function, line);
    va_list args;
    va_start(args, format);
    line_append(&text, format, args, used);
    va_end(args);
    syslog(priority, "%s", text.text);
}
