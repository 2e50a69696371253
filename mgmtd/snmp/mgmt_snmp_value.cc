#include "mgmtd/snmp/mgmt_snmp_value.h"

// The library's configuration must stand before its other headers.
#include <net-snmp/net-snmp-config.h>

#include <arpa/inet.h>
#include <cstdlib>
#include <net-snmp/net-snmp-includes.h>

template <typename Number>
static bool number_make(unsigned char type, Number number, t_snmp_value *p_result)
{
    *p_result = {type, std::string(reinterpret_cast<const char *>(&number), sizeof(number))};
    return true;
}

static bool integer_make(long number, t_snmp_value *p_result)
{
    return number_make(ASN_INTEGER, number, p_result);
}

static bool unsigned_make(u_long number, t_snmp_value *p_result)
{
    return number_make(ASN_UNSIGNED, number, p_result);
}

static bool octets_make(const void *p_bytes, size_t size, t_snmp_value *p_result)
{
    *p_result = {ASN_OCTET_STR, std::string(static_cast<const char *>(p_bytes), size)};
    return true;
}

static bool text_make(const std::string &text, t_snmp_value *p_result)
{
    return octets_make(text.data(), text.size(), p_result);
}

static bool counter_make(uint64_t number, t_snmp_value *p_result)
{
    counter64 counter = {};
    counter.high = static_cast<u_long>(number >> 32);
    counter.low = static_cast<u_long>(number & 0xffffffff);
    return number_make(ASN_COUNTER64, counter, p_result);
}

// BITS: bit 0 is the first byte's highest.
static bool bits_make(uint64_t bits, size_t size, t_snmp_value *p_result)
{
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size * 8; i++)
        if ((bits >> i & 1) != 0)
            bytes[i / 8] = static_cast<char>(bytes[i / 8] | 0x80 >> i % 8);
    return text_make(bytes, p_result);
}

// DateAndTime: 8 bytes, with a zone 11.
static bool time_make(const confd_datetime &time, t_snmp_value *p_result)
{
    std::string bytes = {static_cast<char>(time.year >> 8), static_cast<char>(time.year),
                         static_cast<char>(time.month),     static_cast<char>(time.day),
                         static_cast<char>(time.hour),      static_cast<char>(time.min),
                         static_cast<char>(time.sec),       static_cast<char>(time.micro / 100000)};
    if (time.timezone != CONFD_TIMEZONE_UNDEF)
        bytes += {time.timezone < 0 || time.timezone_minutes < 0 ? '-' : '+',
                  static_cast<char>(abs(time.timezone)), static_cast<char>(abs(time.timezone_minutes))};
    return text_make(bytes, p_result);
}

static bool oid_make(const confd_snmp_oid &id, t_snmp_value *p_result)
{
    std::string bytes;
    for (int i = 0; i < id.len; i++) {
        oid number = id.oid[i];
        bytes.append(reinterpret_cast<const char *>(&number), sizeof(number));
    }
    *p_result = {ASN_OBJECT_ID, std::move(bytes)};
    return id.len > 1;
}

static bool prefix_make(int family, const void *p_address, unsigned int length, t_snmp_value *p_result)
{
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(family, p_address, text, sizeof(text));
    return text_make(std::string(text) + "/" + std::to_string(length), p_result);
}

static bool number_value_make(const confd_value_t &value, t_snmp_value *p_result)
{
    switch (value.type) {
    case C_INT8:
        return integer_make(value.val.i8, p_result);
    case C_INT16:
        return integer_make(value.val.i16, p_result);
    case C_INT32:
        return integer_make(value.val.i32, p_result);
    case C_INT64:
        return text_make(std::to_string(value.val.i64), p_result);
    case C_UINT8:
        return unsigned_make(value.val.u8, p_result);
    case C_UINT16:
        return unsigned_make(value.val.u16, p_result);
    case C_UINT32:
        return unsigned_make(value.val.u32, p_result);
    case C_UINT64:
        return counter_make(value.val.u64, p_result);
    case C_DOUBLE:
        return text_make(std::to_string(value.val.d), p_result);
    case C_ENUM_VALUE:
        return integer_make(value.val.enumvalue, p_result);
    case C_BOOL:
        return integer_make(value.val.boolean ? 1 : 2, p_result);
    case C_XMLTAG:
        return integer_make(1, p_result);
    case C_BIT32:
        return bits_make(value.val.b32, sizeof(value.val.b32), p_result);
    case C_BIT64:
        return bits_make(value.val.b64, sizeof(value.val.b64), p_result);
    default:
        return false;
    }
}

bool snmp_value_make(const confd_value_t &value, t_snmp_value *p_result)
{
    switch (value.type) {
    case C_STR:
        return text_make(value.val.s, p_result);
    case C_BUF:
    case C_BINARY:
        return octets_make(value.val.buf.ptr, value.val.buf.size, p_result);
    case C_IPV4:
        *p_result = {ASN_IPADDRESS,
                     std::string(reinterpret_cast<const char *>(&value.val.ip), sizeof(value.val.ip))};
        return true;
    case C_IPV6:
        return octets_make(&value.val.ip6, sizeof(value.val.ip6), p_result);
    case C_IPV4PREFIX:
        return prefix_make(AF_INET, &value.val.ipv4prefix.ip, value.val.ipv4prefix.len, p_result);
    case C_IPV6PREFIX:
        return prefix_make(AF_INET6, &value.val.ipv6prefix.ip6, value.val.ipv6prefix.len, p_result);
    case C_DATETIME:
        return time_make(value.val.datetime, p_result);
    case C_OID:
        return oid_make(*value.val.oidp, p_result);
    default:
        return number_value_make(value, p_result);
    }
}
