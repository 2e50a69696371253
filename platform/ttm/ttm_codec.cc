#include "platform/ttm/ttm.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <span>
#include <type_traits>

static constexpr uint8_t wire_version = 1;
static constexpr size_t path_count_offset = 34;
static constexpr size_t address_type_offset = 12;
static constexpr size_t address_offset = 16;
static constexpr size_t address_size = 16;
static constexpr uint8_t wire_address_v4 = 4;
static constexpr uint8_t wire_address_v6 = 6;

// An integer's place on the wire and in the record, which may be wider.
struct t_ttm_field {
    uint16_t wire_offset;
    uint8_t wire_size;
    uint8_t member_size;
    uint16_t member_offset;
};

// Bytes that are 0 on the wire.
struct t_ttm_gap {
    uint16_t wire_offset;
    uint16_t wire_size;
};

// Wire offsets are the message's, or the path's.
struct t_ttm_layout {
    std::span<const t_ttm_field> fields;
    std::span<const t_ttm_gap> gaps;
};

#define TTM_FIELD(wire_offset, wire_size, record, member)                                                    \
    {                                                                                                        \
        wire_offset, wire_size, sizeof(record::member), offsetof(record, member)                             \
    }

static constexpr t_ttm_field register_fields[] = {
    TTM_FIELD(8, 1, t_ttm_register_msg, announce),
    TTM_FIELD(9, 1, t_ttm_register_msg, originate),
};
static constexpr t_ttm_gap register_gaps[] = {{10, 2}};

// The address, its type too, is told apart: its form depends on the type.
static constexpr t_ttm_field tloc_fields[] = {
    TTM_FIELD(8, 4, t_ttm_tloc_msg, epoch_id),
    TTM_FIELD(13, 1, t_ttm_tloc_msg, tloc.color),
    TTM_FIELD(14, 1, t_ttm_tloc_msg, tloc.encap),
    TTM_FIELD(32, 1, t_ttm_tloc_msg, tloc_origin),
    TTM_FIELD(33, 1, t_ttm_tloc_msg, tloc_status),
    TTM_FIELD(34, 1, t_ttm_tloc_msg, path_count),
    TTM_FIELD(35, 1, t_ttm_tloc_msg, bfd_enabled),
    TTM_FIELD(36, 4, t_ttm_tloc_msg, tloc_index),
    TTM_FIELD(40, 4, t_ttm_tloc_msg, tloc_label),
    TTM_FIELD(44, 8, t_ttm_tloc_msg, attr.attr_flags),
    TTM_FIELD(52, 4, t_ttm_tloc_msg, attr.preference),
    TTM_FIELD(56, 4, t_ttm_tloc_msg, attr.weight),
    TTM_FIELD(60, 4, t_ttm_tloc_msg, attr.site_id),
    TTM_FIELD(64, 4, t_ttm_tloc_msg, attr.version),
    TTM_FIELD(68, 4, t_ttm_tloc_msg, attr.gen_id),
    TTM_FIELD(72, 1, t_ttm_tloc_msg, attr.carrier),
    TTM_FIELD(73, 1, t_ttm_tloc_msg, attr.restrict1),
    TTM_FIELD(74, 1, t_ttm_tloc_msg, attr.border),
    TTM_FIELD(75, 1, t_ttm_tloc_msg, attr.tloc_stale),
    TTM_FIELD(76, 2, t_ttm_tloc_msg, attr.group_count),
    TTM_FIELD(78, 1, t_ttm_tloc_msg, attr.tloc_installed),
    TTM_FIELD(79, 1, t_ttm_tloc_msg, attr.lr_enabled),
    TTM_FIELD(80, 4, t_ttm_tloc_msg, attr.group[0]),
    TTM_FIELD(84, 4, t_ttm_tloc_msg, attr.group[1]),
    TTM_FIELD(88, 4, t_ttm_tloc_msg, attr.group[2]),
    TTM_FIELD(92, 4, t_ttm_tloc_msg, attr.group[3]),
    TTM_FIELD(96, 4, t_ttm_tloc_msg, attr.sla.loss),
    TTM_FIELD(100, 4, t_ttm_tloc_msg, attr.sla.latency),
    TTM_FIELD(104, 4, t_ttm_tloc_msg, attr.sla.jitter),
    TTM_FIELD(108, 4, t_ttm_tloc_msg, attr.lr_hold_time_down),
    TTM_FIELD(112, 1, t_ttm_tloc_msg, lr_enabled),
    TTM_FIELD(116, 4, t_ttm_tloc_msg, lr_hold_time_down),
};
static constexpr t_ttm_gap tloc_gaps[] = {{15, 1}, {113, 3}, {120, 20}};
static constexpr t_ttm_gap address_place[] = {{address_type_offset, 1}, {address_offset, address_size}};

static constexpr t_ttm_field path_fields[] = {
    TTM_FIELD(0, 4, t_ttm_path_msg, local_tloc_index),
    TTM_FIELD(4, 4, t_ttm_path_msg, border_tloc_index),
    TTM_FIELD(8, 2, t_ttm_path_msg, mtu),
    TTM_FIELD(10, 1, t_ttm_path_msg, label_count),
    TTM_FIELD(12, 4, t_ttm_path_msg, labels[0]),
    TTM_FIELD(16, 4, t_ttm_path_msg, labels[1]),
    TTM_FIELD(20, 4, t_ttm_path_msg, sla_bitmap),
};
static constexpr t_ttm_gap path_gaps[] = {{11, 1}};

static constexpr t_ttm_layout register_layout = {register_fields, register_gaps};
static constexpr t_ttm_layout tloc_layout = {tloc_fields, tloc_gaps};
static constexpr t_ttm_layout path_layout = {path_fields, path_gaps};

// Whether each byte from first to end (exclusive) belongs to one field or gap, and none beyond.
static constexpr bool layout_covers(const t_ttm_layout &layout, std::span<const t_ttm_gap> more, size_t first,
                                    size_t end)
{
    std::array<int, TTM_WIRE_SIZE_MAX> uses = {};
    for (const t_ttm_field &field : layout.fields)
        for (size_t i = 0; i < field.wire_size; i++)
            uses[field.wire_offset + i]++;
    for (std::span<const t_ttm_gap> gaps : {layout.gaps, more})
        for (const t_ttm_gap &gap : gaps)
            for (size_t i = 0; i < gap.wire_size; i++)
                uses[gap.wire_offset + i]++;
    for (size_t i = 0; i < uses.size(); i++)
        if (uses[i] != (i >= first && i < end))
            return false;
    return true;
}
static_assert(layout_covers(register_layout, {}, TTM_WIRE_HEADER_SIZE, TTM_WIRE_REGISTER_SIZE));
static_assert(layout_covers(tloc_layout, address_place, TTM_WIRE_HEADER_SIZE, TTM_WIRE_TLOC_SIZE));
static_assert(layout_covers(path_layout, {}, 0, TTM_WIRE_PATH_SIZE));
static_assert(std::is_standard_layout_v<t_ttm_tloc_msg> && std::is_trivially_copyable_v<t_ttm_msg>);

// ---- Integers ----

static void wire_put(uint8_t *p_wire, size_t size, uint64_t value)
{
    for (size_t i = size; i-- > 0; value >>= 8)
        p_wire[i] = static_cast<uint8_t>(value);
}

static uint64_t wire_get(const uint8_t *p_wire, size_t size)
{
    uint64_t value = 0;
    for (size_t i = 0; i < size; i++)
        value = value << 8 | p_wire[i];
    return value;
}

// The members are of 1, 2, 4 and 8 bytes; what a narrow member can't hold of the value isn't on the wire.
static uint64_t member_get(const void *p_member, size_t size)
{
    uint8_t byte = 0;
    uint16_t half = 0;
    uint32_t word = 0;
    uint64_t value = 0;
    switch (size) {
    case sizeof(byte):
        memcpy(&byte, p_member, sizeof(byte));
        return byte;
    case sizeof(half):
        memcpy(&half, p_member, sizeof(half));
        return half;
    case sizeof(word):
        memcpy(&word, p_member, sizeof(word));
        return word;
    default:
        memcpy(&value, p_member, sizeof(value));
        return value;
    }
}

static void member_put(void *p_member, size_t size, uint64_t value)
{
    uint8_t byte = static_cast<uint8_t>(value);
    uint16_t half = static_cast<uint16_t>(value);
    uint32_t word = static_cast<uint32_t>(value);
    switch (size) {
    case sizeof(byte):
        memcpy(p_member, &byte, sizeof(byte));
        break;
    case sizeof(half):
        memcpy(p_member, &half, sizeof(half));
        break;
    case sizeof(word):
        memcpy(p_member, &word, sizeof(word));
        break;
    default:
        memcpy(p_member, &value, sizeof(value));
        break;
    }
}

// ---- Parts of a message ----
// p_wire: the bytes that the layout's offsets count from, all of the part's; zero before it is written.

static void fields_put(uint8_t *p_wire, const t_ttm_layout &layout, const void *p_record)
{
    const uint8_t *p_bytes = static_cast<const uint8_t *>(p_record);
    for (const t_ttm_field &field : layout.fields)
        wire_put(p_wire + field.wire_offset, field.wire_size,
                 member_get(p_bytes + field.member_offset, field.member_size));
}

static bool is_zero(const uint8_t *p_wire, size_t size)
{
    while (size > 0 && p_wire[size - 1] == 0)
        size--;
    return size == 0;
}

// False when a gap isn't 0.
static bool fields_get(const uint8_t *p_wire, const t_ttm_layout &layout, void *p_record)
{
    uint8_t *p_bytes = static_cast<uint8_t *>(p_record);
    for (const t_ttm_field &field : layout.fields)
        member_put(p_bytes + field.member_offset, field.member_size,
                   wire_get(p_wire + field.wire_offset, field.wire_size));
    for (const t_ttm_gap &gap : layout.gaps)
        if (!is_zero(p_wire + gap.wire_offset, gap.wire_size))
            return false;
    return true;
}

static void address_put(uint8_t *p_wire, const t_ipaddr *p_addr)
{
    if (IPADDR_IS_V4(p_addr)) {
        p_wire[address_type_offset] = wire_address_v4;
        wire_put(p_wire + address_offset, sizeof(p_addr->u.addr4), p_addr->u.addr4.s_addr);
    } else {
        p_wire[address_type_offset] = wire_address_v6;
        memcpy(p_wire + address_offset, p_addr->u.addr6_b, address_size);
    }
}

static bool address_get(const uint8_t *p_wire, t_ipaddr *p_addr)
{
    static constexpr size_t v4_size = sizeof(in_addr);
    const uint8_t *p_bytes = p_wire + address_offset;
    switch (p_wire[address_type_offset]) {
    case wire_address_v4:
        IPADDR_SET_V4(p_addr, static_cast<uint32_t>(wire_get(p_bytes, v4_size)));
        return is_zero(p_bytes + v4_size, address_size - v4_size);
    case wire_address_v6:
        IPADDR_SET_V6(p_addr, p_bytes);
        return true;
    default:
        return false;
    }
}

static bool is_tloc_type(uint32_t msg_type)
{
    return msg_type == TTM_MSG_TLOC_ADD || msg_type == TTM_MSG_TLOC_DELETE;
}

static bool is_tloc_af(uint32_t af)
{
    return af == TTM_AF_TLOC_IPV4 || af == TTM_AF_TLOC_IPV6;
}

static size_t tloc_size(size_t path_count)
{
    return TTM_WIRE_TLOC_SIZE + path_count * TTM_WIRE_PATH_SIZE;
}

static bool counts_fit(const t_ttm_tloc_msg &tloc)
{
    if (tloc.path_count > TTM_PATHS_MAX || tloc.attr.group_count > TTM_GROUPS_MAX)
        return false;
    for (size_t i = 0; i < tloc.path_count; i++)
        if (tloc.paths[i].label_count > TTM_LABELS_MAX)
            return false;
    return true;
}

// ---- Encoding ----

static void header_put(uint8_t *p_wire, const t_ttm_msg *p_msg, e_ttm_af af, size_t size)
{
    p_wire[0] = wire_version;
    p_wire[1] = static_cast<uint8_t>(p_msg->msg_type);
    p_wire[2] = static_cast<uint8_t>(af);
    wire_put(p_wire + 4, 2, p_msg->client_id);
    wire_put(p_wire + 6, 2, size);
}

static int register_encode(const t_ttm_msg *p_msg, uint8_t *p_buf, uint16_t *p_len)
{
    if (!is_tloc_af(p_msg->af))
        return EINVAL;
    memset(p_buf, 0, TTM_WIRE_REGISTER_SIZE);
    header_put(p_buf, p_msg, p_msg->af, TTM_WIRE_REGISTER_SIZE);
    fields_put(p_buf, register_layout, &p_msg->u.register_msg);
    *p_len = TTM_WIRE_REGISTER_SIZE;
    return 0;
}

static int tloc_encode(const t_ttm_msg *p_msg, uint8_t *p_buf, uint16_t *p_len)
{
    const t_ttm_tloc_msg &tloc = p_msg->u.tloc_msg;
    const t_ipaddr *p_addr = &tloc.tloc.addr;
    if (!counts_fit(tloc) || (!IPADDR_IS_V4(p_addr) && !IPADDR_IS_V6(p_addr)))
        return EINVAL;
    size_t size = tloc_size(tloc.path_count);
    memset(p_buf, 0, size);
    header_put(p_buf, p_msg, IPADDR_IS_V4(p_addr) ? TTM_AF_TLOC_IPV4 : TTM_AF_TLOC_IPV6, size);
    fields_put(p_buf, tloc_layout, &tloc);
    address_put(p_buf, p_addr);
    for (size_t i = 0; i < tloc.path_count; i++)
        fields_put(p_buf + tloc_size(i), path_layout, &tloc.paths[i]);
    *p_len = static_cast<uint16_t>(size);
    return 0;
}

int ttm_msg_encode(const t_ttm_msg *p_msg, uint8_t *p_buf, uint16_t *p_len)
{
    if (p_msg->msg_type == TTM_MSG_REGISTER)
        return register_encode(p_msg, p_buf, p_len);
    if (is_tloc_type(p_msg->msg_type))
        return tloc_encode(p_msg, p_buf, p_len);
    return EINVAL;
}

// ---- Decoding ----

static bool header_get(const uint8_t *p_wire, size_t size, t_ttm_msg *p_msg)
{
    if (size < TTM_WIRE_HEADER_SIZE || p_wire[0] != wire_version || p_wire[3] != 0 ||
        wire_get(p_wire + 6, 2) != size)
        return false;
    p_msg->msg_type = static_cast<e_ttm_msg_type>(p_wire[1]);
    p_msg->af = static_cast<e_ttm_af>(p_wire[2]);
    p_msg->client_id = static_cast<t_ttm_client_id>(wire_get(p_wire + 4, 2));
    return p_msg->msg_type >= TTM_MSG_REGISTER && p_msg->msg_type < TTM_MSG_MAX && p_msg->af < TTM_AF_MAX;
}

static bool tloc_decode(const uint8_t *p_wire, size_t size, t_ttm_tloc_msg *p_tloc)
{
    if (size < TTM_WIRE_TLOC_SIZE || p_wire[path_count_offset] > TTM_PATHS_MAX ||
        size != tloc_size(p_wire[path_count_offset]))
        return false;
    if (!fields_get(p_wire, tloc_layout, p_tloc) || !address_get(p_wire, &p_tloc->tloc.addr))
        return false;
    for (size_t i = 0; i < p_tloc->path_count; i++)
        if (!fields_get(p_wire + tloc_size(i), path_layout, &p_tloc->paths[i]))
            return false;
    return counts_fit(*p_tloc);
}

static bool body_decode(const uint8_t *p_wire, size_t size, t_ttm_msg *p_msg)
{
    if (p_msg->msg_type == TTM_MSG_REGISTER)
        return is_tloc_af(p_msg->af) && size == TTM_WIRE_REGISTER_SIZE &&
               fields_get(p_wire, register_layout, &p_msg->u.register_msg);
    if (is_tloc_type(p_msg->msg_type))
        return is_tloc_af(p_msg->af) && tloc_decode(p_wire, size, &p_msg->u.tloc_msg);
    return true;
}

int ttm_msg_decode(t_ttm_msg *p_msg, const uint8_t *p_buf, size_t len)
{
    memset(p_msg, 0, sizeof(*p_msg));
    if (header_get(p_buf, len, p_msg) && body_decode(p_buf, len, p_msg))
        return 0;
    memset(p_msg, 0, sizeof(*p_msg));
    return EBADMSG;
}
