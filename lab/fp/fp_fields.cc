#include "lab/fp/fp_fields.h"

#include "lab/fp/fp_place.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <filesystem>

struct t_field {
    std::string_view name;
    uint32_t type;
    bool from_sidecar;  // no header tells it
};

static constexpr t_field fields[] = {
    {"proto", tarn_ip_protocol, false},
    {"sport", tarn_ip_src_port, false},
    {"dport", tarn_ip_dst_port, false},
    {"src", tarn_ip_src_addr, false},
    {"dst", tarn_ip_dst_addr, false},
    {"dscp", tarn_ip_dscp, false},
    {"class", tarn_ip_fc, true},
    {"tcp-flags", tarn_ip_tcp, false},
    {"len", tarn_ip_pkt_len, false},
    {"app", tarn_ip_dpi_app, true},
    {"app-family", tarn_ip_dpi_app_family, true},
    {"match-any", tarn_ip_match_any, false},
    {"traffic-class", tarn_ip_traffic_class, false},
    {"next-header", tarn_ip_next_header, false},
    {"plp", tarn_ip_plp, true},
    {"dns-app", tarn_ip_dpi_dns_app, true},
    {"dns-app-family", tarn_ip_dpi_dns_app_family, true},
    {"dns", tarn_ip_dns, true},
};

struct t_protocol {
    std::string_view name;
    uint32_t number;
};

static constexpr t_protocol protocols[] = {{"icmp", 1}, {"tcp", 6}, {"udp", 17}};

static std::string quoted(std::string_view text)
{
    return '"' + std::string(text) + '"';
}

static bool refuse(const std::string &reason, std::string *p_error)
{
    *p_error = reason;
    return false;
}

bool fp_number_read(std::string_view text, uint32_t *p_value)
{
    int base = text.starts_with("0x") ? 16 : 10;
    const char *p_begin = text.data() + (base == 16 ? 2 : 0);
    const char *p_end = text.data() + text.size();
    uint32_t value = 0;
    std::from_chars_result result = std::from_chars(p_begin, p_end, value, base);
    if (result.ec != std::errc() || result.ptr != p_end)
        return false;
    *p_value = value;
    return true;
}

static bool address_read(std::string_view text, uint32_t *p_value)
{
    in_addr address;
    if (inet_pton(AF_INET, std::string(text).c_str(), &address) != 1)
        return false;
    *p_value = ntohl(address.s_addr);
    return true;
}

static bool protocol_read(std::string_view text, uint32_t *p_value)
{
    auto found = std::find_if(std::begin(protocols), std::end(protocols),
                              [text](const t_protocol &protocol) { return protocol.name == text; });
    if (found == std::end(protocols))
        return false;
    *p_value = found->number;
    return true;
}

bool fp_field_set(uint32_t type, std::string_view value, t_fp_header *p_header, std::string *p_error)
{
    bool is_address = type == tarn_ip_src_addr || type == tarn_ip_dst_addr;
    bool is_protocol = type == tarn_ip_protocol || type == tarn_ip_next_header;
    uint32_t number = 0;
    bool is_read = value == "-" || fp_number_read(value, &number) ||
                   (is_address && address_read(value, &number)) ||
                   (is_protocol && protocol_read(value, &number));
    if (!is_read)
        return refuse(quoted(value) + " is no value of a field", p_error);
    p_header->values[type] = number;
    return true;
}

static const t_field *field_find(std::string_view name)
{
    auto found = std::find_if(std::begin(fields), std::end(fields),
                              [name](const t_field &field) { return field.name == name; });
    return found != std::end(fields) ? found : nullptr;
}

static bool field_assign(std::string_view text, bool is_sidecar, t_fp_header *p_header, std::string *p_error)
{
    size_t equals = text.find('=');
    if (equals == std::string_view::npos)
        return refuse(quoted(text) + " is not NAME=VALUE", p_error);
    const t_field *p_field = field_find(text.substr(0, equals));
    if (p_field == nullptr)
        return refuse("there is no field " + quoted(text.substr(0, equals)), p_error);
    if (is_sidecar && !p_field->from_sidecar)
        return refuse("field " + quoted(p_field->name) + " comes from the packet", p_error);
    return fp_field_set(p_field->type, text.substr(equals + 1), p_header, p_error);
}

bool fp_field_assign(std::string_view text, t_fp_header *p_header, std::string *p_error)
{
    return field_assign(text, false, p_header, p_error);
}

// ---- Sidecar files ----

std::string fp_sidecar_path(const std::string &capture)
{
    return capture + ".fields";
}

bool fp_sidecar_open(const std::string &path, t_fp_sidecar *p_sidecar, std::string *p_error)
{
    std::error_code error;
    *p_sidecar = {};
    p_sidecar->name = path;
    if (std::filesystem::is_regular_file(path, error))
        p_sidecar->stream.open(path);
    return p_sidecar->stream.is_open() || refuse(path + ": can't be read", p_error);
}

static bool line_next(t_fp_sidecar *p_sidecar, std::string *p_line)
{
    do {
        p_sidecar->line++;
        if (!std::getline(p_sidecar->stream, *p_line))
            return false;
    } while (p_line->starts_with('#'));
    return true;
}

// Takes the next word off the text; an empty one at its end.
static std::string_view word_take(std::string_view *p_text)
{
    static constexpr std::string_view blanks = " \t\r";
    p_text->remove_prefix(std::min(p_text->find_first_not_of(blanks), p_text->size()));
    std::string_view word = p_text->substr(0, p_text->find_first_of(blanks));
    p_text->remove_prefix(word.size());
    return word;
}

// A word of a line: of the place, or a field.
static bool word_assign(std::string_view word, t_fp_header *p_header, t_fp_place *p_place,
                        std::string *p_error)
{
    size_t equals = std::min(word.find('='), word.size());
    const t_fp_place_row *p_row = p_place != nullptr ? fp_place_row_find(word.substr(0, equals)) : nullptr;
    if (p_row == nullptr || equals == word.size())
        return field_assign(word, true, p_header, p_error);
    if (p_row->is_of_packet)
        return refuse(quoted(p_row->name) + " comes from the packet", p_error);
    return fp_place_set(*p_row, std::string(word.substr(equals + 1)), p_place, p_error);
}

bool fp_sidecar_next(t_fp_sidecar *p_sidecar, t_fp_header *p_header, t_fp_place *p_place,
                     std::string *p_error)
{
    std::string line;
    std::string reason;
    if (!line_next(p_sidecar, &line))
        return refuse(p_sidecar->name + ": has fewer lines than the capture has frames", p_error);
    std::string_view rest = line;
    for (std::string_view word = word_take(&rest); !word.empty(); word = word_take(&rest)) {
        if (!word_assign(word, p_header, p_place, &reason))
            return refuse(p_sidecar->name + ":" + std::to_string(p_sidecar->line) + ": " + reason, p_error);
    }
    return true;
}
