// Debug and library logging.
//
// The daemon's sites use TARN_LOG, or TARN_TRACE with a topic, and follow the flag word
// g_tarn_debug_flags: with its lowest bit set a line goes to standard output, prefixed "function:line: ";
// otherwise it goes to syslog at LOG_LOCAL7 with debug priority, prefixed "function[line]: ". A site without
// a topic always logs, whatever the word holds. The libraries' sites use LUM_LOG and name their syslog
// priority. Lines carry no newline of their own.
#pragma once

#include <cstdint>

// Values of the flag word.
enum e_tarn_debug_flag : uint64_t {
    TARN_DEBUG_STDOUT = 1,
    TARN_DEBUG_CONFIG = 2,
    TARN_DEBUG_TTM = 4,
    TARN_DEBUG_DPI = 8,
    TARN_DEBUG_POLICY = 16,
    TARN_DEBUG_NONE = 32,  // resting state once every debug has been switched off
};

// Syslog priorities of the libraries: facility LOG_LOCAL7 and a level.
enum e_lum_log_priority {
    LUM_LOG_ERROR = 187,
    LUM_LOG_NOTICE = 189,
    LUM_LOG_INFO = 190,
    LUM_LOG_DEBUG = 191,
};

extern uint64_t g_tarn_debug_flags;

__attribute__((format(printf, 3, 4))) void tarn_log_write(const char *function, int line, const char *format,
                                                          ...);
__attribute__((format(printf, 4, 5))) void lum_log_write(int priority, const char *function, int line,
                                                         const char *format, ...);

#define TARN_LOG(...) tarn_log_write(__func__, __LINE__, __VA_ARGS__)
#define TARN_TRACE(topic, ...)                                                                               \
    do {                                                                                                     \
        if (g_tarn_debug_flags & (topic))                                                                    \
            tarn_log_write(__func__, __LINE__, __VA_ARGS__);                                                 \
    } while (0)
#define LUM_LOG(priority, ...) lum_log_write(priority, __func__, __LINE__, __VA_ARGS__)
