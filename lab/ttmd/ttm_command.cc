#include "lab/ttmd/ttm_command.h"

#include "common/lum_util.h"

#include <arpa/inet.h>
#include <charconv>
#include <iterator>
#include <string_view>

static constexpr uint32_t max_msecs = 3'600'000;
static constexpr uint32_t max_flaps = 1'000'000;
static constexpr uint32_t max_index = INT32_MAX;

struct t_named_value {
    const char *name;
    uint8_t value;
};

static constexpr t_named_value statuses[] = {{"up", 1}, {"down", 2}};
static constexpr t_named_value origins[] = {{"local", 1}, {"remote", 2}, {"far-remote", 3}};

static bool refuse(std::string *p_error, const std::string &reason)
{
    *p_error = reason;
    return false;
}

static const char *value_name(std::span<const t_named_value> values, uint8_t value)
{
    for (const t_named_value &item : values) {
        if (item.value == value)
            return item.name;
    }
    return "-";
}

const char *ttm_status_name(uint8_t status)
{
    return value_name(statuses, status);
}

const char *ttm_origin_name(uint8_t origin)
{
    return value_name(origins, origin);
}

// ---- Words ----

static std::optional<uint32_t> number_parse(std::string_view text, uint32_t max)
{
    uint32_t value = 0;
    auto [p_end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (status != std::errc() || p_end != text.data() + text.size() || value > max)
        return std::nullopt;
    return value;
}

static std::optional<uint8_t> named_parse(std::span<const t_named_value> values, std::string_view text)
{
    for (const t_named_value &item : values) {
        if (text == item.name)
            return item.value;
    }
    return std::nullopt;
}

static bool address_parse(const std::string &text, t_ttm_name *p_name)
{
    p_name->address = {};
    p_name->ip_version = text.find(':') != std::string::npos ? 6 : 4;
    int family = p_name->ip_version == 6 ? AF_INET6 : AF_INET;
    return inet_pton(family, text.c_str(), p_name->address.data()) == 1;
}

// words: the command, address, color, encapsulation and what follows.
static bool name_parse(const t_lab_words &words, t_ttm_name *p_name, std::string *p_error)
{
    if (words.size() < 4)
        return refuse(p_error, words[0] + " takes an address, a color and an encapsulation");
    p_name->color = lum_util_color_str2enum(words[2].c_str());
    p_name->encap = lum_util_encap_str2enum(words[3].c_str());
    if (!address_parse(words[1], p_name))
        return refuse(p_error, words[1] + " is no address");
    if (p_name->color == LUM_TLOC_COLOR_INVALID || words[2] != lum_util_tloc_color_name(p_name->color))
        return refuse(p_error, words[2] + " is no color");
    if (p_name->encap == LUM_TLOC_ENCAP_INVALID || words[3] != lum_util_tloc_encap_name(p_name->encap))
        return refuse(p_error, words[3] + " is no encapsulation");
    return true;
}

// One NAME=VALUE. False when the name is unknown or the value is none of its values.
static bool change_parse(std::string_view name, std::string_view text, t_ttm_changes *p_changes)
{
    if (name == "pref")
        return (p_changes->preference = number_parse(text, UINT32_MAX)).has_value();
    if (name == "weight")
        return (p_changes->weight = number_parse(text, UINT32_MAX)).has_value();
    if (name == "index")
        return (p_changes->index = number_parse(text, max_index)).has_value();
    if (name == "paths")
        return (p_changes->paths = number_parse(text, TTM_RECORD_MAX_PATHS)).has_value();
    if (name == "status")
        return (p_changes->status = named_parse(statuses, text)).has_value();
    return name == "origin" && (p_changes->origin = named_parse(origins, text)).has_value();
}

// ---- Commands ----

static bool announce_parse(const t_lab_words &words, t_ttm_command *p_command, std::string *p_error)
{
    if (!name_parse(words, &p_command->name, p_error))
        return false;
    for (size_t i = 4; i < words.size(); i++) {
        std::string_view word = words[i];
        size_t sign = word.find('=');
        if (sign == std::string_view::npos ||
            !change_parse(word.substr(0, sign), word.substr(sign + 1), &p_command->changes))
            return refuse(p_error, "announce can't take " + words[i]);
    }
    return true;
}

static bool withdraw_parse(const t_lab_words &words, t_ttm_command *p_command, std::string *p_error)
{
    if (words.size() > 4)
        return refuse(p_error, "withdraw can't take " + words[4]);
    return name_parse(words, &p_command->name, p_error);
}

static bool flap_parse(const t_lab_words &words, t_ttm_command *p_command, std::string *p_error)
{
    if (!name_parse(words, &p_command->name, p_error))
        return false;
    std::optional<uint32_t> count = words.size() == 6 ? number_parse(words[4], max_flaps) : std::nullopt;
    std::optional<uint32_t> msecs = words.size() == 6 ? number_parse(words[5], max_msecs) : std::nullopt;
    if (!count || !msecs || *count == 0)
        return refuse(p_error, "flap takes a count from 1 on and milliseconds behind the locator");
    p_command->count = *count;
    p_command->msecs = *msecs;
    return true;
}

static bool sleep_parse(const t_lab_words &words, t_ttm_command *p_command, std::string *p_error)
{
    std::optional<uint32_t> msecs = words.size() == 2 ? number_parse(words[1], max_msecs) : std::nullopt;
    p_command->msecs = msecs.value_or(0);
    return msecs.has_value() || refuse(p_error, "sleep takes milliseconds");
}

static bool plain_parse(const t_lab_words &words, t_ttm_command *, std::string *p_error)
{
    return words.size() == 1 || refuse(p_error, words[0] + " takes nothing more");
}

struct t_command_row {
    const char *name;
    e_ttm_command kind;
    bool (*parse)(const t_lab_words &words, t_ttm_command *p_command, std::string *p_error);
};

static constexpr t_command_row rows[] = {
    {"announce", TTM_COMMAND_ANNOUNCE, announce_parse},
    {"withdraw", TTM_COMMAND_WITHDRAW, withdraw_parse},
    {"flap", TTM_COMMAND_FLAP, flap_parse},
    {"list", TTM_COMMAND_LIST, plain_parse},
    {"stats", TTM_COMMAND_STATS, plain_parse},
    {"drop", TTM_COMMAND_DROP, plain_parse},
    {"sleep", TTM_COMMAND_SLEEP, sleep_parse},
};

bool ttm_command_parse(const t_lab_words &words, t_ttm_command *p_command, std::string *p_error)
{
    *p_command = {};
    if (words.empty())
        return refuse(p_error, "no command");
    for (const t_command_row &row : rows) {
        if (words[0] != row.name)
            continue;
        p_command->kind = row.kind;
        return row.parse(words, p_command, p_error);
    }
    return refuse(p_error, "unknown command " + words[0]);
}
