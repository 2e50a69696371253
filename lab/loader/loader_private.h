// What the loader's sources share: refusals, and members of an operation read with a check.
#pragma once

#include "platform/confd/confd_lib.h"
#include "tarnd/config/tarn_pfx_list.h"
#include "tarnd/config/tarn_policer.h"
#include "tarnd/config/tarn_policy.h"
#include "tarnd/dpi/tarn_dpi_app_list.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

struct t_tarn;
struct t_tarn_config_rule;

using loader_json = nlohmann::json;

// Ends an operation with its reason.
struct loader_refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

[[noreturn]] void loader_refuse(const std::string &reason);

// A status of the store other than 0 ends the operation.
void loader_check(int status, const std::string &what);

// A member that must be there. The text is at most 127 characters.
std::string loader_text(const loader_json &from, const char *member);
uint64_t loader_number(const loader_json &from, const char *member, uint64_t max);

// The elements of an array of texts, or of a single one; none when the member is missing.
std::vector<std::string> loader_texts(const loader_json &from, const char *member);

// An IPv4 address, as its word in network order.
uint32_t loader_ipv4(const std::string &text);

// An IPv4 prefix, "address/length".
confd_ipv4_prefix loader_prefix(const std::string &text);

// Two numbers joined by "-", or one number twice.
void loader_range(const std::string &text, uint64_t max, uint64_t *p_min, uint64_t *p_max);

// Values by name; the member "location" is "controller" unless it says "local".
e_tarn_policy_type loader_policy_type(const loader_json &from);
bool loader_is_local(const loader_json &from);
uint32_t loader_verdict(const std::string &name);
uint32_t loader_color(const std::string &name);
uint32_t loader_encap(const std::string &name);

// Where a sequence stands.
struct t_loader_sequence {
    e_tarn_policy_type type;
    std::string policy;
    std::string vpn_list;
    uint16_t id;
};

t_loader_sequence loader_sequence_of(const loader_json &operation);

// Adds the members of "match" to the rule's fields and those of "action" to its actions.
void loader_add_match(t_tarn *p_tarn, const t_loader_sequence &where, t_tarn_config_rule *p_rule,
                      const loader_json &match);
void loader_add_actions(t_tarn *p_tarn, const t_loader_sequence &where, const loader_json &actions);

// One operation.
void loader_run(t_tarn *p_tarn, const loader_json &operation);
