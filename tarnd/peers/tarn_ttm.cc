#include "tarnd/peers/tarn_ttm.h"

#include "common/lum_assert.h"
#include "common/lum_log.h"
#include "common/lum_util.h"
#include "common/msgq_util.h"
#include "platform/ttm/ttm.h"
#include "tarnd/core/tarn.h"

#include <cerrno>
#include <cstdlib>
#include <sys/socket.h>
#include <syslog.h>
#include <utility>

static constexpr uint16_t ttm_buffer_size = 1024;
static_assert(ttm_buffer_size >= TTM_WIRE_SIZE_MAX);

// A daemon that can't say what it wants would work with TLOCs that are never told to it; it ends instead.
static void register_family(msgq_handle_t *msgq_p, t_ttm_msg *p_msg, e_ttm_af af)
{
    void *p_buf = msgq_msg_malloc(msgq_p, ttm_buffer_size);
    LUM_ASSERT(p_buf != nullptr, "p_buf");
    p_msg->af = af;
    p_msg->u.register_msg = {.announce = 1, .originate = 0};
    uint16_t size = 0;
    int status = ttm_msg_encode(p_msg, static_cast<uint8_t *>(p_buf), &size);
    if (status == 0)
        status = msgq_write(msgq_p, p_buf, size);
    if (status != 0)
        msgq_msg_free(msgq_p, p_buf);
    LUM_ASSERT(status == 0, "status == 0");
}

static void tarn_ttm_up(msgq_handle_t *msgq_p, void *user_arg_p)
{
    TARN_TRACE(TARN_DEBUG_TTM, "Connection to TTM came up. p_msgq %p p_tarn %p", static_cast<void *>(msgq_p),
               user_arg_p);
    t_ttm_msg msg = {};
    msg.msg_type = TTM_MSG_REGISTER;
    msg.client_id = LUM_MODULE_TARN;
    register_family(msgq_p, &msg, TTM_AF_TLOC_IPV4);
    register_family(msgq_p, &msg, TTM_AF_TLOC_IPV6);
}

static void tarn_ttm_down(msgq_handle_t *msgq_p, void *user_arg_p)
{
    TARN_TRACE(TARN_DEBUG_TTM, "Connection to TTM went down. p_msgq %p p_tarn %p",
               static_cast<void *>(msgq_p), user_arg_p);
}

static void tarn_ttm_write(msgq_handle_t *, void *) {}

// The number comes from outside, and the table of names ends the process for one that it doesn't have.
static const char *client_name(t_ttm_client_id client_id)
{
    return lum_util_module_name(client_id < LUM_MODULE_MAX ? client_id : LUM_MODULE_UNKNOWN);
}

// Bytes that are no message give type 0, and are dropped like the types that are of no use here.
static void tarn_ttm_read(msgq_handle_t *msgq_p, void *msg_p, uint16_t size, void *user_arg_p)
{
    t_tarn *p_tarn = static_cast<t_tarn *>(user_arg_p);
    t_ttm_msg msg;
    ttm_msg_decode(&msg, static_cast<uint8_t *>(msg_p), size);
    TARN_TRACE(TARN_DEBUG_TTM, "Received TTM Msg %d of %d bytes from %s", static_cast<int>(msg.msg_type),
               size, client_name(msg.client_id));
    if (msg.msg_type == TTM_MSG_TLOC_ADD)
        tarn_tloc_add(p_tarn, &msg.u.tloc_msg);
    else if (msg.msg_type == TTM_MSG_TLOC_DELETE)
        tarn_tloc_delete(p_tarn, &msg.u.tloc_msg);
    msgq_msg_free(msgq_p, msg_p);
}

static void *tarn_ttm_malloc(size_t size)
{
    return calloc(1, size);
}

static void tarn_ttm_free(void *p_mem)
{
    free(p_mem);
}

int tarn_ttm_init(t_tarn *p_tarn)
{
    static constexpr msgq_app_cb_t callbacks = {
        .conn_up_cb = tarn_ttm_up,
        .conn_down_cb = tarn_ttm_down,
        .msg_write_cb = tarn_ttm_write,
        .msg_read_cb = tarn_ttm_read,
        .malloc_cb = tarn_ttm_malloc,
        .free_cb = tarn_ttm_free,
        .reboot_status_cb = nullptr,
    };
    msgq_app_params_t params = {};
    params.app_evbase_p = p_tarn->p_event_base;
    params.timer_mgr_p = p_tarn->p_timer_mgr;
    params.syslog_id = LOG_LOCAL7;
    params.socket_type = AF_UNIX;
    p_tarn->p_ttm_msgq =
        msgq_init(LUM_MODULE_TARN, LUM_MODULE_TTM, MSGQ_HANDLE_TYPE_CLIENT, &params, &callbacks, p_tarn);
    if (p_tarn->p_ttm_msgq == nullptr)
        return ENOMEM;
    avl_create(&p_tarn->tloc_db, tarn_tloc_key_cmp, sizeof(t_tarn_tloc), offsetof(t_tarn_tloc, avl_node));
    return 0;
}

int tarn_ttm_destroy(t_tarn *p_tarn)
{
    msgq_destroy(std::exchange(p_tarn->p_ttm_msgq, nullptr));
    return 0;
}
