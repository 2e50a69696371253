#include "lab/fp/fp_packet.h"

#include <algorithm>
#include <cstring>

enum e_ethertype : uint16_t {
    ETHERTYPE_V4 = 0x0800,
    ETHERTYPE_V6 = 0x86dd,
    ETHERTYPE_TAG = 0x8100,
    ETHERTYPE_SERVICE_TAG = 0x88a8,
};

enum e_next_header : uint8_t {
    NEXT_HOP_BY_HOP = 0,
    NEXT_TCP = 6,
    NEXT_UDP = 17,
    NEXT_ROUTING = 43,
    NEXT_FRAGMENT = 44,
    NEXT_AUTHENTICATION = 51,
    NEXT_DESTINATION = 60,
    NEXT_MOBILITY = 135,
};

static constexpr size_t ethertype_offset = 12;
static constexpr size_t tag_size = 4;
static constexpr size_t v4_header_size = 20;
static constexpr size_t v6_header_size = 40;
static constexpr size_t tcp_header_size = 20;
static constexpr size_t udp_header_size = 8;
static constexpr size_t tcp_flags_offset = 13;

// An IP packet: the bytes captured from its header on, link padding included, and the length it claims.
struct t_ip {
    std::span<const std::byte> bytes;
    size_t total;
};

static uint8_t byte_at(std::span<const std::byte> bytes, size_t offset)
{
    return std::to_integer<uint8_t>(bytes[offset]);
}

static uint16_t half_at(std::span<const std::byte> bytes, size_t offset)
{
    return static_cast<uint16_t>(byte_at(bytes, offset) << 8 | byte_at(bytes, offset + 1));
}

static uint32_t word_at(std::span<const std::byte> bytes, size_t offset)
{
    return uint32_t{half_at(bytes, offset)} << 16 | half_at(bytes, offset + 2);
}

// Whether the packet's bytes below `end` are part of it and were captured.
static e_fp_decode reach(const t_ip &ip, size_t end)
{
    if (end > ip.total)
        return FP_DECODE_MALFORMED;
    return end > ip.bytes.size() ? FP_DECODE_TRUNCATED : FP_DECODE_OK;
}

static e_fp_decode ports_decode(const t_ip &ip, size_t offset, uint8_t protocol, t_fp_packet *p_packet)
{
    if (protocol != NEXT_TCP && protocol != NEXT_UDP)
        return FP_DECODE_OK;
    e_fp_decode result = reach(ip, offset + (protocol == NEXT_TCP ? tcp_header_size : udp_header_size));
    if (result != FP_DECODE_OK)
        return result;
    uint32_t *values = p_packet->header.values;
    values[tarn_ip_src_port] = half_at(ip.bytes, offset);
    values[tarn_ip_dst_port] = half_at(ip.bytes, offset + 2);
    if (protocol == NEXT_TCP)
        values[tarn_ip_tcp] = byte_at(ip.bytes, offset + tcp_flags_offset);
    return FP_DECODE_OK;
}

// What stands behind the IP header and its extensions.
static e_fp_decode transport_decode(const t_ip &ip, size_t offset, uint8_t protocol, t_fp_packet *p_packet)
{
    p_packet->length = static_cast<uint32_t>(ip.total);
    p_packet->header.values[tarn_ip_protocol] = protocol;
    p_packet->header.values[tarn_ip_pkt_len] = p_packet->length;
    if (p_packet->is_later_fragment)
        return FP_DECODE_OK;
    return ports_decode(ip, offset, protocol, p_packet);
}

static e_fp_decode v4_decode(std::span<const std::byte> bytes, t_fp_packet *p_packet)
{
    if (bytes.size() < v4_header_size)
        return FP_DECODE_TRUNCATED;
    size_t header_size = (byte_at(bytes, 0) & 15) * size_t{4};
    if (byte_at(bytes, 0) >> 4 != 4 || header_size < v4_header_size)
        return FP_DECODE_MALFORMED;
    t_ip ip = {bytes, half_at(bytes, 2)};
    e_fp_decode result = reach(ip, header_size);
    if (result != FP_DECODE_OK)
        return result;

    uint16_t fragment = half_at(bytes, 6);
    p_packet->version = 4;
    p_packet->is_fragment = (fragment & 0x3fff) != 0;
    p_packet->is_later_fragment = (fragment & 0x1fff) != 0;
    uint32_t *values = p_packet->header.values;
    values[tarn_ip_dscp] = byte_at(bytes, 1) >> 2;
    values[tarn_ip_src_addr] = word_at(bytes, 12);
    values[tarn_ip_dst_addr] = word_at(bytes, 16);
    return transport_decode(ip, header_size, byte_at(bytes, 9), p_packet);
}

static bool is_extension(uint8_t next)
{
    static constexpr uint8_t extensions[] = {NEXT_HOP_BY_HOP,     NEXT_ROUTING,     NEXT_FRAGMENT,
                                             NEXT_AUTHENTICATION, NEXT_DESTINATION, NEXT_MOBILITY};
    return std::find(std::begin(extensions), std::end(extensions), next) != std::end(extensions);
}

static size_t extension_size(uint8_t next, uint8_t length_byte)
{
    if (next == NEXT_FRAGMENT)
        return 8;
    return next == NEXT_AUTHENTICATION ? (length_byte + size_t{2}) * 4 : (length_byte + size_t{1}) * 8;
}

// Steps over extension headers to the first other header. What a later fragment carries is never looked at.
static e_fp_decode v6_extensions_skip(const t_ip &ip, size_t *p_offset, uint8_t *p_next,
                                      t_fp_packet *p_packet)
{
    while (is_extension(*p_next) && !p_packet->is_later_fragment) {
        e_fp_decode result = reach(ip, *p_offset + 8);
        if (result != FP_DECODE_OK)
            return result;
        size_t size = extension_size(*p_next, byte_at(ip.bytes, *p_offset + 1));
        result = reach(ip, *p_offset + size);
        if (result != FP_DECODE_OK)
            return result;
        if (*p_next == NEXT_FRAGMENT) {
            uint16_t fragment = half_at(ip.bytes, *p_offset + 2);
            p_packet->is_fragment = (fragment & 0xfff9) != 0;
            p_packet->is_later_fragment = (fragment & 0xfff8) != 0;
        }
        *p_next = byte_at(ip.bytes, *p_offset);
        *p_offset += size;
    }
    return FP_DECODE_OK;
}

static e_fp_decode v6_decode(std::span<const std::byte> bytes, t_fp_packet *p_packet)
{
    if (bytes.size() < v6_header_size)
        return FP_DECODE_TRUNCATED;
    if (byte_at(bytes, 0) >> 4 != 6)
        return FP_DECODE_MALFORMED;
    t_ip ip = {bytes, v6_header_size + half_at(bytes, 4)};
    uint8_t next = byte_at(bytes, 6);
    size_t offset = v6_header_size;
    e_fp_decode result = v6_extensions_skip(ip, &offset, &next, p_packet);
    if (result != FP_DECODE_OK)
        return result;
    p_packet->version = 6;
    p_packet->header.values[tarn_ip_traffic_class] = half_at(bytes, 0) >> 4 & 0xff;
    p_packet->header.values[tarn_ip_next_header] = next;
    memcpy(p_packet->addresses6.src.data(), &bytes[8], sizeof(t_fp_address6));
    memcpy(p_packet->addresses6.dst.data(), &bytes[24], sizeof(t_fp_address6));
    return transport_decode(ip, offset, next, p_packet);
}

// Steps over the tags and gives the type behind them.
static e_fp_decode tags_skip(std::span<const std::byte> frame, size_t *p_offset, uint16_t *p_type,
                             t_fp_packet *p_packet)
{
    while (true) {
        if (frame.size() < *p_offset + sizeof(*p_type))
            return FP_DECODE_TRUNCATED;
        *p_type = half_at(frame, *p_offset);
        *p_offset += sizeof(*p_type);
        if (*p_type != ETHERTYPE_TAG && *p_type != ETHERTYPE_SERVICE_TAG)
            return FP_DECODE_OK;
        if (p_packet->num_vlans == std::size(p_packet->vlan_ids))
            return FP_DECODE_NOT_IP;
        if (frame.size() < *p_offset + tag_size)
            return FP_DECODE_TRUNCATED;
        p_packet->vlan_ids[p_packet->num_vlans++] = half_at(frame, *p_offset) & 0xfff;
        *p_offset += tag_size - sizeof(*p_type);
    }
}

e_fp_decode fp_packet_decode(std::span<const std::byte> frame, t_fp_packet *p_packet)
{
    t_fp_packet packet = {};
    packet.header = fp_header_blank();
    size_t offset = ethertype_offset;
    uint16_t type = 0;
    e_fp_decode result = tags_skip(frame, &offset, &type, &packet);
    if (result != FP_DECODE_OK)
        return result;
    if (type != ETHERTYPE_V4 && type != ETHERTYPE_V6)
        return FP_DECODE_NOT_IP;
    packet.ip_offset = static_cast<uint32_t>(offset);
    std::span<const std::byte> bytes = frame.subspan(offset);
    result = type == ETHERTYPE_V4 ? v4_decode(bytes, &packet) : v6_decode(bytes, &packet);
    if (result == FP_DECODE_OK)
        *p_packet = packet;
    return result;
}
