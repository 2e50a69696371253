#include "tools/live_rules.h"

#include <algorithm>

static constexpr size_t max_dimensions = 2;  // more would only cost memory: the first two are the addresses
static constexpr uint32_t block_steps[] = {0, 8, 16, 24, 32};

static uint64_t block_key(uint32_t bits, uint32_t value)
{
    return uint64_t{bits} << 32 | (bits == 0 ? 0 : value >> (32 - bits));
}

// Leading bits of the smallest block that holds the range.
static uint32_t block_bits(const t_value_range &range)
{
    uint32_t bits = 32;
    while (bits > 0 && block_key(bits, range.low) != block_key(bits, range.high))
        bits -= 8;
    return bits;
}

void live_rules_add(t_live_rules *p_live, uint32_t rule, std::span<const t_value_range> bounds)
{
    p_live->all.push_back(rule);
    p_live->blocks.resize(std::min(bounds.size(), max_dimensions));
    for (size_t d = 0; d < p_live->blocks.size(); d++)
        p_live->blocks[d][block_key(block_bits(bounds[d]), bounds[d].low)].push_back(rule);
}

// The lists of blocks that can meet the range, and how long they are together.
static size_t collect(const t_live_rules &live, size_t dimension, const t_value_range &range,
                      std::vector<const std::vector<uint32_t> *> *p_lists)
{
    size_t size = 0;
    auto look = [&](uint64_t key) {
        auto found = live.blocks[dimension].find(key);
        if (found == live.blocks[dimension].end())
            return;
        p_lists->push_back(&found->second);
        size += found->second.size();
    };
    uint32_t own_bits = block_bits(range);
    for (uint32_t bits : block_steps)
        if (bits <= own_bits)
            look(block_key(bits, range.low));
    if (own_bits < 32)
        for (uint64_t value = range.low; value <= range.high; value++)
            look(block_key(32, static_cast<uint32_t>(value)));
    return size;
}

std::vector<uint32_t> live_rules_near(const t_live_rules &live, std::span<const t_value_range> bounds)
{
    std::vector<const std::vector<uint32_t> *> best;
    size_t best_size = live.all.size();
    bool is_narrowed = false;
    for (size_t d = 0; d < live.blocks.size(); d++) {
        if (block_bits(bounds[d]) < 24)
            continue;
        std::vector<const std::vector<uint32_t> *> lists;
        size_t size = collect(live, d, bounds[d], &lists);
        if (size >= best_size)
            continue;
        best = std::move(lists);
        best_size = size;
        is_narrowed = true;
    }
    if (!is_narrowed)
        return live.all;
    std::vector<uint32_t> near;
    for (const std::vector<uint32_t> *p_list : best)
        near.insert(near.end(), p_list->begin(), p_list->end());
    std::sort(near.begin(), near.end());
    return near;
}
