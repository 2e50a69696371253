#include "lab/fp/fp_place.h"

#include "lab/fp/fp_fields.h"

#include <algorithm>
#include <arpa/inet.h>

static bool vpn_read(const std::string &word, t_fp_place *p_place)
{
    return fp_number_read(word, &p_place->vpn);
}

static bool interface_read(const std::string &word, t_fp_place *p_place)
{
    p_place->interface = word;
    return !word.empty();
}

static bool direction_read(const std::string &word, t_fp_place *p_place)
{
    return fp_packet_direction_read(word, &p_place->direction);
}

static bool side_read(const std::string &word, t_fp_place *p_place)
{
    return fp_side_read(word, &p_place->side);
}

static bool out_vpn_read(const std::string &word, t_fp_place *p_place)
{
    uint32_t vpn = 0;
    if (!fp_number_read(word, &vpn))
        return false;
    p_place->out_vpn = vpn;
    return true;
}

static bool out_interface_read(const std::string &word, t_fp_place *p_place)
{
    p_place->out_interface = word;
    return !word.empty();
}

static bool family_read(const std::string &word, t_fp_place *p_place)
{
    return fp_family_read(word, &p_place->family);
}

static bool src6_read(const std::string &word, t_fp_place *p_place)
{
    return inet_pton(AF_INET6, word.c_str(), p_place->addresses6.src.data()) == 1;
}

static bool dst6_read(const std::string &word, t_fp_place *p_place)
{
    return inet_pton(AF_INET6, word.c_str(), p_place->addresses6.dst.data()) == 1;
}

static constexpr t_fp_place_row rows[] = {
    {"vpn", true, false, vpn_read},
    {"interface", true, false, interface_read},
    {"direction", true, false, direction_read},
    {"from", false, false, side_read},
    {"out-vpn", false, false, out_vpn_read},
    {"out-interface", false, false, out_interface_read},
    {"family", false, true, family_read},
    {"src6", false, true, src6_read},
    {"dst6", false, true, dst6_read},
};

std::span<const t_fp_place_row> fp_place_rows()
{
    return rows;
}

const t_fp_place_row *fp_place_row_find(std::string_view name)
{
    auto found = std::find_if(std::begin(rows), std::end(rows),
                              [name](const t_fp_place_row &row) { return row.name == name; });
    return found != std::end(rows) ? &*found : nullptr;
}

t_fp_place fp_place_blank()
{
    t_fp_place place = {};
    place.side = FP_SIDE_SERVICE;
    return place;
}

bool fp_place_set(const t_fp_place_row &row, const std::string &word, t_fp_place *p_place,
                  std::string *p_error)
{
    if (row.p_read(word, p_place))
        return true;
    *p_error = "no " + std::string(row.name) + ": \"" + word + '"';
    return false;
}
