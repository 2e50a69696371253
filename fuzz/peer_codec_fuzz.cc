// Decodes arbitrary bytes as the lab's peers do: as a frame and a stream of frames, as a locator record, as a
// record for the system manager. What decodes as a frame or a locator record encodes to the same bytes.
#include "lab/peers/peer_frame.h"
#include "lab/sysmgrd/sysmgr_record.h"
#include "lab/ttmd/ttm_record.h"

#include <algorithm>
#include <cstdlib>

static void require(bool holds)
{
    if (!holds)
        abort();
}

static void check_same(t_peer_bytes bytes, const std::vector<uint8_t> &again)
{
    require(std::equal(bytes.begin(), bytes.end(), again.begin(), again.end()));
}

static void check_ttm(t_peer_bytes bytes)
{
    t_ttm_record record;
    std::string reason;
    if (ttm_record_decode(bytes, &record, &reason))
        check_same(bytes, ttm_record_encode(record));
    else
        require(!reason.empty());
}

static void check_sysmgr(t_peer_bytes bytes)
{
    t_sysmgr_record record;
    std::string reason;
    if (!sysmgr_record_decode(bytes, &record, &reason))
        return require(!reason.empty());
    bool has_reason = record.type == SYSMGR_RECORD_REBOOT || record.type == SYSMGR_RECORD_SHUTDOWN;
    require(bytes.size() == SYSMGR_RECORD_SIZE + (has_reason ? record.reason.size() + 1 : 0));
}

// Bodies of frames go to the decoders, too, so that one input can carry several records.
static void check_stream(t_peer_bytes stream)
{
    t_peer_frame frame;
    std::string reason;
    while (peer_frame_peek(stream, &frame, &reason) == PEER_FRAME_WHOLE) {
        size_t size = PEER_FRAME_HEADER + frame.body.size();
        check_same(stream.first(size), peer_frame_encode(frame));
        require(peer_frame_decode(stream.first(size), &frame, &reason));
        check_ttm(frame.body);
        check_sysmgr(frame.body);
        stream = stream.subspan(size);
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    t_peer_bytes bytes(p_data, size);
    check_ttm(bytes);
    check_sysmgr(bytes);
    check_stream(bytes);
    return 0;
}
