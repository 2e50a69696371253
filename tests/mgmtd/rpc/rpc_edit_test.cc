// edit-config: operations against what is there, places in lists of the user's order, what is refused and
// how.

#include "tests/mgmtd/rpc/rpc_client.h"

#include <gtest/gtest.h>

static const std::string RULE = "/store-test:store-test/rule[number='1']";

static std::string rule(const std::string &attributes, const std::string &text)
{
    return "<rule " + attributes + "><number>1</number>" + (text.empty() ? "" : "<text>" + text + "</text>") +
           "</rule>";
}

TEST(RpcEdit, OperationsOnWhatExistsAndWhatDoesNot)
{
    RpcWorld world;
    RpcClient client(&world, "ad", 1);
    static const std::string none = "<default-operation>none</default-operation>";
    const std::string old = "<store-test><rule><number>1</number><text>old</text></rule></store-test>";
    const std::string now = "<store-test><rule><number>1</number><text>new</text></rule></store-test>";
    const std::string bare = "<store-test><rule><number>1</number></rule></store-test>";
    auto with = [](const char *operation) { return std::string("nc:operation=\"") + operation + '"'; };
    const struct {
        const char *behaviour;
        std::string edit, options, existing, existing_result, absent, absent_result;
    } rows[] = {
        {"merge is the default", rule("", "new"), "", "ok", now, "ok", now},
        {"merge keeps what it does not name", rule(with("merge"), ""), "", "ok", old, "ok", bare},
        {"replace drops what it does not name", rule(with("replace"), ""), "", "ok", bare, "ok", bare},
        {"create", rule(with("create"), "new"), "", "data-exists " + RULE, old, "ok", now},
        {"delete", rule(with("delete"), ""), "", "ok", "", "data-missing " + RULE, ""},
        {"remove", rule(with("remove"), ""), "", "ok", "", "ok", ""},
        {"delete of a leaf needs no value", "<rule><number>1</number><text nc:operation=\"delete\"/></rule>",
         "", "ok", bare, "data-missing " + RULE + "/text", ""},
        {"none passes through", rule("", "new"), none, "ok", old, "data-missing " + RULE, ""},
        {"an operation below none",
         "<rule><number>1</number><text nc:operation=\"replace\">new</text></rule>", none, "ok", now,
         "data-missing " + RULE, ""},
        {"default-operation replace drops everything else", rule("", "new"),
         "<default-operation>replace</default-operation>", "ok", now, "ok", now},
        {"test-only changes nothing", rule("", "new"), "<test-option>test-only</test-option>", "ok", old,
         "ok", ""},
        {"continue-on-error is all or nothing as well",
         rule("", "new") + "<rule nc:operation=\"delete\"><number>7</number></rule>",
         "<error-option>continue-on-error</error-option>",
         "data-missing /store-test:store-test/rule[number='7']", old,
         "data-missing /store-test:store-test/rule[number='7']", ""},
    };
    for (const auto &row : rows) {
        for (bool exists : {true, false}) {
            ASSERT_EQ(client.call("<discard-changes/>"), "ok");
            if (exists) {
                ASSERT_EQ(client.edit(rule("", "old")), "ok");
            }
            EXPECT_EQ(client.edit(row.edit, row.options), exists ? row.existing : row.absent)
                << row.behaviour << ", exists: " << exists << ": " << client.message;
            EXPECT_EQ(client.content(), exists ? row.existing_result : row.absent_result)
                << row.behaviour << ", exists: " << exists;
        }
    }
}

TEST(RpcEdit, PlacesInListsThatTheUserOrders)
{
    RpcWorld world;
    RpcClient client(&world, "ad", 1);
    auto entry = [](const char *number, const std::string &place) {
        return std::string("<rule ") + place + "><number>" + number + "</number></rule>";
    };
    auto order = [&] {
        std::string digits;
        for (char letter : client.content())
            if (isdigit(static_cast<unsigned char>(letter)) != 0)
                digits += letter;
        return digits;
    };
    EXPECT_EQ(client.edit(entry("1", "") + entry("2", "") + entry("3", "yang:insert=\"first\"")), "ok");
    EXPECT_EQ(order(), "312");
    EXPECT_EQ(client.edit(entry("2", "yang:insert=\"before\" yang:key=\"[number='3']\"")), "ok");
    EXPECT_EQ(order(), "231");
    EXPECT_EQ(client.edit(entry("4", "yang:insert=\"after\" yang:key=\"[x:number=&quot;2&quot;]\" "
                                     "xmlns:x=\"urn:lumora:yang:store-test\"")),
              "ok");
    EXPECT_EQ(order(), "2431");
    EXPECT_EQ(client.edit(entry("2", "yang:insert=\"last\"")), "ok");
    EXPECT_EQ(order(), "4312");
    EXPECT_EQ(client.edit("<rule nc:operation=\"remove\"><number>1</number></rule>"
                          "<steps>7</steps><steps yang:insert=\"before\" yang:value=\"7\">6</steps>"),
              "ok");
    EXPECT_EQ(order(), "43267");
    const std::string path = "/store-test:store-test/rule[number='9']";
    EXPECT_EQ(client.edit(entry("9", "yang:insert=\"before\"")),
              "missing-attribute " + path + " bad-attribute=key bad-element=rule");
    EXPECT_EQ(client.edit(entry("9", "yang:insert=\"after\" yang:key=\"[name='3']\"")),
              "bad-attribute " + path + " bad-attribute=key bad-element=rule");
    EXPECT_EQ(order(), "43267");
}

TEST(RpcEdit, WhatIsRefusedNamesNodeAndReason)
{
    RpcWorld world;
    RpcClient client(&world, "ad", 1);
    const std::string top = "/store-test:store-test";
    const struct {
        const char *edit;
        std::string error;
        const char *reason;
    } rows[] = {
        {"<nonsense/>", "unknown-element " + top + " bad-element=nonsense", "no such node"},
        {"<rule xmlns=\"urn:other\"/>",
         "unknown-namespace " + top + " bad-element=rule bad-namespace=urn:other", "urn:other"},
        {"<rule><text>t</text></rule>", "missing-element " + top + "/rule bad-element=number", "number"},
        {"<rule><number>x</number></rule>", "invalid-value " + top + "/rule[number='x']", "x"},
        {"<types><t-int8>300</t-int8></types>", "invalid-value " + top + "/types/t-int8", "300"},
        {"<types><t-enum nc:operation=\"blow\">two</t-enum></types>",
         "bad-attribute " + top + "/types/t-enum bad-attribute=operation bad-element=t-enum", "blow"},
        {"<types><t-int8 operation=\"delete\">two</t-int8></types>",
         "unknown-attribute " + top + "/types/t-int8 bad-attribute=operation bad-element=t-int8",
         "operation"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(client.edit(row.edit), row.error) << row.edit;
        EXPECT_NE(client.message.find(row.reason), std::string::npos) << client.message;
    }
    EXPECT_EQ(client.content(), "");
    // A test option that is named has the whole model's say; without it an incomplete candidate may stand.
    const std::string hooked = "<types><t-int8>1</t-int8></types>";
    EXPECT_EQ(client.edit(hooked, "<test-option>test-then-set</test-option>"), "ok");
    EXPECT_EQ(client.call("<validate><source><candidate/></source></validate>"), "ok");
    EXPECT_EQ(
        client.call("<validate><source><config><store-test xmlns=\"urn:lumora:yang:store-test\"><hooked>"
                    "<a>a</a><b>1</b></hooked></store-test></config></source></validate>"),
        "operation-failed /store-test:store-test/hooked[a='a'][b='1']/value");
}

TEST(RpcEdit, CopyConfigMakesTheCandidateAWhole)
{
    RpcWorld world;
    RpcClient client(&world, "ad", 1);
    auto copy = [&](const std::string &source) {
        return client.call("<copy-config><target><candidate/></target><source>" + source +
                           "</source></copy-config>");
    };
    ASSERT_EQ(client.edit(rule("", "old")), "ok");
    EXPECT_EQ(copy("<candidate/>"), "invalid-value");
    const std::string config =
        "<config><store-test xmlns=\"urn:lumora:yang:store-test\"><steps>s</steps></store-test>"
        "<users xmlns=\"urn:lumora:yang:system\"><user><name>ad</name><group>admin</group>"
        "</user></users></config>";
    EXPECT_EQ(copy(config), "ok") << client.message;
    EXPECT_EQ(client.content(), "<store-test><steps>s</steps></store-test>");
    EXPECT_EQ(copy("<running/>"), "ok");
    EXPECT_EQ(client.content(), "");
}
