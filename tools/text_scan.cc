#include "tools/text_scan.h"

#include <charconv>

static constexpr std::string_view blanks = " \t";

std::string text_error_print(const t_text_error &error)
{
    std::string place = error.file;
    if (error.line != 0)
        place += ':' + std::to_string(error.line);
    return place + ": " + error.reason;
}

bool text_next_line(std::string_view *p_rest, std::string_view *p_line)
{
    if (p_rest->empty())
        return false;
    size_t end = p_rest->find('\n');
    *p_line = p_rest->substr(0, end);
    p_rest->remove_prefix(end == std::string_view::npos ? p_rest->size() : end + 1);
    if (p_line->ends_with('\r'))
        p_line->remove_suffix(1);
    return true;
}

bool text_next_word(std::string_view *p_rest, std::string_view *p_word)
{
    size_t start = p_rest->find_first_not_of(blanks);
    if (start == std::string_view::npos) {
        *p_rest = {};
        return false;
    }
    p_rest->remove_prefix(start);
    *p_word = p_rest->substr(0, p_rest->find_first_of(blanks));
    p_rest->remove_prefix(p_word->size());
    return true;
}

bool text_next_part(std::string_view *p_rest, char separator, std::string_view *p_part)
{
    if (p_rest->data() == nullptr)
        return false;
    size_t end = p_rest->find(separator);
    *p_part = p_rest->substr(0, end);
    *p_rest = end == std::string_view::npos ? std::string_view() : p_rest->substr(end + 1);
    return true;
}

static bool number_in_base(std::string_view text, int base, uint64_t *p_value)
{
    const char *p_end = text.data() + text.size();
    std::from_chars_result result = std::from_chars(text.data(), p_end, *p_value, base);
    return !text.empty() && result.ec == std::errc() && result.ptr == p_end;
}

bool text_number(std::string_view text, uint64_t *p_value)
{
    return number_in_base(text, 10, p_value);
}

bool text_number_or_hex(std::string_view text, uint64_t *p_value)
{
    if (text.starts_with("0x") || text.starts_with("0X"))
        return number_in_base(text.substr(2), 16, p_value);
    return text_number(text, p_value);
}

bool text_ipv4(std::string_view text, uint32_t *p_address, std::string *p_reason)
{
    std::string_view rest = text;
    std::string_view part;
    uint32_t address = 0;
    int octets = 0;
    while (text_next_part(&rest, '.', &part)) {
        uint64_t octet = 0;
        if (++octets > 4 || !text_number(part, &octet)) {
            *p_reason = "no IPv4 address: " + text_quote(text);
            return false;
        }
        if (octet > 255) {
            *p_reason = "octet " + std::to_string(octet) + " above 255 in " + text_quote(text);
            return false;
        }
        address = address << 8 | static_cast<uint32_t>(octet);
    }
    if (octets != 4) {
        *p_reason = "no IPv4 address: " + text_quote(text);
        return false;
    }
    *p_address = address;
    return true;
}

bool text_prefix(std::string_view text, t_value_range *p_range, std::string *p_reason)
{
    size_t slash = text.find('/');
    if (slash == std::string_view::npos) {
        *p_reason = "no prefix length in " + text_quote(text);
        return false;
    }
    uint32_t address = 0;
    if (!text_ipv4(text.substr(0, slash), &address, p_reason))
        return false;
    uint64_t length = 0;
    if (!text_number(text.substr(slash + 1), &length)) {
        *p_reason = "no prefix length in " + text_quote(text);
        return false;
    }
    if (length > 32) {
        *p_reason = "prefix length " + std::to_string(length) + " above 32";
        return false;
    }
    uint32_t host_bits = static_cast<uint32_t>(0xffffffffull >> length);
    *p_range = {address & ~host_bits, address | host_bits};
    return true;
}

std::string text_quote(std::string_view text)
{
    static constexpr size_t longest = 60;
    std::string quoted = "'";
    for (char c : text.substr(0, longest))
        quoted += c >= ' ' && c <= '~' ? c : '?';
    return quoted + (text.size() > longest ? "...'" : "'");
}

std::string text_ipv4_print(uint32_t address)
{
    std::string text = std::to_string(address >> 24);
    for (int shift : {16, 8, 0})
        text += '.' + std::to_string(address >> shift & 255);
    return text;
}
