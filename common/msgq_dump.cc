#include "common/cli_print.h"
#include "common/msgq_util_private.h"

static const char *const msgq_type_str[] = {"Unknown", "SERVER", "CLIENT"};

static const struct {
    const char *name;
    uint32_t msgq_stats_t::*counter;
} g_counters[] = {
    {"tx_msg", &msgq_stats_t::tx_msg},
    {"tx_fail", &msgq_stats_t::tx_fail},
    {"rx_msg", &msgq_stats_t::rx_msg},
    {"rx_fail", &msgq_stats_t::rx_fail},
    {"tx_resched", &msgq_stats_t::tx_resched},
    {"tx_write_cb", &msgq_stats_t::tx_write_cb},
    {"rx_register", &msgq_stats_t::rx_register},
    {"tx_register", &msgq_stats_t::tx_register},
    {"conn_up", &msgq_stats_t::conn_up},
    {"conn_down", &msgq_stats_t::conn_down},
    {"conn_close", &msgq_stats_t::conn_close},
    {"conn_exist", &msgq_stats_t::conn_exist},
    {"msg_allocs", &msgq_stats_t::msg_allocs},
    {"msg_frees", &msgq_stats_t::msg_frees},
    {"alloc_failed", &msgq_stats_t::alloc_failed},
    {"tx_queued", &msgq_stats_t::tx_queued},
    {"tx_dequeued", &msgq_stats_t::tx_dequeued},
    {"tx_queue_failed", &msgq_stats_t::tx_queue_failed},
    {"rx_read_helper_cb", &msgq_stats_t::rx_read_helper_cb},
    {"rx_read_helper_scheduled", &msgq_stats_t::rx_read_helper_scheduled},
};

static const char *yes_no(bool value)
{
    return value ? "Yes" : "No";
}

static void *pointer(const void *p)
{
    return const_cast<void *>(p);
}

static void dump_stats(t_lconfd_context *ctx, int usid, const msgq_stats_t &stats)
{
    cli_print(ctx, usid, "\n STATS:");
    for (const auto &row : g_counters)
        if (stats.*row.counter != 0)
            cli_print(ctx, usid, "\n    %-30s %-10d", row.name, static_cast<int>(stats.*row.counter));
}

void msgq_dump_handle(t_lconfd_context *ctx, int usid, const msgq_handle_t *msgq_p)
{
    cli_print(ctx, usid, "\n  msgq_p: %p", pointer(msgq_p));
    cli_print(ctx, usid, "\n    Src: %s, Tgt: %s", lum_util_module_name(msgq_p->srcid),
              lum_util_module_name(msgq_p->tgtid));
    cli_print(ctx, usid, "\n    type: %s, path:%s server_p: %p", msgq_type_str[msgq_p->type],
              msgq_p->msgq_path, pointer(msgq_p->server_p));
    cli_print(ctx, usid, "\n    register: %s, user_arg: %p, down-pending: %d", yes_no(!msgq_p->dont_register),
              msgq_p->user_arg_p, msgq_p->down_pending);
    cli_print(ctx, usid, "\n    fd: %d, Rd ev: %p, Wr ev[0]: %p, Wr ev[1]: %p", msgq_p->sock_fd,
              pointer(msgq_p->read_ev_p), pointer(msgq_p->write_ev_p[0]), pointer(msgq_p->write_ev_p[1]));
    cli_print(ctx, usid, "\n    Read Helper ev[0]: %p (%s), Read helper ev[1]: %p (%s), index:%d",
              pointer(msgq_p->read_helper_ev_p[0]), yes_no(msgq_p->read_helper_ev_set[0]),
              pointer(msgq_p->read_helper_ev_p[1]), yes_no(msgq_p->read_helper_ev_set[1]),
              msgq_p->read_helper_ev_index);
    cli_print(ctx, usid, "\n    List: In Reg: %s, In Unreg: %s, In Tmp: %s", yes_no(msgq_p->in_reg_list),
              yes_no(msgq_p->in_unreg_list), yes_no(msgq_p->in_tmp_list));
    dump_stats(ctx, usid, msgq_p->stats);
}

void msgq_dump_server(t_lconfd_context *ctx, int usid, const msgq_server_t *server_p)
{
    cli_print(ctx, usid, "\n  server: %p (ref-count: %d)", pointer(server_p),
              static_cast<int>(server_p->ref_count));
    cli_print(ctx, usid, "\n    Src: %s, path:%s", lum_util_module_name(server_p->srcid),
              server_p->msgq_path);
    cli_print(ctx, usid, "\n    app header: %s, app msgq: %p", yes_no(server_p->listener_apphdr),
              pointer(server_p->apphead_msgq_handle_p));
    dump_stats(ctx, usid, server_p->stats);
}

void msgq_dump_all_handles(t_lconfd_context *ctx, int usid)
{
    if (g_msgq_inst_p == nullptr)
        return;
    const msgq_handle_t *msgq_p;
    cli_print(ctx, usid, "\n Dumping all message Q handles");
    cli_print(ctx, usid, "\n In Reg. list");
    TAILQ_FOREACH(msgq_p, &g_msgq_inst_p->reg_msgq_listhead, reg_list_entry)
    msgq_dump_handle(ctx, usid, msgq_p);
    cli_print(ctx, usid, "\n In Unreg. list");
    TAILQ_FOREACH(msgq_p, &g_msgq_inst_p->unreg_msgq_listhead, unreg_list_entry)
    msgq_dump_handle(ctx, usid, msgq_p);
    cli_print(ctx, usid, "\n In tmp list");
    TAILQ_FOREACH(msgq_p, &g_msgq_inst_p->tmp_msgq_listhead, tmp_list_entry)
    msgq_dump_handle(ctx, usid, msgq_p);
}

void msgq_dump_instance(t_lconfd_context *ctx, int usid)
{
    cli_print(ctx, usid, "\n   =============");
    cli_print(ctx, usid, "\n   DUMPING MSGQs");
    cli_print(ctx, usid, "\n   =============");
    cli_print(ctx, usid, "\n  inst: %p", pointer(g_msgq_inst_p));
    if (g_msgq_inst_p == nullptr)
        return;
    cli_print(ctx, usid, "\n  event base: %p, timer: %p", pointer(g_msgq_inst_p->app_evbase_p),
              pointer(g_msgq_inst_p->timer_mgr_p));
    msgq_dump_all_handles(ctx, usid);
    const msgq_server_t *server_p;
    TAILQ_FOREACH(server_p, &g_msgq_inst_p->server_head, server_entry)
    msgq_dump_server(ctx, usid, server_p);
}
