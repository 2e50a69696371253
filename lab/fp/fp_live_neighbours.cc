#include "lab/fp/fp_live_neighbours.h"

#include <algorithm>
#include <iterator>

static constexpr uint64_t question_ms = 1000;  // between two questions
static constexpr uint32_t max_questions = 3;
static constexpr uint64_t fresh_ms = 30000;

const t_fp_mac *fp_neighbour_use(t_fp_neighbours *p_table, const t_fp_neighbour_key &key, uint64_t now_ms,
                                 bool *p_is_new)
{
    *p_is_new = false;
    auto found = p_table->rows.find(key);
    if (found != p_table->rows.end()) {
        found->second.used_ms = now_ms;
        return found->second.mac ? &*found->second.mac : nullptr;
    }
    if (p_table->rows.size() < FP_LIVE_NEIGHBOURS) {
        p_table->rows[key] = {std::nullopt, now_ms, now_ms, now_ms, 1, {}};
        *p_is_new = true;
    }
    return nullptr;
}

bool fp_neighbour_keep(t_fp_neighbours *p_table, const t_fp_neighbour_key &key, t_fp_wire_bytes frame)
{
    auto found = p_table->rows.find(key);
    if (found == p_table->rows.end())
        return false;
    std::deque<t_fp_wire_bytes> &waiting = found->second.waiting;
    waiting.push_back(std::move(frame));
    if (waiting.size() <= FP_LIVE_WAITING)
        return true;
    waiting.pop_front();
    return false;
}

std::vector<t_fp_wire_bytes> fp_neighbour_hear(t_fp_neighbours *p_table, const t_fp_neighbour_key &key,
                                               const t_fp_mac &mac, uint64_t now_ms, bool is_wanted)
{
    auto found = p_table->rows.find(key);
    if (found == p_table->rows.end()) {
        if (!is_wanted || p_table->rows.size() >= FP_LIVE_NEIGHBOURS)
            return {};
        found = p_table->rows.emplace(key, t_fp_neighbour{}).first;
        found->second.used_ms = now_ms;
    }
    t_fp_neighbour &neighbour = found->second;
    neighbour.mac = mac;
    neighbour.heard_ms = now_ms;
    neighbour.questions = 0;
    std::deque<t_fp_wire_bytes> waiting = std::exchange(neighbour.waiting, {});
    return {std::make_move_iterator(waiting.begin()), std::make_move_iterator(waiting.end())};
}

// Whether the neighbour is given up or forgotten; else *p_is_asked tells whether it is asked now.
static bool is_over(const t_fp_neighbour &neighbour, uint64_t now_ms, bool *p_is_asked)
{
    *p_is_asked = false;
    bool is_fresh = neighbour.mac && now_ms - neighbour.heard_ms < fresh_ms;
    bool is_waited_for = neighbour.questions > 0 && now_ms - neighbour.asked_ms < question_ms;
    if (is_fresh || is_waited_for)
        return false;
    if (neighbour.questions >= max_questions || now_ms - neighbour.used_ms >= fresh_ms)
        return true;
    *p_is_asked = true;
    return false;
}

t_fp_neighbour_turn fp_neighbours_turn(t_fp_neighbours *p_table, uint64_t now_ms)
{
    t_fp_neighbour_turn turn;
    for (auto row = p_table->rows.begin(); row != p_table->rows.end();) {
        bool is_asked = false;
        t_fp_neighbour &neighbour = row->second;
        if (is_over(neighbour, now_ms, &is_asked)) {
            for (t_fp_wire_bytes &frame : neighbour.waiting)
                turn.given_up.emplace_back(row->first.first, std::move(frame));
            row = p_table->rows.erase(row);
            continue;
        }
        if (is_asked) {
            neighbour.asked_ms = now_ms;
            neighbour.questions++;
            turn.to_ask.push_back(row->first);
        }
        ++row;
    }
    return turn;
}
