#include "lab/fp/fp_live_wire.h"

#include <algorithm>
#include <cstring>

static constexpr size_t v4_size = 20;  // without options
static constexpr size_t v6_size = 40;
static constexpr size_t icmp_size = 8;
static constexpr size_t arp_size = 28;
static constexpr size_t discovery_size = 24;  // ICMPv6 header and target
static constexpr size_t discovery_option_size = 8;
static constexpr uint8_t own_hops = 64;
static constexpr uint8_t link_hops = 255;  // only who is on the link can send it

enum e_protocol : uint8_t {
    PROTOCOL_ICMP = 1,
    PROTOCOL_GRE = 47,
    PROTOCOL_ICMP6 = 58,
};

enum e_icmp6_type : uint8_t {
    ICMP6_ECHO_REQUEST = 128,
    ICMP6_ECHO_ANSWER = 129,
    ICMP6_SOLICITATION = 135,
    ICMP6_ADVERTISEMENT = 136,
};

enum e_icmp_type : uint8_t {
    ICMP_ECHO_ANSWER = 0,
    ICMP_ECHO_REQUEST = 8,
};

// ---- Numbers and checksums ----

static uint16_t half_at(std::span<const uint8_t> bytes, size_t offset)
{
    return static_cast<uint16_t>(bytes[offset] << 8 | bytes[offset + 1]);
}

static void half_put(std::span<uint8_t> bytes, size_t offset, uint16_t value)
{
    bytes[offset] = static_cast<uint8_t>(value >> 8);
    bytes[offset + 1] = static_cast<uint8_t>(value);
}

static void bytes_put(std::span<uint8_t> bytes, size_t offset, std::span<const uint8_t> value)
{
    std::copy(value.begin(), value.end(), bytes.begin() + static_cast<ptrdiff_t>(offset));
}

static uint32_t sum_of(std::span<const uint8_t> bytes, uint32_t sum)
{
    for (size_t i = 0; i + 1 < bytes.size(); i += 2)
        sum += half_at(bytes, i);
    return bytes.size() % 2 != 0 ? sum + (uint32_t{bytes.back()} << 8) : sum;
}

static uint16_t sum_fold(uint32_t sum)
{
    while (sum > 0xffff)
        sum = (sum & 0xffff) + (sum >> 16);
    return static_cast<uint16_t>(sum);
}

// Over what stands behind a header of IPv6 without extensions, with its pseudo header. 0: the checksum in it
// is right.
static uint16_t checksum6(std::span<const uint8_t> packet)
{
    std::span<const uint8_t> payload = packet.subspan(v6_size);
    uint32_t sum = sum_of(packet.subspan(8, 32), packet[6] + static_cast<uint32_t>(payload.size()));
    return static_cast<uint16_t>(~sum_fold(sum_of(payload, sum)));
}

static uint16_t checksum4(std::span<const uint8_t> bytes)
{
    return static_cast<uint16_t>(~sum_fold(sum_of(bytes, 0)));
}

static bool is_v4(std::span<const uint8_t> packet)
{
    return packet[0] >> 4 == 4;
}

static size_t v4_header_size(std::span<const uint8_t> packet)
{
    return (packet[0] & 15) * size_t{4};
}

// ---- Ethernet ----

uint16_t fp_wire_type(std::span<const uint8_t> frame)
{
    return half_at(frame, 12);
}

static t_fp_mac mac_at(std::span<const uint8_t> bytes, size_t offset)
{
    t_fp_mac mac;
    memcpy(mac.data(), &bytes[offset], mac.size());
    return mac;
}

t_fp_mac fp_wire_destination(std::span<const uint8_t> frame)
{
    return mac_at(frame, 0);
}

t_fp_mac fp_wire_source(std::span<const uint8_t> frame)
{
    return mac_at(frame, 6);
}

void fp_wire_macs_set(std::span<uint8_t> frame, const t_fp_mac &destination, const t_fp_mac &source)
{
    bytes_put(frame, 0, destination);
    bytes_put(frame, 6, source);
}

static t_fp_wire_bytes frame_begin(uint16_t type, size_t size)
{
    t_fp_wire_bytes frame(FP_WIRE_ETHERNET_SIZE + size);
    half_put(frame, 12, type);
    return frame;
}

// ---- A packet on its way ----

static t_fp_live_address v4_at(std::span<const uint8_t> bytes, size_t offset)
{
    return fp_live_address_v4(bytes.subspan(offset).first<4>());
}

static t_fp_live_address v6_at(std::span<const uint8_t> bytes, size_t offset)
{
    return fp_live_address_v6(bytes.subspan(offset).first<16>());
}

t_fp_live_address fp_wire_ip_source(std::span<const uint8_t> packet)
{
    return is_v4(packet) ? v4_at(packet, 12) : v6_at(packet, 8);
}

t_fp_live_address fp_wire_ip_destination(std::span<const uint8_t> packet)
{
    return is_v4(packet) ? v4_at(packet, 16) : v6_at(packet, 24);
}

bool fp_wire_header_is_sound(std::span<const uint8_t> packet)
{
    if (is_v4(packet))
        return checksum4(packet.first(v4_header_size(packet))) == 0;
    return !fp_live_is_v4(fp_wire_ip_source(packet)) && !fp_live_is_v4(fp_wire_ip_destination(packet));
}

static size_t hops_offset(std::span<const uint8_t> packet)
{
    return is_v4(packet) ? 8 : 7;
}

uint8_t fp_wire_hops(std::span<const uint8_t> packet)
{
    return packet[hops_offset(packet)];
}

// Changes 16 bits of an IPv4 header and its checksum along, by the third equation of RFC 1624.
static void v4_half_change(std::span<uint8_t> packet, size_t offset, uint16_t value)
{
    uint32_t sum = static_cast<uint16_t>(~half_at(packet, 10));
    sum += static_cast<uint16_t>(~half_at(packet, offset));
    sum += value;
    half_put(packet, 10, static_cast<uint16_t>(~sum_fold(sum)));
    half_put(packet, offset, value);
}

void fp_wire_hops_lower(std::span<uint8_t> packet)
{
    if (is_v4(packet))
        v4_half_change(packet, 8, static_cast<uint16_t>(half_at(packet, 8) - 0x100));
    else
        packet[7]--;
}

void fp_wire_dscp_set(std::span<uint8_t> packet, uint8_t dscp)
{
    v4_half_change(packet, 0, static_cast<uint16_t>((half_at(packet, 0) & 0xff03) | (dscp & 63) << 2));
}

void fp_wire_traffic_class_set(std::span<uint8_t> packet, uint8_t traffic_class)
{
    half_put(packet, 0, static_cast<uint16_t>((half_at(packet, 0) & 0xf00f) | traffic_class << 4));
}

// ---- Headers of own packets ----

static void v4_header_put(std::span<uint8_t> packet, e_protocol protocol, const t_fp_live_address &source,
                          const t_fp_live_address &destination)
{
    packet[0] = 0x45;
    half_put(packet, 2, static_cast<uint16_t>(packet.size()));
    half_put(packet, 6, 0x4000);  // not to be fragmented
    packet[8] = own_hops;
    packet[9] = protocol;
    bytes_put(packet, 12, fp_live_address_bytes(source));
    bytes_put(packet, 16, fp_live_address_bytes(destination));
    half_put(packet, 10, checksum4(packet.first(v4_size)));
}

static void v6_header_put(std::span<uint8_t> packet, e_protocol protocol, const t_fp_live_address &source,
                          const t_fp_live_address &destination)
{
    packet[0] = 0x60;
    half_put(packet, 4, static_cast<uint16_t>(packet.size() - v6_size));
    packet[6] = protocol;
    packet[7] = own_hops;
    bytes_put(packet, 8, source);
    bytes_put(packet, 24, destination);
}

// A frame with an empty packet behind the header: `size` bytes of payload.
static t_fp_wire_bytes packet_begin(e_protocol protocol, const t_fp_live_address &source,
                                    const t_fp_live_address &destination, size_t size)
{
    bool is_four = fp_live_is_v4(destination);
    t_fp_wire_bytes frame =
        frame_begin(is_four ? FP_WIRE_IPV4 : FP_WIRE_IPV6, (is_four ? v4_size : v6_size) + size);
    std::span<uint8_t> packet = std::span(frame).subspan(FP_WIRE_ETHERNET_SIZE);
    (is_four ? v4_header_put : v6_header_put)(packet, protocol, source, destination);
    return frame;
}

// ---- Neighbours ----

static constexpr uint8_t arp_head[] = {0, 1, 8, 0, 6, 4, 0};  // Ethernet, IPv4; the operation's second byte

std::optional<t_fp_wire_neighbour> fp_wire_arp_read(std::span<const uint8_t> frame)
{
    if (frame.size() < FP_WIRE_ETHERNET_SIZE + arp_size)
        return std::nullopt;
    std::span<const uint8_t> arp = frame.subspan(FP_WIRE_ETHERNET_SIZE);
    if (memcmp(arp.data(), arp_head, sizeof(arp_head)) != 0 || (arp[7] != 1 && arp[7] != 2))
        return std::nullopt;
    bool is_request = arp[7] == 1;
    return t_fp_wire_neighbour{is_request, v4_at(arp, 14), v4_at(arp, is_request ? 24 : 14), mac_at(arp, 8)};
}

// The link address among a message's options. False: the options are broken.
static bool options_read(std::span<const uint8_t> options, uint8_t wanted, std::optional<t_fp_mac> *p_mac)
{
    while (!options.empty()) {
        size_t size = options.size() < 2 ? 0 : options[1] * discovery_option_size;
        if (size == 0 || size > options.size())
            return false;
        if (options[0] == wanted)
            *p_mac = mac_at(options, 2);
        options = options.subspan(size);
    }
    return true;
}

std::optional<t_fp_wire_neighbour> fp_wire_discovery_read(std::span<const uint8_t> packet)
{
    if (packet.size() < v6_size + discovery_size || packet[6] != PROTOCOL_ICMP6 || packet[7] != link_hops)
        return std::nullopt;
    std::span<const uint8_t> message = packet.subspan(v6_size);
    bool is_request = message[0] == ICMP6_SOLICITATION;
    if ((!is_request && message[0] != ICMP6_ADVERTISEMENT) || message[1] != 0 || checksum6(packet) != 0)
        return std::nullopt;
    t_fp_wire_neighbour told = {is_request, v6_at(packet, 8), v6_at(message, 8), std::nullopt};
    if (fp_live_is_v4(told.sender) || fp_live_is_v4(told.target) ||
        !options_read(message.subspan(discovery_size), is_request ? 1 : 2, &told.mac))
        return std::nullopt;
    return told;
}

static t_fp_wire_bytes arp_build(const t_fp_mac &mac, uint8_t operation, const t_fp_live_address &sender,
                                 const t_fp_mac &target_mac, const t_fp_live_address &target)
{
    t_fp_wire_bytes frame = frame_begin(FP_WIRE_ARP, arp_size);
    std::span<uint8_t> arp = std::span(frame).subspan(FP_WIRE_ETHERNET_SIZE);
    bytes_put(arp, 0, arp_head);
    arp[7] = operation;
    bytes_put(arp, 8, mac);
    bytes_put(arp, 14, fp_live_address_bytes(sender));
    bytes_put(arp, 18, target_mac);
    bytes_put(arp, 24, fp_live_address_bytes(target));
    return frame;
}

// A message of neighbour discovery about `target` with the sender's link address.
static t_fp_wire_bytes discovery_build(const t_fp_mac &mac, e_icmp6_type type,
                                       const t_fp_live_address &sender, const t_fp_live_address &destination,
                                       const t_fp_live_address &target)
{
    static constexpr uint8_t router_solicited_override = 0xe0;
    t_fp_wire_bytes frame =
        packet_begin(PROTOCOL_ICMP6, sender, destination, discovery_size + discovery_option_size);
    std::span<uint8_t> packet = std::span(frame).subspan(FP_WIRE_ETHERNET_SIZE);
    std::span<uint8_t> message = packet.subspan(v6_size);
    packet[7] = link_hops;
    message[0] = type;
    message[4] = type == ICMP6_ADVERTISEMENT ? router_solicited_override : 0;
    bytes_put(message, 8, target);
    message[discovery_size] = type == ICMP6_ADVERTISEMENT ? 2 : 1;
    message[discovery_size + 1] = 1;
    bytes_put(message, discovery_size + 2, mac);
    half_put(message, 2, checksum6(packet));
    return frame;
}

t_fp_wire_bytes fp_wire_request(const t_fp_mac &mac, const t_fp_live_address &sender,
                                const t_fp_live_address &target)
{
    if (fp_live_is_v4(target)) {
        t_fp_wire_bytes frame = arp_build(mac, 1, sender, {}, target);
        fp_wire_macs_set(frame, FP_WIRE_BROADCAST, mac);
        return frame;
    }
    t_fp_live_address group = {0xff, 2, 0, 0, 0,    0,          0,          0,
                               0,    0, 0, 1, 0xff, target[13], target[14], target[15]};
    t_fp_wire_bytes frame = discovery_build(mac, ICMP6_SOLICITATION, sender, group, target);
    fp_wire_macs_set(frame, {0x33, 0x33, 0xff, target[13], target[14], target[15]}, mac);
    return frame;
}

t_fp_wire_bytes fp_wire_answer(const t_fp_mac &mac, const t_fp_wire_neighbour &request,
                               const t_fp_mac &asker_mac)
{
    static constexpr t_fp_live_address all_nodes = {0xff, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    static constexpr uint8_t solicited = 0x40;
    t_fp_wire_bytes frame;
    if (fp_live_is_v4(request.target)) {
        frame = arp_build(mac, 2, request.target, asker_mac, request.sender);
    } else if (request.sender == t_fp_live_address{}) {
        // Nobody asks yet who could be answered: the address shall be known as taken.
        frame = discovery_build(mac, ICMP6_ADVERTISEMENT, request.target, all_nodes, request.target);
        std::span<uint8_t> packet = std::span(frame).subspan(FP_WIRE_ETHERNET_SIZE);
        packet[v6_size + 4] &= static_cast<uint8_t>(~solicited);
        half_put(packet, v6_size + 2, 0);
        half_put(packet, v6_size + 2, checksum6(packet));
    } else {
        frame = discovery_build(mac, ICMP6_ADVERTISEMENT, request.target, request.sender, request.target);
    }
    fp_wire_macs_set(frame, asker_mac, mac);
    return frame;
}

// ---- ICMP ----

static void swap_bytes(std::span<uint8_t> bytes, size_t a, size_t b, size_t size)
{
    std::swap_ranges(&bytes[a], &bytes[a] + size, &bytes[b]);
}

static bool is_fragment(std::span<const uint8_t> packet)
{
    return (half_at(packet, 6) & 0x3fff) != 0;
}

static bool echo_answer4(std::span<uint8_t> packet)
{
    size_t offset = v4_header_size(packet);
    if (packet[9] != PROTOCOL_ICMP || is_fragment(packet) || packet.size() < offset + icmp_size ||
        packet[offset] != ICMP_ECHO_REQUEST)
        return false;
    swap_bytes(packet, 12, 16, 4);
    v4_half_change(packet, 8, static_cast<uint16_t>(own_hops << 8 | PROTOCOL_ICMP));
    packet[offset] = ICMP_ECHO_ANSWER;
    half_put(packet, offset + 2, 0);
    half_put(packet, offset + 2, checksum4(packet.subspan(offset)));
    return true;
}

static bool echo_answer6(std::span<uint8_t> packet)
{
    if (packet[6] != PROTOCOL_ICMP6 || packet.size() < v6_size + icmp_size ||
        packet[v6_size] != ICMP6_ECHO_REQUEST)
        return false;
    swap_bytes(packet, 8, 24, 16);
    packet[7] = own_hops;
    packet[v6_size] = ICMP6_ECHO_ANSWER;
    half_put(packet, v6_size + 2, 0);
    half_put(packet, v6_size + 2, checksum6(packet));
    return true;
}

bool fp_wire_echo_answer(std::span<uint8_t> packet)
{
    return is_v4(packet) ? echo_answer4(packet) : echo_answer6(packet);
}

struct t_error_row {
    uint8_t type4, code4;
    uint8_t type6, code6;
};

// By e_fp_wire_error.
static constexpr t_error_row errors[] = {{3, 0, 1, 0}, {3, 1, 1, 3}, {3, 4, 2, 0}, {11, 0, 3, 0}};

static bool may_answer4(std::span<const uint8_t> packet)
{
    bool is_single_host = packet[12] != 0 && packet[12] != 127 && packet[12] < 224 && packet[16] < 224;
    if (!is_single_host || (half_at(packet, 6) & 0x1fff) != 0)
        return false;
    if (packet[9] != PROTOCOL_ICMP)
        return true;
    size_t offset = v4_header_size(packet);
    return packet.size() > offset &&
           (packet[offset] == ICMP_ECHO_REQUEST || packet[offset] == ICMP_ECHO_ANSWER);
}

static bool may_answer6(std::span<const uint8_t> packet)
{
    static constexpr uint8_t fragment_header = 44;
    bool is_single_host =
        packet[8] != 0xff && packet[24] != 0xff && fp_wire_ip_source(packet) != t_fp_live_address{};
    if (!is_single_host || packet[6] == fragment_header)
        return false;
    return packet[6] != PROTOCOL_ICMP6 || (packet.size() > v6_size && packet[v6_size] >= ICMP6_ECHO_REQUEST);
}

t_fp_wire_bytes fp_wire_error(std::span<const uint8_t> packet, e_fp_wire_error error,
                              const t_fp_live_address &source, uint32_t mtu)
{
    static constexpr size_t quoted4 = 548;   // bytes, so that the error has up to 576
    static constexpr size_t quoted6 = 1232;  // and 1280
    bool is_four = is_v4(packet);
    if (!(is_four ? may_answer4 : may_answer6)(packet))
        return {};
    size_t quoted = std::min(packet.size(), is_four ? quoted4 : quoted6);
    t_fp_wire_bytes frame = packet_begin(is_four ? PROTOCOL_ICMP : PROTOCOL_ICMP6, source,
                                         fp_wire_ip_source(packet), icmp_size + quoted);
    std::span<uint8_t> answer = std::span(frame).subspan(FP_WIRE_ETHERNET_SIZE);
    std::span<uint8_t> message = answer.subspan(is_four ? v4_size : v6_size);
    message[0] = is_four ? errors[error].type4 : errors[error].type6;
    message[1] = is_four ? errors[error].code4 : errors[error].code6;
    if (error == FP_WIRE_TOO_BIG)
        half_put(message, 6, static_cast<uint16_t>(mtu));
    bytes_put(message, icmp_size, packet.first(quoted));
    half_put(message, 2, is_four ? checksum4(message) : checksum6(answer));
    return frame;
}

// ---- Mirrors ----

t_fp_wire_bytes fp_wire_mirror(std::span<const uint8_t> packet, const t_fp_live_address &source,
                               const t_fp_live_address &destination)
{
    static constexpr size_t gre_size = 4;
    t_fp_wire_bytes frame = packet_begin(PROTOCOL_GRE, source, destination, gre_size + packet.size());
    size_t offset = frame.size() - packet.size();
    half_put(frame, offset - 2, is_v4(packet) ? FP_WIRE_IPV4 : FP_WIRE_IPV6);
    bytes_put(frame, offset, packet);
    return frame;
}
