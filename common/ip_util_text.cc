// Printing and parsing of ip_util.h.
#include "common/ip_util.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>

#include "common/lum_util.h"
#include "common/strlcpy.h"

char *ipv4_print(uint32_t host_value, char *buf, size_t len)
{
    snprintf(buf, len, "%d.%d.%d.%d", host_value >> 24, host_value >> 16 & 255, host_value >> 8 & 255,
             host_value & 255);
    return buf;
}

char *ipaddr_print(const t_ipaddr *p_addr, char *buf, size_t len)
{
    if (IPADDR_IS_V4(p_addr))
        return ipv4_print(p_addr->u.addr4.s_addr, buf, len);
    socklen_t size = static_cast<socklen_t>(len);
    bool printed = IPADDR_IS_V6(p_addr) && inet_ntop(AF_INET6, p_addr->u.addr6_b, buf, size) != nullptr;
    if (!printed && len > 0)
        buf[0] = '\0';
    return buf;
}

char *ipaddr_port_print(const t_ipaddr_port *p_addr_port, char *buf, size_t len)
{
    char addr[IP_ADDR_TEXT_SIZE];
    snprintf(buf, len, "%s:%u", ipaddr_print(&p_addr_port->addr, addr, sizeof(addr)), p_addr_port->port);
    return buf;
}

char *tloc_id_print(const t_tloc_id *p_tloc, char *buf, size_t len)
{
    char addr[IP_ADDR_TEXT_SIZE];
    snprintf(buf, len, "Originator: %s Color: %u Encap: %u", ipaddr_print(&p_tloc->addr, addr, sizeof(addr)),
             p_tloc->color, p_tloc->encap);
    return buf;
}

char *tloc_id_print_short(const t_tloc_id *p_tloc, char *buf, size_t len)
{
    char addr[IP_ADDR_TEXT_SIZE];
    snprintf(buf, len, "%s : %s : %s", ipaddr_print(&p_tloc->addr, addr, sizeof(addr)),
             lum_util_tloc_color_name(p_tloc->color), lum_util_tloc_encap_name(p_tloc->encap));
    return buf;
}

// The six bytes with or without colons between them.
static char *print_mac(const uint8_t bytes[6], bool compact, char *buf, size_t len)
{
    snprintf(buf, len, compact ? "%02x%02x%02x%02x%02x%02x" : "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0],
             bytes[1], bytes[2], bytes[3], bytes[4], bytes[5]);
    return buf;
}

char *macaddr_print(const uint8_t bytes[6], char *buf, size_t len)
{
    return print_mac(bytes, false, buf, len);
}

char *get_intf_macaddr(const char *name, bool compact, char *buf, size_t len)
{
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return nullptr;
    struct ifreq request = {};
    lum_strlcpy(request.ifr_name, name, sizeof(request.ifr_name));
    int status = ioctl(fd, SIOCGIFHWADDR, &request);
    close(fd);
    if (status != 0)
        return nullptr;
    uint8_t bytes[6];
    memcpy(bytes, request.ifr_hwaddr.sa_data, sizeof(bytes));
    return print_mac(bytes, compact, buf, len);
}

char *print_timeofday(char *buf, size_t len)
{
    time_t now = time(nullptr);
    struct tm local;
    if (strftime(buf, len, "%b %d %T", localtime_r(&now, &local)) == 0 && len > 0)
        buf[0] = '\0';
    return buf;
}

int binary_to_hexstr(char *out, size_t out_size, const uint8_t *p_in, size_t in_len)
{
    static constexpr char digits[] = "0123456789abcdef";
    size_t used = 0;
    for (; used + 1 < in_len * 3 && used + 1 < out_size; used++) {
        uint8_t byte = p_in[used / 3];
        out[used] = used % 3 == 2 ? ':' : digits[used % 3 == 0 ? byte >> 4 : byte & 15];
    }
    if (out_size > 0)
        out[used] = '\0';
    return static_cast<int>(in_len * 3) - 1;
}

int str_to_ip(const char *text, t_ipaddr *p_addr)
{
    in_addr_t host_value = inet_network(text);
    if (host_value != INADDR_NONE) {
        IPADDR_SET_V4(p_addr, host_value);
        return 1;
    }
    uint8_t bytes[16];
    if (inet_pton(AF_INET6, text, bytes) == 1) {
        IPADDR_SET_V6(p_addr, bytes);
        return 1;
    }
    IPADDR_INIT(p_addr, IP_ADDR_UNKNOWN);
    return 0;
}

int ipaddr_str_to_ip(t_ipaddr *p_addr, const char *text)
{
    bool known = IPADDR_IS_V4(p_addr) || IPADDR_IS_V6(p_addr);
    uint8_t bytes[16];
    if (!known || inet_pton(static_cast<int>(p_addr->addr_type), text, bytes) != 1)
        return 0;
    IPADDR_GET(p_addr, bytes);
    return 1;
}

uint8_t *str_to_macaddr(const char *text, uint8_t bytes[6])
{
    unsigned v[6];
    if (sscanf(text, "%x:%x:%x:%x:%x:%x", &v[0], &v[1], &v[2], &v[3], &v[4], &v[5]) != 6)
        return nullptr;
    for (int i = 0; i < 6; i++)
        bytes[i] = static_cast<uint8_t>(v[i]);
    return bytes;
}

void ipaddr_port_from_sockaddr(t_ipaddr_port *p_addr_port, const struct sockaddr *p_sockaddr)
{
    if (p_sockaddr->sa_family == AF_INET) {
        struct sockaddr_in in;
        memcpy(&in, p_sockaddr, sizeof(in));
        p_addr_port->port = ntohs(in.sin_port);
        IPADDR_SET_V4(&p_addr_port->addr, ntohl(in.sin_addr.s_addr));
    } else if (p_sockaddr->sa_family == AF_INET6) {
        struct sockaddr_in6 in6;
        memcpy(&in6, p_sockaddr, sizeof(in6));
        p_addr_port->port = in6.sin6_port;
        IPADDR_SET_V6(&p_addr_port->addr, &in6.sin6_addr);
    }
}
