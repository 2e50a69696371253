#include "cli/text_escape.h"

#include <algorithm>
#include <cstdint>

// Bytes of the character of UTF-8 that a text begins with; 0 for none.
static size_t character_size(std::string_view text)
{
    auto lead = static_cast<uint8_t>(text[0]);
    size_t size = lead < 0x80 ? 1 : lead < 0xc2 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf5 ? 4 : 0;
    if (size > text.size())
        return 0;
    for (size_t i = 1; i < size; i++) {
        if ((static_cast<uint8_t>(text[i]) & 0xc0) != 0x80)
            return 0;
    }
    return size;
}

static bool is_control(std::string_view text, size_t size)
{
    auto lead = static_cast<uint8_t>(text[0]);
    bool is_second_half = size == 2 && lead == 0xc2 && static_cast<uint8_t>(text[1]) < 0xa0;
    return size == 0 || (size == 1 && (lead < 0x20 || lead == 0x7f)) || is_second_half;
}

static void escape(char byte, const char *p_start, std::string *p_text)
{
    static constexpr char digits[] = "0123456789abcdef";
    auto code = static_cast<uint8_t>(byte);
    *p_text += p_start;
    p_text->append({digits[code >> 4], digits[code & 15]});
}

std::string cli_text_printable(std::string_view text, bool keeps_lines)
{
    std::string shown;
    shown.reserve(text.size());
    while (!text.empty()) {
        size_t size = character_size(text);
        bool is_kept = keeps_lines && (text[0] == '\n' || text[0] == '\t');
        size_t used = size > 0 ? size : 1;
        if (is_kept || !is_control(text, size)) {
            shown += text.substr(0, used);
        } else {
            for (char byte : text.substr(0, used))
                escape(byte, "\\x", &shown);
        }
        text.remove_prefix(used);
    }
    return shown;
}

size_t cli_text_width(std::string_view text)
{
    return static_cast<size_t>(std::ranges::count_if(
        text, [](char byte) { return (static_cast<unsigned char>(byte) & 0xc0) != 0x80; }));
}

std::string cli_json_printable(std::string_view text)
{
    std::string shown;
    shown.reserve(text.size());
    while (!text.empty()) {
        size_t size = character_size(text);
        size_t used = size > 0 ? size : 1;
        bool is_layout = text[0] == '\n' || text[0] == '\t';
        if (is_layout || !is_control(text, size))
            shown += text.substr(0, used);
        else  // of two bytes the second one is the code
            escape(text[used - 1], "\\u00", &shown);
        text.remove_prefix(used);
    }
    return shown;
}
