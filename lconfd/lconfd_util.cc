// Keys, addresses, prefixes, times, and walks over lists.
#include "lconfd/lconfd_util.h"

#include "common/e_err.h"
#include "common/strlcpy.h"
#include "lconfd/lconfd_private.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <sys/time.h>

// ---- Keys ----

static bool is_tag(const confd_value_t &value, uint32_t tag)
{
    return value.type == C_XMLTAG && value.val.xmltag.tag == tag;
}

static int count_keys(const confd_value_t *p_values)
{
    int count = 0;
    while (count < MAXKEYLEN && p_values[count].type != C_NOEXISTS)
        count++;
    return count;
}

// The element behind the list's name, or null.
static const confd_value_t *find_keys(const confd_hkeypath_t *keypath, uint32_t tag)
{
    for (int at = keypath->len - 2; at >= 0; at--)
        if (keypath->v[at][0].type != C_XMLTAG && is_tag(keypath->v[at + 1][0], tag))
            return keypath->v[at];
    return nullptr;
}

confd_value_t *lconfd_keypath_get_keys(const confd_hkeypath_t *keypath, confd_value_t *key_buf, int num_keys,
                                       uint32_t tag)
{
    if (num_keys == 0)
        return nullptr;
    const confd_value_t *p_found = find_keys(keypath, tag);
    int num_found = p_found != nullptr ? count_keys(p_found) : 0;
    if (num_found != num_keys) {
        LCONFD_LOG("Number of keys given (%d) != number of keys found (%d) !", num_keys, num_found);
        return nullptr;
    }
    size_t size = static_cast<size_t>(num_keys) * sizeof(confd_value_t);
    if (key_buf == nullptr)
        key_buf = static_cast<confd_value_t *>(malloc(size));
    if (key_buf == nullptr) {
        LCONFD_LOG("Could not allocate memory");
        return nullptr;
    }
    memcpy(key_buf, p_found, size);
    return key_buf;
}

void lconfd_free_confd_list(confd_value_t *values, int count)
{
    for (int i = 0; i < count; i++)
        confd_free_value(&values[i]);
    free(values);
}

// ---- Addresses ----

static void set_ip(const confd_value_t &val, t_ipaddr *p_addr)
{
    if (val.type == C_IPV4) {
        IPADDR_SET_V4(p_addr, ntohl(val.val.ip.s_addr));
        return;
    }
    LUM_ASSERT(val.type == C_IPV6, "((&val))->type == C_IPV6");
    IPADDR_SET_V6(p_addr, &val.val.ip6);
}

int lconfd_maapi_get_ip(int maapi_sock, int th, t_ipaddr *p_addr, const char *fmt, ...)
{
    confd_value_t val = {};
    va_list args;
    va_start(args, fmt);
    int result = maapi_vget_elem(maapi_sock, th, &val, fmt, args);
    va_end(args);
    if (result == CONFD_OK)
        set_ip(val, p_addr);
    return result;
}

int lconfd_cdb_get_ip(int sock, t_ipaddr *p_addr, const char *fmt, ...)
{
    confd_value_t val = {};
    va_list args;
    va_start(args, fmt);
    int result = cdb_vget(sock, &val, fmt, args);
    va_end(args);
    if (result == CONFD_OK)
        set_ip(val, p_addr);
    return result;
}

// ---- Prefixes ----

namespace {

// A prefix's text in two.
struct t_prefix_text {
    char address[128];
    const char *length;  // null without one
};

}  // namespace

static t_prefix_text split_prefix(const char *text)
{
    t_prefix_text parts;
    const char *p_slash = strchr(text, '/');
    lum_strlcpy(parts.address, text, sizeof(parts.address));
    if (p_slash != nullptr && p_slash - text < static_cast<ptrdiff_t>(sizeof(parts.address)))
        parts.address[p_slash - text] = '\0';
    parts.length = p_slash != nullptr ? p_slash + 1 : nullptr;
    return parts;
}

static uint8_t prefix_length(const t_prefix_text &parts, int all)
{
    return static_cast<uint8_t>(parts.length != nullptr ? atoi(parts.length) : all);
}

void lconfd_ipv4_prefix_str_to_confd(const char *text, confd_ipv4_prefix *p_prefix)
{
    t_prefix_text parts = split_prefix(text);
    inet_aton(parts.address, &p_prefix->ip);
    p_prefix->len = prefix_length(parts, 32);
}

void lconfd_ipv6_prefix_str_to_confd(const char *text, confd_ipv6_prefix *p_prefix)
{
    t_prefix_text parts = split_prefix(text);
    inet_pton(AF_INET6, parts.address, &p_prefix->ip6);
    p_prefix->len = prefix_length(parts, 128);
}

// Without a length it is by the family that was read, 0 for a text that is no address. With one it stays as
// it was when the address can't be read.
void lconfd_ip_prefix_str_to_t_ipprefix(const char *text, t_ipprefix *p_prefix)
{
    t_prefix_text parts = split_prefix(text);
    p_prefix->addr.addr_type = IP_ADDR_V6;
    bool is_read = str_to_ip(parts.address, &p_prefix->addr) != 0;
    if (parts.length == nullptr)
        p_prefix->prefixlen = static_cast<uint8_t>(!is_read ? 0 : IPPREFIX_IS_V4(p_prefix) ? 32 : 128);
    else if (is_read)
        p_prefix->prefixlen = prefix_length(parts, 0);
}

void lconfd_ip_addr_str_to_t_ipaddr(const char *text, t_ipaddr *p_addr)
{
    char address[128];
    lum_strlcpy(address, text, sizeof(address));
    str_to_ip(address, p_addr);
}

int lconfd_cdb_get_ip_prefix_from_str(int sock, t_ipprefix *p_prefix, const char *fmt, ...)
{
    confd_value_t val = {};
    va_list args;
    va_start(args, fmt);
    int result = cdb_vget(sock, &val, fmt, args);
    va_end(args);
    if (result != CONFD_OK) {
        LCONFD_DEBUG("Cannot read IP prefix from CDB (%d)%s (%d) : %s", result, LCONFD_WHY);
        return result;
    }
    LUM_ASSERT(val.type == C_BUF, "((&val))->type == C_BUF");
    std::string text(reinterpret_cast<const char *>(val.val.buf.ptr), val.val.buf.size);
    lconfd_ip_prefix_str_to_t_ipprefix(text.c_str(), p_prefix);
    confd_free_value(&val);
    return CONFD_OK;
}

// ---- Times and kinds ----

void lconfd_time_to_confd(const time_t *p_time, confd_datetime *p_datetime)
{
    struct tm parts = {};
    gmtime_r(p_time, &parts);
    *p_datetime = {.year = static_cast<int16_t>(parts.tm_year + 1900),
                   .month = static_cast<uint8_t>(parts.tm_mon + 1),
                   .day = static_cast<uint8_t>(parts.tm_mday),
                   .hour = static_cast<uint8_t>(parts.tm_hour),
                   .min = static_cast<uint8_t>(parts.tm_min),
                   .sec = static_cast<uint8_t>(parts.tm_sec),
                   .micro = 0,
                   .timezone = 0,
                   .timezone_minutes = 0};
}

void lconfd_get_date_time(confd_datetime *p_datetime)
{
    timeval now = {};
    gettimeofday(&now, nullptr);
    lconfd_time_to_confd(&now.tv_sec, p_datetime);
    p_datetime->micro = static_cast<uint32_t>(now.tv_usec);
}

e_lum_device lconfd_get_device_type(uint32_t value)
{
    static constexpr e_lum_device kinds[] = {LUM_DEVICE_UNKNOWN, LUM_DEVICE_PYLON, LUM_DEVICE_KEELSON,
                                             LUM_DEVICE_GANTRY, LUM_DEVICE_CARREL};
    return value < std::size(kinds) ? kinds[value] : LUM_DEVICE_UNKNOWN;
}

// ---- SNMP ----

const char *lconfd_snmp_get_transport_addr()
{
    static constexpr unsigned first_port = 55000, num_ports = 16;
    static unsigned counter;
    static char text[32];
    unsigned port = first_port + counter;
    counter = (counter + 1) % num_ports;
    snprintf(text, sizeof(text), "127.0.0.1.%u.%u", port >> 8, port & 0xff);
    return text;
}

int lconfd_snmp_ipport_fm_transport_addr(const uint8_t *buf, size_t len, uint32_t *p_ip, uint16_t *p_port)
{
    if (len < sizeof(*p_ip) + sizeof(*p_port))
        return ERR_BAD_PARAM;
    memcpy(p_ip, buf, sizeof(*p_ip));
    memcpy(p_port, buf + sizeof(*p_ip), sizeof(*p_port));
    *p_ip = ntohl(*p_ip);
    *p_port = ntohs(*p_port);
    return 0;
}

// ---- Lists ----

int lconfd_maapi_walk_list(t_lconfd_context *ctx, confd_trans_ctx *tctx, const char *path,
                           lconfd_maapi_walk_cb cb, void *arg)
{
    maapi_cursor cursor;
    if (maapi_init_cursor(ctx->maapi_socket, tctx->thandle, &cursor, "%s", path) != CONFD_OK)
        return 1;
    int answer = ITER_CONTINUE;
    while (answer == ITER_CONTINUE && maapi_get_next(&cursor) == CONFD_OK && cursor.n > 0)
        answer = cb(ctx, tctx, cursor.keys, arg);
    maapi_destroy_cursor(&cursor);
    return answer == ITER_STOP ? 1 : 0;
}
