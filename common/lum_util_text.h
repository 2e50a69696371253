// Small helpers of printing: hardware addresses, protocols, hex dumps, dates and times.
//
// Functions that take a buffer and its size in bytes cut the text to it, terminate it and return the buffer.
// Dates and times are the local zone's; one that doesn't fit gives an empty text. lum_util_mac_str alone
// hands out buffers of its own and belongs to the main thread; the rest may run anywhere.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>

// ---- Texts and numbers ----

// "02:00:0a:..." in one of eight buffers used in turn: a result is good for the next seven calls.
const char *lum_util_mac_str(const uint8_t bytes[6]);

// Both work in place and return the text.
char *to_upper(char *text);
char *lum_util_remove_spaces(char *text);

// How far b is from a, in percent of a, cut to a whole number. From 0 to anything else is 100.
uint64_t lum_util_percent_diff(uint64_t a, uint64_t b);

// The greatest power of two that isn't above the value; 0 for 0.
uint32_t lum_pow2_round_down(uint32_t value);

// The name of an IP protocol, or "--".
const char *lum_util_proto2str(uint32_t protocol);

// "true" or "false".
const char *lum_util_disp_boolean(bool value);

// The interface below a port of the simulated platform: "sim0_1" for "ge0_1", "sim0_1.20" for "ge0_1.20".
// Null for names of other forms, buf stays as it was.
char *lum_util_ifname_to_sim_ifname(const char *ifname, char *buf, size_t len);

// ---- Hex dumps ----
// Rows of 16 bytes: offset, hex pairs, and the printable characters.

void hex_dump(FILE *p_file, const void *p_bytes, size_t size);

// The same into a buffer of len bytes. Returns the length of what was written; the rows that don't fit whole
// are left out.
size_t hex_dump_buf(char *buf, size_t len, const void *p_bytes, size_t size);

// ---- Dates and times ----

char *lum_util_get_date(char *buf, size_t len);                       // today, "2024-03-05"
char *lum_util_get_time(char *buf, size_t len);                       // now, "14:07:09"
char *lum_util_get_time_str(time_t time, char *buf, size_t len);      // "Tue Mar  5 14:07:09 2024"
char *lum_util_get_time_ddhhmmss(uint64_t s, char *buf, size_t len);  // a duration in seconds, "3:02:00:59"

// "2024-03-05 14:07:09.000123456", and with the zone's distance to UTC, "... +0100".
char *lum_util_timespec2str(const struct timespec *p_time, char *buf, size_t len);
char *lum_util_timespec2str_tz(const struct timespec *p_time, char *buf, size_t len);
