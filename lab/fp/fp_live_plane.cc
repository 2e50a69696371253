#include "lab/fp/fp_live_plane.h"

#include "lab/fp/fp_packet.h"
#include "lab/fp/fp_service_private.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>

// A frame that came in, and the packet in it.
struct t_arrival {
    size_t port;
    std::span<uint8_t> frame;  // without padding behind the packet
    std::span<uint8_t> packet;
    t_fp_packet decoded;
};

static t_fp_live_port *port_of(t_fp_live_plane *p_plane, size_t port)
{
    return &p_plane->ports[port];
}

static void drop(t_fp_live_plane *p_plane, size_t port, e_fp_live_drop reason)
{
    port_of(p_plane, port)->counts.drops[reason]++;
}

// ---- Out ----

static void frame_send(t_fp_live_plane *p_plane, size_t port, std::span<const uint8_t> frame)
{
    t_fp_live_counts *p_counts = &port_of(p_plane, port)->counts;
    p_counts->tx_frames++;
    p_counts->tx_bytes += frame.size();
    p_plane->send(port, frame);
}

// Asks for a neighbour, if the port has an address to ask with.
static void neighbour_ask(t_fp_live_plane *p_plane, const t_fp_neighbour_key &key)
{
    const auto &[port, address] = key;
    const t_fp_live_address *p_own =
        fp_live_port_address(p_plane->config.ports[port], fp_live_is_v4(address));
    if (p_own != nullptr)
        frame_send(p_plane, port, fp_wire_request(port_of(p_plane, port)->mac, *p_own, address));
}

// Sends the frame to the neighbour, now or when it is known.
static void neighbour_send(t_fp_live_plane *p_plane, const t_fp_neighbour_key &key, std::span<uint8_t> frame)
{
    bool is_new = false;
    const t_fp_mac *p_mac = fp_neighbour_use(&p_plane->neighbours, key, p_plane->now_ms, &is_new);
    if (p_mac != nullptr) {
        fp_wire_macs_set(frame, *p_mac, port_of(p_plane, key.first)->mac);
        frame_send(p_plane, key.first, frame);
        return;
    }
    if (is_new)
        neighbour_ask(p_plane, key);
    if (!fp_neighbour_keep(&p_plane->neighbours, key, {frame.begin(), frame.end()}))
        drop(p_plane, key.first, FP_LIVE_DROP_WAITING);
}

static t_fp_neighbour_key neighbour_of(const t_fp_live_route &route, const t_fp_live_address &destination)
{
    return {route.port, route.via.value_or(destination)};
}

// Sends an error about the packet back to where it came from.
static void error_send(t_fp_live_plane *p_plane, const t_arrival &arrival, e_fp_wire_error error,
                       uint32_t mtu = 0)
{
    const t_fp_live_address *p_own =
        fp_live_port_address(p_plane->config.ports[arrival.port], arrival.decoded.version == 4);
    if (p_own == nullptr || p_plane->errors_left == 0)
        return;
    t_fp_wire_bytes frame = fp_wire_error(arrival.packet, error, *p_own, mtu);
    if (frame.empty())
        return;
    p_plane->errors_left--;
    p_plane->local++;
    fp_wire_macs_set(frame, fp_wire_source(arrival.frame), port_of(p_plane, arrival.port)->mac);
    frame_send(p_plane, arrival.port, frame);
}

// ---- Mirrors ----

static void mirror_capture(t_fp_live_plane *p_plane, const t_arrival &arrival, uint32_t copies)
{
    t_fp_mirror *p_file = p_plane->p_service->mirror.get();
    if (p_file == nullptr || copies == 0 || !p_plane->mirror_error.empty())
        return;
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    t_fp_frame frame = {};
    frame.time_ns = static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
    frame.wire_length = static_cast<uint32_t>(arrival.frame.size());
    frame.bytes = std::as_bytes(arrival.frame);
    fp_mirror_write(p_file, frame, copies, &p_plane->mirror_error);
}

// The address of a mirror's tunnel, which stands in network order; unspecified if there is none.
static t_fp_live_address mirror_address(const t_fp_ipaddr &address)
{
    std::span<const uint8_t, 16> bytes(address.addr);
    if (address.addr_type == FP_AF_INET)
        return fp_live_address_v4(bytes.first<4>());
    return address.addr_type == FP_AF_INET6 ? fp_live_address_v6(bytes) : t_fp_live_address{};
}

static void mirror_to_tunnel(t_fp_live_plane *p_plane, const t_arrival &arrival,
                             const t_tarn_mirror_info &mirror)
{
    t_fp_live_address remote = mirror_address(mirror.tunnel.dst_ip);
    t_fp_live_address source = mirror_address(mirror.tunnel.src_ip);
    const t_fp_live_route *p_route = fp_live_route_find(p_plane->config, remote);
    if (p_route == nullptr || fp_live_is_v4(source) != fp_live_is_v4(remote)) {
        drop(p_plane, arrival.port, FP_LIVE_DROP_MIRROR);
        return;
    }
    t_fp_wire_bytes copy = fp_wire_mirror(arrival.packet, source, remote);
    if (copy.size() - FP_WIRE_ETHERNET_SIZE > port_of(p_plane, p_route->port)->mtu) {
        drop(p_plane, p_route->port, FP_LIVE_DROP_MIRROR);
        return;
    }
    p_plane->mirrored++;
    neighbour_send(p_plane, neighbour_of(*p_route, remote), copy);
}

static void mirrors_serve(t_fp_live_plane *p_plane, const t_arrival &arrival, const t_fp_treatment &treatment)
{
    if (treatment.mirrors.empty())
        return;
    mirror_capture(p_plane, arrival, fp_treatment_copies(treatment));
    for (const t_tarn_mirror_info &mirror : treatment.mirrors) {
        if (mirror.mirror_type != TARN_MIRROR_INTF)
            mirror_to_tunnel(p_plane, arrival, mirror);
    }
}

// ---- For others ----

static t_fp_fate packet_classify(t_fp_live_plane *p_plane, t_arrival *p_arrival,
                                 const t_fp_live_route *p_route)
{
    t_fp_service *p_service = p_plane->p_service;
    const t_fp_live_port_config &in = p_plane->config.ports[p_arrival->port];
    t_fp_packet &packet = p_arrival->decoded;
    t_fp_place place = {.vpn = in.vpn,
                        .interface = in.interface,
                        .direction = FP_INTERFACE_DIRECTION_IN,
                        .side = in.side,
                        .family = packet.version == 4 ? FP_FAMILY_IPV4 : FP_FAMILY_IPV6,
                        .addresses6 = packet.addresses6};
    if (p_route != nullptr) {
        place.out_vpn = p_plane->config.ports[p_route->port].vpn;
        place.out_interface = p_plane->config.ports[p_route->port].interface;
    }
    fp_applications_apply(p_service->applications, &packet.header);
    t_fp_use use = {.filter_id = 0,
                    .p_header = &packet.header,
                    .bytes = packet.length,
                    .now = fp_clock_now(&p_service->clock)};
    return fp_forward_run(p_service, place, use, [](const t_fp_seen &) {});
}

// A next hop that a policy set, in the packet's family.
static std::optional<t_fp_live_address> next_hop_of(const t_fp_treatment &treatment, uint8_t version)
{
    const t_fp_ipaddr &hop = treatment.next_hop;
    if (fp_treatment_path(treatment) != FP_PATH_NEXT_HOP)
        return std::nullopt;
    if (version == 6 && FP_IPADDR_IS_V6(&hop))
        return fp_live_address_v6(std::span<const uint8_t, 16>(hop.addr));
    if (version != 4 || !FP_IPADDR_IS_V4(&hop))
        return std::nullopt;
    uint32_t word = __builtin_bswap32(fp_ipaddr_v4(&hop));
    uint8_t bytes[4];
    memcpy(bytes, &word, sizeof(bytes));
    return fp_live_address_v4(bytes);
}

static void packet_rewrite(const t_arrival &arrival, const t_fp_treatment &treatment)
{
    bool is_v4 = arrival.decoded.version == 4;
    fp_wire_hops_lower(arrival.packet);
    if (is_v4 && fp_treatment_has(treatment, TARN_FILTER_ACTION_DSCP))
        fp_wire_dscp_set(arrival.packet, treatment.dscp);
    if (!is_v4 && fp_treatment_has(treatment, TARN_FILTER_ACTION_TRAFFIC_CLASS))
        fp_wire_traffic_class_set(arrival.packet, treatment.traffic_class);
}

// Why the filters' treatment ends the packet's way; FP_LIVE_DROPS: it doesn't.
static e_fp_live_drop treatment_drop(const t_fp_fate &fate)
{
    if (fate.rejected)
        return FP_LIVE_DROP_REJECTED;
    if (fate.policer_drop)
        return FP_LIVE_DROP_POLICED;
    return fp_treatment_path(fate.treatment) == FP_PATH_UNRESOLVED ? FP_LIVE_DROP_UNRESOLVED : FP_LIVE_DROPS;
}

// Sends a packet that may pass on its way.
static void packet_send(t_fp_live_plane *p_plane, const t_arrival &arrival, const t_fp_treatment &treatment,
                        const t_fp_live_route *p_route, const t_fp_live_address &destination)
{
    if (p_route == nullptr) {
        drop(p_plane, arrival.port, FP_LIVE_DROP_NO_ROUTE);
        error_send(p_plane, arrival, FP_WIRE_NO_ROUTE);
        return;
    }
    uint32_t mtu = port_of(p_plane, p_route->port)->mtu;
    if (arrival.packet.size() > mtu) {
        drop(p_plane, arrival.port, FP_LIVE_DROP_TOO_BIG);
        error_send(p_plane, arrival, FP_WIRE_TOO_BIG, mtu);
        return;
    }
    packet_rewrite(arrival, treatment);
    p_plane->forwarded++;
    neighbour_send(p_plane, neighbour_of(*p_route, destination), arrival.frame);
}

static void packet_forward(t_fp_live_plane *p_plane, t_arrival *p_arrival)
{
    if (fp_wire_hops(p_arrival->packet) <= 1) {
        drop(p_plane, p_arrival->port, FP_LIVE_DROP_HOPS);
        error_send(p_plane, *p_arrival, FP_WIRE_HOPS_EXCEEDED);
        return;
    }
    t_fp_live_address destination = fp_wire_ip_destination(p_arrival->packet);
    const t_fp_live_route *p_route = fp_live_route_find(p_plane->config, destination);
    t_fp_fate fate = packet_classify(p_plane, p_arrival, p_route);
    mirrors_serve(p_plane, *p_arrival, fate.treatment);
    e_fp_live_drop reason = treatment_drop(fate);
    if (reason != FP_LIVE_DROPS) {
        drop(p_plane, p_arrival->port, reason);
        return;
    }
    std::optional<t_fp_live_address> hop = next_hop_of(fate.treatment, p_arrival->decoded.version);
    if (hop) {
        destination = *hop;
        p_route = fp_live_route_find(p_plane->config, destination);
    }
    packet_send(p_plane, *p_arrival, fate.treatment, p_route, destination);
}

// ---- For us ----

static bool is_own(const t_fp_live_port_config &port, const t_fp_live_address &address)
{
    return std::any_of(port.prefixes.begin(), port.prefixes.end(),
                       [&address](const t_fp_live_prefix &prefix) { return prefix.address == address; });
}

static bool is_own_anywhere(const t_fp_live_plane &plane, const t_fp_live_address &address)
{
    return std::any_of(plane.config.ports.begin(), plane.config.ports.end(),
                       [&address](const t_fp_live_port_config &port) { return is_own(port, address); });
}

static void waiting_send(t_fp_live_plane *p_plane, size_t port, const t_fp_mac &mac,
                         std::vector<t_fp_wire_bytes> frames)
{
    for (t_fp_wire_bytes &frame : frames) {
        fp_wire_macs_set(frame, mac, port_of(p_plane, port)->mac);
        frame_send(p_plane, port, frame);
    }
}

// Notes who spoke, and answers if it was a question for us.
static void neighbour_told(t_fp_live_plane *p_plane, size_t port, const t_fp_wire_neighbour &told,
                           const t_fp_mac &source)
{
    const t_fp_live_port_config &config = p_plane->config.ports[port];
    bool is_asked = told.is_request && is_own(config, told.target);
    const t_fp_live_address &speaker = told.is_request ? told.sender : told.target;
    const t_fp_live_route *p_route = fp_live_route_find(p_plane->config, speaker);
    bool is_neighbour = p_route != nullptr && p_route->port == port && !is_own_anywhere(*p_plane, speaker);
    if (told.mac && is_neighbour)
        waiting_send(
            p_plane, port, *told.mac,
            fp_neighbour_hear(&p_plane->neighbours, {port, speaker}, *told.mac, p_plane->now_ms, is_asked));
    if (!is_asked)
        return;
    p_plane->local++;
    frame_send(p_plane, port, fp_wire_answer(port_of(p_plane, port)->mac, told, source));
}

static bool discovery_serve(t_fp_live_plane *p_plane, const t_arrival &arrival)
{
    std::optional<t_fp_wire_neighbour> told;
    if (arrival.decoded.version == 6)
        told = fp_wire_discovery_read(arrival.packet);
    if (told)
        neighbour_told(p_plane, arrival.port, *told, fp_wire_source(arrival.frame));
    return told.has_value();
}

static void packet_take(t_fp_live_plane *p_plane, const t_arrival &arrival)
{
    if (discovery_serve(p_plane, arrival))
        return;
    if (!fp_wire_echo_answer(arrival.packet)) {
        drop(p_plane, arrival.port, FP_LIVE_DROP_LOCAL);
        return;
    }
    p_plane->local++;
    fp_wire_macs_set(arrival.frame, fp_wire_source(arrival.frame), port_of(p_plane, arrival.port)->mac);
    frame_send(p_plane, arrival.port, arrival.frame);
}

// ---- In ----

static void packet_in(t_fp_live_plane *p_plane, t_arrival *p_arrival, bool is_group)
{
    t_fp_live_address destination = fp_wire_ip_destination(p_arrival->packet);
    if (is_group) {
        if (!discovery_serve(p_plane, *p_arrival))
            drop(p_plane, p_arrival->port, FP_LIVE_DROP_GROUP);
    } else if (is_own_anywhere(*p_plane, destination)) {
        packet_take(p_plane, *p_arrival);
    } else if (fp_live_address_bytes(destination)[0] >= (fp_live_is_v4(destination) ? 224 : 0xfe)) {
        drop(p_plane, p_arrival->port, FP_LIVE_DROP_GROUP);  // groups, and addresses of the link
    } else {
        packet_forward(p_plane, p_arrival);
    }
}

// Finds the packet in the frame. FP_LIVE_DROPS: there is one.
static e_fp_live_drop arrival_decode(t_arrival *p_arrival)
{
    e_fp_decode decode = fp_packet_decode(std::as_bytes(p_arrival->frame), &p_arrival->decoded);
    const t_fp_packet &decoded = p_arrival->decoded;
    if (decode == FP_DECODE_NOT_IP || (decode == FP_DECODE_OK && decoded.num_vlans != 0))
        return FP_LIVE_DROP_NOT_IP;
    size_t end = size_t{decoded.ip_offset} + decoded.length;
    if (decode != FP_DECODE_OK || end > p_arrival->frame.size())
        return FP_LIVE_DROP_MALFORMED;
    p_arrival->frame = p_arrival->frame.first(end);
    p_arrival->packet = p_arrival->frame.subspan(decoded.ip_offset);
    return fp_wire_header_is_sound(p_arrival->packet) ? FP_LIVE_DROPS : FP_LIVE_DROP_MALFORMED;
}

static void arp_in(t_fp_live_plane *p_plane, size_t port, std::span<const uint8_t> frame)
{
    std::optional<t_fp_wire_neighbour> told = fp_wire_arp_read(frame);
    if (told)
        neighbour_told(p_plane, port, *told, fp_wire_source(frame));
    else
        drop(p_plane, port, FP_LIVE_DROP_MALFORMED);
}

void fp_live_frame(t_fp_live_plane *p_plane, size_t port, std::span<uint8_t> frame, uint64_t now_ms)
{
    p_plane->now_ms = now_ms;
    t_fp_live_port *p_port = port_of(p_plane, port);
    p_port->counts.rx_frames++;
    p_port->counts.rx_bytes += frame.size();
    if (frame.size() < FP_WIRE_ETHERNET_SIZE) {
        drop(p_plane, port, FP_LIVE_DROP_MALFORMED);
        return;
    }
    t_fp_mac destination = fp_wire_destination(frame);
    bool is_group = (destination[0] & 1) != 0;
    if (!is_group && destination != p_port->mac) {
        drop(p_plane, port, FP_LIVE_DROP_NOT_FOR_US);
        return;
    }
    if (fp_wire_type(frame) == FP_WIRE_ARP) {
        arp_in(p_plane, port, frame);
        return;
    }
    t_arrival arrival = {port, frame, {}, {}};
    e_fp_live_drop reason = arrival_decode(&arrival);
    if (reason == FP_LIVE_DROPS)
        packet_in(p_plane, &arrival, is_group);
    else
        drop(p_plane, port, reason);
}

void fp_live_turn(t_fp_live_plane *p_plane, uint64_t now_ms)
{
    p_plane->now_ms = now_ms;
    p_plane->errors_left = FP_LIVE_ERRORS;
    t_fp_neighbour_turn turn = fp_neighbours_turn(&p_plane->neighbours, now_ms);
    for (const t_fp_neighbour_key &key : turn.to_ask)
        neighbour_ask(p_plane, key);
    for (const auto &[port, frame] : turn.given_up)
        drop(p_plane, port, FP_LIVE_DROP_WAITING);
}

// ---- Telling ----

const char *fp_live_drop_name(e_fp_live_drop drop)
{
    static constexpr const char *names[] = {
        "not-for-us", "group",      "not-ip",   "malformed", "local",   "hops",   "rejected",
        "policed",    "unresolved", "no-route", "too-big",   "waiting", "mirror",
    };
    static_assert(std::size(names) == FP_LIVE_DROPS);
    return names[drop];
}

static std::string mac_text(const t_fp_mac &mac)
{
    char text[18];
    snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
             mac[5]);
    return text;
}

// The rows of all ports together, so that each kind is one table as text.
static fp_json drops_json(const t_fp_live_plane &plane)
{
    fp_json json = fp_json::array();
    for (size_t port = 0; port < plane.ports.size(); port++) {
        for (size_t i = 0; i < FP_LIVE_DROPS; i++) {
            uint64_t packets = plane.ports[port].counts.drops[i];
            if (packets != 0)
                json.push_back({{"interface", plane.config.ports[port].interface},
                                {"reason", fp_live_drop_name(static_cast<e_fp_live_drop>(i))},
                                {"packets", packets}});
        }
    }
    return json;
}

static fp_json neighbours_json(const t_fp_live_plane &plane)
{
    fp_json json = fp_json::array();
    for (const auto &[key, neighbour] : plane.neighbours.rows)
        json.push_back({{"interface", plane.config.ports[key.first].interface},
                        {"address", fp_live_address_text(key.second)},
                        {"mac", neighbour.mac ? mac_text(*neighbour.mac) : "unknown"},
                        {"waiting", neighbour.waiting.size()}});
    return json;
}

static fp_json port_json(const t_fp_live_plane &plane, size_t index)
{
    const t_fp_live_port_config &config = plane.config.ports[index];
    const t_fp_live_port &port = plane.ports[index];
    std::string addresses;
    for (const t_fp_live_prefix &prefix : config.prefixes)
        addresses += (addresses.empty() ? "" : ",") + fp_live_prefix_text(prefix);
    return {{"interface", config.interface},       {"vpn", config.vpn},
            {"from", fp_side_name(config.side)},   {"address", addresses},
            {"mac", mac_text(port.mac)},           {"mtu", port.mtu},
            {"rx-packets", port.counts.rx_frames}, {"rx-bytes", port.counts.rx_bytes},
            {"tx-packets", port.counts.tx_frames}, {"tx-bytes", port.counts.tx_bytes}};
}

fp_json fp_live_json(const t_fp_live_plane &plane)
{
    fp_json json = {{"forwarded", plane.forwarded}, {"mirrored", plane.mirrored}, {"local", plane.local}};
    if (!plane.mirror_error.empty())
        json["mirror-error"] = plane.mirror_error;
    json["ports"] = fp_json::array();
    for (size_t i = 0; i < plane.ports.size(); i++)
        json["ports"].push_back(port_json(plane, i));
    json["drops"] = drops_json(plane);
    json["neighbours"] = neighbours_json(plane);
    return json;
}
