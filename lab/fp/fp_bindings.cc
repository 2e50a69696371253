#include "lab/fp/fp_bindings.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <span>
#include <string_view>

using t_names = std::span<const char *const>;

static constexpr const char *stage_names[FP_STAGES] = {"ingress-list", "application-route", "data-policy",
                                                       "zone", "egress-list"};
static constexpr const char *type_names[FP_FILTER_TYPES] = {"none", "data", "application-route", "zone"};
static constexpr const char *policy_directions[FP_POLICY_DIRECTIONS] = {"none", "tunnel", "service", "all"};
static constexpr const char *interface_directions[FP_INTERFACE_DIRECTIONS] = {"none", "in", "out"};
static constexpr const char *family_names[FP_FAMILIES] = {"ipv4", "ipv6"};

// ---- Names ----

int64_t fp_filter_shown(uint32_t filter_id)
{
    return filter_id == UINT32_MAX ? -1 : int64_t{filter_id};
}

const char *fp_stage_name(e_fp_stage stage)
{
    return stage_names[stage];
}

const char *fp_filter_type_name(e_fp_filter_type type)
{
    return type_names[type];
}

const char *fp_policy_direction_name(e_fp_policy_direction direction)
{
    return policy_directions[direction];
}

const char *fp_interface_direction_name(e_fp_interface_direction direction)
{
    return interface_directions[direction];
}

const char *fp_side_name(e_fp_side side)
{
    return policy_directions[side];
}

const char *fp_family_name(e_fp_family family)
{
    return family_names[family];
}

// The place of a name in its list, or the list's size.
static size_t name_find(t_names names, std::string_view name)
{
    auto found = std::find(names.begin(), names.end(), name);
    return static_cast<size_t>(found - names.begin());
}

bool fp_packet_direction_read(const std::string &name, e_fp_interface_direction *p_direction)
{
    size_t index = name_find(interface_directions, name);
    if (index != FP_INTERFACE_DIRECTION_IN && index != FP_INTERFACE_DIRECTION_OUT)
        return false;
    *p_direction = static_cast<e_fp_interface_direction>(index);
    return true;
}

bool fp_side_read(const std::string &name, e_fp_side *p_side)
{
    size_t index = name_find(policy_directions, name);
    if (index != FP_SIDE_TUNNEL && index != FP_SIDE_SERVICE)
        return false;
    *p_side = static_cast<e_fp_side>(index);
    return true;
}

bool fp_family_read(const std::string &name, e_fp_family *p_family)
{
    size_t index = name_find(family_names, name);
    if (index == FP_FAMILIES)
        return false;
    *p_family = static_cast<e_fp_family>(index);
    return true;
}

// ---- Looking up ----

// The interface on which the packet goes in that direction; empty when it isn't told.
static std::string interface_of(const t_fp_place &place, e_fp_interface_direction direction)
{
    if (place.direction == direction)
        return place.interface;
    return direction == FP_INTERFACE_DIRECTION_OUT ? place.out_interface : "";
}

static const t_fp_interface_binding *interface_find(const t_fp_bindings &bindings, const t_fp_place &place,
                                                    e_fp_interface_direction direction)
{
    std::string interface = interface_of(place, direction);
    if (interface.empty())
        return nullptr;
    auto found = std::find_if(
        bindings.interfaces.begin(), bindings.interfaces.end(), [&](const t_fp_interface_binding &row) {
            return row.family == place.family && row.direction == direction && row.interface == interface;
        });
    return found != bindings.interfaces.end() ? &*found : nullptr;
}

static bool vpn_fits(const t_fp_vpn_binding &row, e_fp_filter_type type, const t_fp_place &place)
{
    if (row.type != type || place.vpn < row.min_vpn || place.vpn > row.max_vpn)
        return false;
    return type != FP_FILTER_DATA || (uint32_t{row.direction} & place.side) != 0;
}

static bool is_narrower(const t_fp_vpn_binding &row, const t_fp_vpn_binding &other)
{
    uint32_t width = row.max_vpn - row.min_vpn;
    uint32_t other_width = other.max_vpn - other.min_vpn;
    return width != other_width ? width < other_width : row.min_vpn < other.min_vpn;
}

static const t_fp_vpn_binding *vpn_find(const t_fp_bindings &bindings, e_fp_filter_type type,
                                        const t_fp_place &place)
{
    const t_fp_vpn_binding *p_best = nullptr;
    for (const t_fp_vpn_binding &row : bindings.vpns) {
        if (vpn_fits(row, type, place) && (p_best == nullptr || is_narrower(row, *p_best)))
            p_best = &row;
    }
    return p_best;
}

std::vector<t_fp_stage> fp_bindings_lookup(const t_fp_bindings &bindings, const t_fp_place &place)
{
    std::vector<t_fp_stage> stages;
    if (const t_fp_interface_binding *p_row = interface_find(bindings, place, FP_INTERFACE_DIRECTION_IN))
        stages.push_back({FP_STAGE_INGRESS_LIST, p_row->filter_id, &p_row->name});
    if (const t_fp_vpn_binding *p_row = vpn_find(bindings, FP_FILTER_APP_ROUTE, place))
        stages.push_back({FP_STAGE_APP_ROUTE, p_row->filter_id, &p_row->name});
    if (const t_fp_vpn_binding *p_row = vpn_find(bindings, FP_FILTER_DATA, place))
        stages.push_back({FP_STAGE_DATA_POLICY, p_row->filter_id, &p_row->name});
    if (const t_fp_interface_binding *p_row = interface_find(bindings, place, FP_INTERFACE_DIRECTION_OUT))
        stages.push_back({FP_STAGE_EGRESS_LIST, p_row->filter_id, &p_row->name});
    return stages;
}

// ---- JSON, written ----

nlohmann::ordered_json fp_bindings_json(const t_fp_bindings &bindings)
{
    using t_json = nlohmann::ordered_json;
    t_json json = {{"vpns", t_json::array()}, {"interfaces", t_json::array()}};
    for (const t_fp_vpn_binding &row : bindings.vpns) {
        json["vpns"].push_back({{"type", fp_filter_type_name(row.type)},
                                {"min", row.min_vpn},
                                {"max", row.max_vpn},
                                {"filter", fp_filter_shown(row.filter_id)},
                                {"direction", fp_policy_direction_name(row.direction)},
                                {"name", row.name}});
    }
    for (const t_fp_interface_binding &row : bindings.interfaces) {
        json["interfaces"].push_back({{"family", fp_family_name(row.family)},
                                      {"interface", row.interface},
                                      {"direction", fp_interface_direction_name(row.direction)},
                                      {"vpn", row.vpn},
                                      {"filter", fp_filter_shown(row.filter_id)},
                                      {"name", row.name}});
    }
    return json;
}

// ---- JSON, read ----

// The members of a row. The first that doesn't hold is remembered, so that rows are read without a test
// behind each member.
struct t_row_reader {
    const nlohmann::json &row;
    std::string bad;  // name of that member
};

static const nlohmann::json *member_find(t_row_reader *p_reader, const char *name)
{
    auto found = p_reader->row.is_object() ? p_reader->row.find(name) : p_reader->row.end();
    return found != p_reader->row.end() ? &*found : nullptr;
}

static void refuse_member(t_row_reader *p_reader, const char *name)
{
    if (p_reader->bad.empty())
        p_reader->bad = name;
}

static std::string text_member(t_row_reader *p_reader, const char *name)
{
    const nlohmann::json *p_value = member_find(p_reader, name);
    if (p_value != nullptr && p_value->is_string())
        return p_value->get<std::string>();
    refuse_member(p_reader, name);
    return "";
}

// A whole number of 32 bits, from `least` on.
static uint32_t number_member(t_row_reader *p_reader, const char *name, int64_t least)
{
    const nlohmann::json *p_value = member_find(p_reader, name);
    if (p_value != nullptr && p_value->is_number_integer()) {
        int64_t value = p_value->get<int64_t>();
        if (value >= least && value <= UINT32_MAX)
            return static_cast<uint32_t>(value);
    }
    refuse_member(p_reader, name);
    return 0;
}

static size_t name_member(t_row_reader *p_reader, const char *name, t_names names)
{
    size_t index = name_find(names, text_member(p_reader, name));
    if (index < names.size())
        return index;
    refuse_member(p_reader, name);
    return 0;
}

static t_fp_vpn_binding vpn_read(t_row_reader *p_reader)
{
    return {.type = static_cast<e_fp_filter_type>(name_member(p_reader, "type", type_names)),
            .min_vpn = number_member(p_reader, "min", 0),
            .max_vpn = number_member(p_reader, "max", 0),
            .filter_id = number_member(p_reader, "filter", -1),
            .direction =
                static_cast<e_fp_policy_direction>(name_member(p_reader, "direction", policy_directions)),
            .name = text_member(p_reader, "name")};
}

static t_fp_interface_binding interface_read(t_row_reader *p_reader)
{
    return {.family = static_cast<e_fp_family>(name_member(p_reader, "family", family_names)),
            .interface = text_member(p_reader, "interface"),
            .direction = static_cast<e_fp_interface_direction>(
                name_member(p_reader, "direction", interface_directions)),
            .vpn = number_member(p_reader, "vpn", 0),
            .filter_id = number_member(p_reader, "filter", -1),
            .name = text_member(p_reader, "name")};
}

template <typename t_row>
static bool rows_read(const nlohmann::json &object, const std::string &name, t_row (*p_read)(t_row_reader *),
                      std::vector<t_row> *p_rows, std::string *p_error)
{
    auto found = object.find(name);
    if (found == object.end() || !found->is_array()) {
        *p_error = '"' + name + "\" is no array";
        return false;
    }
    for (const nlohmann::json &row : *found) {
        t_row_reader reader = {row, ""};
        p_rows->push_back(p_read(&reader));
        if (reader.bad.empty())
            continue;
        *p_error = "row " + std::to_string(p_rows->size()) + " of \"" + name + "\": \"" + reader.bad +
                   "\" is missing or has no such value";
        return false;
    }
    return true;
}

bool fp_bindings_read(const nlohmann::json &object, t_fp_bindings *p_bindings, std::string *p_error)
{
    t_fp_bindings bindings;
    if (!rows_read(object, "vpns", vpn_read, &bindings.vpns, p_error) ||
        !rows_read(object, "interfaces", interface_read, &bindings.interfaces, p_error))
        return false;
    *p_bindings = std::move(bindings);
    return true;
}
