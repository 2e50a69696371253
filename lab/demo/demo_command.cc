#include "lab/demo/demo_command.h"

#include "fp_api/fp_tables.h"
#include "tarnd/compiler/tarn_program.h"
#include "tools/text_scan.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstring>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <vector>

using t_json = nlohmann::ordered_json;
using t_words = std::vector<std::string_view>;

static constexpr int tick_ms = 10;
static constexpr uint64_t default_wait_ms = 5000;
static constexpr uint64_t max_wait_ms = 600000;

static t_json answer(const std::string &reason)
{
    t_json result;
    result["ok"] = reason.empty();
    if (!reason.empty())
        result["error"] = reason;
    return result;
}

bool demo_tick_wait(int fd)
{
    pollfd item = {fd, POLLIN, 0};
    return poll(&item, 1, tick_ms) > 0;
}

// ---- Words ----

// -1, which no filter has, for a word that is no number.
static int filter_id_of(std::string_view word)
{
    int filter_id = -1;
    auto [p_end, error] = std::from_chars(word.data(), word.data() + word.size(), filter_id);
    return error == std::errc() && p_end == word.data() + word.size() ? filter_id : -1;
}

static std::string no_program(std::string_view word)
{
    return "filter " + std::string(word) + " has no program of the demo's";
}

// ---- Commands; words[0] is the command, and there are as many words as its row says ----

static t_json run_compile(t_demo *p_demo, const t_words &words)
{
    t_demo_compiled compiled = demo_compile(p_demo, std::string(words[1]));
    t_json result = answer(compiled.reason);
    result["filter"] = compiled.filter_id;
    result["rules"] = compiled.rules;
    result["length"] = compiled.length;
    if (compiled.filter_id >= 0)
        result["blocks"] = g_fp_filter[compiled.filter_id].num_hw_mem_blocks;
    return result;
}

static t_json run_free(t_demo *p_demo, const t_words &words)
{
    int filter_id = filter_id_of(words[1]);
    if (demo_program_state(p_demo, filter_id) != DEMO_PROGRAM_LIVE)
        return answer(no_program(words[1]));
    demo_free(p_demo, filter_id);
    return answer("");
}

using f_get = void (*)(const void *p_program, const char *name, int64_t *p_pkts, int64_t *p_bytes);

static t_json get_counts(t_demo *p_demo, const t_words &words, f_get get)
{
    int filter_id = filter_id_of(words[1]);
    if (demo_program_state(p_demo, filter_id) == DEMO_PROGRAM_NONE)
        return answer(no_program(words[1]));
    t_json result = answer("");
    int64_t packets = 0;
    int64_t bytes = 0;
    get(demo_program(p_demo, filter_id), std::string(words[2]).c_str(), &packets, &bytes);
    result["packets"] = packets;
    result["bytes"] = bytes;
    return result;
}

static t_json run_counters(t_demo *p_demo, const t_words &words)
{
    return get_counts(p_demo, words, tarn_program_get_counter);
}

static t_json run_policer(t_demo *p_demo, const t_words &words)
{
    return get_counts(p_demo, words, tarn_program_get_policer);
}

static t_json run_clear(t_demo *p_demo, const t_words &words)
{
    int filter_id = filter_id_of(words[1]);
    if (demo_program_state(p_demo, filter_id) == DEMO_PROGRAM_NONE)
        return answer(no_program(words[1]));
    std::string name(words[2]);
    tarn_program_clear_counter(demo_program(p_demo, filter_id), name.c_str());
    tarn_program_clear_policer(demo_program(p_demo, filter_id), name.c_str());
    return answer("");
}

static t_json run_change(t_demo *p_demo, const t_words &words)
{
    t_fp_policer policer = {};
    if (!text_number(words[3], &policer.rate) || !text_number(words[4], &policer.burst))
        return answer("rate and burst are numbers");
    memcpy(policer.name, words[2].data(), std::min(words[2].size(), sizeof(policer.name)));
    if (p_demo->hwapi.filter_policer_chg(filter_id_of(words[1]), &policer) != 0)
        return answer(no_program(words[1]));
    return answer("");
}

static t_json slots_json(const t_demo *p_demo)
{
    t_json slots = t_json::array();
    for (int i = 0; i < g_fp_scaling.num_filters; i++) {
        const t_tarn_filter &filter = g_fp_filter[i];
        if (filter.record_valid)
            slots.push_back({{"filter", i},
                             {"first_block", filter.hw_index},
                             {"blocks", filter.num_hw_mem_blocks},
                             {"activity", filter.activity != 0},
                             {"freed", demo_program_state(p_demo, i) == DEMO_PROGRAM_FREED}});
    }
    return slots;
}

static t_json run_memory(t_demo *p_demo, const t_words &)
{
    t_json result = answer("");
    t_json slots = slots_json(p_demo);
    uint64_t used = 0;
    for (const t_json &slot : slots)
        used += slot["blocks"].get<uint64_t>();
    result["slots"] = g_fp_scaling.num_filters;
    result["blocks"] = g_fp_scaling.num_filter_blocks;
    result["used_blocks"] = used;
    result["released_blocks"] = p_demo->released_blocks;
    result["waiting"] = demo_freed_count(p_demo);
    result["filters"] = slots;
    return result;
}

static t_json run_wait(t_demo *p_demo, const t_words &words)
{
    uint64_t limit_ms = default_wait_ms;
    if (words.size() > 1 && (!text_number(words[1], &limit_ms) || limit_ms > max_wait_ms))
        return answer("up to " + std::to_string(max_wait_ms) + " ms");
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(limit_ms);
    uint64_t released_before = p_demo->released_blocks;
    while (demo_freed_count(p_demo) != 0 && std::chrono::steady_clock::now() < end) {
        demo_tick_wait(-1);
        demo_timers_run(p_demo);
    }
    t_json result = answer("");
    result["released_blocks"] = p_demo->released_blocks - released_before;
    result["waiting"] = demo_freed_count(p_demo);
    return result;
}

namespace {

struct t_command {
    const char *name;
    size_t min_words;  // with the command
    size_t max_words;
    const char *usage;
    t_json (*run)(t_demo *p_demo, const t_words &words);
};

}  // namespace

static const t_command commands[] = {
    {"compile", 2, 2, "compile FILE", run_compile},
    {"free", 2, 2, "free ID", run_free},
    {"counters", 3, 3, "counters ID NAME", run_counters},
    {"policer", 3, 3, "policer ID NUMBER.NAME", run_policer},
    {"clear", 3, 3, "clear ID NAME", run_clear},
    {"change", 5, 5, "change ID NAME RATE BURST", run_change},
    {"memory", 1, 1, "memory", run_memory},
    {"wait", 1, 2, "wait [MSECS]", run_wait},
};

// ---- Lines ----

static t_words words_of(std::string_view line)
{
    t_words words;
    for (std::string_view word; text_next_word(&line, &word);)
        words.push_back(word);
    return words;
}

bool demo_command_ends(std::string_view line)
{
    return words_of(line) == t_words{"quit"};
}

static t_json run_words(t_demo *p_demo, const t_words &words)
{
    for (const t_command &command : commands) {
        if (words[0] != command.name)
            continue;
        if (words.size() < command.min_words || words.size() > command.max_words)
            return answer(std::string("usage: ") + command.usage);
        return command.run(p_demo, words);
    }
    return answer("no such command");
}

std::string demo_command_run(t_demo *p_demo, std::string_view line)
{
    t_words words = words_of(line);
    if (words.empty())
        return "";
    t_json result = {{"command", std::string(words[0])}};
    result.update(run_words(p_demo, words));
    return result.dump(-1, ' ', false, t_json::error_handler_t::replace);
}
