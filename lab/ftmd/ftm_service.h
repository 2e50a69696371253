// What the forwarding table manager knows and tells, without sockets: messages in, answers out.
//
// A connection to the policy daemon empties the table, since the daemon sends all it has then; the loss of a
// connection changes nothing. Every message is remembered with a number that rises by one, in the order in
// which they came, also one that could not be decoded; the oldest go when there are FTM_LOG_SIZE. One thread.
#pragma once

#include "lab/ftmd/ftm_table.h"

#include <array>
#include <cstdint>
#include <deque>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <vector>

inline constexpr size_t FTM_LOG_SIZE = 4096;

struct t_ftm_stats {
    uint64_t connections;
    uint64_t messages;  // malformed ones, too
    uint64_t malformed;
    uint64_t bad_frames;      // the transport's
    uint64_t missed_deletes;  // entries that met no row with their filter
    std::array<uint64_t, FTM_MESSAGES> by_type;
};

struct t_ftm_log_row {
    uint64_t sequence;    // from 1
    uint64_t connection;  // number of the one by which it came, from 1
    nlohmann::ordered_json json;
};

struct t_ftm_service {
    t_ftm_table table = {};
    t_ftm_stats stats = {};
    bool is_connected = false;
    std::deque<t_ftm_log_row> log = {};
};

void ftm_service_up(t_ftm_service *p_service);
void ftm_service_down(t_ftm_service *p_service);
void ftm_service_bad_frame(t_ftm_service *p_service);

// False with the reason when the message can't be decoded. It then changes nothing but the counts and the
// log.
bool ftm_service_message(t_ftm_service *p_service, std::span<const uint8_t> bytes, std::string *p_error);

// Requests: "bindings", "stats", "log" and "log N" for the last N messages.
nlohmann::ordered_json ftm_service_answer(const t_ftm_service *p_service,
                                          const std::vector<std::string> &words);
