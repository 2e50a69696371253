// The request "monitor": notifications as they come, until the client goes or is too far behind.

#include "mgmtd/control/control_private.h"

#include <nlohmann/json.hpp>

using t_json = nlohmann::ordered_json;

static constexpr size_t max_unread = 16 * 1024 * 1024;  // bytes; more than all that is stored of replay

static void notification_tell(t_control_connection *p_connection, const t_mgmt_notification &notification)
{
    if (p_connection->is_behind)
        return;
    t_json object = {{"time", notification.time}, {"name", notification.name}};
    object["data"] = t_json::parse(notification.json, nullptr, false);
    control_output(p_connection, object.dump(-1, ' ', false, t_json::error_handler_t::replace));
    p_connection->is_behind = control_unread(*p_connection) > max_unread;
    if (p_connection->is_behind)
        control_schedule(p_connection);  // not from within the engine's walk over those who listen
}

void control_monitor_end(t_control_connection *p_connection)
{
    mgmt_notif_unsubscribe(p_connection->p_control->p_engine, p_connection->monitor);
    p_connection->monitor = 0;
    p_connection->is_behind = false;
    control_answer(p_connection, {MGMT_ERR_BADSTATE, "", "the client is too far behind"});
}

void control_monitor_serve(t_control_connection *p_connection, const t_control_request &request)
{
    t_mgmt_notif_request notifications;
    notifications.start_us = request.start_us;
    notifications.notify = [p_connection](const t_mgmt_notification &notification) {
        try {
            notification_tell(p_connection, notification);
        } catch (const std::exception &) {  // no memory: what is left out here is in the log
        }
    };
    p_connection->monitor = mgmt_notif_subscribe(p_connection->p_control->p_engine, p_connection->session,
                                                 std::move(notifications));
}
