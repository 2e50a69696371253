// Subscriptions to notifications (RFC 5277).

#include "mgmtd/rpc/mgmt_rpc_private.h"
#include "mgmtd/rpc/rpc_filter.h"

#include "common/lum_log.h"

// ---- Telling ----

static lyd_ptr notification_parse(const ly_ctx *p_context, const std::string &json,
                                  const lyd_node **pp_operation)
{
    ly_in *p_in = nullptr;
    lyd_node *p_tree = nullptr;
    lyd_node *p_operation = nullptr;
    if (ly_in_new_memory(json.c_str(), &p_in) != LY_SUCCESS)
        return nullptr;
    LY_ERR result =
        lyd_parse_op(p_context, nullptr, p_in, LYD_JSON, LYD_TYPE_NOTIF_YANG, &p_tree, &p_operation);
    ly_in_free(p_in, 0);
    *pp_operation = p_operation;
    lyd_ptr tree(p_tree);
    return result == LY_SUCCESS && p_operation != nullptr ? std::move(tree) : nullptr;
}

static void notification_tell(t_mgmt_rpc_session *p_session, const t_rpc_filter &filter,
                              const t_mgmt_notification &notification)
{
    const lyd_node *p_operation = nullptr;
    lyd_ptr tree =
        notification_parse(mgmt_engine_context(*p_session->p_engine), notification.json, &p_operation);
    if (tree == nullptr) {
        LUM_LOG(LUM_LOG_NOTICE, "A stored notification %s does not fit the model", notification.name.c_str());
        return;
    }
    if (mgmt_rights_notified(rpc_rights(p_session), rpc_subject(p_session), p_operation->schema) &&
        rpc_filter_matches(filter, tree.get()))
        p_session->stream.notify(std::move(tree), notification.time);
}

static void end_tell(t_mgmt_rpc_session *p_session, e_mgmt_notif_end end)
{
    const char *name = end == MGMT_NOTIF_REPLAYED ? "/nc-notifications:replayComplete"
                                                  : "/nc-notifications:notificationComplete";
    lyd_node *p_node = nullptr;
    if (end == MGMT_NOTIF_COMPLETE)
        p_session->subscription = 0;
    if (lyd_new_path(nullptr, mgmt_engine_context(*p_session->p_engine), name, nullptr, 0, &p_node) ==
        LY_SUCCESS)
        p_session->stream.notify(lyd_ptr(p_node), rpc_time_text(rpc_now_us()));
}

// ---- Subscribing ----

// Microseconds since 1970; -1 without the leaf.
static int64_t time_of(const lyd_node *p_input, const char *name)
{
    std::string text = rpc_leaf(p_input, name);
    time_t seconds = 0;
    char *p_fractions = nullptr;
    if (text.empty() || ly_time_str2time(text.c_str(), &seconds, &p_fractions) != LY_SUCCESS)
        return -1;
    std::string digits = p_fractions != nullptr ? p_fractions : "";
    free(p_fractions);
    digits.resize(6, '0');
    return std::max<int64_t>(static_cast<int64_t>(seconds) * 1000000 + std::stoll(digits), 0);
}

static bool times_check(const rpc_call_ptr &call, const t_mgmt_notif_request &request)
{
    if (request.start_us > rpc_now_us())
        rpc_fail(call, rpc_error_element("bad-element", "startTime", "startTime is in the future"));
    else if (request.stop_us >= 0 && request.start_us < 0)
        rpc_fail(call, rpc_error_element("missing-element", "startTime", "stopTime needs a startTime"));
    else if (request.stop_us >= 0 && request.stop_us < request.start_us)
        rpc_fail(call, rpc_error_element("bad-element", "stopTime", "stopTime is before startTime"));
    else
        return true;
    return false;
}

static bool may_subscribe(const rpc_call_ptr &call)
{
    const t_mgmt_rpc_session &session = *call->p_session;
    std::string stream = rpc_leaf(call->input.get(), "stream");
    if (!session.stream.notify)
        rpc_fail(call,
                 rpc_error("protocol", "operation-not-supported", "this session takes no notifications"));
    else if (!stream.empty() && stream != "NETCONF" && stream != MGMT_STREAM)
        rpc_fail(call, rpc_error_element("invalid-value", "stream", "there is no stream \"" + stream + '"'));
    else if (session.subscription != 0)
        rpc_fail(call, rpc_error("protocol", "operation-failed", "the session has a subscription already"));
    else
        return true;
    return false;
}

void rpc_create_subscription(const rpc_call_ptr &call)
{
    t_mgmt_rpc_session *p_session = call->p_session;
    t_rpc_filter filter;
    t_mgmt_rpc_error error;
    t_mgmt_notif_request request;
    request.start_us = time_of(call->input.get(), "startTime");
    request.stop_us = time_of(call->input.get(), "stopTime");
    if (!may_subscribe(call) || !times_check(call, request))
        return;
    if (!rpc_filter_read(call->input.get(), &filter, &error))
        return rpc_fail(call, std::move(error));
    request.notify = [p_session, filter = std::move(filter)](const t_mgmt_notification &notification) {
        notification_tell(p_session, filter, notification);
    };
    request.ended = [p_session](e_mgmt_notif_end end) { end_tell(p_session, end); };
    // The first notification comes from the loop, behind the reply.
    p_session->subscription =
        mgmt_notif_subscribe(p_session->p_engine, p_session->session, std::move(request));
    rpc_ok(call);
}
