#include "tests/tarnd/oper/show_world.h"

#include "fp_api/fp_scaling.h"
#include "fp_api/fp_tables.h"
#include "platform/confd/double/confd_double.h"
#include "tarnd/acl/tarn_intf_config.h"
#include "tarnd/compiler/tarn_program.h"
#include "tarnd/oper/tarn_show.h"

#include <cstring>
#include <gtest/gtest.h>
#include <malloc.h>
#include <span>

// ---- The framework ----

static ShowWorld *g_world;

#define REGISTER _Z22confd_register_data_cbP16confd_daemon_ctxPK14confd_data_cbs
#define JOIN(prefix, name) prefix##name
#define CALL(prefix, name) JOIN(prefix, name)

extern "C" int CALL(__real_, REGISTER)(confd_daemon_ctx *dx, const confd_data_cbs *data);
extern "C" int CALL(__wrap_, REGISTER)(confd_daemon_ctx *dx, const confd_data_cbs *data)
{
    if (g_world != nullptr && g_world->refused_after-- == 0)
        return CONFD_ERR;
    int result = CALL(__real_, REGISTER)(dx, data);
    if (result == CONFD_OK && g_world != nullptr) {
        g_world->callbacks[data->callpoint] = *data;
        g_world->order.push_back(data->callpoint);
    }
    return result;
}

confd_hkeypath_t keypath_of(const t_path &path)
{
    confd_hkeypath_t keypath = {};
    for (auto step = path.rbegin(); step != path.rend(); ++step) {
        confd_value_t *p_key = keypath.v[keypath.len];
        for (const confd_value_t &key : step->second)
            *p_key++ = key;
        p_key->type = C_NOEXISTS;
        keypath.len += !step->second.empty();
        keypath.v[keypath.len][0].type = C_XMLTAG;
        keypath.v[keypath.len][0].val.xmltag = {step->first, LUMORA_NS_POLICY};
        keypath.v[keypath.len++][1].type = C_NOEXISTS;
    }
    return keypath;
}

static std::vector<std::string> replies()
{
    std::vector<std::string> texts;
    for (const t_confd_call &call : confd_double_calls())
        if (call.function.starts_with("confd_data_reply_"))
            texts.push_back(call.function.substr(strlen("confd_data_reply_")) +
                            (call.text.empty() ? "" : " " + call.text));
    return texts;
}

std::vector<std::string> ShowWorld::get(const std::string &callpoint, const t_path &path)
{
    confd_double_reset();
    confd_hkeypath_t keypath = keypath_of(path);
    EXPECT_EQ(callbacks.at(callpoint).get_object(&tctx, &keypath), CONFD_OK);
    return replies();
}

std::vector<std::string> ShowWorld::get_next(const std::string &callpoint, const t_path &path, long next)
{
    confd_double_reset();
    confd_hkeypath_t keypath = keypath_of(path);
    EXPECT_EQ(callbacks.at(callpoint).get_next_object(&tctx, &keypath, next), CONFD_OK);
    return replies();
}

std::vector<std::string> ShowWorld::find_next(const std::string &callpoint, const t_path &path,
                                              std::vector<confd_value_t> keys, confd_find_next_type type)
{
    confd_double_reset();
    confd_hkeypath_t keypath = keypath_of(path);
    EXPECT_EQ(callbacks.at(callpoint).find_next_object(&tctx, &keypath, type, keys.data(),
                                                       static_cast<int>(keys.size())),
              CONFD_OK);
    return replies();
}

// The key leaves of a row come first: a name, and of an interface's row the direction.
static std::vector<confd_value_t> keys_of(const std::string &row)
{
    std::vector<confd_value_t> keys = {text(row.substr(9, row.find(' ') - 9))};
    size_t direction = row.find("=enum ");
    if (direction != std::string::npos)
        keys.push_back(enumerator(row[direction + strlen("=enum ")] - '0'));
    return keys;
}

std::vector<std::string> ShowWorld::walk(const std::string &callpoint, const t_path &path)
{
    static const std::string row = "next_object_tag_value_array ";
    std::vector<std::string> rows;
    t_path exact = path;
    std::vector<std::string> reply = get_next(callpoint, path);
    while (reply.at(0).starts_with(row) && reply[0] != row + "(-1, -1)") {
        size_t end = reply[0].find(" (");
        EXPECT_TRUE(reply[0].ends_with(", -1)")) << reply[0];
        rows.push_back(reply[0].substr(row.size(), end - row.size()));
        exact.back().second = keys_of(rows.back());
        std::string count = reply[0].substr(end + 2, reply[0].find(',', end) - end - 2);
        EXPECT_EQ(get(callpoint, exact).at(0), "tag_value_array " + rows.back() + " " + count);
        reply = find_next(callpoint, path, keys_of(rows.back()));
    }
    EXPECT_EQ(reply.at(0), rows.empty() ? row + "(-1, -1)" : "next_key (-1, -1)");
    return rows;
}

// ---- The store ----

ShowWorld::ShowWorld()
    : filters(RETRY_ID), blocks(4096), p_real_filter(g_fp_filter), p_real_blocks(g_fp_filter_mem_block)
{
    g_world = this;
    g_fp_filter = filters.data();
    g_fp_filter_mem_block = blocks.data();
    confd_double_reset();
    adapter.module_data.opaque_p = &tarn;
    adapter.confd_dctx_p = &dx;
    dx.d_opaque = &adapter;
    tctx.dx = &dx;
    EXPECT_EQ(tarn_show_init(&adapter), 0);
}

ShowWorld::~ShowWorld()
{
    g_fp_filter = p_real_filter;
    g_fp_filter_mem_block = p_real_blocks;
    g_world = nullptr;
}

static void add_policer(t_tarn *p_tarn, const char *name, e_tarn_policy_policer_type type)
{
    t_tarn_policer_config config = {};
    strcpy(config.key.name, name);
    config.key.type = type;
    config.key.sequence_id = -1;
    config.bandwidth = 8'000'000;
    EXPECT_EQ(tarn_config_policer_add(p_tarn, &config), 0);
}

void ShowWorld::add_policy_rules(e_tarn_policy_type type, const char *policy, const char *list)
{
    for (uint32_t id : {10u, 20u}) {
        t_tarn_config_rule *p_rule = add_rule(type, policy, list, id);
        t_tarn_range ports = {static_cast<int>(id), static_cast<int>(id)};
        EXPECT_EQ(tarn_config_field_add(&tarn, TARN_FIELD_TYPE_DST_PORT, &ports, p_rule), 0);
        add_action(p_rule, TARN_ACTION_TAG_COUNT, id == 10 ? "c1" : "c2");
        if (type == TARN_POLICY_TYPE_DATA)
            add_action(p_rule, TARN_ACTION_TAG_POLICER, "pol");
    }
}

void ShowWorld::add_access_list(e_tarn_af_type af_type)
{
    for (const char *name : {"l1", "l2"})
        EXPECT_EQ(tarn_access_list_add(&tarn, name, af_type, TARN_FILTER_ACTION_ACCEPT), 0);
    for (uint8_t direction : {uint8_t{1}, uint8_t{2}}) {
        t_tarn_acl_bind_param param = {7, "ge0/0", direction};
        EXPECT_EQ(tarn_access_list_bind(&tarn, af_type, "l1", &param), 0);
    }
    for (uint32_t id : {10u, 20u}) {
        t_tarn_config_rule *p_rule = nullptr;
        EXPECT_EQ(tarn_intf_config_rule_add(&tarn, "l1", af_type, id, &p_rule), 0);
        t_tarn_range ports = {static_cast<int>(id), static_cast<int>(id)};
        EXPECT_EQ(tarn_config_field_add(&tarn, TARN_FIELD_TYPE_DST_PORT, &ports, p_rule), 0);
        uint32_t accept = TARN_FILTER_ACTION_ACCEPT;
        const char *counter = id == 10 ? "c1" : "c2";
        EXPECT_EQ(
            tarn_intf_config_action_add(&tarn, "l1", af_type, id, TARN_ACTION_TAG_ACTION, &accept, nullptr),
            0);
        EXPECT_EQ(
            tarn_intf_config_action_add(&tarn, "l1", af_type, id, TARN_ACTION_TAG_COUNT, counter, nullptr),
            0);
        EXPECT_EQ(
            tarn_intf_config_action_add(&tarn, "l1", af_type, id, TARN_ACTION_TAG_POLICER, "pol", nullptr),
            0);
    }
}

void ShowWorld::add_objects()
{
    for (auto type : {TARN_POLICY_POLICER_TYPE_LOCAL, TARN_POLICY_POLICER_TYPE_KEELSON})
        add_policer(&tarn, "pol", type);
    add_vpn_list("v1", 1);
    add_vpn_list("v2", 2);
    add_policy(TARN_POLICY_TYPE_DATA, "d1", {"v1", "v2"});
    add_policy(TARN_POLICY_TYPE_DATA, "d2", {});
    add_policy(TARN_POLICY_TYPE_PFR, "a1", {"v1", "v2"});
    add_policy(TARN_POLICY_TYPE_PFR, "a2", {});
    add_policy(TARN_POLICY_TYPE_ZBF, "z1", {});
    add_policy(TARN_POLICY_TYPE_ZBF, "z2", {});
    add_policy_rules(TARN_POLICY_TYPE_DATA, "d1", "v1");
    add_policy_rules(TARN_POLICY_TYPE_PFR, "a1", "v1");
    add_policy_rules(TARN_POLICY_TYPE_ZBF, "z1", TARN_ZBF_VPN_LIST);
    add_access_list(TARN_AF_TYPE_IPV4);
    add_access_list(TARN_AF_TYPE_IPV6);
    pass();
}

// ---- Filter memory ----

static void count_some(void *action_data, t_fp_policer *)
{
    auto *p_slots = static_cast<t_tarn_filter_action *>(action_data);
    for (t_tarn_filter_action &slot : std::span(p_slots, MAX_ACTIONS_IN_RULE)) {
        if (slot.fwding_action == TARN_FILTER_ACTION_COUNT) {
            slot.counter.pkts[slot.counter.version] = 7;
            slot.counter.bytes[slot.counter.version] = 700;
        } else if (slot.fwding_action == TARN_FILTER_ACTION_POLICE) {
            slot.policer.oob_pkts[slot.policer.version] = 3;
            slot.policer.oob_bytes[slot.policer.version] = 300;
        }
    }
}

void ShowWorld::load_program(const void *p_program, int filter_id)
{
    if (p_program == nullptr)
        return;
    auto count = static_cast<uint32_t>(memory.blocks_of(p_program));
    ASSERT_LE(used_blocks + count, blocks.size());
    memcpy(&blocks[used_blocks], p_program, malloc_usable_size(const_cast<void *>(p_program)));
    filters[static_cast<size_t>(filter_id)] = {1, 0, 0, used_blocks, count};
    tarn_change_policer(&blocks[used_blocks], nullptr, count_some);
    used_blocks += count;
}

void ShowWorld::load()
{
    for (void *p = avl_first(&tarn.policy_db); p != nullptr; p = avl_walk(&tarn.policy_db, p)) {
        const avl_tree_t &contexts = static_cast<t_tarn_policy *>(p)->vpn_list_db;
        for (void *q = avl_first(&contexts); q != nullptr; q = avl_walk(&contexts, q)) {
            auto *p_context = static_cast<t_tarn_policy_vpn_list *>(q);
            load_program(p_context->p_program, p_context->filter_id);
        }
    }
    for (const avl_tree_t *p_lists : {&tarn.access_list_db, &tarn.access_list6_db})
        for (void *p = avl_first(p_lists); p != nullptr; p = avl_walk(p_lists, p)) {
            auto *p_access_list = static_cast<t_tarn_access_list *>(p);
            load_program(p_access_list->p_program, p_access_list->filter_id);
        }
}
