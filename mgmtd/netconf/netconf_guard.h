// Messages out of a peer's bytes, before any parser sees them.
//
// NETCONF frames its messages in two ways: by an end mark (base:1.0, and every hello) and by chunks
// (base:1.1). The guard undoes either, and looks at the XML just enough to know its size, its depth and the
// number of its elements, because the parser behind it keeps a message whole, recurses for each level, and
// makes a node of some hundred bytes for each element; of a message without any text it reads what is not
// there, and it crashes at siblings of one name where a namespace is taken away (xmlns=""). Such a namespace
// is written as NETCONF's own, which a filter takes for any as well; xmlns:p="" is no XML. A message beyond
// the limits, with a document type (where entities are declared), or without an element, is passed over up to
// its end and comes out as refused, so that the session can answer and go on. Broken framing can't be mended:
// the session ends.
//
// One guard for one peer, one thread. Memory held for all peers together is bounded by a budget that they
// share; messages up to NETCONF_SMALL_MESSAGE are always admitted.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

inline constexpr size_t NETCONF_MAX_MESSAGE = 12u << 20;  // bytes
inline constexpr size_t NETCONF_MAX_MARKED =
    1u << 20;  // bytes with an end mark, which the library searches slowly
inline constexpr size_t NETCONF_MAX_ATTRIBUTE = 8u << 10;  // bytes of a value: XPaths, in quadratic time
inline constexpr size_t NETCONF_MAX_DEPTH = 64;            // elements within each other
inline constexpr size_t NETCONF_MAX_ELEMENTS = 500000;     // and attributes, of one message
inline constexpr size_t NETCONF_SMALL_MESSAGE = 64u << 10;
inline constexpr size_t NETCONF_BUDGET = 128u << 20;  // bytes of larger messages with their nodes, all peers

enum e_netconf_refusal {
    NETCONF_ADMITTED,
    NETCONF_TOO_LARGE,
    NETCONF_TOO_DEEP,
    NETCONF_TOO_MANY,
    NETCONF_TOO_LONG,  // an attribute
    NETCONF_DOCUMENT_TYPE,
    NETCONF_NOT_WELL_FORMED,  // no element, or one that is not closed: the library has no answer to it
    NETCONF_NO_ROOM,          // the budget is used up
};

// Where the XML scan stands.
enum e_netconf_xml {
    NETCONF_XML_TEXT,
    NETCONF_XML_OPEN,         // behind '<'
    NETCONF_XML_TAG,          // in a start tag
    NETCONF_XML_QUOTE,        // in an attribute's value
    NETCONF_XML_END_TAG,      // in an end tag
    NETCONF_XML_DECLARATION,  // behind "<!"
    NETCONF_XML_COMMENT,
    NETCONF_XML_CDATA,
    NETCONF_XML_INSTRUCTION,
};

// Where the framing stands.
enum e_netconf_frame {
    NETCONF_FRAME_MARK,   // data up to the end mark
    NETCONF_FRAME_LINE,   // the line feed before a chunk
    NETCONF_FRAME_HASH,   // "#" behind it
    NETCONF_FRAME_FIRST,  // first digit of a size, or the second "#"
    NETCONF_FRAME_SIZE,   // further digits
    NETCONF_FRAME_DATA,
    NETCONF_FRAME_END,  // the line feed behind "##"
};

struct t_netconf_guard {
    explicit t_netconf_guard(std::atomic<size_t> *p_shared_budget) : p_budget(p_shared_budget) {}
    ~t_netconf_guard();
    t_netconf_guard(const t_netconf_guard &) = delete;
    t_netconf_guard &operator=(const t_netconf_guard &) = delete;

    // The message so far, with NETCONF's namespace in place of an empty one. Of a refused one the beginning
    // only.
    std::string text;
    e_netconf_refusal refusal = NETCONF_ADMITTED;

    // Behind the functions below.
    std::atomic<size_t> *p_budget;  // bytes that all guards have charged
    size_t charged = 0;
    bool is_begun = false;
    bool is_complete = false;  // a message stands there
    e_netconf_frame frame = NETCONF_FRAME_MARK;
    size_t mark_matched = 0;  // bytes of the end mark that have come
    uint64_t chunk_left = 0;
    bool has_data = false;  // a chunk has come
    e_netconf_xml xml = NETCONF_XML_TEXT;
    char quote = 0;
    size_t value_size = 0;           // of the attribute
    std::string name;                // of the attribute, at most its first 6 bytes
    bool is_name_over = false;       // what comes is no part of it
    bool undeclares_prefix = false;  // the start tag has xmlns:p=""
    std::string seen;  // the last bytes of a declaration, comment, section or instruction, at most 8
    char previous = 0;
    size_t depth = 0;
    size_t elements = 0;
};

// Chunks from the next message on. Only between messages.
void netconf_guard_use_chunks(t_netconf_guard *p_guard);

enum e_netconf_feed { NETCONF_FEED_MORE, NETCONF_FEED_MESSAGE, NETCONF_FEED_BROKEN };

// Takes bytes up to the end of a message, and tells how many were taken. After NETCONF_FEED_MESSAGE text and
// refusal stand until netconf_guard_next.
[[nodiscard]] e_netconf_feed netconf_guard_feed(t_netconf_guard *p_guard, std::string_view bytes,
                                                size_t *p_taken);

// Gives up the message, and what it was charged.
void netconf_guard_next(t_netconf_guard *p_guard);

// The value of the message-id of an rpc; empty if there is none, or none of the plain characters that can be
// told back without a parser (letters, digits, ".:_-", at most 128 of them).
std::string_view netconf_message_id(std::string_view text);
