// Finishes the checksum of arbitrary bytes taken as a frame. It changes two bytes at most, none behind an
// answer of false, and bytes that pad the frame change nothing.
#include "libcvmx/sim/cvmx-ring.h"

#include <cstdlib>
#include <vector>

static void require(bool holds)
{
    if (!holds)
        abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    if (size > CVMX_RING_FRAME_MAX)
        return 0;
    const std::vector<uint8_t> frame(p_data, p_data + size);
    std::vector<uint8_t> finished = frame;
    bool is_finished = cvmx_ring_csum_finish(finished.data(), static_cast<uint32_t>(size));
    size_t changed = 0;
    for (size_t i = 0; i < size; i++)
        changed += finished[i] != frame[i];
    require(changed <= (is_finished ? 2 : 0));
    std::vector<uint8_t> padded = frame;
    padded.resize(size + 6);
    if (is_finished) {
        require(cvmx_ring_csum_finish(padded.data(), static_cast<uint32_t>(size + 6)));
        padded.resize(size);
        require(padded == finished);
    }
    return 0;
}
