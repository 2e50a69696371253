#include "tests/sysmgr/msgq_double.h"

#include <cstring>
#include <utility>

t_msgq_double g_msgq_double;

static msgq_handle_t *the_handle()
{
    return reinterpret_cast<msgq_handle_t *>(&g_msgq_double);
}

void msgq_double_reset()
{
    g_msgq_double = {};
}

void msgq_double_up()
{
    g_msgq_double.cb.conn_up_cb(the_handle(), g_msgq_double.user_arg_p);
}

void msgq_double_down()
{
    g_msgq_double.cb.conn_down_cb(the_handle(), g_msgq_double.user_arg_p);
}

void msgq_double_deliver(std::span<const uint8_t> body)
{
    void *p_buf = g_msgq_double.cb.malloc_cb(body.size());
    memcpy(p_buf, body.data(), body.size());
    g_msgq_double.buffers++;
    g_msgq_double.cb.msg_read_cb(the_handle(), p_buf, static_cast<uint16_t>(body.size()),
                                 g_msgq_double.user_arg_p);
}

std::vector<std::vector<uint8_t>> msgq_double_take()
{
    return std::exchange(g_msgq_double.written, {});
}

msgq_handle_t *msgq_init(uint32_t srcid, uint32_t tgtid, msgq_handle_type_e type,
                         const msgq_app_params_t *params_p, const msgq_app_cb_t *cb_p, void *user_arg_p)
{
    if (g_msgq_double.refuses_init)
        return nullptr;
    g_msgq_double.srcid = srcid;
    g_msgq_double.tgtid = tgtid;
    g_msgq_double.type = type;
    g_msgq_double.params = *params_p;
    g_msgq_double.cb = *cb_p;
    g_msgq_double.user_arg_p = user_arg_p;
    g_msgq_double.handles++;
    return the_handle();
}

void msgq_destroy(msgq_handle_t *msgq_p)
{
    if (msgq_p != nullptr)
        g_msgq_double.handles--;
}

// Filled with what a body that isn't cleared would show.
void *msgq_msg_malloc(msgq_handle_t *, uint16_t app_size)
{
    void *p_buf = g_msgq_double.refuses_alloc ? nullptr : g_msgq_double.cb.malloc_cb(app_size);
    if (p_buf == nullptr)
        return nullptr;
    memset(p_buf, 0xee, app_size);
    g_msgq_double.buffers++;
    return p_buf;
}

void msgq_msg_free(msgq_handle_t *, void *app_p)
{
    g_msgq_double.cb.free_cb(app_p);
    g_msgq_double.buffers--;
}

e_err msgq_write(msgq_handle_t *msgq_p, void *app_p, uint16_t app_size)
{
    if (g_msgq_double.write_result != ERR_OK)
        return g_msgq_double.write_result;
    const uint8_t *p_bytes = static_cast<const uint8_t *>(app_p);
    g_msgq_double.written.emplace_back(p_bytes, p_bytes + app_size);
    msgq_msg_free(msgq_p, app_p);
    return ERR_OK;
}
