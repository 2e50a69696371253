#include "lab/ftmd/ftm_decode.h"

#include <algorithm>
#include <nlohmann/json.hpp>

static constexpr size_t name_at = 7;
static constexpr size_t name_size = 128;
static constexpr size_t count_at = 135;
static constexpr size_t entries_at = 139;
static constexpr size_t vpn_entry_size = 8;
static constexpr size_t interface_entry_size = 38;
static constexpr size_t interface_name_at = 5;

using t_bytes = std::span<const uint8_t>;

static bool refuse(const std::string &reason, std::string *p_error)
{
    *p_error = reason;
    return false;
}

static uint32_t word_read(t_bytes bytes, size_t offset)
{
    uint32_t value = 0;
    for (size_t i = 0; i < sizeof(value); i++)
        value = value << 8 | bytes[offset + i];
    return value;
}

static bool text_read(t_bytes field, const char *what, std::string *p_text, std::string *p_error)
{
    auto end = std::find(field.begin(), field.end(), 0);
    if (end == field.end())
        return refuse(std::string(what) + " has no end", p_error);
    p_text->assign(field.begin(), end);
    return true;
}

template <typename t_value>
static bool value_read(uint8_t byte, t_value end, const char *what, t_value *p_value, std::string *p_error)
{
    if (byte >= end)
        return refuse("no " + std::string(what) + ": " + std::to_string(byte), p_error);
    *p_value = static_cast<t_value>(byte);
    return true;
}

// What both kinds of filter messages begin with. Behind it the entries are there, and nothing else.
static bool filter_read(t_bytes bytes, size_t entry_size, t_ftm_message *p_message, std::string *p_error)
{
    if (bytes.size() < entries_at)
        return refuse(std::to_string(bytes.size()) + " bytes end inside the fixed fields", p_error);
    p_message->filter_id = word_read(bytes, name_at - sizeof(uint32_t));
    if (!text_read(bytes.subspan(name_at, name_size), "the name", &p_message->name, p_error))
        return false;
    uint64_t count = word_read(bytes, count_at);
    if (count == 0)
        return refuse("there are no entries", p_error);
    if (bytes.size() - entries_at != count * entry_size)
        return refuse(std::to_string(count) + " entries are not " +
                          std::to_string(bytes.size() - entries_at) + " bytes",
                      p_error);
    return true;
}

static bool vpn_filter_read(t_bytes bytes, t_ftm_message *p_message, std::string *p_error)
{
    if (!filter_read(bytes, vpn_entry_size, p_message, p_error) ||
        !value_read(bytes[1], FP_FILTER_TYPES, "filter type", &p_message->filter_type, p_error) ||
        !value_read(bytes[2], FP_POLICY_DIRECTIONS, "policy direction", &p_message->direction, p_error))
        return false;
    for (size_t at = entries_at; at < bytes.size(); at += vpn_entry_size)
        p_message->vpns.push_back({word_read(bytes, at), word_read(bytes, at + sizeof(uint32_t))});
    return true;
}

static bool interface_read(t_bytes entry, t_ftm_interface *p_interface, std::string *p_error)
{
    p_interface->vpn = word_read(entry, 0);
    return value_read(entry[interface_name_at - 1], FP_INTERFACE_DIRECTIONS, "direction",
                      &p_interface->direction, p_error) &&
           text_read(entry.subspan(interface_name_at), "an interface name", &p_interface->name, p_error);
}

static bool interface_filter_read(t_bytes bytes, t_ftm_message *p_message, std::string *p_error)
{
    if (!filter_read(bytes, interface_entry_size, p_message, p_error) ||
        !value_read(bytes[1], FP_FAMILIES, "family", &p_message->family, p_error))
        return false;
    if (bytes[2] != 0)
        return refuse("the byte behind the family is " + std::to_string(bytes[2]), p_error);
    for (size_t at = entries_at; at < bytes.size(); at += interface_entry_size) {
        p_message->interfaces.emplace_back();
        if (!interface_read(bytes.subspan(at, interface_entry_size), &p_message->interfaces.back(), p_error))
            return false;
    }
    return true;
}

static bool type_alone_read(t_bytes bytes, t_ftm_message *, std::string *p_error)
{
    return bytes.size() == 1 || refuse("bytes stand behind the type", p_error);
}

struct t_message_row {
    const char *name;
    bool (*p_read)(t_bytes bytes, t_ftm_message *p_message, std::string *p_error);
};

// By type.
static constexpr t_message_row rows[FTM_MESSAGES] = {
    {"none", nullptr},
    {"vpn-filter-add", vpn_filter_read},
    {"vpn-filter-delete", vpn_filter_read},
    {"interface-filter-add", interface_filter_read},
    {"interface-filter-delete", interface_filter_read},
    {"dpi-clear-flows", type_alone_read},
    {"cflowd-clear-flows", type_alone_read},
};

bool ftm_decode(std::span<const uint8_t> bytes, t_ftm_message *p_message, std::string *p_error)
{
    if (bytes.empty())
        return refuse("the message is empty", p_error);
    if (bytes[0] >= FTM_MESSAGES || rows[bytes[0]].p_read == nullptr)
        return refuse("no message type: " + std::to_string(bytes[0]), p_error);
    t_ftm_message message = {};
    message.type = static_cast<e_ftm_message>(bytes[0]);
    if (!rows[message.type].p_read(bytes, &message, p_error))
        return false;
    *p_message = std::move(message);
    return true;
}

// ---- JSON ----

const char *ftm_message_name(e_ftm_message type)
{
    return rows[type].name;
}

using t_json = nlohmann::ordered_json;

static void vpn_filter_write(const t_ftm_message &message, t_json *p_json)
{
    t_json entries = t_json::array();
    for (const t_ftm_vpn_range &range : message.vpns)
        entries.push_back({{"min", range.min_vpn}, {"max", range.max_vpn}});
    p_json->update({{"type", fp_filter_type_name(message.filter_type)},
                    {"direction", fp_policy_direction_name(message.direction)},
                    {"filter", fp_filter_shown(message.filter_id)},
                    {"name", message.name},
                    {"vpns", entries}});
}

static void interface_filter_write(const t_ftm_message &message, t_json *p_json)
{
    t_json entries = t_json::array();
    for (const t_ftm_interface &interface : message.interfaces)
        entries.push_back({{"interface", interface.name},
                           {"direction", fp_interface_direction_name(interface.direction)},
                           {"vpn", interface.vpn}});
    p_json->update({{"family", fp_family_name(message.family)},
                    {"filter", fp_filter_shown(message.filter_id)},
                    {"name", message.name},
                    {"interfaces", entries}});
}

nlohmann::ordered_json ftm_message_json(const t_ftm_message &message)
{
    t_json json = {{"message", ftm_message_name(message.type)}};
    if (message.type == FTM_MESSAGE_VPN_ADD || message.type == FTM_MESSAGE_VPN_DELETE)
        vpn_filter_write(message, &json);
    else if (message.type == FTM_MESSAGE_INTERFACE_ADD || message.type == FTM_MESSAGE_INTERFACE_DELETE)
        interface_filter_write(message, &json);
    return json;
}
