// Filter memory that runs out: who waits, who is told, and who gets what comes free.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <utility>

#include "platform/confd/confd_lib.h"
#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/config/tarn_process.h"
#include "tarnd/core/tarn_main.h"
#include "tests/common/syslog_lines.h"
#include "tests/tarnd/config/pass_world.h"
#include "tests/tarnd/oper/notification_record.h"

using t_texts = std::vector<std::string>;

static constexpr e_tarn_policy_type DATA = TARN_POLICY_TYPE_DATA;
static constexpr e_tarn_policy_type PFR = TARN_POLICY_TYPE_PFR;

static t_texts log_texts()
{
    t_texts texts;
    for (const t_syslog_line &line : syslog_lines_take())
        texts.push_back(std::to_string(line.priority) + " " + line.text);
    return texts;
}

static std::string failure(int bytes, const char *names)
{
    return "191 Failed to allocate memory [" + std::to_string(bytes) + "/" +
           std::to_string((bytes + 127) / 128) + "] for policy " + names + ". Continuing without the policy.";
}

static std::string alert(const char *names)
{
    return std::string("185 %Lumora-edge-1-TARND-1-ALRT-1100002: Failed to allocate memory for policy ") +
           names + ". Continuing without the policy.";
}

// Two contexts wait behind a policy that takes all the memory. It goes: the first of the two gets its place,
// the second fails again.
TEST(PassMemory, TheFirstInTheTreeGetsWhatComesFree)
{
    strcpy(g_hostname, "edge-1");
    PassWorld world;
    world.add_vpn_list("A", 1);
    world.add_vpn_list("B", 2);
    world.add_policy(PFR, "early", {"A"});
    world.add_rule(PFR, "early", "A", 10);
    world.pass();
    int blocks = world.memory.used();
    int bytes = world.memory.wanted;
    world.memory.budget = blocks;
    world.add_policy(DATA, "late", {"A", "B"});
    world.add_rule(DATA, "late", "A", 10);
    world.add_rule(DATA, "late", "B", 10);
    world.messages();
    log_texts();

    world.pass();
    EXPECT_EQ(world.messages(), (t_texts{"+1 late/1 #64", "+1 late/2 #64"}));
    EXPECT_EQ(log_texts(), (t_texts{failure(bytes, "late - A"), alert("late - A"), failure(bytes, "late - B"),
                                    alert("late - B")}));
    EXPECT_EQ(notification_record_take(),
              (std::vector<t_tarn_notification>{{"A", "late", "Failed"}, {"B", "late", "Failed"}}));

    EXPECT_EQ(tarn_policy_delete(&world.tarn, PFR, "early"), 0);
    world.pass();
    EXPECT_EQ(world.messages(), t_texts{"-2 early/1 #0"}) << "freed, but not released: nobody tries";
    EXPECT_EQ(log_texts(), t_texts{});

    world.release();
    EXPECT_EQ(world.messages(), (t_texts{"-1 late/1 #64", "+1 late/1 #0", "-1 late/2 #64", "+1 late/2 #64"}));
    EXPECT_EQ(
        log_texts(),
        (t_texts{"191 Processing oom policy (freed memory: " + std::to_string(blocks) + ")",
                 "191 Retry programming for policy: late-1-A", "191 Retry programming for policy: late-1-B",
                 "190 %Lumora-edge-1-TARND-6-INFO-1100004: Successfully re-programmed policy late - A",
                 failure(bytes, "late - B"), alert("late - B")}));
    EXPECT_EQ(notification_record_take(),
              (std::vector<t_tarn_notification>{{"A", "late", "Success"}, {"B", "late", "Failed"}}));
    EXPECT_EQ(world.context(DATA, "late", "B")->rule_list.count, 1);
}

TEST(PassMemory, AccessListsThatWaitAreMarkedToo)
{
    PassWorld world;
    t_tarn_access_list lists[4] = {};
    const char *names[] = {"waits", "runs", "waits6", "runs6"};
    for (int i = 0; i < 4; i++) {
        strcpy(lists[i].key.name, names[i]);
        lists[i].filter_id = i % 2 == 0 ? RETRY_ID : 3;
        avl_tree_t *p_tree = i < 2 ? &world.tarn.access_list_db : &world.tarn.access_list6_db;
        EXPECT_EQ(avl_insert(p_tree, &lists[i]), 0);
    }
    log_texts();
    EXPECT_EQ(tarn_process_oom_policies(&world.tarn, 4), 0);
    EXPECT_EQ(log_texts(),
              (t_texts{"191 Processing oom policy (freed memory: 4)", "191 Retry programming for ACL: waits",
                       "191 Retry programming for ACL6: waits6"}));
    for (const t_tarn_access_list &list : lists)
        EXPECT_EQ(list.changed, 0) << "the pass that follows takes the marks";
    avl_destroy_nodes(&world.tarn.access_list_db, nullptr);
    avl_destroy_nodes(&world.tarn.access_list6_db, nullptr);
}

// ---- Against a model of the memory ----

static const char *const list_names[] = {"A", "B", "C", "D"};
static const char *const prefixes[] = {"10.0.0.0/8",    "172.16.0.0/12", "192.168.0.0/16", "192.0.2.0/24",
                                       "100.64.0.0/10", "198.18.0.0/15", "203.0.113.0/24", "10.1.0.0/16"};

namespace {

// A context, what its program takes, and whether the model says that it has it.
struct t_sized {
    e_tarn_policy_type type;
    const char *list;
    int blocks;
    bool loaded;
};

// Eight contexts in tree order, with programs of different sizes.
class SizedWorld {
public:
    SizedWorld();

    // Marks contexts, at the daemon and in the model, and runs a pass.
    template <typename F>
    void pass(int budget, F is_dirty);
    void release();
    int waiting() const
    {
        return static_cast<int>(std::count_if(contexts.begin(), contexts.end(),
                                              [](const t_sized &context) { return !context.loaded; }));
    }

    PassWorld world;
    int need;  // blocks of all

private:
    void add_context(e_tarn_policy_type type, const char *list, uint32_t rules);
    void model_load(t_sized *p_context);
    void check();

    std::vector<t_sized> contexts;
    int used = 0;
    int slots = 0;
    int freed_blocks = 0;
    int freed_slots = 0;
};

}  // namespace

void SizedWorld::add_context(e_tarn_policy_type type, const char *list, uint32_t rules)
{
    for (uint32_t id = 0; id < rules; id++) {
        confd_ipv4_prefix prefix = test_prefix(prefixes[id]);
        t_tarn_config_rule *p_rule = world.add_rule(type, "sized", list, id);
        EXPECT_EQ(tarn_config_field_add(&world.tarn, TARN_FIELD_TYPE_SRC_ADDR, &prefix, p_rule), 0);
    }
    contexts.push_back({type, list, 0, true});
}

SizedWorld::SizedWorld()
{
    for (const char *list : list_names)
        world.add_vpn_list(list, static_cast<uint64_t>(list[0]));
    for (e_tarn_policy_type type : {DATA, PFR}) {
        world.add_policy(type, "sized", {std::begin(list_names), std::end(list_names)});
        for (const char *list : list_names)
            add_context(type, list, static_cast<uint32_t>(contexts.size() * 3 % 8 + 1));
    }
    world.pass();
    for (t_sized &context : contexts)
        context.blocks =
            world.memory.blocks_of(world.context(context.type, "sized", context.list)->p_program);
    need = used = world.memory.used();
    slots = static_cast<int>(contexts.size());
}

void SizedWorld::model_load(t_sized *p_context)
{
    p_context->loaded = used + p_context->blocks <= world.memory.budget && slots < RETRY_ID;
    used += p_context->loaded ? p_context->blocks : 0;
    slots += p_context->loaded;
}

template <typename F>
void SizedWorld::pass(int budget, F is_dirty)
{
    world.memory.budget = budget;
    for (t_sized &context : contexts) {
        if (!is_dirty())
            continue;
        EXPECT_EQ(tarn_policy_vpn_list_change(&world.tarn, context.type, "sized", context.list, 1, nullptr),
                  0);
        freed_blocks += context.loaded ? context.blocks : 0;
        freed_slots += context.loaded;
        model_load(&context);
    }
    world.pass();
    check();
}

void SizedWorld::release()
{
    bool anything = freed_blocks > 0;
    used -= std::exchange(freed_blocks, 0);
    slots -= std::exchange(freed_slots, 0);
    for (t_sized &context : contexts)
        if (anything && !context.loaded)
            model_load(&context);
    world.release();
    check();
}

void SizedWorld::check()
{
    for (const t_sized &context : contexts)
        EXPECT_EQ(world.context(context.type, "sized", context.list)->p_program != nullptr, context.loaded)
            << context.type << context.list;
    EXPECT_EQ(world.memory.used(), used);
}

TEST(PassMemory, WithAnyBudgetWhatFitsRunsAndTheRestWaits)
{
    auto all = [] { return true; };
    SizedWorld sized;
    for (int percent = 0; percent <= 110; percent++) {
        SCOPED_TRACE(percent);
        sized.pass(0, all);
        sized.release();
        notification_record_take();
        sized.pass(sized.need * percent / 100, all);
        std::vector<t_tarn_notification> sent = notification_record_take();
        auto failed = [](const t_tarn_notification &n) { return n.status == "Failed"; };
        EXPECT_EQ(std::count_if(sent.begin(), sent.end(), failed), sized.waiting());
        EXPECT_EQ(sent.size(), 8u) << "all had waited: the others came back";
        EXPECT_EQ(percent >= 100, sized.waiting() == 0);
    }
}

TEST(PassMemory, ExhaustedAndReleasedAtRandom)
{
    static constexpr unsigned seed = 20250;
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    SizedWorld sized;
    for (int round = 0; round < 1000 && !HasFailure(); round++) {
        SCOPED_TRACE(round);
        int budget = static_cast<int>(random() % static_cast<unsigned>(2 * sized.need));
        sized.pass(budget, [&] { return random() % 3 == 0; });
        if (random() % 2 == 0)
            sized.release();
    }
}
