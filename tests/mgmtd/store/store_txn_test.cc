// Transactions: hooks, validation, prepare, failures, late answers.

#include "tests/mgmtd/store/store_world.h"

static std::string joined(const std::vector<std::string> &events)
{
    std::string text;
    for (const std::string &event : events)
        text += (text.empty() ? "" : "; ") + event;
    return text;
}

static const char *const g_hooked =
    R"([{"path":"/store-test/hooked{x 1}","value":{"value":5,"flag":[null],"inside":{"part":[{"id":1}]}}}])";

TEST(StoreTxn, HooksRunAtCreationBeforeTheRestOfTheEdit)
{
    t_world_store world;
    mgmt_txn_ptr txn = mgmt_txn_new(&world.store, MGMT_TXN_PRIVATE, &g_world_ops, &world);
    std::string seen;
    world.on_hook = [&](t_mgmt_txn *p_txn, const t_mgmt_hook_call &call, t_mgmt_error *p_error) {
        t_mgmt_error ignored;
        bool is_entry = call.keypath.size() == 3;
        bool has_value = mgmt_path_node(mgmt_txn_tree(*p_txn), world_path("/store-test/hooked{x 1}/value"),
                                        &ignored) != nullptr;
        seen += has_value ? "set " : "unset ";
        std::string text = "99";
        return !is_entry || mgmt_txn_set(p_txn, world_path("/store-test/hooked{x 1}/value"), &text, p_error)
                   ? MGMT_ANSWER_YES
                   : MGMT_ANSWER_NO;
    };
    mgmt_txn_edit(txn.get(), world_edits(g_hooked));
    EXPECT_EQ(mgmt_error_text(world.error), "");
    EXPECT_EQ(joined(world.events),
              "hook hooked-cp /store-test/hooked{x 1}; hook hooked-cp /store-test/hooked{x 1}/flag; "
              "hook hooked-cp /store-test/hooked{x 1}/inside/part{1}");
    EXPECT_EQ(seen.substr(0, 6), "unset ");
    t_mgmt_error error;
    const lyd_node *p_value =
        mgmt_path_node(mgmt_txn_tree(*txn), world_path("/store-test/hooked{x 1}/value"), &error);
    EXPECT_STREQ(mgmt_node_text(p_value), "5") << "what the edit names wins";
    // Again: nothing is new. And never when stored configuration comes back.
    world.events.clear();
    mgmt_txn_edit(txn.get(), world_edits(g_hooked));
    mgmt_txn_edit(txn.get(), world_edits(R"([{"path":"/store-test/hooked{y 1}/value","value":1}])"), false);
    EXPECT_EQ(joined(world.events), "");
    world.on_hook = nullptr;
}

TEST(StoreTxn, AHookMayAnswerLateOrRefuse)
{
    t_world_store world;
    world.on_hook = [](t_mgmt_txn *, const t_mgmt_hook_call &, t_mgmt_error *) { return MGMT_ANSWER_LATER; };
    mgmt_txn_ptr txn = mgmt_txn_new(&world.store, MGMT_TXN_CANDIDATE, &g_world_ops, &world);
    mgmt_txn_edit(txn.get(), world_edits(g_hooked));
    EXPECT_EQ(mgmt_txn_state(*txn), MGMT_TXN_EDITING);
    EXPECT_EQ(world.completions, 0);
    EXPECT_EQ(world.store.candidate, nullptr);
    std::string text = "7";
    t_mgmt_error error;
    EXPECT_TRUE(mgmt_txn_set(txn.get(), world_path("/store-test/hooked{x 1}/value"), &text, &error));
    mgmt_txn_answer(txn.get(), {});
    mgmt_txn_answer(txn.get(), {});
    EXPECT_EQ(world.completions, 0);
    mgmt_txn_answer(txn.get(), {MGMT_ERR_EXTERNAL, "/x", "no"});
    EXPECT_EQ(world.completions, 1);
    EXPECT_EQ(mgmt_error_text(world.error), "/x: no");
    EXPECT_EQ(mgmt_txn_state(*txn), MGMT_TXN_OPEN);
    EXPECT_EQ(world.store.candidate, nullptr) << "nothing of a refused edit remains";
    // A transaction that is dropped while a hook is open leaves nothing either.
    mgmt_txn_edit(txn.get(), world_edits(g_hooked));
    txn = nullptr;
    EXPECT_EQ(world.store.candidate, nullptr);
}

TEST(StoreTxn, ACommitGoesThroughItsSteps)
{
    t_world_store world;
    EXPECT_EQ(world.commit(R"([{"path":"/store-test/watched","value":1}])"), "");
    EXPECT_EQ(joined(world.events), "validate watched-vp; prepare; swapped");
    EXPECT_EQ(world_lines(world.store.running), "+ /store-test/watched 1\n");
    ASSERT_EQ(world.store.files.commits.size(), 1u);
    EXPECT_EQ(world.store.files.commits[0].comment, "a \"test\"");
    // Without a difference there is no commit.
    world.events.clear();
    EXPECT_EQ(world.commit(R"([{"path":"/store-test/watched","value":1}])"), "");
    EXPECT_EQ(joined(world.events), "");
    EXPECT_EQ(world.store.files.commits.size(), 1u);
}

TEST(StoreTxn, RefusalsLeaveRunningAndTheFilesAlone)
{
    t_world_store world;
    std::string watched = R"([{"path":"/store-test/watched","value":1}])";
    world.on_validate = [](const t_mgmt_validation_call &call, t_mgmt_error *p_error) {
        mgmt_fail(p_error, MGMT_ERR_EXTERNAL, "/store-test/watched",
                  "not " + world_value(call.keypath.back().keys.empty() ? confd_value_t{C_NOEXISTS, {}}
                                                                        : confd_value_t{}));
        return MGMT_ANSWER_NO;
    };
    EXPECT_EQ(world.commit(watched), "/store-test/watched: not none");
    world.on_validate = nullptr;
    world.on_prepare = [](t_mgmt_error *p_error) {
        mgmt_fail(p_error, MGMT_ERR_EXTERNAL, "", "Unable to apply changes");
        return MGMT_ANSWER_NO;
    };
    EXPECT_EQ(world.commit(watched), "Unable to apply changes");
    world.on_prepare = nullptr;
    EXPECT_EQ(world.commit(R"([{"path":"/policy/policer{p}/rate","value":"9"}])").substr(0, 18),
              "/policy/policer{p}");
    EXPECT_EQ(world_lines(world.store.running), "");
    EXPECT_EQ(world.store.files.commits.size(), 0u);
}

TEST(StoreTxn, AListMayNotSwitchItsKindWhileItStays)
{
    t_world_store world;
    EXPECT_EQ(world.commit(R"([{"path":"/policy/lists/app-list{l}/app{a}"}])"), "");
    EXPECT_EQ(world.commit(R"([{"path":"/policy/lists/app-list{l}/app-family{f}"}])"),
              "/policy/lists/app-list{l}: a list can't change from app to app-family in one commit; remove "
              "the list first");
    EXPECT_EQ(world.commit(R"([{"op":"delete","path":"/policy/lists/app-list{l}"}])"), "");
    EXPECT_EQ(world.commit(R"([{"path":"/policy/lists/app-list{l}/app-family{f}"}])"), "");
}

TEST(StoreTxn, ApplicationsComeOnlyWithANewSequence)
{
    t_world_store world;
    const std::string sequence = "/policy/access-list{acl}/sequence{1}";
    EXPECT_EQ(world.commit(R"([{"path":"/policy/lists/app-list{l}/app{a}"},{"path":")" + sequence +
                           R"(","value":{"match":{"app-list":"l"},"action":{"base-action":"drop"}}}])"),
              "");
    EXPECT_EQ(world.commit(world_edit("delete", sequence + "/match/app-list")), "");
    EXPECT_EQ(world.commit(world_edit("merge", sequence + "/match/app-list", "\"l\"")).substr(0, 74),
              "/policy/access-list{acl}/sequence{1}/match/app-list: applications can't be");
}

// Every change of one entry is validated: what others refer to makes the whole tree count.
TEST(StoreTxn, RemovingWhatOthersNeedIsRefused)
{
    t_world_store world;
    EXPECT_EQ(world.commit(R"([{"path":"/vpn/vpn-instance{5}"},{"path":"/policy-from-keelson","value":{
        "lists":{"data-prefix-list":[{"name":"l","ip-prefix":[{"prefix":"10.0.0.0/8"}]}],"vpn-list":[{"name":"v","vpn":[{"range":"5"}]}]},
        "data-policy":[{"name":"p","vpn-list":[{"name":"v","sequence":[{"number":1,"match":{"source-data-prefix-list":"l"},
        "action":{"base-action":"accept","nat":{"use-vpn":5}}}]}]}]}}])"),
              "");
    static const char *const needed[] = {
        "/vpn/vpn-instance{5}", "/policy-from-keelson/lists/data-prefix-list{l}",
        "/policy-from-keelson/lists/data-prefix-list{l}/ip-prefix{10.0.0.0/8}",
        "/policy-from-keelson/lists/vpn-list{v}",
        "/policy-from-keelson/data-policy{p}/vpn-list{v}/sequence{1}/action/base-action"};
    for (const char *p_path : needed)
        EXPECT_NE(world.commit(world_edit("delete", p_path)), "") << p_path;
    EXPECT_NE(
        world.commit(
            R"([{"path":"/policy-from-keelson/data-policy{p}/vpn-list{v}/sequence{1}/action/nat/use-vpn","value":6}])"),
        "");
    EXPECT_EQ(
        world.commit(
            R"([{"path":"/policy-from-keelson/data-policy{p}/vpn-list{v}/sequence{1}/action/set/dscp","value":6}])"),
        "");
}

TEST(StoreTxn, PrivateChangesAreMadeOnTheRunningOfTheirDay)
{
    t_world_store world;
    mgmt_txn_ptr early = mgmt_txn_new(&world.store, MGMT_TXN_PRIVATE, &g_world_ops, &world);
    mgmt_txn_edit(early.get(), world_edits(R"([{"path":"/policy/zone{early}"}])"));
    EXPECT_EQ(world.commit(R"([{"path":"/policy/zone{late}"}])"), "");
    mgmt_txn_commit(early.get(), {});
    EXPECT_EQ(mgmt_error_text(world.error), "");
    EXPECT_EQ(world_lines(world.store.running), "+ /policy/zone{early}\n+ /policy/zone{late}\n");
}

TEST(StoreTxn, ReadersKeepTheTreeTheyHold)
{
    t_world_store world;
    EXPECT_EQ(world.commit(R"([{"path":"/policy/zone{a}"}])"), "");
    mgmt_tree_ptr held = world.store.running;
    mgmt_txn_ptr txn = mgmt_txn_new(&world.store, MGMT_TXN_CANDIDATE, &g_world_ops, &world);
    mgmt_txn_edit(txn.get(),
                  world_edits(R"([{"op":"replace","path":"/policy/zone","value":[{"name":"b"}]}])"));
    mgmt_tree_ptr candidate = world.store.candidate;
    EXPECT_EQ(world_lines(candidate), "+ /policy/zone{b}\n");
    mgmt_txn_validate(txn.get());
    mgmt_txn_commit(txn.get(), {});
    EXPECT_EQ(world.store.candidate, nullptr);
    EXPECT_EQ(mgmt_store_pre_commit(world.store), held);
    EXPECT_EQ(world_lines(held), "+ /policy/zone{a}\n");
    EXPECT_EQ(world_lines(world.store.running), "+ /policy/zone{b}\n");
    // Rollback goes through a transaction too, without hooks.
    mgmt_work_tree_ptr old;
    t_mgmt_error error;
    ASSERT_TRUE(mgmt_files_rollback(world.store.files, 1, &old, &error)) << mgmt_error_text(error);
    txn = mgmt_txn_new(&world.store, MGMT_TXN_PRIVATE, &g_world_ops, &world);
    mgmt_txn_replace(txn.get(), old);
    mgmt_txn_commit(txn.get(), {});
    EXPECT_EQ(world_lines(world.store.running), "+ /policy/zone{a}\n");
}
