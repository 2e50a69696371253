#include "tarnd/oper/tarn_dump.h"

#include "common/lum_util.h"
#include "common/msgq_util.h"
#include "common/priority_timers.h"
#include "fp_api/fp_tables.h"
#include "tarnd/filter/tarn_if_octeon.h"
#include "tarnd/oper/tarn_dump_private.h"

#include <arpa/inet.h>
#include <cstdio>
#include <ctime>

// ---- Texts ----

using f_value_name = const char *(uint32_t value);

// The names of the bits from first to last.
static void mask_names(uint32_t mask, uint32_t first, uint32_t last, f_value_name *name_of, char *buffer)
{
    size_t used = 0;
    buffer[0] = '\0';
    for (uint32_t value = first; value <= last; value++)
        if ((mask & uint32_t{1} << value) != 0)
            used += static_cast<size_t>(
                snprintf(buffer + used, TARN_MASK_TEXT_SIZE - used, "%s ", name_of(value)));
}

void tarn_dump_color_mask(uint32_t mask, char *buffer)
{
    mask_names(mask, LUM_TLOC_COLOR_DEFAULT, LUM_TLOC_COLOR_PRIVATE6, lum_util_tloc_color_name, buffer);
}

void tarn_dump_encap_mask(uint32_t mask, char *buffer)
{
    mask_names(mask, LUM_TLOC_ENCAP_GRE, LUM_TLOC_ENCAP_IPSEC_TUNNEL, lum_util_tloc_encap_name, buffer);
}

t_tarn_dump_text tarn_dump_address(const t_ipaddr &address)
{
    t_tarn_dump_text result;
    ipaddr_print(&address, result.text, sizeof(result.text));
    return result;
}

t_tarn_dump_text tarn_dump_tloc_id(const t_tloc_id &tloc)
{
    t_tarn_dump_text result;
    t_tloc_id shown = tloc;
    if (IPADDR_IS_V4(&shown.addr))
        IPADDR_SET_V4(&shown.addr, ntohl(shown.addr.u.addr4.s_addr));
    tloc_id_print_short(&shown, result.text, sizeof(result.text));
    return result;
}

// ---- Settings ----

static void dump_log_config(const t_tarn_dump &dump)
{
    const t_fp_filter_log_config &config = *g_fp_filter_log_config;
    DUMP(dump, "Log Frequency        : %d    Packet Count    : %d\n", static_cast<int>(config.frequency),
         static_cast<int>(config.packet_count));
    for (uint32_t count : config.outstanding)
        DUMP(dump, "%d ", static_cast<int>(count));
    DUMP(dump, "\n");
}

static void dump_visibility(const t_tarn_dump &dump)
{
    const t_tarn &tarn = *dump.p_tarn;
    DUMP(dump, "App Visibility       : %d\n", tarn.dpi);
    DUMP(dump, "Policy DPI Reference : %d\n", tarn.dpi_ref);
    DUMP(dump, "DPI state (Control)  : %u\n", *tarn.dpi_p);
    DUMP(dump, "DPI state            : %u\n", *g_fp_dpi_enable_knob);
    DUMP(dump, "Flow Visibility      : %d\n", tarn.flow);
    DUMP(dump, "Policy Flow Reference: %d\n", tarn.flow_ref);
    DUMP(dump, "Flow state (Control) : %u\n", *tarn.flow_p);
    DUMP(dump, "Flow state           : %u\n", *g_fp_filter_flow_enable_knob);
}

static long milliseconds_of(const timespec &time)
{
    return time.tv_sec * 1000 + time.tv_nsec / 1'000'000;
}

int tarn_dump_config(confd_user_info *uinfo, char *, int, char **)
{
    const t_tarn_dump dump = tarn_dump_begin(uinfo);
    DUMP(dump, "\nFilter info\n");
    dump_log_config(dump);
    dump_visibility(dump);
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    DUMP(dump, "Last hello           : %ld\n",
         (milliseconds_of(now) - milliseconds_of(dump.p_tarn->last_hello_time)) / 1000);
    return 0;
}

// ---- Whole dumps ----

int tarn_dump_msgq(confd_user_info *uinfo, char *, int, char **)
{
    msgq_dump_instance(tarn_oper_context(uinfo), uinfo->usid);
    return 0;
}

using f_dump = int(confd_user_info *uinfo, char *path, int argc, char **argv);

static int run_priority_timers(confd_user_info *, char *, int, char **)
{
    return tarn_exec_priority_timers();
}

// A dump of a big configuration takes longer than others wait for a sign of life.
static f_dump *const whole_dump[] = {
    run_priority_timers,  tarn_dump_config,    tarn_dump_policy,      tarn_dump_acl,
    tarn_dump_acl6,       tarn_dump_vpn_list,  tarn_dump_prefix_list, tarn_dump_tloc_list,
    tarn_dump_tloc,       tarn_dump_mirror,    run_priority_timers,   tarn_dump_policer,
    tarn_dump_class,      tarn_dump_sla_class, tarn_dump_app_list,    tarn_dump_memory_stats,
    tarn_dump_memory_map, run_priority_timers, tarn_dump_filter,      tarn_dump_msgq,
};

int tarn_dump_all(confd_user_info *uinfo, char *path, int argc, char **argv)
{
    for (f_dump *dump : whole_dump)
        dump(uinfo, path, argc, argv);
    return 0;
}

int tarn_dump_admin_tech(confd_user_info *uinfo, char *path, int argc, char **argv)
{
    return tarn_dump_all(uinfo, path, argc, argv);
}
