// Access lists of both families.
#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/oper/tarn_dump_private.h"

// How a family names a policer in its first row.
using f_policer_name = void (*)(const t_tarn_dump &dump, const t_tarn_policer_key &key);

static void policer_name_v4(const t_tarn_dump &dump, const t_tarn_policer_key &key)
{
    DUMP(dump, "  Name: %d.%s Type: %d Policy Name: %s\n", key.sequence_id, key.name,
         static_cast<int>(key.type), key.policy_name);
}

static void policer_name_v6(const t_tarn_dump &dump, const t_tarn_policer_key &key)
{
    DUMP(dump, "  Name: %s Type: %d Sequence Id: %d Policy Name: %s\n", key.name, static_cast<int>(key.type),
         key.sequence_id, key.policy_name);
}

static void dump_counters(const t_tarn_dump &dump, const avl_tree_t &counters)
{
    DUMP(dump, "    Counter db: %d\n", tarn_dump_size(counters));
    tarn_dump_tree<t_tarn_config_counter_ref>(counters, [&](const t_tarn_config_counter_ref &counter) {
        DUMP(dump, "        [%p] %s (#%d)\n", static_cast<const void *>(&counter), counter.name,
             static_cast<int>(counter.ref_count));
    });
}

static void dump_prefix_lists(const t_tarn_dump &dump, const avl_tree_t &lists)
{
    DUMP(dump, "    Pfx List db: %d\n", tarn_dump_size(lists));
    tarn_dump_tree<t_tarn_access_pfx_ctx>(lists, [&](const t_tarn_access_pfx_ctx &ctx) {
        const t_tarn_pfx_list_key &key = ctx.p_pfx_list->key;
        DUMP(dump, "      Pfx List: %s Type: %d Ref: %d\n", key.name, static_cast<int>(key.pfx_list_type),
             static_cast<int>(ctx.ref_count));
    });
}

static void dump_access_list(const t_tarn_dump &dump, const t_tarn_access_list &list,
                             f_policer_name policer_name)
{
    DUMP(dump, "\n  ACL: %s Type: %d FilterId: %d\n", list.key.name, static_cast<int>(list.key.af_type),
         list.filter_id);
    DUMP(dump, "    Intf db: %d\n", tarn_dump_size(list.intf_db));
    DUMP(dump, "    Rule db: %d\n", tarn_dump_size(list.rule_db));
    dump_counters(dump, list.counter_db);
    DUMP(dump, "    Class db: %d\n", tarn_dump_size(list.class_db));
    DUMP(dump, "    Policer db: %d\n", tarn_dump_size(list.policer_db));
    tarn_dump_tree<t_tarn_policer_config>(list.policer_db, [&](const t_tarn_policer_config &policer) {
        policer_name(dump, policer.key);
        tarn_dump_policer_rate(dump, "        ", policer);
    });
    dump_prefix_lists(dump, list.pfx_list_db);
}

int tarn_dump_acl(confd_user_info *uinfo, char *, int, char **)
{
    const t_tarn_dump dump = tarn_dump_begin(uinfo);
    DUMP(dump, "\nAccess List Database\n");
    tarn_dump_tree<t_tarn_access_list>(dump.p_tarn->access_list_db, [&](const t_tarn_access_list &list) {
        dump_access_list(dump, list, policer_name_v4);
    });
    return 0;
}

int tarn_dump_acl6(confd_user_info *uinfo, char *, int, char **)
{
    const t_tarn_dump dump = tarn_dump_begin(uinfo);
    DUMP(dump, "\nAccess List IPv6 Database\n");
    tarn_dump_tree<t_tarn_access_list>(dump.p_tarn->access_list6_db, [&](const t_tarn_access_list &list) {
        dump_access_list(dump, list, policer_name_v6);
    });
    return 0;
}
