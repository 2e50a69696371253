#include "tools/value_ranges.h"

#include <algorithm>

void ranges_normalise(t_value_ranges *p_ranges)
{
    std::sort(p_ranges->begin(), p_ranges->end(),
              [](const t_value_range &a, const t_value_range &b) { return a.low < b.low; });
    size_t kept = 0;
    for (const t_value_range &range : *p_ranges) {
        t_value_range *p_last = kept > 0 ? &(*p_ranges)[kept - 1] : nullptr;
        if (p_last != nullptr && (p_last->high == 0xffffffff || range.low <= p_last->high + 1))
            p_last->high = std::max(p_last->high, range.high);
        else
            (*p_ranges)[kept++] = range;
    }
    p_ranges->resize(kept);
}

bool ranges_hold(std::span<const t_value_range> ranges, uint32_t value)
{
    return std::any_of(ranges.begin(), ranges.end(), [value](const t_value_range &range) {
        return range.low <= value && value <= range.high;
    });
}

bool ranges_contain(std::span<const t_value_range> outer, std::span<const t_value_range> inner)
{
    size_t o = 0;
    for (const t_value_range &range : inner) {
        while (o < outer.size() && outer[o].high < range.low)
            o++;
        if (o == outer.size() || outer[o].low > range.low || outer[o].high < range.high)
            return false;
    }
    return true;
}

bool ranges_intersect(std::span<const t_value_range> a, std::span<const t_value_range> b)
{
    for (size_t i = 0, j = 0; i < a.size() && j < b.size();) {
        if (a[i].high < b[j].low)
            i++;
        else if (b[j].high < a[i].low)
            j++;
        else
            return true;
    }
    return false;
}

t_value_ranges ranges_intersection(std::span<const t_value_range> a, std::span<const t_value_range> b)
{
    t_value_ranges common;
    for (size_t i = 0, j = 0; i < a.size() && j < b.size();) {
        uint32_t low = std::max(a[i].low, b[j].low);
        uint32_t high = std::min(a[i].high, b[j].high);
        if (low <= high)
            common.push_back({low, high});
        if (a[i].high < b[j].high)
            i++;
        else
            j++;
    }
    return common;
}

t_value_ranges ranges_difference(std::span<const t_value_range> a, std::span<const t_value_range> b)
{
    t_value_ranges rest;
    size_t j = 0;
    for (const t_value_range &range : a) {
        uint64_t low = range.low;  // 64 bits: it may step behind 0xffffffff
        while (j < b.size() && b[j].high < range.low)
            j++;
        for (size_t k = j; k < b.size() && b[k].low <= range.high; k++) {
            if (b[k].low > low)
                rest.push_back({static_cast<uint32_t>(low), b[k].low - 1});
            low = std::max<uint64_t>(low, uint64_t{b[k].high} + 1);
        }
        if (low <= range.high)
            rest.push_back({static_cast<uint32_t>(low), range.high});
    }
    return rest;
}

uint64_t ranges_count(std::span<const t_value_range> ranges)
{
    uint64_t count = 0;
    for (const t_value_range &range : ranges)
        count += uint64_t{range.high} - range.low + 1;
    return count;
}

uint32_t ranges_value_at(std::span<const t_value_range> ranges, uint64_t index)
{
    for (const t_value_range &range : ranges) {
        uint64_t width = uint64_t{range.high} - range.low + 1;
        if (index < width)
            return static_cast<uint32_t>(range.low + index);
        index -= width;
    }
    return 0;
}
