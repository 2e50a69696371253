// Arbitrary frames into live mode's plane, at one port, some after others: two bytes of length, then a frame.
// What is sent has an Ethernet header, and a packet in it with a sound header and hops left.
#include "lab/fp/fp_live_plane.h"
#include "lab/fp/fp_packet.h"

#include <cstdlib>
#include <cstring>

static void require(bool holds)
{
    if (!holds)
        abort();
}

static uint64_t still_clock()
{
    return 1;
}

static void sent_check(std::span<const uint8_t> frame)
{
    require(frame.size() >= FP_WIRE_ETHERNET_SIZE);
    t_fp_packet packet = {};
    if (fp_packet_decode(std::as_bytes(frame), &packet) != FP_DECODE_OK)
        return;
    std::span<const uint8_t> ip = frame.subspan(packet.ip_offset);
    require(fp_wire_header_is_sound(ip) && fp_wire_hops(ip) > 0);
}

static t_fp_live_config config_make()
{
    t_fp_live_config config;
    std::string error;
    require(fp_live_config_parse(R"({"ports": [
        {"interface": "a", "address": ["192.168.1.1/24", "fd00:1::1/64"]},
        {"interface": "b", "address": ["10.1.0.1/24", "fd00:2::1/64"]}],
        "routes": [{"prefix": "0.0.0.0/0", "via": "192.168.1.2"}, {"prefix": "::/0", "port": "b"}]})",
                                 &config, &error));
    return config;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    static const t_fp_live_config config = config_make();
    t_fp_service service = {
        .engine = fp_engine_new({}), .clock = fp_clock_make(still_clock, 1000), .frames = {}};
    t_fp_live_plane plane = {};
    plane.p_service = &service;
    plane.config = config;
    plane.ports = {{{2, 0, 0, 0, 0, 1}, 1500, {}}, {{2, 0, 0, 0, 0, 2}, 600, {}}};
    plane.send = [](size_t, std::span<const uint8_t> frame) { sent_check(frame); };
    std::span<const uint8_t> rest(p_data, size);
    for (uint64_t now_ms = 0; rest.size() > 2; now_ms += 500) {
        size_t length = std::min<size_t>(rest[0] << 8 | rest[1], rest.size() - 2);
        std::vector<uint8_t> frame(rest.begin() + 2, rest.begin() + 2 + static_cast<ptrdiff_t>(length));
        fp_live_frame(&plane, now_ms / 500 % 2, frame, now_ms);
        fp_live_turn(&plane, now_ms);
        rest = rest.subspan(2 + length);
    }
    return 0;
}
