// Who may do what: the built-in groups as a table, rules as rows of one decision each, and a filter and an
// edit check that a plain evaluation of every single node must agree with.

#include "mgmtd/rights/mgmt_rights.h"

#include "mgmtd/store/mgmt_store.h"
#include "mgmtd/store/mgmt_txn.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <libyang/libyang.h>
#include <random>

// ---- The model, trees, nodes ----

namespace {

struct t_model {
    schema_context_ptr context;
    std::unique_ptr<const t_schema_index> index;

    t_model()
    {
        std::string error;
        std::vector<std::string> errors;
        context = schema_context_new(YANG_MODULE_FOLDER, &error);
        const char *features[] = {"*", nullptr};
        for (const char *name :
             {"ietf-netconf", "ietf-netconf-monitoring", "notifications", "nc-notifications"})
            if (ly_ctx_load_module(context.get(), name, nullptr, features) == nullptr)
                abort();
        index = schema_index_new(context.get(), &errors);
        if (index == nullptr)
            abort();
    }
};

}  // namespace

static const t_model &model()
{
    static const t_model made;
    return made;
}

static mgmt_work_tree_ptr tree_of(const std::string &json)
{
    mgmt_work_tree_ptr tree = mgmt_tree_new(model().index.get(), model().context.get());
    t_mgmt_error error;
    EXPECT_TRUE(mgmt_tree_read(tree.get(), json, &error)) << mgmt_error_text(error) << "\n" << json;
    return tree;
}

static const lysc_node *node_of(const std::string &path)
{
    const lysc_node *p_node = lys_find_path(model().context.get(), nullptr, path.c_str(), 0);
    EXPECT_NE(p_node, nullptr) << path;
    return p_node;
}

static std::string json_of(const t_mgmt_tree &tree)
{
    std::string text;
    mgmt_tree_print(tree, nullptr, 0, &text);
    return text;
}

// ---- Built-in groups ----

static const std::string users_of_all_groups = R"("lumora-system:users":{"user":[
    {"name":"ro","group":"read-only"},{"name":"op","group":"operator"},{"name":"ad","group":"admin"},
    {"name":"none"}]})";

TEST(MgmtRights, TheBuiltInGroupsOperationByOperation)
{
    mgmt_rights_ptr rights = mgmt_rights_new(*tree_of("{" + users_of_all_groups + "}"));
    static const struct {
        std::vector<const char *> operations;
        const char *permitted;  // users, in the order of the loop below
    } rows[] = {
        {{"/ietf-netconf:close-session"}, "nobody none ro op ad "},
        {{"/ietf-netconf:get", "/ietf-netconf:get-config", "/ietf-netconf-monitoring:get-schema",
          "/notifications:create-subscription"},
         "ro op ad "},
        {{"/lumora-debugs:tarn-dump-filter", "/lumora-debugs:tarn-dpi-dump-configuration",
          "/lumora-debugs:tarn-debug-disable-all", "/lumora-debugs:tarn-dpi-clear-protocol-hits",
          "/lumora-policy:tarn-clear-policy-acl6"},
         "op ad "},
        {{"/ietf-netconf:edit-config", "/ietf-netconf:copy-config", "/ietf-netconf:delete-config",
          "/ietf-netconf:lock", "/ietf-netconf:unlock", "/ietf-netconf:kill-session", "/ietf-netconf:commit",
          "/ietf-netconf:cancel-commit", "/ietf-netconf:discard-changes", "/ietf-netconf:validate"},
         "ad "},
    };
    for (const auto &row : rows) {
        for (const char *p_operation : row.operations) {
            std::string permitted;
            for (const char *p_user : {"nobody", "none", "ro", "op", "ad"}) {
                t_mgmt_error error;
                if (mgmt_rights_exec(*rights, mgmt_rights_subject(*rights, p_user), node_of(p_operation),
                                     &error))
                    permitted += std::string(p_user) + " ";
                else
                    EXPECT_NE(error.reason.find(p_user), std::string::npos) << error.reason;
            }
            EXPECT_EQ(permitted, row.permitted) << p_operation;
        }
    }
    EXPECT_GT(mgmt_rights_denials(*rights).operations, 0u);
}

// ---- Rules ----

enum e_ask { EXEC, NOTIFY, READ, CREATE, UPDATE, DELETE };

// What a user may do to one node, asked through the public functions alone.
static bool is_permitted(const t_mgmt_rights &rights, const std::string &user, e_ask ask,
                         const std::string &path, const std::string &json)
{
    t_mgmt_subject subject = mgmt_rights_subject(rights, user);
    t_mgmt_error error;
    if (ask == EXEC)
        return mgmt_rights_exec(rights, subject, node_of(path), &error);
    if (ask == NOTIFY)
        return mgmt_rights_notified(rights, subject, node_of(path));
    mgmt_work_tree_ptr with = tree_of(json);
    mgmt_work_tree_ptr without = mgmt_tree_copy(*with);
    lyd_node *p_node = nullptr;
    EXPECT_EQ(lyd_find_path(without->p_first, path.c_str(), 0, &p_node), LY_SUCCESS) << path;
    if (ask == READ) {
        mgmt_rights_filter(rights, subject, with.get());
        return with->p_first != nullptr &&
               lyd_find_path(with->p_first, path.c_str(), 0, &p_node) == LY_SUCCESS;
    }
    if (ask == UPDATE) {
        EXPECT_EQ(lyd_change_term(p_node, "9"), LY_SUCCESS);
    } else {
        without->p_first = without->p_first == p_node ? p_node->next : without->p_first;
        lyd_free_tree(p_node);
    }
    mgmt_tree_changed(without.get());
    if (ask == CREATE)
        return mgmt_rights_edit(rights, subject, mgmt_diff_new(without, with), &error);
    return mgmt_rights_edit(rights, subject, mgmt_diff_new(with, without), &error);
}

static const std::string zones = R"({"lumora-policy:policy":{"log-frequency":7,"zone":[
    {"name":"a","vpn":[{"vpn-id":1}]},{"name":"b","vpn":[{"vpn-id":2}]}]},
    "lumora-system:users":{"user":[{"name":"x","group":"admin"}]}})";
static const std::string zone_a = "/lumora-policy:policy/zone[name='a']";
static const std::string vpn_b = "/lumora-policy:policy/zone[name='b']/vpn[vpn-id='2']";
static const std::string frequency = "/lumora-policy:policy/log-frequency";
static const std::string users = "/lumora-system:users";

TEST(MgmtRights, TheFirstRuleThatMatchesDecides)
{
    struct t_row {
        std::string nacm;   // leaves of /nacm beside the groups
        std::string rules;  // of one list
        std::string groups;
        std::string user;
        e_ask ask;
        std::string path;
        bool wanted;
    };
    auto rule = [](const std::string &members, const char *p_action = "permit") {
        static int number = 0;
        return R"({"name":")" + std::to_string(number++) + R"(",)" + (members.empty() ? "" : members + ",") +
               R"("action":")" + p_action + R"("})";
    };
    std::string path_a = R"("path":"/lumora-policy:policy/zone[name='a']")";
    std::string path_zone = R"("path":"/lumora-policy:policy/zone")";
    std::string all = R"(["*"])";
    std::string noc = R"(["noc"])";
    const std::string dump = "/lumora-debugs:tarn-dump-filter";
    const std::string status = "/lumora-policy:data-policy-association-status";
    const t_row rows[] = {
        // No rule: built-in groups, marks, defaults.
        {"", "", all, "ro", READ, frequency, true},
        {"", "", all, "ro", READ, users, false},
        {"", "", all, "ro", NOTIFY, status, true},
        {"", "", all, "ro", UPDATE, frequency, false},
        {"", "", all, "op", UPDATE, frequency, false},
        {"", "", all, "ad", UPDATE, frequency, true},
        {"", "", all, "ad", DELETE, users, true},
        {"", "", all, "nan", READ, frequency, false},
        {"", "", all, "nan", NOTIFY, status, false},
        {"", "", all, "nan", NOTIFY, "/nc-notifications:replayComplete", true},
        {R"("read-default":"permit",)", "", all, "nan", READ, frequency, true},
        {R"("read-default":"permit",)", "", all, "nan", READ, users, false},
        {R"("read-default":"permit",)", "", all, "none", READ, frequency, false},
        {R"("read-default":"deny",)", "", all, "ro", READ, frequency, true},
        {R"("write-default":"permit",)", "", all, "nan", DELETE, zone_a, true},
        {R"("write-default":"permit",)", "", all, "ro", DELETE, users, false},
        {R"("exec-default":"permit",)", "", all, "nan", EXEC, dump, true},
        {R"("exec-default":"permit",)", "", all, "nan", EXEC, "/ietf-netconf:kill-session", false},
        {R"("enable-nacm":false,)", "", all, "none", READ, frequency, false},
        {R"("enable-nacm":false,)", rule("", "deny"), all, "ro", READ, frequency, true},
        // Groups.
        {"", rule(""), noc, "nan", READ, frequency, true},
        {"", rule(""), noc, "ro", UPDATE, frequency, false},
        {"", rule(""), all, "none", READ, frequency, false},
        {"", rule("", "deny"), all, "ad", UPDATE, frequency, false},
        {"", rule("", "deny"), all, "ad", EXEC, "/ietf-netconf:commit", false},
        {"", rule("", "deny"), all, "ad", EXEC, "/ietf-netconf:close-session", true},
        // Order, kinds of access.
        {"", rule("", "deny") + "," + rule(""), all, "nan", READ, frequency, false},
        {"", rule(R"("access-operations":"update delete")"), all, "nan", UPDATE, frequency, true},
        {"", rule(R"("access-operations":"update delete")"), all, "nan", CREATE, frequency, false},
        {"", rule(R"("access-operations":"update delete")"), all, "nan", EXEC, dump, false},
        {"", rule(R"("access-operations":"*")"), all, "nan", DELETE, zone_a, true},
        // Modules, operations, notifications.
        {"", rule(R"("module-name":"lumora-policy")"), all, "nan", UPDATE, frequency, true},
        {"", rule(R"("module-name":"lumora-system")"), all, "nan", UPDATE, frequency, false},
        {"", rule(R"("module-name":"lumora-system")"), all, "nan", READ, users, true},
        {"", rule(R"("rpc-name":"tarn-dump-filter")"), all, "ro", EXEC, dump, true},
        {"", rule(R"("rpc-name":"tarn-dump-all")"), all, "ro", EXEC, dump, false},
        {"", rule(R"("rpc-name":"*")"), all, "nan", READ, frequency, false},
        {"", rule(R"("rpc-name":"kill-session")"), all, "op", EXEC, "/ietf-netconf:kill-session", true},
        {"", rule(R"("notification-name":"data-policy-association-status")", "deny"), all, "ro", NOTIFY,
         status, false},
        {"", rule(R"("notification-name":"x")", "deny"), all, "ro", NOTIFY, status, true},
        // Paths.
        {"", rule(path_zone), all, "nan", READ, vpn_b, true},
        {"", rule(path_zone), all, "nan", READ, frequency, false},
        {"", rule(path_a), all, "nan", READ, zone_a, true},
        {"", rule(path_a), all, "nan", READ, vpn_b, false},
        {"", rule(path_a), all, "nan", DELETE, zone_a, true},
        {"", rule(path_a), all, "nan", DELETE, vpn_b, false},
        {"", rule(path_a, "deny") + "," + rule(path_zone), all, "nan", DELETE, zone_a, false},
        {"", rule(R"("path":"/lumora-policy:policy")", "deny") + "," + rule(path_a), all, "ad", READ, zone_a,
         false},
        {"", rule(path_a) + "," + rule(R"("path":"/lumora-policy:policy")", "deny"), all, "ad", READ, zone_a,
         false},
        {"", rule(R"("path":"/lumora-policy:policy/zone/vpn[vpn-id=\"2\"]")"), all, "nan", READ, vpn_b, true},
        {"", rule(R"("path":"/lumora-policy:policy/zone/vpn[vpn-id='1']/vpn-id")", "deny"), all, "ro", READ,
         zone_a + "/vpn[vpn-id='1']", false},
        {"", rule(R"("path":"/lumora-system:users/user/password")", "deny"), all, "ad", READ, users, true},
        {"", rule(R"("path":"/lumora-system:users/user/name")"), all, "nan", READ,
         users + "/user[name='x']/name", true},
        {"", rule(R"("path":"/lumora-system:users/user/name")"), all, "nan", READ,
         users + "/user[name='x']/group", false},
    };
    for (const t_row &row : rows) {
        std::string config = "{" + users_of_all_groups + R"(,"ietf-netconf-acm:nacm":{)" + row.nacm +
                             R"("groups":{"group":[{"name":"noc","user-name":["nan"]}]},)" +
                             R"("rule-list":[{"name":"l","group":)" + row.groups + R"(,"rule":[)" +
                             row.rules + "]}]}}";
        mgmt_rights_ptr rights = mgmt_rights_new(*tree_of(config));
        EXPECT_EQ(is_permitted(*rights, row.user, row.ask, row.path, zones), row.wanted)
            << row.user << " " << row.ask << " " << row.path << "\n"
            << config;
    }
}

// ---- Filtering against single questions ----

// The plain way: every node is asked about alone, with nothing remembered. A rule's path is the beginning of
// the paths that it is for, with keys or without.
using t_plain_rules = std::vector<std::pair<std::string, bool>>;

static std::string path_text(const lyd_node *p_node, LYD_PATH_TYPE type)
{
    char *p_path = lyd_path(p_node, type, nullptr, 0);
    std::string path = p_path;
    free(p_path);
    return path;
}

static bool plain_verdict(const t_plain_rules &rules, const lyd_node *p_node)
{
    std::string with_keys = path_text(p_node, LYD_PATH_STD);
    std::string without = path_text(p_node, LYD_PATH_STD_NO_LAST_PRED);
    for (size_t open = without.find('['); open != std::string::npos; open = without.find('['))
        without.erase(open, without.find(']', open) + 1 - open);
    for (const auto &[path, is_permit] : rules) {
        const std::string &asked = path.find('[') != std::string::npos ? with_keys : without;
        std::string_view rest = std::string_view(asked).substr(std::min(path.size(), asked.size()));
        if (asked.starts_with(path) && (rest.empty() || rest[0] == '/' || rest[0] == '['))
            return is_permit;
    }
    return true;  // the user reads by its group
}

static void plain_filter(const t_plain_rules &rules, lyd_node *p_first, lyd_node **pp_top)
{
    for (lyd_node *p_node = p_first, *p_next = nullptr; p_node != nullptr; p_node = p_next) {
        p_next = p_node->next;
        bool is_kept = plain_verdict(rules, p_node);
        for (lyd_node *p_key = lyd_child(p_node); is_kept && p_key != nullptr; p_key = p_key->next)
            is_kept = !lysc_is_key(p_key->schema) || plain_verdict(rules, p_key);
        if (is_kept) {
            plain_filter(rules, lyd_child(p_node), pp_top);
            continue;
        }
        *pp_top = *pp_top == p_node ? p_next : *pp_top;
        lyd_free_tree(p_node);
    }
}

TEST(MgmtRights, AFilteredTreeIsWhatSingleQuestionsLeave)
{
    std::mt19937 random(7);
    std::string config;
    for (int zone = 0; zone < 20; zone++)
        config += (zone > 0 ? "," : "") + std::string(R"({"name":"z)") + std::to_string(zone) +
                  R"(","vpn":[{"vpn-id":1},{"vpn-id":2}]})";
    config =
        R"({"lumora-policy:policy":{"log-frequency":7,"zone":[)" + config + R"(],"app-visibility":true}})";
    static const char *const paths[] = {"/lumora-policy:policy",
                                        "/lumora-policy:policy/zone",
                                        "/lumora-policy:policy/zone[name='z3']",
                                        "/lumora-policy:policy/zone[name='z4']",
                                        "/lumora-policy:policy/zone[name='z3']/vpn[vpn-id='2']",
                                        "/lumora-policy:policy/zone/vpn",
                                        "/lumora-policy:policy/zone/vpn/vpn-id",
                                        "/lumora-policy:policy/zone[name='z5']/name",
                                        "/lumora-policy:policy/log-frequency",
                                        "/lumora-policy:policy/app-visibility"};
    for (int round = 0; round < 200; round++) {
        t_plain_rules rules;
        std::string text;
        for (size_t i = 0; i < 1 + random() % 4; i++) {
            rules.emplace_back(paths[random() % std::size(paths)], random() % 2 == 0);
            text += (i > 0 ? "," : "") + std::string(R"({"name":")") + std::to_string(i) + R"(","path":")" +
                    rules.back().first + R"(","action":")" + (rules.back().second ? "permit" : "deny") +
                    "\"}";
        }
        mgmt_rights_ptr rights = mgmt_rights_new(
            *tree_of("{" + users_of_all_groups + R"(,"ietf-netconf-acm:nacm":{"rule-list":[{"name":"l",)" +
                     R"("group":["*"],"rule":[)" + text + "]}]}}"));
        mgmt_work_tree_ptr filtered = tree_of(config);
        mgmt_work_tree_ptr plain = mgmt_tree_copy(*filtered);
        mgmt_rights_filter(*rights, mgmt_rights_subject(*rights, "ro"), filtered.get());
        plain_filter(rules, plain->p_first, &plain->p_first);
        mgmt_tree_changed(plain.get());
        ASSERT_EQ(json_of(*filtered), json_of(*plain)) << "seed 7, round " << round << "\n" << text;
    }
}

// ---- Configuration of rights ----

TEST(MgmtRights, RulesAreStoredInTheirOrderAndReorderingNeedsARight)
{
    const char *p_temporary = getenv("TMPDIR");
    std::string folder = std::string(p_temporary != nullptr ? p_temporary : "/tmp") + "/rights-XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    const std::string first = R"({"name":"b","path":"/lumora-policy:policy/zone[name='a']","action":"deny"})";
    const std::string second = R"({"name":"a","access-operations":"read exec","action":"permit"})";
    auto config = [&](const std::string &rules) {
        return "{" + users_of_all_groups + R"(,"ietf-netconf-acm:nacm":{"rule-list":[{"name":"l","group":)" +
               R"(["noc"],"rule":[)" + rules + "]}]}}";
    };
    t_mgmt_files files = {folder, model().index.get(), model().context.get(), {}, 0, {}};
    mgmt_work_tree_ptr stored;
    t_mgmt_error error;
    ASSERT_TRUE(mgmt_files_open(&files, &stored, &error));
    mgmt_work_tree_ptr tree = tree_of(config(first + "," + second));
    ASSERT_TRUE(mgmt_tree_validate(tree.get(), &error)) << mgmt_error_text(error);
    EXPECT_EQ(json_of(*tree), json_of(*tree_of(config(first + "," + second)))) << "nothing is added";
    EXPECT_TRUE(mgmt_rules_new(*model().index)->can_prune) << "a commit of one leaf stays cheap";
    ASSERT_TRUE(mgmt_files_write(&files, *tree, {}, &error)) << mgmt_error_text(error);
    ASSERT_TRUE(mgmt_files_open(&files, &stored, &error));
    EXPECT_EQ(json_of(*stored), json_of(*tree));
    std::filesystem::remove_all(folder);

    mgmt_rights_ptr rights = mgmt_rights_new(
        *tree_of("{" + users_of_all_groups + R"(,"ietf-netconf-acm:nacm":{"write-default":"permit"}})"));
    t_mgmt_diff diff = mgmt_diff_new(stored, tree_of(config(second + "," + first)));
    EXPECT_FALSE(mgmt_rights_edit(*rights, mgmt_rights_subject(*rights, "op"), diff, &error));
    EXPECT_TRUE(mgmt_rights_edit(*rights, mgmt_rights_subject(*rights, "ad"), diff, &error));
    EXPECT_TRUE(mgmt_rights_edit(*rights, {.user = "root", .groups = {}, .is_recovery = true}, diff, &error));

    mgmt_rights_ptr next = mgmt_rights_new(*tree_of("{}"), rights);
    mgmt_work_tree_ptr state = mgmt_tree_new(model().index.get(), model().context.get());
    mgmt_rights_add_state(*next, state.get());
    EXPECT_EQ(json_of(*state), R"({"ietf-netconf-acm:nacm":{"denied-operations":0,"denied-data-writes":1,)"
                               R"("denied-notifications":0}})")
        << "counted on by new rights";
}
