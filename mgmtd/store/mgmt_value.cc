#include "mgmtd/store/mgmt_value.h"

#include "mgmtd/store/mgmt_tree_private.h"
#include "mgmtd/store/mgmt_value_private.h"

#include <arpa/inet.h>
#include <charconv>
#include <cstdlib>
#include <cstring>

static const lyd_value &value_of(const lyd_node *p_node)
{
    return reinterpret_cast<const lyd_node_term *>(p_node)->value;
}

// ---- From texts ----

// The number of a whole text; false for anything else.
template <typename T>
static bool number_read(std::string_view text, T *p_number)
{
    auto [p_end, failure] = std::from_chars(text.data(), text.data() + text.size(), *p_number);
    return failure == std::errc() && p_end == text.data() + text.size();
}

static bool address_read(int family, std::string_view text, void *p_address)
{
    char copy[INET6_ADDRSTRLEN] = "";
    if (text.size() >= sizeof(copy))
        return false;
    memcpy(copy, text.data(), text.size());
    return inet_pton(family, copy, p_address) == 1;
}

static bool prefix_read(int family, std::string_view text, void *p_address, uint8_t *p_length)
{
    size_t slash = text.find('/');
    return slash != std::string_view::npos && number_read(text.substr(slash + 1), p_length) &&
           address_read(family, text.substr(0, slash), p_address);
}

// "2024-01-15T10:00:00.5Z", "...+02:00".
static bool datetime_read(std::string_view text, confd_datetime *p_time)
{
    if (text.size() < 20)
        return false;
    *p_time = {};
    p_time->timezone = static_cast<int8_t>(CONFD_TIMEZONE_UNDEF);
    bool good =
        number_read(text.substr(0, 4), &p_time->year) && number_read(text.substr(5, 2), &p_time->month) &&
        number_read(text.substr(8, 2), &p_time->day) && number_read(text.substr(11, 2), &p_time->hour) &&
        number_read(text.substr(14, 2), &p_time->min) && number_read(text.substr(17, 2), &p_time->sec);
    std::string_view rest = text.substr(19);
    if (rest.starts_with('.')) {
        size_t end = std::min(rest.find_first_not_of("0123456789", 1), rest.size());
        std::string micro(rest.substr(1, std::min<size_t>(end - 1, 6)));
        micro.resize(6, '0');
        good = good && number_read(std::string_view(micro), &p_time->micro);
        rest.remove_prefix(end);
    }
    if (rest == "Z" || rest == "z") {
        p_time->timezone = 0;
    } else if (rest.size() == 6) {
        bool west = rest[0] == '-';
        good = good && number_read(rest.substr(1, 2), &p_time->timezone) &&
               number_read(rest.substr(4, 2), &p_time->timezone_minutes);
        p_time->timezone = static_cast<int8_t>(west ? -p_time->timezone : p_time->timezone);
        p_time->timezone_minutes =
            static_cast<int8_t>(west ? -p_time->timezone_minutes : p_time->timezone_minutes);
    }
    return good;
}

// ---- Names of enumerations and bits ----

static std::span<const lysc_type_bitenum_item> enum_items(const lysc_type *p_type)
{
    const lysc_type_bitenum_item *p_items = p_type->basetype == LY_TYPE_ENUM
                                                ? reinterpret_cast<const lysc_type_enum *>(p_type)->enums
                                                : reinterpret_cast<const lysc_type_bits *>(p_type)->bits;
    return {p_items, static_cast<size_t>(LY_ARRAY_COUNT(p_items))};
}

static bool enum_read(const lysc_type *p_type, std::string_view text, int32_t *p_number)
{
    for (const lysc_type_bitenum_item &item : enum_items(p_type)) {
        if (text == item.name) {
            *p_number = item.value;
            return true;
        }
    }
    return false;
}

static bool bits_read(const lysc_type *p_type, std::string_view text, uint64_t *p_bits)
{
    *p_bits = 0;
    while (!text.empty()) {
        size_t end = std::min(text.find(' '), text.size());
        bool known = end == 0;
        for (const lysc_type_bitenum_item &item : enum_items(p_type)) {
            if (item.position < 64 && text.substr(0, end) == item.name) {
                *p_bits |= uint64_t{1} << item.position;
                known = true;
            }
        }
        if (!known)
            return false;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return true;
}

// ---- Canonical texts to values ----

static bool named_from_canonical(const lysc_type *p_type, std::string_view text, confd_value_t *p_value)
{
    if (p_value->type == C_ENUM_VALUE)
        return enum_read(p_type, text, &p_value->val.enumvalue);
    uint64_t bits = 0;
    if (!bits_read(p_type, text, &bits) || (p_value->type == C_BIT32 && bits > UINT32_MAX))
        return false;
    if (p_value->type == C_BIT32)
        p_value->val.b32 = static_cast<uint32_t>(bits);
    else
        p_value->val.b64 = bits;
    return true;
}

static bool address_from_canonical(std::string_view text, confd_value_t *p_value)
{
    switch (p_value->type) {
    case C_IPV4:
        return address_read(AF_INET, text, &p_value->val.ip);
    case C_IPV6:
        return address_read(AF_INET6, text, &p_value->val.ip6);
    case C_IPV4PREFIX:
        return prefix_read(AF_INET, text, &p_value->val.ipv4prefix.ip, &p_value->val.ipv4prefix.len);
    default:
        return prefix_read(AF_INET6, text, &p_value->val.ipv6prefix.ip6, &p_value->val.ipv6prefix.len);
    }
}

static bool number_from_canonical(std::string_view text, confd_value_t *p_value)
{
    switch (p_value->type) {
    case C_INT8:
        return number_read(text, &p_value->val.i8);
    case C_INT16:
        return number_read(text, &p_value->val.i16);
    case C_INT32:
        return number_read(text, &p_value->val.i32);
    case C_INT64:
        return number_read(text, &p_value->val.i64);
    case C_UINT8:
        return number_read(text, &p_value->val.u8);
    case C_UINT16:
        return number_read(text, &p_value->val.u16);
    case C_UINT32:
        return number_read(text, &p_value->val.u32);
    default:
        return number_read(text, &p_value->val.u64);
    }
}

bool mgmt_value_from_canonical(e_schema_value kind, const lysc_type *p_type, std::string_view text,
                               confd_value_t *p_value)
{
    *p_value = {};
    p_value->type = static_cast<confd_vtype>(kind);
    switch (p_value->type) {
    case C_XMLTAG:
        return true;
    case C_BUF:
        p_value->val.buf = {static_cast<unsigned int>(text.size()),
                            reinterpret_cast<unsigned char *>(const_cast<char *>(text.data()))};
        return true;
    case C_BOOL:
        p_value->val.boolean = text == "true";
        return true;
    case C_DATETIME:
        return datetime_read(text, &p_value->val.datetime);
    case C_ENUM_VALUE:
    case C_BIT32:
    case C_BIT64:
        return named_from_canonical(p_type, text, p_value);
    case C_IPV4:
    case C_IPV6:
    case C_IPV4PREFIX:
    case C_IPV6PREFIX:
        return address_from_canonical(text, p_value);
    default:
        return number_from_canonical(text, p_value);
    }
}

// The type that a stored value really has: a union's member, a leafref's target.
static const lysc_type *real_type(const lyd_value &value)
{
    const lyd_value *p_value = &value;
    while (p_value->realtype->basetype == LY_TYPE_UNION)
        p_value = &p_value->subvalue->value;
    return p_value->realtype;
}

static e_schema_value element_kind(const t_schema_node *p_schema)
{
    return p_schema->kind == SCHEMA_KIND_LEAF_LIST ? p_schema->element : p_schema->value;
}

confd_value_t mgmt_value_of(const t_schema_node *p_schema, const lyd_node *p_node)
{
    const lyd_value &stored = value_of(p_node);
    const lysc_type *p_type = real_type(stored);
    e_schema_value kind = element_kind(p_schema);
    if (kind == SCHEMA_VALUE_UNION)
        kind = schema_value_of_type(p_type);
    confd_value_t value = {};
    if (!mgmt_value_from_canonical(kind, p_type, mgmt_node_text(p_node), &value)) {
        value = {};
        value.type = C_NOEXISTS;
    }
    if (value.type == C_XMLTAG)
        value.val.xmltag = {p_schema->tag, p_schema->ns};
    return value;
}

confd_value_t mgmt_value_of_list(const t_mgmt_tree &tree, const lyd_node *p_parent,
                                 const t_schema_node *p_schema, t_mgmt_values *p_values)
{
    std::vector<confd_value_t> &list = p_values->lists.emplace_back();
    const lyd_node *p_first = mgmt_tree_child(tree, p_parent, p_schema);
    for (const lyd_node *p_element : mgmt_sorted_instances(p_first, p_schema))
        list.push_back(mgmt_value_of(p_schema, p_element));
    confd_value_t value = {};
    value.type = C_LIST;
    value.val.list = {static_cast<unsigned int>(list.size()), list.data()};
    return value;
}

bool mgmt_value_from_text(const t_mgmt_tree &tree, const t_schema_node *p_schema, std::string_view text,
                          confd_value_t *p_value, t_mgmt_error *p_error)
{
    const lysc_type *p_type = nullptr;
    const char *p_canonical = nullptr;
    LY_ERR result = lyd_value_validate(tree.p_context, p_schema->yang, text.data(), text.size(), nullptr,
                                       &p_type, &p_canonical);
    if (result != LY_SUCCESS && result != LY_EINCOMPLETE)
        return mgmt_fail_yang(p_error, tree.p_context, MGMT_ERR_BADTYPE, p_schema->path);
    e_schema_value kind = element_kind(p_schema);
    if (kind == SCHEMA_VALUE_UNION)
        kind = schema_value_of_type(p_type);
    std::string_view canonical = kind == SCHEMA_VALUE_STRING ? text : std::string_view(p_canonical);
    bool good = mgmt_value_from_canonical(kind, p_type, canonical, p_value);
    lydict_remove(tree.p_context, p_canonical);
    if (!good)
        return mgmt_fail(p_error, MGMT_ERR_BADTYPE, p_schema->path, "the value does not fit the type");
    if (p_value->type == C_XMLTAG)
        p_value->val.xmltag = {p_schema->tag, p_schema->ns};
    return true;
}

// ---- Order ----

static int bytes_compare(const void *p_left, const void *p_right, size_t size)
{
    return memcmp(p_left, p_right, size);
}

template <typename T>
static int number_compare(T left, T right)
{
    return left < right ? -1 : left > right ? 1 : 0;
}

static int texts_compare(const confd_buf_t &left, const confd_buf_t &right)
{
    int order = bytes_compare(left.ptr, right.ptr, std::min(left.size, right.size));
    return order != 0 ? order : number_compare(left.size, right.size);
}

int mgmt_value_compare(const confd_value_t &left, const confd_value_t &right)
{
    if (left.type != right.type)
        return number_compare<int>(left.type, right.type);
    const auto &l = left.val;
    const auto &r = right.val;
    int order = 0;
    switch (left.type) {
    case C_BUF:
        return texts_compare(l.buf, r.buf);
    case C_INT8:
        return number_compare(l.i8, r.i8);
    case C_INT16:
        return number_compare(l.i16, r.i16);
    case C_INT32:
        return number_compare(l.i32, r.i32);
    case C_INT64:
        return number_compare(l.i64, r.i64);
    case C_UINT8:
        return number_compare(l.u8, r.u8);
    case C_UINT16:
        return number_compare(l.u16, r.u16);
    case C_UINT32:
    case C_BIT32:
        return number_compare(l.u32, r.u32);
    case C_UINT64:
    case C_BIT64:
        return number_compare(l.u64, r.u64);
    case C_BOOL:
        return number_compare(l.boolean, r.boolean);
    case C_ENUM_VALUE:
        return number_compare(l.enumvalue, r.enumvalue);
    case C_IPV4:
        return bytes_compare(&l.ip, &r.ip, sizeof(l.ip));
    case C_IPV6:
        return bytes_compare(&l.ip6, &r.ip6, sizeof(l.ip6));
    case C_IPV4PREFIX:
        order = bytes_compare(&l.ip, &r.ip, sizeof(l.ip));
        return order != 0 ? order : number_compare(l.ipv4prefix.len, r.ipv4prefix.len);
    case C_IPV6PREFIX:
        order = bytes_compare(&l.ip6, &r.ip6, sizeof(l.ip6));
        return order != 0 ? order : number_compare(l.ipv6prefix.len, r.ipv6prefix.len);
    default:
        return 0;
    }
}
