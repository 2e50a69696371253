// The numeric order of a stage's classes.
//
// Comparing two descending rule lists item by item, the shorter one being smaller where it ends, is comparing
// the bit vectors as numbers. As many items as fit are packed into a 64-bit key and sorted by radix; runs of
// equal keys are sorted again by the items behind.
#include "tarnd/compiler/ec_classes.h"
#include "tarnd/compiler/tarn_context.h"

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

namespace {

struct t_item {
    uint64_t key;
    uint32_t class_id;
};

namespace {

// A run of items whose first `depth` rules are equal.
struct t_run {
    size_t begin;
    size_t end;
    size_t depth;
};

}  // namespace

struct t_sorter {
    t_tarn_context *p_context;
    const t_ec_classes *p_classes;
    uint32_t bits;     // of one packed rule
    uint32_t per_key;  // rules in a key
    std::vector<t_item> items;
    std::vector<t_item> scratch;
};

}  // namespace

// Packs the rules from `depth` on; rule r stands as r + 1, so that 0 is the end of the list.
static uint64_t packed_key(const t_sorter &sorter, uint32_t class_id, size_t depth)
{
    std::span<const uint32_t> list = ec_classes_list(sorter.p_classes, class_id);
    uint64_t key = 0;
    for (size_t i = depth; i < depth + sorter.per_key; i++)
        key = key << sorter.bits | (i < list.size() ? list[i] + 1 : 0);
    return key;
}

static constexpr size_t radix_threshold = 256;
static constexpr uint32_t digit_bits = 8;

// Calls step for every item, with a look at the timers now and then.
template <typename f_step>
static void for_each_item(t_tarn_context *p_context, std::span<const t_item> items, f_step step)
{
    static constexpr size_t batch = 16384;
    for (size_t begin = 0; begin < items.size(); begin += batch) {
        std::span<const t_item> part = items.subspan(begin, std::min(batch, items.size() - begin));
        for (const t_item &item : part)
            step(item);
        tarn_context_work(p_context, part.size() / 4);
    }
}

// One pass of a least-significant-digit radix sort from `from` to `to`.
static void radix_pass(t_tarn_context *p_context, std::span<const t_item> from, std::span<t_item> to,
                       uint32_t shift)
{
    std::array<size_t, 1 << digit_bits> place = {};
    for_each_item(p_context, from,
                  [&](const t_item &item) { place[item.key >> shift & (place.size() - 1)]++; });
    size_t sum = 0;
    for (size_t &count : place)
        sum += std::exchange(count, sum);
    for_each_item(p_context, from,
                  [&](const t_item &item) { to[place[item.key >> shift & (place.size() - 1)]++] = item; });
}

static void sort_by_key(t_sorter *p_sorter, std::span<t_item> run)
{
    if (run.size() < radix_threshold) {
        std::sort(run.begin(), run.end(), [](const t_item &a, const t_item &b) { return a.key < b.key; });
        return;
    }
    uint64_t varying = 0;
    for (const t_item &item : run)
        varying |= item.key ^ run[0].key;
    p_sorter->scratch.resize(std::max(p_sorter->scratch.size(), run.size()));
    std::span<t_item> other(p_sorter->scratch.data(), run.size());
    bool in_place = true;
    for (uint32_t shift = 0; shift < 64; shift += digit_bits) {
        if ((varying >> shift & ((1u << digit_bits) - 1)) == 0)
            continue;
        radix_pass(p_sorter->p_context, in_place ? run : other, in_place ? other : run, shift);
        in_place = !in_place;
    }
    if (!in_place)
        std::copy(other.begin(), other.end(), run.begin());
}

// Appends the runs of equal keys that go on behind their keys.
static void collect_ties(const t_sorter &sorter, const t_run &run, std::vector<t_run> *p_pending)
{
    uint64_t last_rule = (uint64_t{1} << sorter.bits) - 1;
    for (size_t begin = run.begin; begin < run.end;) {
        size_t end = begin + 1;
        while (end < run.end && sorter.items[end].key == sorter.items[begin].key)
            end++;
        if (end - begin > 1 && (sorter.items[begin].key & last_rule) != 0)
            p_pending->push_back({begin, end, run.depth + sorter.per_key});
        begin = end;
    }
}

std::vector<uint32_t> ec_classes_order(t_tarn_context *p_context, const t_ec_classes *p_classes)
{
    uint32_t bits = std::max<uint32_t>(1, static_cast<uint32_t>(std::bit_width(p_context->c_num_rules)));
    t_sorter sorter = {p_context, p_classes, bits, 64 / bits, {}, {}};
    uint32_t count = ec_classes_count(p_classes);
    sorter.items.reserve(count);
    for (uint32_t c = 0; c < count; c++)
        if (c != p_classes->empty_class)
            sorter.items.push_back({0, c});

    std::vector<t_run> pending = {{0, sorter.items.size(), 0}};
    while (!pending.empty()) {
        t_run run = pending.back();
        pending.pop_back();
        for (size_t i = run.begin; i < run.end; i++)
            sorter.items[i].key = packed_key(sorter, sorter.items[i].class_id, run.depth);
        sort_by_key(&sorter, {sorter.items.data() + run.begin, run.end - run.begin});
        collect_ties(sorter, run, &pending);
        tarn_context_work(p_context, run.end - run.begin);
    }

    std::vector<uint32_t> order;
    order.reserve(count);
    if (p_classes->empty_class != EC_NO_CLASS)
        order.push_back(p_classes->empty_class);
    for (const t_item &item : sorter.items)
        order.push_back(item.class_id);
    return order;
}
