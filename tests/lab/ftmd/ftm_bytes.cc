#include "tests/lab/ftmd/ftm_bytes.h"

static void word_put(t_message_bytes *p_bytes, uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        p_bytes->push_back(static_cast<uint8_t>(value >> shift));
}

// The bytes behind a text's end are none of the reader's business.
static void text_put(t_message_bytes *p_bytes, const std::string &text, size_t size)
{
    static constexpr uint8_t leftover = 0xaa;
    size_t end = p_bytes->size() + size;
    p_bytes->insert(p_bytes->end(), text.begin(), text.end());
    p_bytes->push_back(0);
    p_bytes->resize(end, leftover);
}

static t_message_bytes head_bytes(const t_filter_head &head, size_t count)
{
    t_message_bytes bytes = {head.type, head.kind, head.direction};
    word_put(&bytes, head.filter_id);
    text_put(&bytes, head.name, 128);
    word_put(&bytes, static_cast<uint32_t>(count));
    return bytes;
}

t_message_bytes vpn_message(const t_filter_head &head, const std::vector<t_range_entry> &entries)
{
    t_message_bytes bytes = head_bytes(head, entries.size());
    for (const t_range_entry &entry : entries) {
        word_put(&bytes, entry.min_vpn);
        word_put(&bytes, entry.max_vpn);
    }
    return bytes;
}

t_message_bytes interface_message(const t_filter_head &head, const std::vector<t_interface_entry> &entries)
{
    t_message_bytes bytes = head_bytes(head, entries.size());
    for (const t_interface_entry &entry : entries) {
        word_put(&bytes, entry.vpn);
        bytes.push_back(entry.direction);
        text_put(&bytes, entry.name, 33);
    }
    return bytes;
}
