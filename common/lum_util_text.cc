#include "common/lum_util_text.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cinttypes>
#include <cstring>

#include "common/ip_util.h"

// ---- Texts and numbers ----

const char *lum_util_mac_str(const uint8_t bytes[6])
{
    static char ring[8][sizeof("00:00:00:00:00:00")];
    static unsigned next;
    char *p_text = ring[next++ % 8];
    return macaddr_print(bytes, p_text, sizeof(ring[0]));
}

char *to_upper(char *text)
{
    for (char *p = text; *p != '\0'; p++)
        *p = static_cast<char>(toupper(static_cast<unsigned char>(*p)));
    return text;
}

char *lum_util_remove_spaces(char *text)
{
    char *p_end = std::remove_if(text, text + strlen(text), [](unsigned char c) { return isspace(c) != 0; });
    *p_end = '\0';
    return text;
}

uint64_t lum_util_percent_diff(uint64_t a, uint64_t b)
{
    uint64_t distance = a > b ? a - b : b - a;
    if (a == 0)
        return distance == 0 ? 0 : 100;
    return static_cast<uint64_t>(static_cast<unsigned __int128>(distance) * 100 / a);
}

uint32_t lum_pow2_round_down(uint32_t value)
{
    return std::bit_floor(value);
}

const char *lum_util_proto2str(uint32_t protocol)
{
    switch (protocol) {
    case IPPROTO_ICMP:
        return "icmp";
    case IPPROTO_IGMP:
        return "igmp";
    case IPPROTO_TCP:
        return "tcp";
    case IPPROTO_UDP:
        return "udp";
    case IPPROTO_GRE:
        return "gre";
    case IPPROTO_ESP:
        return "esp";
    case IPPROTO_AH:
        return "ah";
    case IPPROTO_ICMPV6:
        return "icmpv6";
    case 89:
        return "ospf";
    case IPPROTO_SCTP:
        return "sctp";
    default:
        return "--";
    }
}

const char *lum_util_disp_boolean(bool value)
{
    return value ? "true" : "false";
}

char *lum_util_ifname_to_sim_ifname(const char *ifname, char *buf, size_t len)
{
    int slot = 0;
    int port = 0;
    int vlan = 0;
    int found = sscanf(ifname, "ge%d_%d.%d", &slot, &port, &vlan);
    if (found == 3)
        snprintf(buf, len, "sim%d_%d.%d", slot, port, vlan);
    else if (found == 2)
        snprintf(buf, len, "sim%d_%d", slot, port);
    return found >= 2 ? buf : nullptr;
}

// ---- Hex dumps ----

static constexpr size_t ROW_BYTES = 16;
static constexpr size_t ROW_TEXT_SIZE = 96;  // an offset of 16 digits, 16 times 3, 16 characters, blanks

// One row of at most ROW_BYTES with its newline. Returns its length.
static size_t hex_dump_row(char row[ROW_TEXT_SIZE], size_t offset, const uint8_t *p_bytes, size_t count)
{
    char hex[3 * ROW_BYTES + 1] = "";
    char text[ROW_BYTES + 1] = "";
    for (size_t i = 0; i < count; i++) {
        snprintf(hex + 3 * i, 4, " %02x", p_bytes[i]);
        text[i] = isprint(p_bytes[i]) != 0 ? static_cast<char>(p_bytes[i]) : '.';
    }
    return static_cast<size_t>(snprintf(row, ROW_TEXT_SIZE, "%04zx %-48s  %s\n", offset, hex, text));
}

void hex_dump(FILE *p_file, const void *p_bytes, size_t size)
{
    const uint8_t *p_byte = static_cast<const uint8_t *>(p_bytes);
    for (size_t offset = 0; offset < size; offset += ROW_BYTES) {
        char row[ROW_TEXT_SIZE];
        hex_dump_row(row, offset, p_byte + offset, std::min(size - offset, ROW_BYTES));
        fputs(row, p_file);
    }
}

size_t hex_dump_buf(char *buf, size_t len, const void *p_bytes, size_t size)
{
    const uint8_t *p_byte = static_cast<const uint8_t *>(p_bytes);
    size_t used = 0;
    if (len > 0)
        buf[0] = '\0';
    for (size_t offset = 0; offset < size; offset += ROW_BYTES) {
        char row[ROW_TEXT_SIZE];
        size_t length = hex_dump_row(row, offset, p_byte + offset, std::min(size - offset, ROW_BYTES));
        if (length >= len - used)
            break;
        memcpy(buf + used, row, length + 1);
        used += length;
    }
    return used;
}

// ---- Dates and times ----

static struct tm local_time(time_t time)
{
    struct tm local = {};
    localtime_r(&time, &local);
    return local;
}

// The buffer after strftime wrote that many characters: 0 stands for a text that didn't fit.
static char *terminated(char *buf, size_t len, size_t written)
{
    if (written == 0 && len > 0)
        buf[0] = '\0';
    return buf;
}

char *lum_util_get_date(char *buf, size_t len)
{
    struct tm now = local_time(time(nullptr));
    return terminated(buf, len, strftime(buf, len, "%Y-%m-%d", &now));
}

char *lum_util_get_time(char *buf, size_t len)
{
    struct tm now = local_time(time(nullptr));
    return terminated(buf, len, strftime(buf, len, "%T", &now));
}

char *lum_util_get_time_str(time_t time, char *buf, size_t len)
{
    struct tm local = local_time(time);
    return terminated(buf, len, strftime(buf, len, "%a %b %e %T %Y", &local));
}

char *lum_util_get_time_ddhhmmss(uint64_t s, char *buf, size_t len)
{
    snprintf(buf, len, "%" PRIu64 ":%02u:%02u:%02u", s / 86400, static_cast<unsigned>(s / 3600 % 24),
             static_cast<unsigned>(s / 60 % 60), static_cast<unsigned>(s % 60));
    return buf;
}

char *lum_util_timespec2str(const struct timespec *p_time, char *buf, size_t len)
{
    struct tm local = local_time(p_time->tv_sec);
    char seconds[32] = "";
    strftime(seconds, sizeof(seconds), "%Y-%m-%d %T", &local);
    snprintf(buf, len, "%s.%09ld", seconds, p_time->tv_nsec);
    return buf;
}

char *lum_util_timespec2str_tz(const struct timespec *p_time, char *buf, size_t len)
{
    struct tm local = local_time(p_time->tv_sec);
    char text[48];
    char zone[8] = "";
    strftime(zone, sizeof(zone), "%z", &local);
    snprintf(buf, len, "%s %s", lum_util_timespec2str(p_time, text, sizeof(text)), zone);
    return buf;
}
