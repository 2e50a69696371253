// Delivers arbitrary bytes to the system manager's client. Only a whole connect reply is passed on, its
// fields can be read, and every buffer comes back.
#include "sysmgr/sysmgr_app.h"

#include "common/timer.h"
#include "tests/sysmgr/msgq_double.h"

#include <cstdlib>
#include <cstring>
#include <span>

struct t_seen {
    int replies;
    uint64_t sum;  // of what was read, so that the reading stays
};

static void require(bool holds)
{
    if (!holds)
        abort();
}

static void read_reply(void *app_handle, const t_sysmgr_app_msg *p_msg)
{
    t_seen *p_seen = static_cast<t_seen *>(app_handle);
    require(p_msg->hdr.msg_type == SYSMGR_APP_MSG_CONNECT_REPLY);
    const uint8_t *p_bytes = reinterpret_cast<const uint8_t *>(p_msg);
    for (uint8_t byte : std::span(p_bytes, p_msg->hdr.msg_len))
        p_seen->sum += byte;
    p_seen->sum += p_msg->connect_reply.vpn_id + p_msg->connect_reply.modules_up_mask;
    p_seen->replies++;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    if (size == 0 || size > UINT16_MAX - sizeof(msgq_hdr_t))
        return 0;
    static t_seen seen;
    static t_timer_mgr *p_mgr =
        timer_mgr_create(TIMER_RESN_10MSEC, nullptr, nullptr, nullptr, TIMER_PRI_MASK_ALL);
    static t_sysmgr_app *p_app = app_sysmgr_connect(nullptr, p_mgr, 0, LUM_MODULE_TARN, &seen, read_reply);
    require(p_app != nullptr);
    int before = seen.replies;
    msgq_double_deliver({p_data, size});
    bool whole = size >= sizeof(t_sysmgr_app_msg) && p_data[1] == SYSMGR_APP_MSG_CONNECT_REPLY;
    require(seen.replies - before <= (whole ? 1 : 0));
    require(g_msgq_double.buffers == 0);
    return 0;
}
