#include "common/lum_assert.h"
#include "common/msgq_util_private.h"

static constexpr size_t MSG_SIZE_MAX = UINT16_MAX;

// ---- The application's view and the wire's ----

// Bytes that the library puts in front of what the application sees.
static uint16_t hidden_size(const msgq_handle_t &handle)
{
    return handle.use_app_header ? 0 : sizeof(msgq_hdr_t);
}

uint16_t msgq_hdr_size(const msgq_handle_t *msgq_p)
{
    return msgq_p->use_app_header ? msgq_p->app_header_size : sizeof(msgq_hdr_t);
}

void *msgq_buf_app_to_msgp(const msgq_handle_t *msgq_p, void *app_p)
{
    return static_cast<uint8_t *>(app_p) - hidden_size(*msgq_p);
}

void *msgq_buf_msgp_to_app(const msgq_handle_t *msgq_p, void *msg_p)
{
    return static_cast<uint8_t *>(msg_p) + hidden_size(*msgq_p);
}

uint16_t msgq_size_app_to_msg(const msgq_handle_t *msgq_p, uint16_t app_size)
{
    return static_cast<uint16_t>(app_size + hidden_size(*msgq_p));
}

uint16_t msgq_size_msg_to_app(const msgq_handle_t *msgq_p, uint16_t msg_size)
{
    return static_cast<uint16_t>(msg_size - hidden_size(*msgq_p));
}

// ---- Buffers ----

void msgq_init_msg(msgq_hdr_t *hdr_p, uint16_t msg_size)
{
    *hdr_p = {};
    hdr_p->magic1 = MAGIC1;
    hdr_p->size = msg_size;
    hdr_p->magic2 = MAGIC2;
}

void *msgq_msg_malloc(msgq_handle_t *msgq_p, uint16_t app_size)
{
    size_t msg_size = size_t{app_size} + hidden_size(*msgq_p);
    void *msg_p = msg_size <= MSG_SIZE_MAX ? msgq_p->app_cb.malloc_cb(msg_size) : nullptr;
    if (msg_p == nullptr) {
        msgq_p->stats.alloc_failed++;
        return nullptr;
    }
    msgq_p->stats.msg_allocs++;
    if (!msgq_p->use_app_header)
        msgq_init_msg(static_cast<msgq_hdr_t *>(msg_p), static_cast<uint16_t>(msg_size));
    return msgq_buf_msgp_to_app(msgq_p, msg_p);
}

void msgq_msg_free(msgq_handle_t *msgq_p, void *app_p)
{
    if (app_p == nullptr)
        return;
    msgq_p->stats.msg_frees++;
    msgq_p->app_cb.free_cb(msgq_buf_app_to_msgp(msgq_p, app_p));
}

int msgq_validate_buf(const msgq_handle_t *msgq_p, void *app_p, uint16_t app_size)
{
    if (msgq_p->use_app_header)
        return 0;
    const auto *hdr_p = static_cast<const msgq_hdr_t *>(msgq_buf_app_to_msgp(msgq_p, app_p));
    LUM_ASSERT(app_size <= msgq_size_msg_to_app(msgq_p, hdr_p->size),
               "app_size <= msgq_size_msg_to_app(msgq_p, hdr_p->size)");
    LUM_ASSERT(hdr_p->magic1 == MAGIC1 && hdr_p->magic2 == MAGIC2,
               "(hdr_p->magic1 == MAGIC1) && (hdr_p->magic2 == MAGIC2)");
    return 0;
}
