// What is registered at the framework on the main thread, and the callbacks by which its transactions and
// actions find the worker socket.
#include "lconfd/lconfd_private.h"

#include "platform/confd/confd_maapi.h"

static constexpr const char *stream_name = "lumora";
static constexpr const char *snmp_notify_name = "lumora_snmpv2_trap";

static t_lconfd_context *context_of(const confd_daemon_ctx *dx)
{
    return static_cast<t_lconfd_context *>(dx->d_opaque);
}

// ---- Callbacks ----

int lconfd_init_validation(confd_trans_ctx *tctx)
{
    const t_lconfd_context *ctx = context_of(tctx->dx);
    confd_trans_set_fd(tctx, ctx->worker_socket);
    if (maapi_attach(ctx->maapi_socket, 0, tctx) == CONFD_OK)
        return CONFD_OK;
    LCONFD_LOG("Failed to do maapi attach for init validation (%u)%s (%d) : %s",
               static_cast<unsigned>(tctx->thandle), LCONFD_WHY);
    return -1;
}

int lconfd_stop_validation(confd_trans_ctx *tctx)
{
    if (maapi_detach(context_of(tctx->dx)->maapi_socket, tctx) == CONFD_OK)
        return CONFD_OK;
    LCONFD_LOG("Failed to do maapi detach for stop validation (%u)%s (%d) : %s",
               static_cast<unsigned>(tctx->thandle), LCONFD_WHY);
    return -1;
}

int lconfd_init_data(confd_trans_ctx *tctx)
{
    confd_trans_set_fd(tctx, context_of(tctx->dx)->worker_socket);
    return CONFD_OK;
}

int lconfd_init_action(confd_user_info *uinfo)
{
    confd_action_set_fd(uinfo, context_of(uinfo->actx.dx)->worker_socket);
    return CONFD_OK;
}

// ---- Registering ----

static bool check(int result, const char *what)
{
    if (result != CONFD_OK)
        LCONFD_LOG("Failed to register %s %s (%d) : %s", what, LCONFD_WHY);
    return result == CONFD_OK;
}

static bool register_actions(t_lconfd_context *ctx)
{
    for (confd_action_cbs *p_action = ctx->module_data.action_cmd_arr; p_action->actionpoint[0] != '\0';
         p_action++) {
        p_action->init = lconfd_init_action;
        int result = confd_register_action_cbs(ctx->confd_dctx_p, p_action);
        if (result != CONFD_OK) {
            LCONFD_LOG("Failed to register %s Action call back (%s - %d)", p_action->actionpoint,
                       lconfd_module_name(), result);
            return false;
        }
    }
    return true;
}

static bool register_validation_points(t_lconfd_context *ctx)
{
    for (const confd_valpoint_cb *p_point = ctx->module_data.val_point_arr; p_point->valpoint[0] != '\0';
         p_point++)
        if (!check(confd_register_valpoint_cb(ctx->confd_dctx_p, p_point), p_point->valpoint))
            return false;
    return true;
}

static bool register_data(t_lconfd_context *ctx)
{
    int result = ctx->module_data.data_register_cb(ctx);
    if (result != 0)
        LCONFD_LOG("Failed to register data call backs");
    return result == 0;
}

static bool register_transactions(t_lconfd_context *ctx)
{
    static constexpr confd_trans_cbs transactions = {.init = lconfd_init_data, .finish = nullptr};
    return check(confd_register_trans_cb(ctx->confd_dctx_p, &transactions), "transaction call backs");
}

bool lconfd_register_callbacks(t_lconfd_context *ctx)
{
    return register_transactions(ctx) && register_actions(ctx) && register_data(ctx);
}

static bool register_senders(t_lconfd_context *ctx)
{
    confd_notification_stream_cbs stream = {};
    snprintf(stream.streamname, sizeof(stream.streamname), "%s", stream_name);
    stream.fd = ctx->worker_socket;
    t_lconfd_module_data *p_data = &ctx->module_data;
    return check(confd_register_notification_stream(ctx->confd_dctx_p, &stream, &p_data->notif_ctxt),
                 "notification stream") &&
           check(confd_register_snmp_notification(ctx->confd_dctx_p, ctx->worker_socket, snmp_notify_name, "",
                                                  &p_data->snmp_notif_ctxt),
                 "snmp notification");
}

bool lconfd_register_primary(t_lconfd_context *ctx)
{
    static constexpr confd_trans_validate_cbs validation = {.init = lconfd_init_validation,
                                                            .stop = lconfd_stop_validation};
    return check(confd_register_trans_validate_cb(ctx->confd_dctx_p, &validation), "validation call backs") &&
           register_transactions(ctx) && register_actions(ctx) && register_validation_points(ctx) &&
           register_data(ctx) && register_senders(ctx) &&
           check(confd_register_done(ctx->confd_dctx_p), "done");
}
