// Reads arbitrary bytes as a capture file and decodes its frames. A file ends in its end or in one error that
// names it.
#include "lab/fp/fp_packet.h"
#include "lab/fp/fp_pcap.h"

#include <cstdlib>
#include <vector>

static void require(bool holds)
{
    if (!holds)
        abort();
}

static void read_frames(t_fp_pcap *p_pcap)
{
    std::string error;
    t_fp_frame frame = {};
    e_fp_pcap_next next;
    while ((next = fp_pcap_next(p_pcap, &frame, &error)) == FP_PCAP_FRAME) {
        t_fp_packet packet = {};
        fp_packet_decode(frame.bytes, &packet);
    }
    require((next == FP_PCAP_ERROR) == error.starts_with("input: "));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    std::vector<uint8_t> content(p_data, p_data + size);
    if (content.empty())
        return 0;
    FILE *p_file = fmemopen(content.data(), content.size(), "rb");
    require(p_file != nullptr);
    std::string error;
    fp_pcap_ptr pcap = fp_pcap_open_stream(p_file, "input", &error);
    require((pcap == nullptr) == error.starts_with("input: "));
    if (pcap != nullptr)
        read_frames(pcap.get());
    return 0;
}
