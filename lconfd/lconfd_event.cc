// Requests and events of the framework, on the main thread.
#include "lconfd/lconfd_private.h"

void lconfd_ctrl_cb(int fd, short, void *arg)
{
    t_lconfd_context *ctx = static_cast<t_lconfd_context *>(arg);
    int result = confd_fd_ready(ctx->confd_dctx_p, fd);
    if (result == CONFD_EOF) {
        LCONFD_DEBUG("Control socket closed");
        lconfd_retry_connect(ctx);
    } else if (result == CONFD_ERR && confd_errno != CONFD_ERR_EXTERNAL) {
        LCONFD_LOG("Error on control socket request: %s (%d): %s", LCONFD_WHY);
    }
}

void lconfd_work_cb(int fd, short, void *arg)
{
    t_lconfd_context *ctx = static_cast<t_lconfd_context *>(arg);
    int result = confd_fd_ready(ctx->confd_dctx_p, fd);
    if (result == CONFD_EOF) {
        LCONFD_DEBUG("Worker socket closed");
        lconfd_retry_connect(ctx);
    } else if (result == CONFD_ERR && confd_errno != CONFD_ERR_EXTERNAL) {
        LCONFD_DEBUG("Error on worker socket request: %s (%d): %s", LCONFD_WHY);
    }
}

// The handler is called whatever the reading gave, after a closed socket too.
void lconfd_notification_cb(int fd, short, void *arg)
{
    t_lconfd_context *ctx = static_cast<t_lconfd_context *>(arg);
    confd_notification event = {};
    int result = confd_read_notification(fd, &event);
    if (result == CONFD_EOF) {
        LCONFD_DEBUG("Notification socket closed");
        lconfd_retry_connect(ctx);
    } else if (result == CONFD_ERR && confd_errno != CONFD_ERR_EXTERNAL) {
        LCONFD_LOG("Error on notification socket request: %s (%d): %s", LCONFD_WHY);
    }
    ctx->module_data.confd_notif_ctxt->notification_handler(ctx, &event);
    confd_free_notification(&event);
}
