#include "tarnd/oper/tarn_action_table.h"

#include "tarnd/dpi/tarn_dpi.h"
#include "tarnd/filter/tarn_if_octeon.h"
#include "tarnd/oper/tarn_clear.h"
#include "tarnd/oper/tarn_debug.h"
#include "tarnd/oper/tarn_dump.h"

#include <string_view>

static constexpr confd_action_cbs command_row(std::string_view name,
                                              decltype(confd_action_cbs::command) command)
{
    confd_action_cbs row = {};
    name.copy(row.actionpoint, sizeof(row.actionpoint) - 1);
    row.command = command;
    return row;
}

static constexpr confd_action_cbs action_row(std::string_view name, decltype(confd_action_cbs::action) action)
{
    confd_action_cbs row = {};
    name.copy(row.actionpoint, sizeof(row.actionpoint) - 1);
    row.action = action;
    return row;
}

// A function under its own name.
#define COMMAND(function) command_row(#function, function)
#define ACTION(function) action_row(#function, function)

confd_action_cbs tarn_action_commands[TARN_NUM_ACTION_COMMANDS] = {
    COMMAND(tarn_dump_admin_tech),
    COMMAND(tarn_dump_filter),
    COMMAND(tarn_dump_msgq),
    COMMAND(tarn_dump_memory_stats),
    COMMAND(tarn_dump_memory_map),
    COMMAND(tarn_dump_config),
    COMMAND(tarn_dump_policy),
    COMMAND(tarn_dump_acl),
    COMMAND(tarn_dump_acl6),
    COMMAND(tarn_dump_vpn_list),
    COMMAND(tarn_dump_prefix_list),
    COMMAND(tarn_dump_tloc_list),
    COMMAND(tarn_dump_tloc),
    COMMAND(tarn_dump_mirror),
    COMMAND(tarn_dump_policer),
    COMMAND(tarn_dump_class),
    COMMAND(tarn_dump_sla_class),
    COMMAND(tarn_dump_all),
    COMMAND(tarn_dump_app_list),
    COMMAND(tarn_dpi_dump_protocol_list),
    COMMAND(tarn_dpi_dump_protocol_family_mapping),
    COMMAND(tarn_dpi_dump_protocol_hits),
    COMMAND(tarn_dpi_dump_configuration),
    ACTION(tarn_dpi_clear_protocol_hits),
    ACTION(tarn_clear_policy_acl),
    ACTION(tarn_clear_policy_acl6),
    ACTION(tarn_clear_data_policy),
    ACTION(tarn_clear_zonepair_policy),
    ACTION(tarn_clear_app_route_policy),
    ACTION(tarn_debug_config),
    ACTION(tarn_debug_ttm),
    ACTION(tarn_debug_dpi),
    ACTION(tarn_debug_policy),
    ACTION(tarn_debug_all),
    ACTION(tarn_debug_disable_all),
    {},
};
