// One lookup table: from a search tree in hostile bytes to arrays.
#include "lab/fp/walker_private.h"

#include <algorithm>
#include <bit>
#include <cstring>

static t_tarn_table_entry raw_entry(const t_fp_raw_table &raw, uint32_t index)
{
    t_tarn_table_entry entry;
    memcpy(&entry, &raw.entries[size_t{index} * TARN_ENTRY_SIZE], sizeof entry);
    return entry;
}

// Walks a tree from its highest interval down to its lowest, with a stack of its own. The compiler stores a
// node, then its right subtree, then its left, so this direction reads memory from front to back.
struct t_tree_walk {
    const t_fp_raw_table *p_raw;
    t_fp_error *p_error;
    std::vector<uint32_t> stack;
    std::vector<bool> reached;
    uint32_t descend;  // entry to go right from, or no_entry
    uint32_t visited;
    uint32_t right_low;  // low bound of the entry visited last
    uint32_t right_index;
};

static constexpr uint32_t no_entry = 0xffffffff;

static t_tree_walk tree_walk_begin(const t_fp_raw_table &raw, t_fp_error *p_error)
{
    t_tree_walk walk = {};
    walk.p_raw = &raw;
    walk.p_error = p_error;
    walk.reached.resize(raw.count);
    walk.descend = 0;
    walk.right_low = 0xffffffff;
    return walk;
}

// Turns a link into the index of the child, no_entry when there is none.
static bool link_child(const t_tree_walk &walk, uint32_t parent, uint32_t link, uint32_t *p_child)
{
    *p_child = no_entry;
    if (link == 0)
        return true;
    if (link % TARN_ENTRY_WORDS != 0 || link / TARN_ENTRY_WORDS >= walk.p_raw->count)
        return fp_error_set(walk.p_error, "table %u, entry %u: link %u names no entry of the table",
                            walk.p_raw->number, parent, link);
    *p_child = link / TARN_ENTRY_WORDS;
    return true;
}

// Stacks the entry at `descend` and all that lie to the right of it.
static bool tree_walk_descend(t_tree_walk *p_walk)
{
    while (p_walk->descend != no_entry) {
        uint32_t index = p_walk->descend;
        if (p_walk->reached[index])
            return fp_error_set(p_walk->p_error, "table %u, entry %u: two links lead to this entry",
                                p_walk->p_raw->number, index);
        p_walk->reached[index] = true;
        p_walk->stack.push_back(index);
        if (!link_child(*p_walk, index, raw_entry(*p_walk->p_raw, index).right, &p_walk->descend))
            return false;
    }
    return true;
}

static bool entry_check(const t_tree_walk &walk, uint32_t index, const t_tarn_table_entry &entry)
{
    uint32_t number = walk.p_raw->number;
    if (entry.low >= entry.high)
        return fp_error_set(walk.p_error, "table %u, entry %u: the interval [%u, %u) is empty", number, index,
                            entry.low, entry.high);
    if (walk.visited != 0 && entry.high > walk.right_low)
        return fp_error_set(walk.p_error,
                            "table %u, entry %u: the interval [%u, %u) is out of order with that of entry %u",
                            number, index, entry.low, entry.high, walk.right_index);
    if (entry.value == FP_NO_CLASS)
        return fp_error_set(walk.p_error, "table %u, entry %u: %u is no class", number, index, entry.value);
    return true;
}

// Gives the next entry. False at the end and on an error, which *p_error then tells.
static bool tree_walk_next(t_tree_walk *p_walk, t_tarn_table_entry *p_entry)
{
    if (!tree_walk_descend(p_walk) || p_walk->stack.empty())
        return false;
    uint32_t index = p_walk->stack.back();
    p_walk->stack.pop_back();
    *p_entry = raw_entry(*p_walk->p_raw, index);
    if (!entry_check(*p_walk, index, *p_entry))
        return false;
    p_walk->visited++;
    p_walk->right_low = p_entry->low;
    p_walk->right_index = index;
    return link_child(*p_walk, index, p_entry->left, &p_walk->descend);
}

// After the walk: whether it ended well and saw every entry.
static bool tree_walk_end(const t_tree_walk &walk)
{
    if (!walk.p_error->text.empty())
        return false;
    if (walk.visited == walk.p_raw->count)
        return true;
    auto missing = std::find(walk.reached.begin(), walk.reached.end(), false);
    return fp_error_set(walk.p_error, "table %u, entry %td: no link leads to this entry", walk.p_raw->number,
                        missing - walk.reached.begin());
}

// Whether the entries can only be [0, 1), [1, 2) and so on, given that they do not overlap.
static bool raw_is_dense(const t_fp_raw_table &raw)
{
    for (uint32_t i = 0; i < raw.count; i++) {
        t_tarn_table_entry entry = raw_entry(raw, i);
        if (entry.low >= raw.count || entry.high != entry.low + 1)
            return false;
    }
    return true;
}

static uint32_t raw_max_class(const t_fp_raw_table &raw)
{
    uint32_t max_class = 0;
    for (uint32_t i = 0; i < raw.count; i++)
        max_class = std::max(max_class, raw_entry(raw, i).value);
    return max_class;
}

static bool dense_open(const t_fp_raw_table &raw, t_fp_table *p_table, t_fp_error *p_error)
{
    bool narrow = p_table->max_class <= 0xffff;
    p_table->kind = narrow ? FP_TABLE_DENSE16 : FP_TABLE_DENSE32;
    if (narrow)
        p_table->dense16.resize(raw.count);
    else
        p_table->dense32.resize(raw.count);

    t_tree_walk walk = tree_walk_begin(raw, p_error);
    t_tarn_table_entry entry;
    while (tree_walk_next(&walk, &entry)) {
        if (narrow)
            p_table->dense16[entry.low] = static_cast<uint16_t>(entry.value);
        else
            p_table->dense32[entry.low] = entry.value;
    }
    return tree_walk_end(walk);
}

// Appends a segment; neighbours of one class become one segment.
static void segment_add(t_fp_table *p_table, uint32_t start, uint32_t value)
{
    if (!p_table->classes.empty() && p_table->classes.back() == value)
        return;
    p_table->starts.push_back(start);
    p_table->classes.push_back(value);
}

// Fills the segments from entries in descending order.
static void segments_fill(t_fp_table *p_table, const std::vector<t_tarn_table_entry> &descending)
{
    uint32_t end = 0;
    for (size_t i = descending.size(); i-- > 0;) {
        const t_tarn_table_entry &entry = descending[i];
        if (entry.low > end)
            segment_add(p_table, end, FP_NO_CLASS);
        segment_add(p_table, entry.low, entry.value);
        end = entry.high;
    }
    segment_add(p_table, end,
                FP_NO_CLASS);  // an interval excludes its high bound, so something is always left
}

// The last start matters to nobody but the value 0xffffffff when a table covers all others; the index is
// spread over the values below it, so that a table of ports gets cells for ports.
static void index_fill(t_fp_table *p_table)
{
    static constexpr uint64_t max_cells = 1 << 16;
    size_t count = p_table->starts.size();
    uint32_t top = count < 2 ? 0 : p_table->starts[count - 2];
    uint64_t wanted = std::clamp<uint64_t>(std::bit_ceil(count) * 2, 256, max_cells);
    p_table->shift = 0;
    while (top >> p_table->shift >= wanted)
        p_table->shift++;
    uint32_t num_cells = (top >> p_table->shift) + 1;
    p_table->cells.resize(num_cells);

    uint32_t first = 0;
    for (uint32_t i = 0; i < num_cells; i++) {
        uint64_t end = uint64_t{i + 1} << p_table->shift;
        uint32_t last = first;
        while (last + 1 < count && (i + 1 == num_cells || p_table->starts[last + 1] < end))
            last++;
        bool single = last == first;
        p_table->cells[i] = {last - first + 1, single ? p_table->classes[first] : first};
        first = last + 1 < count && p_table->starts[last + 1] == end ? last + 1 : last;
    }
}

static bool segments_open(const t_fp_raw_table &raw, t_fp_table *p_table, t_fp_error *p_error)
{
    p_table->kind = FP_TABLE_SEGMENTS;
    std::vector<t_tarn_table_entry> descending;
    descending.reserve(raw.count);
    t_tree_walk walk = tree_walk_begin(raw, p_error);
    t_tarn_table_entry entry;
    while (tree_walk_next(&walk, &entry))
        descending.push_back(entry);
    if (!tree_walk_end(walk))
        return false;
    segments_fill(p_table, descending);
    index_fill(p_table);
    return true;
}

bool fp_table_open(const t_fp_raw_table &raw, t_fp_table *p_table, t_fp_error *p_error)
{
    p_table->max_class = raw_max_class(raw);
    return raw_is_dense(raw) ? dense_open(raw, p_table, p_error) : segments_open(raw, p_table, p_error);
}
