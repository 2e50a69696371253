// Framing and limits of messages, whatever pieces the bytes come in.

#include "mgmtd/netconf/netconf_guard.h"
#include "mgmtd/netconf/netconf_ident.h"

#include <gtest/gtest.h>
#include <random>
#include <vector>

struct t_taken {
    std::string text;
    e_netconf_refusal refusal;
    bool operator==(const t_taken &) const = default;
};

static t_taken fine(const std::string &text)
{
    return {text, NETCONF_ADMITTED};
}

// All messages of some bytes that come in random pieces; broken framing as a message "broken".
static std::vector<t_taken> take(std::string_view bytes, bool has_chunks, std::mt19937 *p_random)
{
    std::atomic<size_t> budget = 0;
    std::vector<t_taken> messages;
    t_netconf_guard guard(&budget);
    if (has_chunks)
        netconf_guard_use_chunks(&guard);
    while (!bytes.empty()) {
        std::string_view piece = bytes.substr(0, 1 + (*p_random)() % 9);
        size_t taken = 0;
        e_netconf_feed feed = netconf_guard_feed(&guard, piece, &taken);
        if (feed == NETCONF_FEED_BROKEN) {
            messages.push_back(fine("broken"));
            return messages;
        }
        bytes.remove_prefix(taken);
        if (feed != NETCONF_FEED_MESSAGE)
            continue;
        messages.push_back({guard.refusal == NETCONF_ADMITTED ? guard.text : "", guard.refusal});
        netconf_guard_next(&guard);
        EXPECT_EQ(budget, 0u);
    }
    return messages;
}

namespace {

struct t_case {
    std::string bytes;
    bool has_chunks;
    std::vector<t_taken> want;
};

}  // namespace

TEST(NetconfGuard, MessagesAreTheSameInAnyPieces)
{
    std::string nested;
    for (size_t i = 0; i <= NETCONF_MAX_DEPTH; i++)
        nested += "<a b='>'>";
    static const std::string base = "urn:ietf:params:xml:ns:netconf:base:1.0";
    static const t_taken broken = {"", NETCONF_NOT_WELL_FORMED};
    const std::vector<t_case> cases = {
        {"<a/>]]>]]><b/>]]>]]]>]]><b>]]]>]]></b>]]>]]>]]>]]>",
         false,
         {fine("<a/>"), fine("<b/>]]>]"), broken, broken, broken}},
        {"<a></a]]>]]><a/>]]>]]>", false, {broken, fine("<a/>")}},
        {"<!DOCTYPE a>]]>]]><a/>]]>]]>", false, {t_taken{"", NETCONF_DOCUMENT_TYPE}, fine("<a/>")}},
        {"<!-- <!DOCTYPE --><![CDATA[<!D]]><a/>]]>]]>",
         false,
         {fine("<!-- <!DOCTYPE --><![CDATA[<!D]]><a/>")}},
        {nested + "]]>]]><a/>]]>]]>", false, {t_taken{"", NETCONF_TOO_DEEP}, fine("<a/>")}},
        {"\n#3\n<a/\n#1\n>\n##\n\n#1\nx\n##\n", true, {fine("<a/>"), broken}},
        {"\n#6\n<a/>#\n\n##\n", true, {fine("<a/>#\n")}},
        {"\n##\n", true, {fine("broken")}},
        {"\n#01\nx", true, {fine("broken")}},
        {"\n#99999999999\n", true, {fine("broken")}},
        {"<a/>", true, {fine("broken")}},
        {"<a><b xmlns=\"\"/><b\txmlns \n= ''/></a>]]>]]>",
         false,
         {fine("<a><b xmlns=\"" + base + "\"/><b\txmlns \n= '" + base + "'/></a>")}},
        {"<a b=\"\" xmlns=\"x\" xmlnsx='' c='xmlns=\"\"'>xmlns=\"\"</a>]]>]]>",
         false,
         {fine("<a b=\"\" xmlns=\"x\" xmlnsx='' c='xmlns=\"\"'>xmlns=\"\"</a>")}},
        {"<a xmlns:b=\"x\"><c xmlns:p=\"\"/></a>]]>]]><a/>]]>]]>", false, {broken, fine("<a/>")}},
    };
    std::mt19937 random(7);
    for (const auto &c : cases)
        for (int i = 0; i < 50; i++)
            ASSERT_EQ(take(c.bytes, c.has_chunks, &random), c.want) << c.bytes;
}

TEST(NetconfGuard, LargeMessagesShareABudget)
{
    std::atomic<size_t> budget = 0;
    std::string half = "\n#99999999\n" + std::string(NETCONF_MAX_MESSAGE - 100, ' ');
    size_t taken = 0;
    {
        std::vector<std::unique_ptr<t_netconf_guard>> guards;
        size_t admitted = 0;
        for (size_t i = 0; i < 20; i++) {
            guards.push_back(std::make_unique<t_netconf_guard>(&budget));
            netconf_guard_use_chunks(guards.back().get());
            EXPECT_EQ(netconf_guard_feed(guards.back().get(), half, &taken), NETCONF_FEED_MORE);
            admitted += guards.back()->refusal == NETCONF_ADMITTED ? 1 : 0;
        }
        EXPECT_EQ(admitted, NETCONF_BUDGET / NETCONF_MAX_MESSAGE);
        EXPECT_EQ(netconf_guard_feed(guards.front().get(), half, &taken), NETCONF_FEED_MORE);
        EXPECT_EQ(guards.front()->refusal, NETCONF_TOO_LARGE);
    }
    EXPECT_EQ(budget, 0u);
}

TEST(NetconfGuard, RefusalsNameTheMessage)
{
    EXPECT_EQ(netconf_message_id("<rpc a='b' message-id='a.1'><"), "a.1");
    EXPECT_EQ(netconf_message_id("<nc:rpc message-id=\"101\">"), "101");
    EXPECT_EQ(netconf_message_id("<rpc message-id=\"a&lt;\">"), "");
    EXPECT_EQ(netconf_message_id("<rpc message-id="), "");
    EXPECT_EQ(netconf_message_id("<rpc><a message-id='1'>"), "");
}

TEST(NetconfIdent, IsALineOfSshTwo)
{
    EXPECT_EQ(netconf_ident_read("SSH-2.0-x\r\n\1\2"), NETCONF_IDENT_GOOD);
    EXPECT_EQ(netconf_ident_read("SSH-2.0-x\n"), NETCONF_IDENT_GOOD);
    EXPECT_EQ(netconf_ident_read("SSH-"), NETCONF_IDENT_MORE);
    EXPECT_EQ(netconf_ident_read("SSH-2.0-" + std::string(246, 'x')), NETCONF_IDENT_MORE);
    EXPECT_EQ(netconf_ident_read("SSH-2.0-" + std::string(247, 'x')), NETCONF_IDENT_BAD);
    EXPECT_EQ(netconf_ident_read("SSH-1.5-x\n"), NETCONF_IDENT_BAD);
    EXPECT_EQ(netconf_ident_read("GET / HTTP/1.1"), NETCONF_IDENT_BAD);
    EXPECT_EQ(netconf_ident_read("SSH-2.0-\1"), NETCONF_IDENT_BAD);
}
