// Who lives where: the Ethernet addresses of the hosts around, and the packets that wait for one.
//
// A packet for a neighbour that isn't known yet is kept, and the neighbour is asked for; of each, at most
// FP_LIVE_WAITING packets wait, then the oldest goes. Questions are repeated each second, three times; then
// the neighbour is given up and what waits is handed back. A known neighbour that is still sent to is asked
// again half a minute after it was last heard of, and used on while it is asked; one that nobody sends to is
// forgotten.
//
// Times are milliseconds of any clock that never goes back. The table does no sending: what is to be sent
// comes back to the caller. Bounded: an address that finds the table full is not taken.
#pragma once

#include "lab/fp/fp_live_wire.h"

#include <deque>
#include <map>
#include <utility>
#include <vector>

inline constexpr size_t FP_LIVE_NEIGHBOURS = 1024;
inline constexpr size_t FP_LIVE_WAITING = 16;  // packets

struct t_fp_neighbour {
    std::optional<t_fp_mac> mac;
    uint64_t heard_ms;  // that the address is right
    uint64_t used_ms;
    uint64_t asked_ms;
    uint32_t questions;                   // since it was heard of
    std::deque<t_fp_wire_bytes> waiting;  // frames
};

using t_fp_neighbour_key = std::pair<size_t, t_fp_live_address>;  // port and address

struct t_fp_neighbours {
    std::map<t_fp_neighbour_key, t_fp_neighbour> rows;
};

// The address to send to; good until the table changes. Null: unknown, and *p_is_new tells that a question
// has to be sent now. `keep` then takes the frame in.
const t_fp_mac *fp_neighbour_use(t_fp_neighbours *p_table, const t_fp_neighbour_key &key, uint64_t now_ms,
                                 bool *p_is_new);

// Keeps a frame for an unknown neighbour that was just used. False: none of that kind, or an older frame had
// to go for it.
bool fp_neighbour_keep(t_fp_neighbours *p_table, const t_fp_neighbour_key &key, t_fp_wire_bytes frame);

// Notes the address, and gives the frames that waited for it, in order. With `is_wanted` false only a
// neighbour that the table has is noted.
std::vector<t_fp_wire_bytes> fp_neighbour_hear(t_fp_neighbours *p_table, const t_fp_neighbour_key &key,
                                               const t_fp_mac &mac, uint64_t now_ms, bool is_wanted);

// What a second brings.
struct t_fp_neighbour_turn {
    std::vector<t_fp_neighbour_key> to_ask;
    std::vector<std::pair<size_t, t_fp_wire_bytes>>
        given_up;  // by port: frames whose neighbour doesn't answer
};

t_fp_neighbour_turn fp_neighbours_turn(t_fp_neighbours *p_table, uint64_t now_ms);
