#include "lab/fp/fp_live_config.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

using t_json = nlohmann::json;

static constexpr t_fp_live_address v4_mapped = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
static constexpr size_t v4_offset = 12;
static constexpr uint32_t v4_bits = 32;
static constexpr uint32_t address_bits = 128;

static bool refuse(const std::string &reason, std::string *p_error)
{
    *p_error = reason;
    return false;
}

// ---- Addresses ----

t_fp_live_address fp_live_address_v4(std::span<const uint8_t, 4> bytes)
{
    t_fp_live_address address = v4_mapped;
    std::copy(bytes.begin(), bytes.end(), address.begin() + v4_offset);
    return address;
}

t_fp_live_address fp_live_address_v6(std::span<const uint8_t, 16> bytes)
{
    t_fp_live_address address;
    std::copy(bytes.begin(), bytes.end(), address.begin());
    return address;
}

bool fp_live_is_v4(const t_fp_live_address &address)
{
    return std::equal(address.begin(), address.begin() + v4_offset, v4_mapped.begin());
}

std::span<const uint8_t> fp_live_address_bytes(const t_fp_live_address &address)
{
    return std::span<const uint8_t>(address).subspan(fp_live_is_v4(address) ? v4_offset : 0);
}

std::string fp_live_address_text(const t_fp_live_address &address)
{
    char text[INET6_ADDRSTRLEN];
    std::span<const uint8_t> bytes = fp_live_address_bytes(address);
    return inet_ntop(bytes.size() == 4 ? AF_INET : AF_INET6, bytes.data(), text, sizeof(text));
}

std::string fp_live_prefix_text(const t_fp_live_prefix &prefix)
{
    uint32_t length = prefix.length - (fp_live_is_v4(prefix.address) ? address_bits - v4_bits : 0);
    return fp_live_address_text(prefix.address) + '/' + std::to_string(length);
}

static bool address_read(const std::string &text, t_fp_live_address *p_address)
{
    uint8_t bytes[4];
    if (inet_pton(AF_INET6, text.c_str(), p_address->data()) == 1)
        return true;
    if (inet_pton(AF_INET, text.c_str(), bytes) != 1)
        return false;
    *p_address = fp_live_address_v4(bytes);
    return true;
}

static bool prefix_read(const std::string &text, t_fp_live_prefix *p_prefix)
{
    size_t slash = text.find('/');
    if (slash == std::string::npos || !address_read(text.substr(0, slash), &p_prefix->address))
        return false;
    std::string digits = text.substr(slash + 1);
    if (digits.empty() || digits.size() > 3 || digits.find_first_not_of("0123456789") != std::string::npos)
        return false;
    bool is_v4 = fp_live_is_v4(p_prefix->address);
    auto length = static_cast<uint32_t>(std::stoul(digits));
    p_prefix->length = static_cast<uint8_t>(is_v4 ? length + address_bits - v4_bits : length);
    return length <= (is_v4 ? v4_bits : address_bits);
}

static bool prefix_has(const t_fp_live_prefix &prefix, const t_fp_live_address &address)
{
    size_t bytes = prefix.length / 8;
    uint32_t rest = 8 - prefix.length % 8;
    if (memcmp(prefix.address.data(), address.data(), bytes) != 0)
        return false;
    return rest == 8 || prefix.address[bytes] >> rest == address[bytes] >> rest;
}

// ---- Looking up ----

const t_fp_live_route *fp_live_route_find(const t_fp_live_config &config, const t_fp_live_address &address)
{
    // A default route of IPv6 has no bits that keep mapped addresses out.
    bool is_v4 = fp_live_is_v4(address);
    for (const t_fp_live_route &route : config.routes) {
        if (fp_live_is_v4(route.prefix.address) == is_v4 && prefix_has(route.prefix, address))
            return &route;
    }
    return nullptr;
}

const t_fp_live_address *fp_live_port_address(const t_fp_live_port_config &port, bool is_v4)
{
    for (const t_fp_live_prefix &prefix : port.prefixes) {
        if (fp_live_is_v4(prefix.address) == is_v4)
            return &prefix.address;
    }
    return nullptr;
}

// ---- Reading ----

static bool members_check(const t_json &object, std::initializer_list<std::string_view> known,
                          std::string *p_error)
{
    if (!object.is_object())
        return refuse("no object: " + object.dump(), p_error);
    for (const auto &[name, value] : object.items()) {
        if (std::find(known.begin(), known.end(), name) == known.end())
            return refuse("there is no member \"" + name + '"', p_error);
    }
    return true;
}

static bool addresses_read(const t_json &texts, t_fp_live_port_config *p_port, std::string *p_error)
{
    for (const t_json &text : texts) {
        t_fp_live_prefix prefix = {};
        if (!prefix_read(text.get<std::string>(), &prefix))
            return refuse("no address with a prefix length: " + text.dump(), p_error);
        p_port->prefixes.push_back(prefix);
    }
    return true;
}

static bool port_read(const t_json &object, t_fp_live_config *p_config, std::string *p_error)
{
    if (!members_check(object, {"interface", "vpn", "side", "address"}, p_error))
        return false;
    t_fp_live_port_config port = {
        object.value("interface", ""), object.value("vpn", 0u), FP_SIDE_SERVICE, {}};
    if (port.interface.empty())
        return refuse("a port has no interface", p_error);
    if (!fp_side_read(object.value("side", "service"), &port.side))
        return refuse(port.interface + ": no side: " + object["side"].dump(), p_error);
    if (!addresses_read(object.value("address", t_json::array()), &port, p_error))
        return false;
    size_t index = p_config->ports.size();
    for (const t_fp_live_prefix &prefix : port.prefixes)
        p_config->routes.push_back({prefix, index, std::nullopt});
    p_config->ports.push_back(std::move(port));
    return true;
}

// The port of a route, by the neighbour or by name.
static bool route_port_find(const t_json &object, const t_fp_live_config &config, t_fp_live_route *p_route,
                            std::string *p_error)
{
    std::string via = object.value("via", "");
    if (!via.empty()) {
        if (!address_read(via, &p_route->via.emplace()))
            return refuse("no address: " + via, p_error);
        const t_fp_live_route *p_found = fp_live_route_find(config, *p_route->via);
        if (p_found == nullptr || p_found->via)
            return refuse(via + " is in no port's prefix", p_error);
        p_route->port = p_found->port;
        return true;
    }
    std::string name = object.value("port", "");
    auto found = std::find_if(config.ports.begin(), config.ports.end(),
                              [&name](const t_fp_live_port_config &port) { return port.interface == name; });
    p_route->port = static_cast<size_t>(found - config.ports.begin());
    return found != config.ports.end() || refuse("a route has neither \"via\" nor one of the ports", p_error);
}

// `ports` has the routes of the ports alone.
static bool route_read(const t_json &object, const t_fp_live_config &ports, t_fp_live_config *p_config,
                       std::string *p_error)
{
    t_fp_live_route route = {};
    if (!members_check(object, {"prefix", "via", "port"}, p_error))
        return false;
    if (!prefix_read(object.value("prefix", ""), &route.prefix))
        return refuse("no prefix: " + object.value("prefix", ""), p_error);
    if (!route_port_find(object, ports, &route, p_error))
        return false;
    p_config->routes.push_back(route);
    return true;
}

static bool config_read(const t_json &object, t_fp_live_config *p_config, std::string *p_error)
{
    if (!members_check(object, {"ports", "routes"}, p_error))
        return false;
    for (const t_json &port : object.value("ports", t_json::array())) {
        if (!port_read(port, p_config, p_error))
            return false;
    }
    if (p_config->ports.empty())
        return refuse("there are no ports", p_error);
    t_fp_live_config ports = *p_config;
    for (const t_json &route : object.value("routes", t_json::array())) {
        if (!route_read(route, ports, p_config, p_error))
            return false;
    }
    std::stable_sort(
        p_config->routes.begin(), p_config->routes.end(),
        [](const t_fp_live_route &a, const t_fp_live_route &b) { return a.prefix.length > b.prefix.length; });
    return true;
}

bool fp_live_config_parse(const std::string &text, t_fp_live_config *p_config, std::string *p_error)
{
    *p_config = {};
    try {
        return config_read(t_json::parse(text), p_config, p_error);
    } catch (const std::exception &error) {  // no JSON, or a member of another type
        return refuse(error.what(), p_error);
    }
}

bool fp_live_config_read(const std::string &path, t_fp_live_config *p_config, std::string *p_error)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return refuse(path + ": " + strerror(errno), p_error);
    std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (fp_live_config_parse(text, p_config, p_error))
        return true;
    return refuse(path + ": " + *p_error, p_error);
}
