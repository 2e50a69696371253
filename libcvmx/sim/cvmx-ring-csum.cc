// Transport checksums that the sender's kernel left to its device.

#include "libcvmx/sim/cvmx-ring.h"

#include <arpa/inet.h>
#include <cstring>
#include <linux/if_ether.h>
#include <netinet/in.h>
#include <span>

using t_bytes = std::span<uint8_t>;

static uint16_t read_u16(t_bytes bytes, size_t offset)
{
    return static_cast<uint16_t>(bytes[offset] << 8 | bytes[offset + 1]);
}

// What the tags carry: skips up to two. Empty if the frame ends before; p_type gets the payload's type.
static t_bytes skip_ethernet(t_bytes frame, uint16_t *p_type)
{
    size_t offset = ETH_HLEN;
    if (frame.size() < offset)
        return {};
    *p_type = read_u16(frame, offset - 2);
    for (int tags = 0; tags < 2 && (*p_type == ETH_P_8021Q || *p_type == ETH_P_8021AD); tags++) {
        offset += CVMX_RING_VLAN_SIZE;
        if (frame.size() < offset)
            return {};
        *p_type = read_u16(frame, offset - 2);
    }
    return frame.subspan(offset);
}

// The transport header and its payload, without the frame's padding; p_protocol gets the protocol.
static t_bytes transport_of_ipv4(t_bytes packet, uint8_t *p_protocol)
{
    if (packet.size() < 20)
        return {};
    size_t header_size = 4 * (packet[0] & 15u);
    size_t total_size = read_u16(packet, 2);
    bool is_fragment = (read_u16(packet, 6) & 0x3fff) != 0;
    if (packet[0] >> 4 != 4 || header_size < 20 || total_size < header_size || packet.size() < total_size ||
        is_fragment)
        return {};
    *p_protocol = packet[9];
    return packet.subspan(header_size, total_size - header_size);
}

// The kernel leaves no checksum unfinished behind extension headers that this would have to walk.
static t_bytes transport_of_ipv6(t_bytes packet, uint8_t *p_protocol)
{
    constexpr size_t header_size = 40;
    if (packet.size() < header_size || packet[0] >> 4 != 6)
        return {};
    size_t payload_size = read_u16(packet, 4);
    if (packet.size() - header_size < payload_size)
        return {};
    *p_protocol = packet[6];
    return packet.subspan(header_size, payload_size);
}

// Sum of big-endian words, an odd last byte filled up with 0, folded to 16 bits.
static uint16_t sum_of(t_bytes bytes)
{
    uint64_t sum = 0;
    size_t offset = 0;
    for (; offset + 1 < bytes.size(); offset += 2)
        sum += read_u16(bytes, offset);
    if (offset < bytes.size())
        sum += static_cast<uint64_t>(bytes[offset]) << 8;
    while (sum >> 16 != 0)
        sum = (sum & 0xffff) + (sum >> 16);
    return static_cast<uint16_t>(sum);
}

// The field already holds the sum of the pseudo header, so that the sum over the segment includes it.
bool cvmx_ring_csum_finish(uint8_t *p_frame, uint32_t length)
{
    uint16_t type = 0;
    uint8_t protocol = 0;
    t_bytes packet = skip_ethernet({p_frame, length}, &type);
    t_bytes segment;
    if (type == ETH_P_IP)
        segment = transport_of_ipv4(packet, &protocol);
    else if (type == ETH_P_IPV6)
        segment = transport_of_ipv6(packet, &protocol);
    if (protocol != IPPROTO_TCP && protocol != IPPROTO_UDP)
        return false;
    size_t header_size = protocol == IPPROTO_TCP ? 20 : 8;
    size_t field = protocol == IPPROTO_TCP ? 16 : 6;
    if (segment.size() < header_size)
        return false;
    uint16_t checksum = static_cast<uint16_t>(~sum_of(segment));
    if (checksum == 0 && protocol == IPPROTO_UDP)
        checksum = 0xffff;  // 0 would say that there is none
    uint16_t value = htons(checksum);
    memcpy(segment.data() + field, &value, sizeof(value));
    return true;
}
