#include "lab/ftmd/ftm_table.h"

static t_ftm_vpn_key vpn_key(const t_ftm_message &message, const t_ftm_vpn_range &range)
{
    return {message.filter_type, range.min_vpn, range.max_vpn};
}

static t_ftm_interface_key interface_key(const t_ftm_message &message, const t_ftm_interface &interface)
{
    return {message.family, interface.name, interface.direction};
}

static void vpns_add(t_ftm_table *p_table, const t_ftm_message &message)
{
    for (const t_ftm_vpn_range &range : message.vpns)
        p_table->vpns[vpn_key(message, range)] = {message.filter_type, range.min_vpn,     range.max_vpn,
                                                  message.filter_id,   message.direction, message.name};
}

static void interfaces_add(t_ftm_table *p_table, const t_ftm_message &message)
{
    for (const t_ftm_interface &interface : message.interfaces)
        p_table->interfaces[interface_key(message, interface)] = {message.family,      interface.name,
                                                                  interface.direction, interface.vpn,
                                                                  message.filter_id,   message.name};
}

// Removes the row if it holds that filter.
template <typename t_map>
static bool row_remove(t_map *p_map, const typename t_map::key_type &key, uint32_t filter_id)
{
    auto found = p_map->find(key);
    if (found == p_map->end() || found->second.filter_id != filter_id)
        return false;
    p_map->erase(found);
    return true;
}

static uint32_t vpns_delete(t_ftm_table *p_table, const t_ftm_message &message)
{
    uint32_t missed = 0;
    for (const t_ftm_vpn_range &range : message.vpns)
        missed += !row_remove(&p_table->vpns, vpn_key(message, range), message.filter_id);
    return missed;
}

static uint32_t interfaces_delete(t_ftm_table *p_table, const t_ftm_message &message)
{
    uint32_t missed = 0;
    for (const t_ftm_interface &interface : message.interfaces)
        missed += !row_remove(&p_table->interfaces, interface_key(message, interface), message.filter_id);
    return missed;
}

uint32_t ftm_table_apply(t_ftm_table *p_table, const t_ftm_message &message)
{
    switch (message.type) {
    case FTM_MESSAGE_VPN_ADD:
        vpns_add(p_table, message);
        return 0;
    case FTM_MESSAGE_VPN_DELETE:
        return vpns_delete(p_table, message);
    case FTM_MESSAGE_INTERFACE_ADD:
        interfaces_add(p_table, message);
        return 0;
    case FTM_MESSAGE_INTERFACE_DELETE:
        return interfaces_delete(p_table, message);
    default:
        return 0;
    }
}

t_fp_bindings ftm_table_bindings(const t_ftm_table &table)
{
    t_fp_bindings bindings;
    for (const auto &[key, row] : table.vpns)
        bindings.vpns.push_back(row);
    for (const auto &[key, row] : table.interfaces)
        bindings.interfaces.push_back(row);
    return bindings;
}
