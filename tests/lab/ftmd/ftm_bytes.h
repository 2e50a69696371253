// Messages to the forwarding table manager, written field by field.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

using t_message_bytes = std::vector<uint8_t>;

struct t_filter_head {
    uint8_t type;
    uint8_t kind;       // filter type or family
    uint8_t direction;  // of the policy; 0 for an interface filter
    uint32_t filter_id;
    std::string name;
};

struct t_range_entry {
    uint32_t min_vpn;
    uint32_t max_vpn;
};

struct t_interface_entry {
    uint32_t vpn;
    uint8_t direction;
    std::string name;
};

t_message_bytes vpn_message(const t_filter_head &head, const std::vector<t_range_entry> &entries);
t_message_bytes interface_message(const t_filter_head &head, const std::vector<t_interface_entry> &entries);
