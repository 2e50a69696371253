#include "tools/box_set.h"

#include <algorithm>
#include <cmath>

bool box_is_empty(const t_box &box)
{
    return std::any_of(box.begin(), box.end(), [](const t_value_ranges &ranges) { return ranges.empty(); });
}

bool box_intersects(const t_box &a, const t_box &b)
{
    for (size_t d = 0; d < a.size(); d++)
        if (!ranges_intersect(a[d], b[d]))
            return false;
    return true;
}

bool box_contains(const t_box &outer, const t_box &inner)
{
    for (size_t d = 0; d < outer.size(); d++)
        if (!ranges_contain(outer[d], inner[d]))
            return false;
    return true;
}

// A part of the target that is still to be covered, and the boxes that meet it.
struct t_open_part {
    t_box box;
    std::vector<uint32_t> candidates;
};

// How many dimensions of the part a box does not contain: 0 means that it covers the part alone, 1 that it
// leaves a single smaller box behind.
static size_t dimensions_open(const t_box &box, const t_box &part)
{
    size_t open = 0;
    for (size_t d = 0; d < part.size(); d++)
        open += !ranges_contain(box[d], part[d]);
    return open;
}

// Share of the part that lies in the box, as a logarithm.
static double overlap_share(const t_box &box, const t_box &part)
{
    double share = 0;
    for (size_t d = 0; d < part.size(); d++) {
        uint64_t common = ranges_count(ranges_intersection(box[d], part[d]));
        share +=
            std::log2(static_cast<double>(common)) - std::log2(static_cast<double>(ranges_count(part[d])));
    }
    return share;
}

// The candidate to subtract next: fewest open dimensions, then the largest share.
static uint32_t choose(const t_open_part &part, std::span<const t_box *const> boxes)
{
    uint32_t best = part.candidates.front();
    size_t best_open = SIZE_MAX;
    double best_share = 0;
    for (uint32_t c : part.candidates) {
        size_t open = dimensions_open(*boxes[c], part.box);
        if (open == 0)
            return c;
        if (open > best_open)
            continue;
        double share = overlap_share(*boxes[c], part.box);
        if (open < best_open || share > best_share) {
            best = c;
            best_open = open;
            best_share = share;
        }
    }
    return best;
}

// Pushes what the box leaves of the part: one piece for each dimension that sticks out.
static void subtract(const t_open_part &part, uint32_t chosen, std::span<const t_box *const> boxes,
                     std::vector<t_open_part> *p_stack)
{
    t_box inside = part.box;
    for (size_t d = 0; d < inside.size(); d++) {
        t_open_part piece = {inside, {}};
        piece.box[d] = ranges_difference(inside[d], (*boxes[chosen])[d]);
        inside[d] = ranges_intersection(inside[d], (*boxes[chosen])[d]);
        if (piece.box[d].empty())
            continue;
        for (uint32_t c : part.candidates)
            if (c != chosen && box_intersects(*boxes[c], piece.box))
                piece.candidates.push_back(c);
        p_stack->push_back(std::move(piece));
    }
}

t_cover_answer box_cover(const t_box &target, std::span<const t_box *const> boxes, uint64_t *p_budget)
{
    std::vector<bool> is_used(boxes.size(), false);
    std::vector<t_open_part> stack = {{target, {}}};
    for (uint32_t c = 0; c < boxes.size(); c++)
        if (box_intersects(*boxes[c], target))
            stack.back().candidates.push_back(c);

    while (!stack.empty()) {
        t_open_part part = std::move(stack.back());
        stack.pop_back();
        if (part.candidates.empty())
            return {e_cover::uncovered, {}};
        if (*p_budget < part.candidates.size()) {
            *p_budget = 0;
            return {e_cover::undecided, {}};
        }
        *p_budget -= part.candidates.size();
        uint32_t chosen = choose(part, boxes);
        is_used[chosen] = true;
        subtract(part, chosen, boxes, &stack);
    }

    t_cover_answer answer = {e_cover::covered, {}};
    for (uint32_t c = 0; c < boxes.size(); c++)
        if (is_used[c])
            answer.used.push_back(c);
    return answer;
}

std::vector<uint32_t> box_cover_prune(const t_box &target, std::span<const t_box *const> boxes,
                                      std::vector<uint32_t> cover, uint64_t *p_budget)
{
    std::vector<std::pair<double, uint32_t>> by_share;
    by_share.reserve(cover.size());
    for (uint32_t c : cover)
        by_share.emplace_back(overlap_share(*boxes[c], target), c);
    std::sort(by_share.begin(), by_share.end());
    for (const auto &[share, left_out] : by_share) {
        std::vector<uint32_t> rest = cover;
        std::erase(rest, left_out);
        std::vector<const t_box *> rest_boxes;
        rest_boxes.reserve(rest.size());
        for (uint32_t c : rest)
            rest_boxes.push_back(boxes[c]);
        if (box_cover(target, rest_boxes, p_budget).state == e_cover::covered)
            cover = rest;
    }
    return cover;
}
