// Members of operations: texts, numbers and names of values.
#include "common/lum_util.h"
#include "fp_api/fp_filter_action.h"
#include "lab/loader/loader_private.h"

#include <arpa/inet.h>
#include <charconv>
#include <cstring>

void loader_refuse(const std::string &reason)
{
    throw loader_refusal(reason);
}

void loader_check(int status, const std::string &what)
{
    if (status != 0)
        loader_refuse(what + ": " + strerror(status < 0 ? -status : status));
}

static std::string checked_text(const loader_json &value, const char *member)
{
    if (!value.is_string() || value.get_ref<const std::string &>().size() >= TARN_NAME_SIZE)
        loader_refuse(std::string(member) + " is no text of at most 127 characters");
    return value.get<std::string>();
}

std::string loader_text(const loader_json &from, const char *member)
{
    if (!from.contains(member))
        loader_refuse(std::string(member) + " is missing");
    return checked_text(from.at(member), member);
}

uint64_t loader_number(const loader_json &from, const char *member, uint64_t max)
{
    if (!from.contains(member) || !from.at(member).is_number_unsigned() || from.at(member) > max)
        loader_refuse(std::string(member) + " is no number from 0 to " + std::to_string(max));
    return from.at(member).get<uint64_t>();
}

std::vector<std::string> loader_texts(const loader_json &from, const char *member)
{
    std::vector<std::string> texts;
    if (!from.contains(member))
        return texts;
    const loader_json &value = from.at(member);
    if (!value.is_array())
        return {checked_text(value, member)};
    for (const loader_json &element : value)
        texts.push_back(checked_text(element, member));
    return texts;
}

uint32_t loader_ipv4(const std::string &text)
{
    in_addr address;
    if (inet_pton(AF_INET, text.c_str(), &address) != 1)
        loader_refuse(text + " is no IPv4 address");
    return address.s_addr;
}

static const char *read_number(const std::string &text, const char *p_from, uint64_t max, uint64_t *p_value)
{
    auto [p_end, error] = std::from_chars(p_from, text.data() + text.size(), *p_value);
    if (error != std::errc{} || *p_value > max)
        loader_refuse(text + " is no number or range up to " + std::to_string(max));
    return p_end;
}

void loader_range(const std::string &text, uint64_t max, uint64_t *p_min, uint64_t *p_max)
{
    const char *p_end = read_number(text, text.data(), max, p_min);
    *p_max = *p_min;
    if (*p_end == '-')
        p_end = read_number(text, p_end + 1, max, p_max);
    if (p_end != text.data() + text.size() || *p_min > *p_max)
        loader_refuse(text + " is no number or range up to " + std::to_string(max));
}

confd_ipv4_prefix loader_prefix(const std::string &text)
{
    size_t slash = text.find('/');
    if (slash == std::string::npos)
        loader_refuse(text + " is no prefix");
    uint64_t len;
    uint64_t same;
    loader_range(text.substr(slash + 1), 32, &len, &same);
    return {{loader_ipv4(text.substr(0, slash))}, static_cast<uint8_t>(len)};
}

e_tarn_policy_type loader_policy_type(const loader_json &from)
{
    std::string type = loader_text(from, "type");
    if (type == "data")
        return TARN_POLICY_TYPE_DATA;
    if (type == "app-route")
        return TARN_POLICY_TYPE_PFR;
    loader_refuse("type " + type + " is neither data nor app-route");
}

bool loader_is_local(const loader_json &from)
{
    std::string location = from.value("location", "controller");
    if (location != "local" && location != "controller")
        loader_refuse("location " + location + " is neither local nor controller");
    return location == "local";
}

uint32_t loader_verdict(const std::string &name)
{
    if (name == "accept")
        return TARN_FILTER_ACTION_ACCEPT;
    if (name == "reject")
        return TARN_FILTER_ACTION_REJECT;
    loader_refuse("verdict " + name + " is neither accept nor reject");
}

uint32_t loader_color(const std::string &name)
{
    uint32_t color = lum_util_color_str2enum(name.c_str());
    if (color == LUM_TLOC_COLOR_INVALID)
        loader_refuse(name + " is no color");
    return color;
}

uint32_t loader_encap(const std::string &name)
{
    uint32_t encap = lum_util_encap_str2enum(name.c_str());
    if (encap == LUM_TLOC_ENCAP_INVALID)
        loader_refuse(name + " is no encapsulation");
    return encap;
}

t_loader_sequence loader_sequence_of(const loader_json &operation)
{
    return {loader_policy_type(operation), loader_text(operation, "policy"),
            loader_text(operation, "vpn-list"),
            static_cast<uint16_t>(loader_number(operation, "sequence", UINT16_MAX))};
}
