// A look at an XML text before the parser sees it.

#include "mgmtd/rpc/mgmt_rpc.h"

#include <algorithm>

static bool begins(std::string_view text, std::string_view with)
{
    return text.substr(0, with.size()) == with;
}

// Behind the end mark; the end of the text if it is not there.
static size_t behind(std::string_view text, size_t at, std::string_view end)
{
    size_t found = text.find(end, at);
    return found == std::string_view::npos ? text.size() : found + end.size();
}

// Whether the empty value whose quotes begin at `at` takes a namespace away: xmlns="", xmlns:p="".
static bool undeclares(std::string_view text, size_t at)
{
    static constexpr const char *blanks = " \t\r\n";
    size_t equals = at > 0 ? text.find_last_not_of(blanks, at - 1) : std::string_view::npos;
    if (equals == std::string_view::npos || equals == 0 || text[equals] != '=')
        return false;
    size_t last = text.find_last_not_of(blanks, equals - 1);
    size_t first = last != std::string_view::npos ? text.find_last_of(" \t\r\n\"'<", last) : last;
    if (first == std::string_view::npos)
        return false;
    std::string_view name = text.substr(first + 1, last - first);
    return name == "xmlns" || begins(name, "xmlns:");
}

struct t_tag {
    size_t end;               // behind it
    bool is_whole = false;    // "<a/>"
    bool undeclares = false;  // it takes a namespace away
};

// A start tag from its name on; quoted values may hold a '>'.
static t_tag tag_read(std::string_view text, size_t at)
{
    t_tag tag = {.end = text.size()};
    char quote = '\0';
    for (; at < text.size(); at++) {
        char letter = text[at];
        if (quote != '\0') {
            quote = letter == quote ? '\0' : quote;
        } else if (letter == '"' || letter == '\'') {
            bool is_empty = at + 1 < text.size() && text[at + 1] == letter;
            tag.undeclares = tag.undeclares || (is_empty && undeclares(text, at));
            quote = letter;
        } else if (letter == '>') {
            break;
        }
    }
    tag.is_whole = at < text.size() && text[at - 1] == '/';
    tag.end = std::min(at + 1, text.size());
    return tag;
}

bool mgmt_rpc_xml_is_sane(std::string_view text)
{
    size_t depth = 0;
    for (size_t at = text.find('<'); at != std::string_view::npos; at = text.find('<', at)) {
        std::string_view rest = text.substr(at);
        if (begins(rest, "<!--")) {
            at = behind(text, at + 4, "-->");
        } else if (begins(rest, "<![CDATA[")) {
            at = behind(text, at, "]]>");
        } else if (begins(rest, "<?")) {
            at = behind(text, at, "?>");
        } else if (begins(rest, "<!")) {
            return false;
        } else if (begins(rest, "</")) {
            depth -= depth > 0 ? 1 : 0;
            at += 2;
        } else {
            t_tag tag = tag_read(text, at + 1);
            if (tag.undeclares)
                return false;
            at = tag.end;
            depth += tag.is_whole ? 0 : 1;
        }
        if (depth > MGMT_RPC_MAX_DEPTH)
            return false;
    }
    return true;
}
