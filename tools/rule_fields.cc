#include "tools/rule_fields.h"

#include "tools/text_scan.h"

#include <algorithm>

using enum e_rule_field_kind;

static const t_rule_field fields[] = {
    {"proto", tarn_ip_protocol, 255, protocol},
    {"sport", tarn_ip_src_port, 65535, port},
    {"dport", tarn_ip_dst_port, 65535, port},
    {"src", tarn_ip_src_addr, 0xffffffff, address},
    {"dst", tarn_ip_dst_addr, 0xffffffff, address},
    {"dscp", tarn_ip_dscp, 63, dscp},
    {"class", tarn_ip_fc, 64, number},
    {"tcp-flags", tarn_ip_tcp, 255, number},
    {"len", tarn_ip_pkt_len, 65535, number},
    {"app", tarn_ip_dpi_app, 4000, number},
    {"app-family", tarn_ip_dpi_app_family, 100, number},
    {"traffic-class", tarn_ip_traffic_class, 255, number},
    {"next-header", tarn_ip_next_header, 255, protocol},
    {"plp", tarn_ip_plp, 5, number},
    {"dns-app", tarn_ip_dpi_dns_app, 4000, number},
    {"dns-app-family", tarn_ip_dpi_dns_app_family, 100, number},
    {"dns", tarn_ip_dns, 5, number},
};

// Smallest programs over the sets that the benchmarks run; see docs/tarnc.md.
static const uint32_t default_order[] = {tarn_ip_dst_port, tarn_ip_src_addr, tarn_ip_dst_addr,
                                         tarn_ip_src_port, tarn_ip_protocol};

std::span<const t_rule_field> rule_fields()
{
    return fields;
}

const t_rule_field *rule_field_by_name(std::string_view name)
{
    auto found = std::find_if(std::begin(fields), std::end(fields),
                              [name](const t_rule_field &field) { return name == field.name; });
    return found != std::end(fields) ? found : nullptr;
}

const t_rule_field *rule_field_by_type(uint32_t type)
{
    auto found = std::find_if(std::begin(fields), std::end(fields),
                              [type](const t_rule_field &field) { return type == field.type; });
    return found != std::end(fields) ? found : nullptr;
}

std::string rule_field_name(uint32_t type)
{
    if (type == tarn_ip_match_any)
        return "match-any";
    const t_rule_field *p_field = rule_field_by_type(type);
    return p_field != nullptr ? p_field->name : "field-" + std::to_string(type);
}

std::string rule_field_value_print(uint32_t type, uint32_t value)
{
    const t_rule_field *p_field = rule_field_by_type(type);
    if (p_field != nullptr && p_field->kind == address)
        return text_ipv4_print(value);
    return std::to_string(value);
}

static std::string range_print(uint32_t type, const t_value_range &range)
{
    std::string low = rule_field_value_print(type, range.low);
    if (range.low == range.high)
        return low;
    uint64_t width = uint64_t{range.high} - range.low + 1;
    const t_rule_field *p_field = rule_field_by_type(type);
    bool is_address = p_field != nullptr && p_field->kind == address;
    if (is_address && (width & (width - 1)) == 0 && range.low % width == 0)
        return low + '/' + std::to_string(32 - __builtin_ctzll(width));
    return low + '-' + rule_field_value_print(type, range.high);
}

std::string rule_field_ranges_print(uint32_t type, std::span<const t_value_range> ranges)
{
    std::string text;
    for (const t_value_range &range : ranges)
        text += (text.empty() ? "" : ",") + range_print(type, range);
    return text;
}

bool rule_field_value_read(uint32_t type, std::string_view text, uint32_t *p_value)
{
    const t_rule_field *p_field = rule_field_by_type(type);
    std::string reason;
    if (p_field != nullptr && p_field->kind == address && text_ipv4(text, p_value, &reason))
        return true;
    uint64_t value = 0;
    if (!text_number(text, &value) || value > 0xffffffff)
        return false;
    *p_value = static_cast<uint32_t>(value);
    return true;
}

static void order_complete(std::vector<uint32_t> *p_order)
{
    auto add = [p_order](uint32_t type) {
        if (std::find(p_order->begin(), p_order->end(), type) == p_order->end())
            p_order->push_back(type);
    };
    for (uint32_t type : default_order)
        add(type);
    for (const t_rule_field &field : fields)
        add(field.type);
}

bool rule_field_order_read(std::string_view text, std::vector<uint32_t> *p_order, std::string *p_reason)
{
    p_order->clear();
    std::string_view name;
    while (!text.empty() && text_next_part(&text, ',', &name)) {
        const t_rule_field *p_field = rule_field_by_name(name);
        if (p_field == nullptr) {
            *p_reason = "unknown field " + text_quote(name);
            return false;
        }
        if (std::find(p_order->begin(), p_order->end(), p_field->type) != p_order->end()) {
            *p_reason = "field " + text_quote(name) + " named twice";
            return false;
        }
        p_order->push_back(p_field->type);
    }
    order_complete(p_order);
    return true;
}
