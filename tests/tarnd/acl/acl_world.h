// Access lists as the configuration makes them, and what FTM hears of them.
#pragma once

#include "tarnd/acl/tarn_intf_config.h"
#include "tests/tarnd/config/confd_change.h"

#include <string>
#include <vector>

class AclWorld : public ConfdWorld {
public:
    // IPv4 lists that accept by default.
    void add_list(const char *name);
    void delete_list(const char *name);
    t_tarn_access_list *list_of(const char *name, e_tarn_af_type af_type = TARN_AF_TYPE_IPV4) const;

    // The sequence's change; the values stand in their containers. A created sequence has an accepting base
    // action besides.
    void sequence(confd_iter_op oper, const char *name, uint16_t id, const t_change &values = {});
    t_tarn_config_rule *rule(const char *name, uint16_t id) const;

    // Binds by the store's own call; the direction is inward.
    void bind(const char *list, const char *intf, uint64_t vpn_id = 7);

    // "field: min-max" of each field but match-any, in order, and "action" numbers of each action.
    std::string fields(const char *name, uint16_t id) const;
    std::string actions(const char *name, uint16_t id) const;

    // Messages to FTM since the last call: "+4 list #filter vpn:intf/direction...".
    std::vector<std::string> told();

    void add_local_pfx_list(const char *name, const std::vector<const char *> &prefixes);
    void add_policer(const char *name);
};

// Values inside `match`, `action` and `action/set`.
t_change match(const t_change &values);
t_change action(const t_change &values);
t_change action_set(const t_change &values);
confd_value_t u64(uint64_t value);
