// Decodes arbitrary bytes as a frame. What decodes keeps its fields in their ranges, and bytes behind the
// frame, as a link pads it, change nothing.
#include "lab/fp/fp_packet.h"

#include <cstdlib>
#include <cstring>
#include <vector>

static void require(bool holds)
{
    if (!holds)
        abort();
}

static void check_ranges(const t_fp_packet &packet, size_t size)
{
    const uint32_t *values = packet.header.values;
    require(packet.version == 4 || packet.version == 6);
    require(packet.ip_offset + (packet.version == 4 ? 20u : 40u) <= size);
    require(packet.length >= (packet.version == 4 ? 20u : 40u) && values[tarn_ip_pkt_len] == packet.length);
    require(values[tarn_ip_protocol] <= 255 && values[tarn_ip_dscp] <= 63 && values[tarn_ip_match_any] == 1);
    require(values[tarn_ip_src_port] <= 65535 && values[tarn_ip_dst_port] <= 65535);
    require(packet.version == 4 || (values[tarn_ip_src_addr] | values[tarn_ip_dst_addr]) == 0);
    require(!packet.is_later_fragment || (values[tarn_ip_src_port] | values[tarn_ip_tcp]) == 0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    std::vector<std::byte> frame(size);
    if (size != 0)
        memcpy(frame.data(), p_data, size);
    t_fp_packet packet = {};
    if (fp_packet_decode(frame, &packet) != FP_DECODE_OK)
        return 0;
    check_ranges(packet, size);
    frame.resize(size + 40, std::byte{0x5a});
    t_fp_packet padded = {};
    require(fp_packet_decode(frame, &padded) == FP_DECODE_OK);
    require(memcmp(&padded.header, &packet.header, sizeof(packet.header)) == 0);
    return 0;
}
