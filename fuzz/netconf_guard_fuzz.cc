// NETCONF bytes of a peer from anywhere: framing, limits, message-ids, and the identification line of SSH.
// The first byte chooses framing and pieces; in any pieces the same messages come out, and the budget is
// even. What is admitted is admitted as it is once more.

#include "mgmtd/netconf/netconf_guard.h"
#include "mgmtd/netconf/netconf_ident.h"

#include <cstdlib>
#include <vector>

static void require(bool holds)
{
    if (!holds)
        abort();
}

static std::vector<std::string> messages_take(std::string_view bytes, bool has_chunks, size_t piece_size)
{
    std::atomic<size_t> budget = 0;
    std::vector<std::string> messages;
    t_netconf_guard guard(&budget);
    if (has_chunks)
        netconf_guard_use_chunks(&guard);
    while (!bytes.empty()) {
        std::string_view piece = bytes.substr(0, piece_size);
        size_t taken = 0;
        e_netconf_feed feed = netconf_guard_feed(&guard, piece, &taken);
        require(taken <= piece.size() && guard.text.size() <= NETCONF_MAX_MESSAGE + 8 * piece.size() + 64);
        if (feed == NETCONF_FEED_BROKEN)
            return messages;
        require(feed == NETCONF_FEED_MESSAGE || taken == piece.size());
        bytes.remove_prefix(taken);
        if (feed == NETCONF_FEED_MORE)
            continue;
        require(netconf_message_id(guard.text).size() <= 128);
        messages.push_back(guard.refusal == NETCONF_ADMITTED ? guard.text : "refused");
        netconf_guard_next(&guard);
        require(budget == 0);
    }
    return messages;
}

// An empty namespace is replaced once.
static void admitted_check(const std::string &text)
{
    std::string framed = "\n#" + std::to_string(text.size()) + "\n" + text + "\n##\n";
    require(text == "refused" ||
            messages_take(framed, true, framed.size()) == std::vector<std::string>{text});
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    std::string_view bytes(reinterpret_cast<const char *>(p_data), size);
    (void)netconf_ident_read(bytes);
    if (bytes.empty())
        return 0;
    bool has_chunks = (bytes.front() & 1) != 0;
    size_t piece_size = 1 + static_cast<unsigned char>(bytes.front()) / 2;
    bytes.remove_prefix(1);
    std::vector<std::string> messages = messages_take(bytes, has_chunks, piece_size);
    require(messages == messages_take(bytes, has_chunks, bytes.size() + 1));
    for (const std::string &text : messages)
        admitted_check(text);
    return 0;
}
