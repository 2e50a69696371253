#include "mgmtd/snmp/mgmt_snmp_names.h"

#include "generated/mgmt_mib_names.h"

#include <algorithm>

static_assert(std::ranges::is_sorted(mgmt_mib_names, {}, &t_mgmt_mib_name::name));

bool mgmt_snmp_name_find(const std::string &name, std::vector<uint32_t> *p_oid)
{
    const t_mgmt_mib_name *p_found =
        std::ranges::lower_bound(mgmt_mib_names, std::string_view(name), {}, &t_mgmt_mib_name::name);
    if (p_found == std::end(mgmt_mib_names) || p_found->name != name)
        return false;
    p_oid->assign(std::begin(mgmt_mib_root), std::end(mgmt_mib_root));
    p_oid->insert(p_oid->end(), {p_found->branch, p_found->number});
    return true;
}
