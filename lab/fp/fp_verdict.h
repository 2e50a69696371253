// Verdicts as JSON: what happened to a packet, every action of its record with fields by name.
//
// {"filter": 3, "program": "edge", "verdict": "accept", "dropped": false, "plp": "low", "default": false,
//  "record": 5, "actions": [{"slot": 0, "action": "count", "name": "web", "packets": 12, "bytes": 900}, ...]}
//
// "verdict" is "accept", "reject", the name of another plain action, "none" when the record has no plain
// action or there is no record, or "no-program" with the reason in "reason". Each kind of action has a row in
// a table of writers; one without a row shows its name alone. What the packet is treated to, over all records
// that it meets, is told by fp_actions.h.
#pragma once

#include "lab/fp/fp_engine.h"

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>

using fp_json = nlohmann::ordered_json;

fp_json fp_verdict_json(const t_fp_outcome &outcome);

// Values as verdicts and treatments show them. A mirror's addresses have their IPv4 word in network order.
fp_json fp_tloc_json(const t_tarn_hw_tloc &tloc);
fp_json fp_mirror_json(const t_tarn_mirror_info &mirror);
std::string fp_address_text(t_fp_ipaddr address);

// An action's name: as dumps print it, "ssl-optimization" and "inspect" where they print a dash, "action-N"
// for a number that nobody knows.
std::string fp_action_name(uint32_t action);

// The text of "verdict".
std::string fp_decision_name(e_fp_decision decision, uint32_t plain_action);
