// Filters over the whole road: what of a configuration comes back, what is not read at all, what is refused.

#include "tests/mgmtd/rpc/rpc_client.h"

#include <gtest/gtest.h>

static const std::string NS = " xmlns=\"urn:lumora:yang:store-test\"";

TEST(RpcFilter, SelectsAsTheStandardHasIt)
{
    RpcWorld world;
    RpcClient client(&world, "root", 1);
    ASSERT_EQ(client.edit(
                  "<rule><number>1</number><text>a</text></rule><rule><number>2</number><text>b</text></rule>"
                  "<steps>s</steps><types><t-int8>5</t-int8><t-text>t</t-text></types>"
                  "<hooked><a>x</a><b>1</b><value>3</value></hooked>"),
              "operation-failed /store-test:store-test/hooked[a='x'][b='1']")
        << "no provider for the hook";
    ASSERT_EQ(client.edit(
                  "<rule><number>1</number><text>a</text></rule><rule><number>2</number><text>b</text></rule>"
                  "<steps>s</steps><types><t-int8>5</t-int8><t-text>t</t-text></types>"),
              "ok");
    const std::string one = "<rule><number>1</number><text>a</text></rule>";
    const std::string two = "<rule><number>2</number><text>b</text></rule>";
    const std::string types = "<types><t-int8>5</t-int8><t-text>t</t-text></types>";
    const std::string all = one + two + "<steps>s</steps>" + types;
    const std::string p = "/store-test:store-test";
    const struct {
        std::string filter, xpath, data;  // an empty filter or XPath: none of that kind
    } rows[] = {
        {"<store-test" + NS + "/>", p, all},
        {"<store-test/>", "", all},
        {"<store-test><rule/></store-test>", p + "/rule", one + two},
        {"<store-test xmlns=\"urn:other\"/>", "", ""},
        {"<policy xmlns=\"urn:lumora:yang:policy\"/>", "/lumora-policy:policy", ""},
        {"<store-test" + NS + "><rule><number>2</number></rule></store-test>", p + "/rule[number='2']", two},
        {"<store-test" + NS + "><rule><number> 02 </number></rule></store-test>", "", two},
        {"<store-test" + NS + "><rule><text>b</text></rule></store-test>", p + "/rule[text='b']", two},
        {"<store-test" + NS + "><rule><text>b</text><number>1</number></rule></store-test>",
         p + "/rule[text='b'][number='1']", ""},
        {"<store-test" + NS + "><rule><number/></rule></store-test>", p + "/rule/number",
         "<rule><number>1</number></rule><rule><number>2</number></rule>"},
        {"<store-test" + NS + "><rule><number>1</number><text/></rule></store-test>",
         p + "/rule[number='1']/text", one},
        {"<store-test" + NS + "><rule><number>1</number></rule><rule><text>b</text></rule></store-test>",
         p + "/rule[number='1'] | " + p + "/rule[text='b']", one + two},
        {"<store-test" + NS + "><rule a=\"b\"/><types><t-int8/></types></store-test>", p + "/types/t-int8",
         "<types><t-int8>5</t-int8></types>"},
        {"<store-test" + NS + "><steps>s</steps></store-test>", "", all},
        {"<store-test" + NS + "><steps>other</steps><types/></store-test>", "", ""},
        {"<store-test" + NS + "><types><t-text>t</t-text><t-int8/></types></store-test>", "", types},
        {"", "//rule[text='a']", one},
        {"", p + "/rule[last()]/../types", types},
        {"", "/*/types/*[. = 5]", "<types><t-int8>5</t-int8></types>"},
    };
    for (const auto &row : rows) {
        std::string data =
            row.data.empty() ? "<data/>" : "<data><store-test>" + row.data + "</store-test></data>";
        const std::string get = "<get-config><source><candidate/></source><filter type=\"";
        if (!row.filter.empty()) {
            EXPECT_EQ(client.call(get + "subtree\">" + row.filter + "</filter></get-config>"), data)
                << row.filter;
        }
        std::string prefixes = "xmlns:store-test=\"urn:lumora:yang:store-test\" "
                               "xmlns:lumora-policy=\"urn:lumora:yang:policy\"";
        if (!row.xpath.empty()) {
            EXPECT_EQ(
                client.call(get + "xpath\" " + prefixes + " select=\"" + row.xpath + "\"/></get-config>"),
                data)
                << row.xpath;
        }
    }
    EXPECT_EQ(client.call("<get><filter type=\"xpath\"/></get>"),
              "missing-attribute bad-attribute=select bad-element=filter");
    EXPECT_EQ(client.call("<get><filter type=\"xpath\" select=\"1 + 1\"/></get>"),
              "bad-attribute bad-attribute=select bad-element=filter");
}

TEST(RpcFilter, OnlyProvidersOfWhatIsAskedForAreCalled)
{
    RpcWorld world;
    RpcClient client(&world, "ro", 1);
    TestDaemon daemon(&world, "d");
    daemon.add(IPC_OP_REG_DATA, "filter-memory-usage", IPC_CALL_GET_NEXT_OBJECT | IPC_CALL_FIND_NEXT_OBJECT);
    daemon.ready();
    daemon.serve = [&](const t_ipc_frame &frame) { daemon.fail(frame, "no rows today"); };
    auto get = [&](const std::string &below) {
        return client.call("<get><filter><policy xmlns=\"urn:lumora:yang:policy\">" + below +
                           "</policy></filter></get>");
    };
    EXPECT_EQ(get("<zone/>"), "<data/>");
    EXPECT_EQ(client.call("<get><filter type=\"xpath\" xmlns:p=\"urn:lumora:yang:policy\" "
                          "select=\"/p:policy/p:zone[p:name='a']\"/></get>"),
              "<data/>");
    EXPECT_EQ(daemon.requests.size(), 0u);
    EXPECT_EQ(get(""), "<data/>") << "others' rows are left out";
    EXPECT_EQ(daemon.requests.size(), 1u);
}
