// Texts of values and keypaths.
#include "platform/confd/client/client_private.h"

#include "platform/confd/ipc/ipc_path.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>

// Of a printf format, for numbers and other short texts.
__attribute__((format(printf, 1, 2))) static std::string formatted(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    std::string text = client_vformat(fmt, args);
    va_end(args);
    return text;
}

static std::string address_text(int family, const void *p_address)
{
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(family, p_address, text, sizeof(text));
    return text;
}

static std::string buf_text(const confd_buf_t &buf)
{
    return {reinterpret_cast<const char *>(buf.ptr), buf.size};
}

static std::string datetime_text(const confd_datetime &time)
{
    std::string text = formatted("%04d-%02u-%02uT%02u:%02u:%02u.%06u", time.year, time.month, time.day,
                                 time.hour, time.min, time.sec, time.micro);
    if (time.timezone == CONFD_TIMEZONE_UNDEF)
        return text;
    if (time.timezone == 0 && time.timezone_minutes == 0)
        return text + "Z";
    char sign = time.timezone < 0 || time.timezone_minutes < 0 ? '-' : '+';
    return text + formatted("%c%02d:%02d", sign, abs(time.timezone), abs(time.timezone_minutes));
}

static std::string list_text(const confd_list &list)
{
    std::string text;
    for (unsigned i = 0; i < list.size; i++)
        text += (i > 0 ? " " : "") + client_value_text(list.ptr[i]);
    return text;
}

static std::string oid_text(const confd_snmp_oid &oid)
{
    std::string text;
    for (int i = 0; i < oid.len; i++)
        text += (i > 0 ? "." : "") + std::to_string(oid.oid[i]);
    return text;
}

static std::string tag_text(const xml_tag &tag)
{
    const char *p_name = confd_hash2str(tag.tag);
    return p_name != nullptr ? p_name : std::to_string(tag.tag);
}

static std::string path_text(const confd_hkeypath_t &path);

static std::string compound_text(const confd_value_t &value)
{
    switch (value.type) {
    case C_IPV4:
        return address_text(AF_INET, &value.val.ip);
    case C_IPV6:
        return address_text(AF_INET6, &value.val.ip6);
    case C_IPV4PREFIX:
        return address_text(AF_INET, &value.val.ipv4prefix.ip) + formatted("/%u", value.val.ipv4prefix.len);
    case C_IPV6PREFIX:
        return address_text(AF_INET6, &value.val.ipv6prefix.ip6) + formatted("/%u", value.val.ipv6prefix.len);
    case C_QNAME:
        return buf_text(value.val.qname.prefix) + ":" + buf_text(value.val.qname.name);
    case C_DATETIME:
        return datetime_text(value.val.datetime);
    case C_LIST:
        return list_text(value.val.list);
    case C_OBJECTREF:
        return path_text(*value.val.hkp);
    case C_OID:
        return oid_text(*value.val.oidp);
    case C_XMLTAG:
    case C_XMLBEGIN:
    case C_XMLEND:
        return tag_text(value.val.xmltag);
    default:
        return "";
    }
}

std::string client_value_text(const confd_value_t &value)
{
    switch (value.type) {
    case C_STR:
        return value.val.c_s;
    case C_BUF:
    case C_BINARY:
        return buf_text(value.val.buf);
    case C_INT8:
        return std::to_string(value.val.i8);
    case C_INT16:
        return std::to_string(value.val.i16);
    case C_INT32:
    case C_ENUM_VALUE:
        return std::to_string(value.val.i32);
    case C_INT64:
        return std::to_string(value.val.i64);
    case C_UINT8:
        return std::to_string(value.val.u8);
    case C_UINT16:
        return std::to_string(value.val.u16);
    case C_SYMBOL:
    case C_UINT32:
    case C_BIT32:
        return std::to_string(value.val.u32);
    case C_UINT64:
    case C_BIT64:
        return std::to_string(value.val.u64);
    case C_DOUBLE:
        return formatted("%g", value.val.d);
    case C_BOOL:
        return value.val.boolean != 0 ? "true" : "false";
    default:
        return compound_text(value);
    }
}

static bool is_key_end(const confd_value_t *p_values, int index)
{
    return index == MAXKEYLEN || p_values[index].type == C_NOEXISTS;
}

// "/prefix:name" where the namespace changes, "/name" below, "{key key}" behind a list.
static std::string path_text(const confd_hkeypath_t &path)
{
    std::string text;
    uint32_t ns = 0;
    for (int i = std::min(path.len, MAXDEPTH) - 1; i >= 0; i--) {
        const confd_value_t *p_values = path.v[i];
        if (p_values[0].type == C_XMLTAG) {
            std::string prefix =
                p_values[0].val.xmltag.ns == ns ? "" : client_prefix_of(p_values[0].val.xmltag.ns);
            ns = p_values[0].val.xmltag.ns;
            text += "/" + (prefix.empty() ? prefix : prefix + ":") + tag_text(p_values[0].val.xmltag);
            continue;
        }
        for (int j = 0; !is_key_end(p_values, j); j++)
            text += (j > 0 ? " " : "{") + ipc_path_quote_key(client_value_text(p_values[j]));
        text += "}";
    }
    return text.empty() ? "/" : text;
}

void client_copy_text(char *p_buffer, size_t size, const std::string &text)
{
    if (size == 0)
        return;
    size_t length = std::min(text.size(), size - 1);
    memcpy(p_buffer, text.data(), length);
    p_buffer[length] = '\0';
}

int confd_pp_value(char *buf, int bufsiz, const confd_value_t *v)
{
    std::string text = client_value_text(*v);
    client_copy_text(buf, static_cast<size_t>(std::max(bufsiz, 0)), text);
    return static_cast<int>(text.size());
}

int confd_pp_kpath(char *buf, int bufsiz, const confd_hkeypath_t *hkeypath)
{
    std::string text = path_text(*hkeypath);
    client_copy_text(buf, static_cast<size_t>(std::max(bufsiz, 0)), text);
    return static_cast<int>(text.size());
}

void confd_free_value(confd_value_t *v)
{
    ipc_value_free(v);
}
