// What ttmd can be told, on its control socket and in a script, one command a line.
//
//   announce ADDR COLOR ENCAP [pref=N] [weight=N] [index=N] [paths=N] [status=up|down] [origin=local|remote]
//   withdraw ADDR COLOR ENCAP
//   flap ADDR COLOR ENCAP COUNT MSECS      withdrawn and announced again, COUNT times, MSECS between any two
//   list | stats | drop
//   sleep MSECS                            in scripts only
//
// Colors and encapsulations go by their whole names. Pure functions.
#pragma once

#include "lab/control/lab_control.h"
#include "lab/ttmd/ttm_record.h"

#include <optional>

enum e_ttm_command {
    TTM_COMMAND_ANNOUNCE,
    TTM_COMMAND_WITHDRAW,
    TTM_COMMAND_FLAP,
    TTM_COMMAND_LIST,
    TTM_COMMAND_STATS,
    TTM_COMMAND_DROP,
    TTM_COMMAND_SLEEP,
};

// What is not given keeps its last value.
struct t_ttm_changes {
    std::optional<uint32_t> preference;
    std::optional<uint32_t> weight;
    std::optional<uint32_t> index;
    std::optional<uint8_t> paths;
    std::optional<uint8_t> status;
    std::optional<uint8_t> origin;
};

struct t_ttm_command {
    e_ttm_command kind;
    t_ttm_name name;        // of announce, withdraw and flap
    t_ttm_changes changes;  // of announce
    uint32_t count;         // of flap
    uint32_t msecs;         // of flap and sleep
};

// False with the reason.
[[nodiscard]] bool ttm_command_parse(const t_lab_words &words, t_ttm_command *p_command,
                                     std::string *p_error);

// The name of a status or an origin, "-" if it has none.
const char *ttm_status_name(uint8_t status);
const char *ttm_origin_name(uint8_t origin);
