#include "tarnd/core/tarn_system_message.h"

#include "tarnd/core/tarn_main.h"

#include <cstdarg>
#include <cstdio>
#include <syslog.h>

namespace {

struct t_system_message {
    int code;
    int severity;
    const char *severity_word;
    int priority;  // LOG_LOCAL7 and level
    const char *text;
};

}  // namespace

static const t_system_message messages[] = {
    {TARN_MSG_STARTING, 6, "INFO", LOG_LOCAL7 | LOG_INFO, "Starting"},
    {TARN_MSG_POLICY_NO_MEMORY, 1, "ALRT", LOG_LOCAL7 | LOG_ALERT,
     "Failed to allocate memory for policy %s - %s. Continuing without the policy."},
    {TARN_MSG_ACL_NO_MEMORY, 1, "ALRT", LOG_LOCAL7 | LOG_ALERT,
     "Failed to allocate program memory for access list - %s. Continuing without the access-list."},
    {TARN_MSG_POLICY_REPROGRAMMED, 6, "INFO", LOG_LOCAL7 | LOG_INFO,
     "Successfully re-programmed policy %s - %s"},
    {TARN_MSG_ACL_REPROGRAMMED, 6, "INFO", LOG_LOCAL7 | LOG_INFO,
     "Successfully re-programmed access list - %s"},
};

void tarn_system_message(int code, ...)
{
    for (const t_system_message &message : messages) {
        if (message.code != code)
            continue;
        char text[1024];
        va_list args;
        va_start(args, code);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        vsnprintf(text, sizeof(text), message.text, args);
#pragma GCC diagnostic pop
        va_end(args);
        syslog(message.priority, "%%Lumora-%s-%s-%d-%s-%d: %s", g_hostname, g_progname, message.severity,
               message.severity_word, message.code, text);
    }
}
