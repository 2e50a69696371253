// Mirrors, policers and classes.
#include "tarnd/config/tarn_class.h"
#include "tarnd/config/tarn_mirror.h"
#include "tarnd/oper/tarn_dump_private.h"

// ---- Mirrors ----

// Mirrors have their IPv4 words in network order.
static t_fp_ipaddr shown_address(t_fp_ipaddr address)
{
    if (FP_IPADDR_IS_V4(&address))
        FP_IPADDR_SET_V4(&address, __builtin_bswap32(fp_ipaddr_v4(&address)));
    return address;
}

static void dump_mirror(const t_tarn_dump &dump, const t_tarn_mirror_config &mirror)
{
    DUMP(dump, "  %s type: %d\n", mirror.key.name, mirror.mirror_type);
    DUMP(dump, "    Ref: %u\n", static_cast<unsigned>(avl_numnodes(&mirror.ref_db)));
    if (mirror.mirror_type == TARN_MIRROR_INTF || mirror.mirror_type == TARN_MIRROR_BOTH)
        tarn_dump_list<t_tarn_mirror_intf_config>(
            mirror.intf_list,
            [&](const t_tarn_mirror_intf_config &intf) { DUMP(dump, "        Interface: %s\n", intf.name); });
    if (mirror.mirror_type == TARN_MIRROR_TUNNEL || mirror.mirror_type == TARN_MIRROR_BOTH)
        tarn_dump_list<t_tarn_mirror_tunnel_config>(
            mirror.tunnel_list, [&](const t_tarn_mirror_tunnel_config &tunnel) {
                t_fp_ipaddr dst = shown_address(tunnel.dst_ip);
                t_fp_ipaddr src = shown_address(tunnel.src_ip);
                DUMP(dump, "        Remote Dest: %s Source: %s\n", fp_ipaddr_print(&dst, nullptr),
                     fp_ipaddr_print(&src, nullptr));
            });
}

int tarn_dump_mirror(confd_user_info *uinfo, char *, int, char **)
{
    const t_tarn_dump dump = tarn_dump_begin(uinfo);
    DUMP(dump, "\nMirror Database\n");
    tarn_dump_tree<t_tarn_mirror_config>(
        dump.p_tarn->mirror_db, [&](const t_tarn_mirror_config &mirror) { dump_mirror(dump, mirror); });
    return 0;
}

// ---- Policers ----

void tarn_dump_policer_rate(const t_tarn_dump &dump, const char *indent, const t_tarn_policer_config &policer)
{
    DUMP(dump, "%sBtype: %u, Bname: %s, Bname2: %s\n", indent, policer.bind_type, policer.bind_name,
         policer.bind_name2);
    DUMP(dump, "%sBW: %lu, Burst: %u, OOB: %u\n", indent, policer.bandwidth, policer.burst,
         policer.oob_action);
}

static void dump_policer(const t_tarn_dump &dump, const t_tarn_policer_config &policer)
{
    DUMP(dump, "  Name: %d.%s Type: %d Policy Name: %s\n", policer.key.sequence_id, policer.key.name,
         static_cast<int>(policer.key.type), policer.key.policy_name);
    tarn_dump_policer_rate(dump, "    ", policer);
    DUMP(dump, "    Instance Ref: %u\n", static_cast<unsigned>(avl_numnodes(&policer.instance_db)));
    tarn_dump_tree<t_tarn_policer_config>(policer.instance_db, [&](const t_tarn_policer_config &instance) {
        DUMP(dump, "        Key: Name: %d.%s Type: %d Policy Name: %s\n", instance.key.sequence_id,
             instance.key.name, static_cast<int>(instance.key.type), instance.key.policy_name);
    });
}

int tarn_dump_policer(confd_user_info *uinfo, char *, int, char **)
{
    const t_tarn_dump dump = tarn_dump_begin(uinfo);
    DUMP(dump, "\nPolicer Database\n");
    tarn_dump_tree<t_tarn_policer_config>(
        dump.p_tarn->policer_db, [&](const t_tarn_policer_config &policer) { dump_policer(dump, policer); });
    return 0;
}

// ---- Classes ----

int tarn_dump_class(confd_user_info *uinfo, char *, int, char **)
{
    const t_tarn_dump dump = tarn_dump_begin(uinfo);
    DUMP(dump, "\nClass Database\n");
    tarn_dump_tree<t_tarn_class>(dump.p_tarn->class_db, [&](const t_tarn_class &fc) {
        DUMP(dump, "  %s class: %d queue: %d ignore: %d\n", fc.name, fc._class, fc.queue, fc.ignore);
    });
    return 0;
}

int tarn_dump_sla_class(confd_user_info *uinfo, char *, int, char **)
{
    const t_tarn_dump dump = tarn_dump_begin(uinfo);
    DUMP(dump, "\nSLA Class Database\n");
    tarn_dump_tree<t_tarn_sla_class>(dump.p_tarn->sla_class_db, [&](const t_tarn_sla_class &sla_class) {
        DUMP(dump, "  %s id: %d\n", sla_class.key.name, sla_class.id);
    });
    return 0;
}
