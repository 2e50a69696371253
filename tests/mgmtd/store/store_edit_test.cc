// Edits: operations, choices, order, refusals.

#include "tests/mgmtd/store/store_world.h"

struct t_edit_case {
    const char *behaviour;
    const char *base;   // edits before
    const char *edits;  // with ' for quotes
    const char *want;   // lines afterwards, or the error
};

static std::string quoted(std::string text)
{
    for (char &character : text)
        character = character == '\'' ? '"' : character;
    return text;
}

static std::string outcome_of(const t_edit_case &c)
{
    mgmt_work_tree_ptr tree = world_tree(quoted(c.base));
    std::vector<t_mgmt_edit> edits;
    t_mgmt_error error;
    if (!mgmt_edit_read_json(world_index(), quoted(c.edits), &edits, &error))
        return mgmt_error_text(error);
    if (!mgmt_edit_apply(tree, std::move(edits), &error))
        return mgmt_error_text(error);
    return world_lines(tree);
}

TEST(StoreEdit, OperationsDoWhatTheyShould)
{
    static const char *two_zones =
        "[{'path':'/policy/zone','value':[{'name':'a','vpn':[{'vpn-id':1}]},{'name':'b'}]}]";
    static const char *rules =
        "[{'path':'/store-test/rule','value':[{'number':5},{'number':2,'text':'x'},{'number':9}]}]";
    static const t_edit_case cases[] = {
        {"merge adds and keeps", two_zones, "[{'path':'/policy/zone{a}/vpn{7}'}]",
         "+ /policy/zone{a}\n+ /policy/zone{a}/vpn{1}\n+ /policy/zone{a}/vpn{7}\n+ /policy/zone{b}\n"},
        {"replace of an entry removes what is not named", two_zones,
         "[{'op':'replace','path':'/policy/zone{a}','value':{}}]", "+ /policy/zone{a}\n+ /policy/zone{b}\n"},
        {"replace of a list removes the other entries", two_zones,
         "[{'op':'replace','path':'/policy/zone','value':[{'name':'c'}]}]", "+ /policy/zone{c}\n"},
        {"replace of the top removes the rest", two_zones,
         "[{'op':'replace','path':'/','value':{'lumora-policy:policy':{'log-frequency':5}}}]",
         "+ /policy/log-frequency 5\n"},
        {"create of what exists is refused", two_zones, "[{'op':'create','path':'/policy/zone{a}'}]",
         "/policy/zone{a}: the node exists already"},
        {"delete of what does not exist is refused", two_zones,
         "[{'op':'delete','path':'/policy/zone{a}/vpn{2}'}]",
         "/policy/zone{a}/vpn{2}: the node does not exist"},
        {"remove of what does not exist is fine", two_zones,
         "[{'op':'remove','path':'/policy/zone{x}/vpn{2}'}]",
         "+ /policy/zone{a}\n+ /policy/zone{a}/vpn{1}\n+ /policy/zone{b}\n"},
        {"a list is removed as a whole", two_zones, "[{'op':'delete','path':'/policy/zone'}]", ""},
        {"a new case takes the place of the other",
         "[{'path':'/policy/lists/app-list{l}/app{x}'},{'path':'/policy/lists/app-list{l}/app{y}'}]",
         "[{'path':'/policy/lists/app-list{l}/app-family{f}'}]",
         "+ /policy/lists/app-list{l}\n+ /policy/lists/app-list{l}/app-family{f}\n"},
        {"a list of the user's order keeps it", rules, "[{'path':'/store-test/rule{1}'}]",
         "+ /store-test/rule{5}\n+ /store-test/rule{2}\n+ /store-test/rule{2}/text x\n+ "
         "/store-test/rule{9}\n+ /store-test/rule{1}\n"},
        {"an entry is inserted before another", rules,
         "[{'path':'/store-test/rule{9}','insert':'before','at':'{2}'}]",
         "+ /store-test/rule{5}\n+ /store-test/rule{9}\n+ /store-test/rule{2}\n+ /store-test/rule{2}/text "
         "x\n"},
        {"an entry is inserted first", rules,
         "[{'op':'create','path':'/store-test/rule{1}','insert':'first'}]",
         "+ /store-test/rule{1}\n+ /store-test/rule{5}\n+ /store-test/rule{2}\n+ /store-test/rule{2}/text "
         "x\n+ /store-test/rule{9}\n"},
        {"a replaced entry keeps its place", rules,
         "[{'op':'replace','path':'/store-test/rule{2}','value':{}}]",
         "+ /store-test/rule{5}\n+ /store-test/rule{2}\n+ /store-test/rule{9}\n"},
        {"an anchor must exist", rules, "[{'path':'/store-test/rule{9}','insert':'after','at':'{7}'}]",
         "/store-test/rule{9}: the entry to insert at does not exist"},
        {"system order is that of numbers",
         "[{'path':'/policy/zone{z}','value':{'vpn':[{'vpn-id':10},{'vpn-id':9},{'vpn-id':100}]}}]", "[]",
         "+ /policy/zone{z}\n+ /policy/zone{z}/vpn{9}\n+ /policy/zone{z}/vpn{10}\n+ "
         "/policy/zone{z}/vpn{100}\n"},
    };
    for (const t_edit_case &c : cases)
        EXPECT_EQ(outcome_of(c), c.want) << c.behaviour;
}

TEST(StoreEdit, RefusalsNamePathAndReason)
{
    static const t_edit_case cases[] = {
        {"range", "[]", "[{'path':'/policy/policer{p}/rate','value':'7'}]",
         "/policy/policer{p}/rate: the rate of a policer is at least 8 bits per second"},
        {"key pattern", "[]", "[{'path':'/policy/zone{__x}'}]",
         "/policy/zone{__x}: names that begin with two underscores belong to the system"},
        {"type", "[]", "[{'path':'/policy/log-frequency','value':'many'}]",
         "/policy/log-frequency: Invalid type int32 value \"many\""},
        {"unknown node", "[]", "[{'path':'/policy','value':{'frobnicate':1}}]",
         "/policy: there is no node \"frobnicate\" here"},
        {"operational state", "[]", "[{'path':'/vpn/vpn-instance{1}/vrf-id','value':1}]",
         "/vpn/vpn-instance{1}/vrf-id: operational state can't be edited"},
        {"key change", "[{'path':'/policy/zone{a}'}]", "[{'path':'/policy/zone{a}','value':{'name':'b'}}]",
         "/policy/zone{a}/name: a key can't be changed"},
        {"key removal", "[{'path':'/policy/zone{a}'}]", "[{'op':'delete','path':'/policy/zone{a}/name'}]",
         "/policy/zone{a}/name: a key goes with its entry only"},
        {"missing key", "[]", "[{'path':'/policy/zone','value':[{}]}]",
         "/policy/zone: an entry lacks its key name"},
        {"keys left out in the middle", "[]", "[{'path':'/policy/zone/vpn{1}'}]",
         "/policy/zone/vpn{1}: the keys of zone are missing"},
        {"position", "[]", "[{'path':'/policy/zone[0]'}]",
         "/policy/zone[0]: an edit's path may hold no positions"},
        {"fraction", "[]", "[{'path':'/policy/log-frequency','value':1.5}]",
         "/policy/log-frequency: the value is no text, whole number or truth value"},
        {"zero byte", "[]", "[{'path':'/store-test/types/t-text','value':'a\\u0000b'}]",
         "/store-test/types/t-text: a text may hold no control characters and must be UTF-8"},
        {"member", "[]", "[{'path':'/policy','what':'x'}]", "an edit's member \"what\" is wrong"},
        {"no array", "[]", "{}", "the edits are no JSON array"},
        {"top removal", "[]", "[{'op':'delete','path':'/'}]",
         "/: the top can only be merged or replaced, by an object"},
    };
    for (const t_edit_case &c : cases)
        EXPECT_EQ(outcome_of(c), c.want) << c.behaviour;
}

TEST(StoreEdit, ValidationNamesPathAndReason)
{
    static const t_edit_case cases[] = {
        {"mandatory leaf", "[]",
         "[{'path':'/policy/"
         "policer','value':[{'name':'a','rate':'8','burst':1,'exceed':'drop'},{'name':'p','burst':1,'exceed':"
         "'drop'}]}]",
         "/policy/policer{p}/rate: Mandatory node"},
        {"dangling reference", "[]",
         "[{'path':'/policy/"
         "zone-pair{a}','value':{'pair-id':1,'source-zone':'x','destination-zone':'x','zone-policy':'z'}}]",
         "/policy/zone-pair{a}/zone-policy: Invalid leafref value"},
        {"must", "[{'path':'/policy/lists/data-prefix-list{empty}'}]",
         "[{'path':'/policy/access-list{acl}/"
         "sequence{1}','value':{'match':{'source-data-prefix-list':'empty'},'action':{'base-action':'drop'}}}"
         "]",
         "/policy/access-list{acl}/sequence{1}/match/source-data-prefix-list: the prefix list is empty and "
         "would match everything"},
    };
    for (const t_edit_case &c : cases) {
        mgmt_work_tree_ptr tree = world_tree(quoted(c.base));
        std::vector<t_mgmt_edit> edits;
        t_mgmt_error error;
        bool good = mgmt_edit_read_json(world_index(), quoted(c.edits), &edits, &error) &&
                    mgmt_edit_apply(tree, std::move(edits), &error) && mgmt_tree_validate(tree.get(), &error);
        EXPECT_FALSE(good) << c.behaviour;
        EXPECT_NE(mgmt_error_text(error).find(c.want), std::string::npos)
            << c.behaviour << ": " << mgmt_error_text(error);
    }
}

TEST(StoreEdit, JsonOfATreeReadsBackAsTheTree)
{
    mgmt_work_tree_ptr tree =
        world_tree(quoted("[{'path':'/policy/zone','value':[{'name':'a\\\\b'}]},{'path':'/policy/"
                          "policer{p}','value':{'rate':'18446744073709551615','burst':1,'exceed':'remark'}},"
                          "{'path':'/store-test/"
                          "types','value':{'t-empty':[null],'t-bool':false,'t-int64':'-5','t-text':'"
                          "\\u0009\\\"\\\\ä','t-list':[7,3]}}]"));
    std::string text = world_json(*tree);
    mgmt_work_tree_ptr read = mgmt_tree_new(&world_index(), world_context());
    t_mgmt_error error;
    ASSERT_TRUE(mgmt_tree_read(read.get(), text, &error)) << mgmt_error_text(error) << text;
    EXPECT_TRUE(mgmt_tree_equal(*tree, *read)) << text;
    std::vector<t_mgmt_edit> edits;
    ASSERT_TRUE(mgmt_edit_read_json(world_index(), R"([{"path":"/","value":)" + text + "}]", &edits, &error));
    mgmt_work_tree_ptr merged = mgmt_tree_new(&world_index(), world_context());
    ASSERT_TRUE(mgmt_edit_apply(merged, std::move(edits), &error)) << mgmt_error_text(error);
    EXPECT_TRUE(mgmt_tree_equal(*tree, *merged));
}
