#include "mgmtd/netconf/netconf_guard.h"

#include "common/lum_assert.h"

#include <algorithm>
#include <utility>

static constexpr std::string_view end_mark = "]]>]]>";
static constexpr std::string_view base_namespace = "urn:ietf:params:xml:ns:netconf:base:1.0";
static constexpr std::string_view prefix_mark = "xmlns:";
static constexpr size_t kept_of_refused = 4096;  // enough for a start tag
static constexpr size_t node_size = 128;         // bytes of the parser for an element, at least
static constexpr uint64_t max_chunk = UINT32_MAX;

t_netconf_guard::~t_netconf_guard()
{
    p_budget->fetch_sub(charged);
}

void netconf_guard_use_chunks(t_netconf_guard *p_guard)
{
    LUM_ASSERT(!p_guard->is_begun, "framing changes between messages");
    p_guard->frame = NETCONF_FRAME_LINE;
}

// ---- Limits ----

static void refuse(t_netconf_guard *p_guard, e_netconf_refusal reason)
{
    if (p_guard->refusal != NETCONF_ADMITTED)
        return;
    p_guard->refusal = reason;
    if (p_guard->text.size() > kept_of_refused)
        p_guard->text.resize(kept_of_refused);
    p_guard->text.shrink_to_fit();
    p_guard->p_budget->fetch_sub(p_guard->charged);
    p_guard->charged = 0;
}

// Charges what a message holds here and as nodes, in steps.
static void charge(t_netconf_guard *p_guard)
{
    size_t size = p_guard->text.size() + p_guard->elements * node_size;
    if (size <= NETCONF_SMALL_MESSAGE || size <= p_guard->charged)
        return;
    size_t step = size - p_guard->charged + NETCONF_SMALL_MESSAGE;
    p_guard->charged += step;
    if (p_guard->p_budget->fetch_add(step) + step > NETCONF_BUDGET)
        refuse(p_guard, NETCONF_NO_ROOM);
}

// ---- XML ----

static void seen_add(t_netconf_guard *p_guard, char byte)
{
    if (p_guard->seen.size() == 8)
        p_guard->seen.erase(0, 1);
    p_guard->seen.push_back(byte);
}

static void xml_enter(t_netconf_guard *p_guard, e_netconf_xml state)
{
    p_guard->xml = state;
    p_guard->seen.clear();
    p_guard->previous = 0;
}

static void count(t_netconf_guard *p_guard)
{
    if (++p_guard->elements > NETCONF_MAX_ELEMENTS)
        refuse(p_guard, NETCONF_TOO_MANY);
}

// Behind '<': what begins here.
static void xml_open(t_netconf_guard *p_guard, char byte)
{
    if (byte == '/')
        return xml_enter(p_guard, NETCONF_XML_END_TAG);
    if (byte == '!')
        return xml_enter(p_guard, NETCONF_XML_DECLARATION);
    if (byte == '?')
        return xml_enter(p_guard, NETCONF_XML_INSTRUCTION);
    xml_enter(p_guard, NETCONF_XML_TAG);
    p_guard->name.clear();
    p_guard->undeclares_prefix = false;
    count(p_guard);
}

static void name_add(t_netconf_guard *p_guard, char byte)
{
    if (byte == '=' || byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n') {
        p_guard->is_name_over = true;
        return;
    }
    if (std::exchange(p_guard->is_name_over, false))
        p_guard->name.clear();
    if (p_guard->name.size() < prefix_mark.size())
        p_guard->name.push_back(byte);
}

static void xml_tag_end(t_netconf_guard *p_guard)
{
    bool is_whole = p_guard->previous == '/';
    xml_enter(p_guard, NETCONF_XML_TEXT);
    if (p_guard->undeclares_prefix)
        return refuse(p_guard, NETCONF_NOT_WELL_FORMED);
    if (!is_whole && ++p_guard->depth > NETCONF_MAX_DEPTH)
        refuse(p_guard, NETCONF_TOO_DEEP);
}

static void xml_tag(t_netconf_guard *p_guard, char byte)
{
    if (byte == '>')
        return xml_tag_end(p_guard);
    if (byte == '"' || byte == '\'') {
        p_guard->xml = NETCONF_XML_QUOTE;
        p_guard->quote = byte;
        p_guard->value_size = 0;
        count(p_guard);
    } else {
        name_add(p_guard, byte);
    }
    p_guard->previous = byte;
}

// In an attribute's value. An empty default namespace becomes NETCONF's.
static void xml_quote(t_netconf_guard *p_guard, char byte)
{
    p_guard->previous = byte;
    if (byte != p_guard->quote) {
        if (++p_guard->value_size > NETCONF_MAX_ATTRIBUTE)
            refuse(p_guard, NETCONF_TOO_LONG);
        return;
    }
    bool is_empty = p_guard->value_size == 0;
    if (is_empty && p_guard->name == "xmlns")
        p_guard->text.insert(p_guard->text.size() - 1, base_namespace);
    p_guard->undeclares_prefix |= is_empty && p_guard->name == prefix_mark;
    p_guard->name.clear();
    p_guard->xml = NETCONF_XML_TAG;
}

// Behind "<!": a comment, a section of characters, or a document type.
static void xml_declaration(t_netconf_guard *p_guard, char byte)
{
    static constexpr std::string_view comment = "--";
    static constexpr std::string_view section = "[CDATA[";
    seen_add(p_guard, byte);
    if (p_guard->seen == comment)
        xml_enter(p_guard, NETCONF_XML_COMMENT);
    else if (p_guard->seen == section)
        xml_enter(p_guard, NETCONF_XML_CDATA);
    else if (!comment.starts_with(p_guard->seen) && !section.starts_with(p_guard->seen))
        refuse(p_guard, NETCONF_DOCUMENT_TYPE);
}

static void xml_until(t_netconf_guard *p_guard, char byte, std::string_view end)
{
    seen_add(p_guard, byte);
    if (p_guard->seen.ends_with(end))
        xml_enter(p_guard, NETCONF_XML_TEXT);
}

static void xml_byte(t_netconf_guard *p_guard, char byte)
{
    switch (p_guard->xml) {
    case NETCONF_XML_TEXT:
        if (byte == '<')
            xml_enter(p_guard, NETCONF_XML_OPEN);
        return;
    case NETCONF_XML_OPEN:
        return xml_open(p_guard, byte);
    case NETCONF_XML_TAG:
        return xml_tag(p_guard, byte);
    case NETCONF_XML_QUOTE:
        return xml_quote(p_guard, byte);
    case NETCONF_XML_END_TAG:
        if (byte != '>')
            return;
        xml_enter(p_guard, NETCONF_XML_TEXT);
        if (p_guard->depth == 0)
            return refuse(p_guard, NETCONF_NOT_WELL_FORMED);
        p_guard->depth--;
        return;
    case NETCONF_XML_DECLARATION:
        return xml_declaration(p_guard, byte);
    case NETCONF_XML_COMMENT:
        return xml_until(p_guard, byte, "-->");
    case NETCONF_XML_CDATA:
        return xml_until(p_guard, byte, "]]>");
    case NETCONF_XML_INSTRUCTION:
        return xml_until(p_guard, byte, "?>");
    }
}

// ---- Framing ----

static void payload_add(t_netconf_guard *p_guard, std::string_view bytes)
{
    p_guard->is_begun = true;
    while (!bytes.empty() && p_guard->refusal == NETCONF_ADMITTED) {
        // What stands between tags goes in whole.
        size_t between = p_guard->xml == NETCONF_XML_TEXT ? std::min(bytes.find('<'), bytes.size()) : 0;
        p_guard->text.append(bytes.substr(0, between));
        bytes.remove_prefix(between);
        if (bytes.empty())
            break;
        p_guard->text.push_back(bytes.front());
        xml_byte(p_guard, bytes.front());
        bytes.remove_prefix(1);
    }
    if (p_guard->refusal != NETCONF_ADMITTED)
        return;
    bool is_marked = p_guard->frame == NETCONF_FRAME_MARK;
    if (p_guard->text.size() > (is_marked ? NETCONF_MAX_MARKED : NETCONF_MAX_MESSAGE))
        return refuse(p_guard, NETCONF_TOO_LARGE);
    charge(p_guard);
}

// How much of the end mark stands at the end, with one more byte.
static size_t mark_advance(size_t matched, char byte)
{
    if (byte == end_mark[matched])
        return matched + 1;
    return byte == ']' ? 2 : 0;  // the mark misses "]" only behind "]]"
}

// What may be the mark is no part of the message until another byte has come.
static e_netconf_feed feed_mark(t_netconf_guard *p_guard, std::string_view bytes, size_t *p_taken)
{
    std::string payload;
    payload.reserve(bytes.size() + end_mark.size());
    while (*p_taken < bytes.size() && p_guard->mark_matched < end_mark.size()) {
        char byte = bytes[(*p_taken)++];
        size_t matched = mark_advance(p_guard->mark_matched, byte);
        payload.append(end_mark.substr(0, p_guard->mark_matched)).push_back(byte);
        payload.resize(payload.size() - matched);
        p_guard->mark_matched = matched;
    }
    payload_add(p_guard, payload);
    return p_guard->mark_matched == end_mark.size() ? NETCONF_FEED_MESSAGE : NETCONF_FEED_MORE;
}

// A byte of the framing between chunks. False: that is none.
static bool frame_byte(t_netconf_guard *p_guard, char byte)
{
    bool is_digit = byte >= '0' && byte <= '9';
    switch (p_guard->frame) {
    case NETCONF_FRAME_LINE:
        p_guard->frame = NETCONF_FRAME_HASH;
        return byte == '\n';
    case NETCONF_FRAME_HASH:
        p_guard->frame = NETCONF_FRAME_FIRST;
        return byte == '#';
    case NETCONF_FRAME_FIRST:
        p_guard->frame = byte == '#' ? NETCONF_FRAME_END : NETCONF_FRAME_SIZE;
        p_guard->chunk_left = static_cast<uint64_t>(byte - '0');
        return byte == '#' ? p_guard->has_data : is_digit && byte != '0';
    case NETCONF_FRAME_SIZE:
        if (byte == '\n') {
            p_guard->frame = NETCONF_FRAME_DATA;
            p_guard->has_data = true;
            return true;
        }
        p_guard->chunk_left = p_guard->chunk_left * 10 + static_cast<uint64_t>(byte - '0');
        return is_digit && p_guard->chunk_left <= max_chunk;
    default:
        return false;
    }
}

static e_netconf_feed feed_chunks(t_netconf_guard *p_guard, std::string_view bytes, size_t *p_taken)
{
    size_t at = 0;
    while (at < bytes.size()) {
        if (p_guard->frame == NETCONF_FRAME_DATA) {
            std::string_view part = bytes.substr(at, p_guard->chunk_left);
            payload_add(p_guard, part);
            at += part.size();
            p_guard->chunk_left -= part.size();
            if (p_guard->chunk_left == 0)
                p_guard->frame = NETCONF_FRAME_LINE;
            continue;
        }
        char byte = bytes[at++];
        p_guard->is_begun = true;
        bool is_end = p_guard->frame == NETCONF_FRAME_END;
        if (is_end ? byte != '\n' : !frame_byte(p_guard, byte))
            return NETCONF_FEED_BROKEN;
        if (is_end) {
            *p_taken = at;
            return NETCONF_FEED_MESSAGE;
        }
    }
    *p_taken = at;
    return NETCONF_FEED_MORE;
}

e_netconf_feed netconf_guard_feed(t_netconf_guard *p_guard, std::string_view bytes, size_t *p_taken)
{
    *p_taken = 0;
    bool is_marked = p_guard->frame == NETCONF_FRAME_MARK;
    e_netconf_feed feed =
        is_marked ? feed_mark(p_guard, bytes, p_taken) : feed_chunks(p_guard, bytes, p_taken);
    p_guard->is_complete = feed == NETCONF_FEED_MESSAGE;
    if (p_guard->is_complete &&
        (p_guard->elements == 0 || p_guard->depth > 0 || p_guard->xml != NETCONF_XML_TEXT))
        refuse(p_guard, NETCONF_NOT_WELL_FORMED);
    return feed;
}

void netconf_guard_next(t_netconf_guard *p_guard)
{
    p_guard->text.clear();
    if (p_guard->text.capacity() > NETCONF_SMALL_MESSAGE)
        p_guard->text.shrink_to_fit();
    p_guard->p_budget->fetch_sub(p_guard->charged);
    p_guard->charged = 0;
    p_guard->refusal = NETCONF_ADMITTED;
    p_guard->is_begun = false;
    p_guard->is_complete = false;
    if (p_guard->frame != NETCONF_FRAME_MARK)
        p_guard->frame = NETCONF_FRAME_LINE;
    p_guard->mark_matched = 0;
    p_guard->has_data = false;
    xml_enter(p_guard, NETCONF_XML_TEXT);
    p_guard->depth = 0;
    p_guard->elements = 0;
}

// ---- Refusals ----

static bool is_plain(std::string_view value)
{
    static constexpr std::string_view plain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.:_-";
    return value.size() <= 128 && value.find_first_not_of(plain) == std::string_view::npos;
}

std::string_view netconf_message_id(std::string_view text)
{
    static constexpr std::string_view name = "message-id=";
    size_t at = text.find("rpc");
    std::string_view tag = at == std::string_view::npos ? "" : text.substr(at, text.find('>', at) - at);
    size_t value_at = tag.find(name);
    if (value_at == std::string_view::npos || value_at + name.size() >= tag.size())
        return {};
    value_at += name.size();
    char quote = tag[value_at];
    size_t end = tag.find(quote, value_at + 1);
    if ((quote != '"' && quote != '\'') || end == std::string_view::npos)
        return {};
    std::string_view value = tag.substr(value_at + 1, end - value_at - 1);
    return is_plain(value) ? value : std::string_view();
}
