#include <gtest/gtest.h>

#include "tests/lconfd/subscriber.h"

#include "common/timer.h"
#include "platform/confd/confd_maapi.h"

#include <chrono>
#include <cstring>
#include <event2/event.h>
#include <utility>

char g_hostname[128] = "edge-1";

static constexpr int policy_space = 0x25640284;

static Subscriber *subscriber_of(const t_lconfd_context *ctx)
{
    return static_cast<Subscriber *>(ctx->module_data.opaque_p);
}

// ---- Texts ----

static std::string text_of(const confd_value_t &value)
{
    char text[64];
    confd_pp_value(text, sizeof(text), &value);
    return text;
}

static std::string text_of(const confd_tag_value_t &value)
{
    const char *name = confd_hash2str(value.tag.tag);
    std::string tag = name != nullptr ? name : std::to_string(value.tag.tag);
    switch (value.v.type) {
    case C_XMLBEGIN:
        return tag + "(";
    case C_XMLEND:
        return ")";
    case C_NOEXISTS:
        return tag + "=-";
    default:
        return tag + "=" + text_of(value.v);
    }
}

static int on_change(t_lconfd_sub_entry *p_sub, confd_iter_op oper, int num_keys, const confd_value_t *p_key,
                     int num_values, const confd_tag_value_t *p_val)
{
    static const char *const names[] = {"", "created", "deleted", "modified", "set"};
    Subscriber *p_subscriber = subscriber_of(p_sub->lconfd_ctx_p);
    std::string line = std::string(p_sub->path) + " " + names[oper] + " {";
    for (int i = 0; i < num_keys; i++)
        line += (i > 0 ? " " : "") + text_of(p_key[i]);
    line += "}";
    for (int i = 0; i < num_values; i++)
        line += " " + text_of(p_val[i]);
    p_subscriber->seen.push_back(line);
    return p_subscriber->failing_path == p_sub->path ? LCONFD_STATUS_FAIL : LCONFD_STATUS_OK;
}

static void on_end(t_lconfd_context *ctx, int triggered)
{
    EXPECT_TRUE(triggered == 0 || triggered == CDB_SUB_FLAG_TRIGGER);
    subscriber_of(ctx)->seen.push_back(triggered != 0 ? "end of trigger" : "end");
}

static int on_command(confd_user_info *uinfo, char *, int, char **)
{
    const t_lconfd_context *ctx = static_cast<t_lconfd_context *>(uinfo->actx.dx->d_opaque);
    maapi_cli_printf(ctx->maapi_socket, uinfo->usid, "worker %d", ctx->worker_socket > 0);
    return CONFD_OK;
}

// ---- The daemon ----

t_lconfd_sub_entry subscriber_points[] = {{.path = "policy/zone",
                                           .config_cb = on_change,
                                           .name_space = policy_space,
                                           .num_keys = 1,
                                           .priority = 1,
                                           .del_priority = 6},
                                          {.path = "policy/zone/vpn",
                                           .config_cb = on_change,
                                           .name_space = policy_space,
                                           .num_keys = 2,
                                           .priority = 2,
                                           .del_priority = 1},
                                          {.path = "policy/access-list/sequence",
                                           .config_cb = on_change,
                                           .name_space = policy_space,
                                           .num_keys = 2,
                                           .priority = 5,
                                           .del_priority = 1},
                                          {.path = "policy/class-map/class",
                                           .config_cb = on_change,
                                           .name_space = policy_space,
                                           .num_keys = 1,
                                           .priority = 3},
                                          {.path = "policy",
                                           .config_cb = on_change,
                                           .name_space = policy_space,
                                           .num_keys = 0,
                                           .priority = 1,
                                           .del_priority = 6},
                                          {}};

static confd_valpoint_cb no_validation_points[] = {{}};
static confd_action_cbs actions[] = {{.actionpoint = "tarn_dump_policy",
                                      .init = nullptr,
                                      .action = nullptr,
                                      .command = on_command,
                                      .cb_opaque = nullptr},
                                     {}};

Subscriber::Subscriber(e_lum_module module)
    : p_base(event_base_new()),
      p_timers(timer_mgr_create(TIMER_RESN_10MSEC, nullptr, nullptr, nullptr, TIMER_PRI_MASK_ALL))
{
    data = {.opaque_p = this,
            .sub_point_arr = subscriber_points,
            .val_point_arr = no_validation_points,
            .action_cmd_arr = actions,
            .data_register_cb = [](t_lconfd_context *) { return 0; },
            .sub_end_cb = on_end,
            .connected_cb = [](t_lconfd_context *context) { subscriber_of(context)->connections++; },
            .evt_base_p = p_base,
            .timer_mgr_p = p_timers,
            .mod_id = module};
    for (t_lconfd_sub_entry *p_entry = subscriber_points; p_entry->path[0] != '\0'; p_entry++)
        p_entry->init_cfg_read = 0;
}

Subscriber::~Subscriber()
{
    lconfd_module_deinit(&ctx);
    timer_mgr_destroy(p_timers);
    event_base_free(p_base);
}

e_lconfd_status Subscriber::start()
{
    return lconfd_module_init(&data, nullptr, &ctx);
}

bool Subscriber::until(const std::function<bool()> &condition)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        timeval pause = {.tv_sec = 0, .tv_usec = 5000};
        event_base_loopexit(p_base, &pause);
        event_base_loop(p_base, EVLOOP_NO_EXIT_ON_EMPTY);
        timer_exec(p_timers, TIMER_PRI_MASK_ALL, 100);
    }
    return true;
}

bool Subscriber::until_seen(const std::string &line)
{
    return until([&] { return std::find(seen.begin(), seen.end(), line) != seen.end(); });
}

std::vector<std::string> Subscriber::take()
{
    return std::exchange(seen, {});
}

bool Subscriber::is_subscribed() const
{
    return ctx->evt_sub != nullptr && event_pending(ctx->evt_sub, EV_READ, nullptr) != 0;
}
