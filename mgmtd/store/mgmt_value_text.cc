// Values of clients to texts.

#include "mgmtd/store/mgmt_value_private.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>

// A client's number, whatever its width: small or wide, with or without sign.
struct t_number {
    bool is_negative;
    uint64_t magnitude;
};

static t_number number_signed(int64_t number)
{
    return {number < 0, number < 0 ? 0 - static_cast<uint64_t>(number) : static_cast<uint64_t>(number)};
}

static bool number_take(const confd_value_t &value, t_number *p_number)
{
    switch (value.type) {
    case C_INT8:
        *p_number = number_signed(value.val.i8);
        return true;
    case C_INT16:
        *p_number = number_signed(value.val.i16);
        return true;
    case C_INT32:
        *p_number = number_signed(value.val.i32);
        return true;
    case C_INT64:
        *p_number = number_signed(value.val.i64);
        return true;
    case C_UINT8:
        *p_number = {false, value.val.u8};
        return true;
    case C_UINT16:
        *p_number = {false, value.val.u16};
        return true;
    case C_UINT32:
        *p_number = {false, value.val.u32};
        return true;
    case C_UINT64:
        *p_number = {false, value.val.u64};
        return true;
    default:
        return false;
    }
}

static bool is_number(e_schema_value kind)
{
    return kind >= SCHEMA_VALUE_INT8 && kind <= SCHEMA_VALUE_UINT64;
}

// Whether the number fits the leaf's width.
static bool number_fits(e_schema_value kind, const t_number &number)
{
    bool has_sign = kind <= SCHEMA_VALUE_INT64;
    unsigned int bits = 8u << (kind - (has_sign ? SCHEMA_VALUE_INT8 : SCHEMA_VALUE_UINT8));
    if (!has_sign)
        return !number.is_negative && (bits == 64 || number.magnitude < uint64_t{1} << bits);
    uint64_t limit = uint64_t{1} << (bits - 1);
    return number.is_negative ? number.magnitude <= limit : number.magnitude < limit;
}

static bool number_text(e_schema_value kind, const confd_value_t &value, std::string *p_text)
{
    t_number number = {};
    if (!number_take(value, &number) || !number_fits(kind, number))
        return false;
    *p_text = (number.is_negative ? "-" : "") + std::to_string(number.magnitude);
    return true;
}

static bool enum_text(const lysc_type *p_type, int32_t number, std::string *p_text)
{
    const lysc_type_bitenum_item *p_items = reinterpret_cast<const lysc_type_enum *>(p_type)->enums;
    for (size_t i = 0; i < LY_ARRAY_COUNT(p_items); i++) {
        if (p_items[i].value == number) {
            *p_text = p_items[i].name;
            return true;
        }
    }
    return false;
}

static bool bits_text(const lysc_type *p_type, uint64_t bits, std::string *p_text)
{
    const lysc_type_bitenum_item *p_items = reinterpret_cast<const lysc_type_bits *>(p_type)->bits;
    p_text->clear();
    for (size_t i = 0; i < LY_ARRAY_COUNT(p_items); i++) {
        uint64_t bit = p_items[i].position < 64 ? uint64_t{1} << p_items[i].position : 0;
        if ((bits & bit) == 0)
            continue;
        *p_text += (p_text->empty() ? "" : " ") + std::string(p_items[i].name);
        bits &= ~bit;
    }
    return bits == 0;
}

static bool address_text(const confd_value_t &value, std::string *p_text)
{
    char text[INET6_ADDRSTRLEN] = "";
    bool is_ipv4 = value.type == C_IPV4 || value.type == C_IPV4PREFIX;
    // The address stands first in all four.
    inet_ntop(is_ipv4 ? AF_INET : AF_INET6, &value.val, text, sizeof(text));
    *p_text = text;
    if (value.type == C_IPV4PREFIX)
        *p_text += "/" + std::to_string(value.val.ipv4prefix.len);
    if (value.type == C_IPV6PREFIX)
        *p_text += "/" + std::to_string(value.val.ipv6prefix.len);
    return true;
}

static bool datetime_text(const confd_datetime &time, std::string *p_text)
{
    char text[80];
    int length = snprintf(text, sizeof(text), "%04d-%02u-%02uT%02u:%02u:%02u", time.year, time.month,
                          time.day, time.hour, time.min, time.sec);
    if (time.micro != 0)
        length += snprintf(text + length, sizeof(text) - length, ".%06u", time.micro);
    bool is_utc = time.timezone == CONFD_TIMEZONE_UNDEF || (time.timezone == 0 && time.timezone_minutes == 0);
    bool is_west = time.timezone < 0 || time.timezone_minutes < 0;
    if (is_utc)
        snprintf(text + length, sizeof(text) - length, "Z");
    else
        snprintf(text + length, sizeof(text) - length, "%c%02d:%02d", is_west ? '-' : '+',
                 std::abs(time.timezone), std::abs(time.timezone_minutes));
    *p_text = text;
    return true;
}

// The text of a value for a type that is no union.
static bool plain_text(e_schema_value kind, const lysc_type *p_type, const confd_value_t &value,
                       std::string *p_text)
{
    if (is_number(kind))
        return number_text(kind, value, p_text);
    if (kind == SCHEMA_VALUE_STRING && value.type == C_STR) {
        *p_text = value.val.c_s;
        return true;
    }
    if (static_cast<int>(value.type) != static_cast<int>(kind))
        return false;
    switch (value.type) {
    case C_XMLTAG:
        p_text->clear();
        return true;
    case C_BUF:
        p_text->assign(reinterpret_cast<const char *>(value.val.buf.ptr), value.val.buf.size);
        return true;
    case C_BOOL:
        *p_text = value.val.boolean ? "true" : "false";
        return true;
    case C_DATETIME:
        return datetime_text(value.val.datetime, p_text);
    case C_ENUM_VALUE:
        return enum_text(p_type, value.val.enumvalue, p_text);
    case C_BIT32:
        return bits_text(p_type, value.val.b32, p_text);
    case C_BIT64:
        return bits_text(p_type, value.val.b64, p_text);
    case C_IPV4:
    case C_IPV6:
    case C_IPV4PREFIX:
    case C_IPV6PREFIX:
        return address_text(value, p_text);
    default:
        return false;
    }
}

static bool type_text(const lysc_type *p_type, const confd_value_t &value, std::string *p_text)
{
    if (p_type->basetype == LY_TYPE_LEAFREF)
        return type_text(reinterpret_cast<const lysc_type_leafref *>(p_type)->realtype, value, p_text);
    if (p_type->basetype != LY_TYPE_UNION)
        return plain_text(schema_value_of_type(p_type), p_type, value, p_text);
    lysc_type **pp_members = reinterpret_cast<const lysc_type_union *>(p_type)->types;
    for (size_t i = 0; i < LY_ARRAY_COUNT(pp_members); i++) {
        if (type_text(pp_members[i], value, p_text))
            return true;
    }
    return false;
}

bool mgmt_value_text(const t_schema_node *p_schema, const confd_value_t &value, std::string *p_text,
                     t_mgmt_error *p_error)
{
    bool is_leaf = p_schema->kind == SCHEMA_KIND_LEAF || p_schema->kind == SCHEMA_KIND_LEAF_LIST;
    // Leaf and leaf-list have their type at different places.
    const lysc_type *p_type = nullptr;
    if (is_leaf)
        p_type = p_schema->kind == SCHEMA_KIND_LEAF
                     ? reinterpret_cast<const lysc_node_leaf *>(p_schema->yang)->type
                     : reinterpret_cast<const lysc_node_leaflist *>(p_schema->yang)->type;
    std::string text;
    if (!is_leaf || !type_text(p_type, value, &text))
        return mgmt_fail(p_error, MGMT_ERR_BADTYPE, p_schema->path,
                         "a value of type " + std::to_string(value.type) + " does not fit");
    *p_text = std::move(text);
    return true;
}
