#include "tarnd/compiler/ec_table.h"

#include "tarnd/compiler/tarn_context.h"

#include <algorithm>

void ec_table_reserve(t_ec_table *p_table, size_t count)
{
    p_table->classes = std::make_unique_for_overwrite<uint32_t[]>(count);
    p_table->count = count;
}

void ec_table_release(t_ec_table *p_table)
{
    p_table->classes.reset();
    p_table->starts = {};
}

namespace {

// A run of keys [begin, end) whose subtree takes the places position, position + 1, ...
struct t_run {
    uint32_t begin;
    uint32_t end;
    uint32_t position;
};

constexpr uint32_t small_run = 5;

// The tree of a run of up to small_run keys: by place, the key and the places of the children, all counted
// from the run's first. 0 is no child.
struct t_small_tree {
    uint8_t key[small_run];
    uint8_t left[small_run];
    uint8_t right[small_run];
};

// The trees that the orders of inserting n keys give, for each n; a tree that more orders give stands there
// more often.
struct t_small_trees {
    t_small_tree trees[1 + 2 + 6 + 24 + 120];
    uint32_t first[small_run + 1];
    uint32_t count[small_run + 1];
};

}  // namespace

// Lays out the keys [begin, end) from place `place` on: the key that comes first in `rank`, then its right
// subtree, then its left.
static constexpr void lay_out(t_small_tree *p_tree, const uint8_t *rank, uint8_t begin, uint8_t end,
                              uint8_t place)
{
    uint8_t root = begin;
    for (uint8_t key = begin; key < end; key++)
        if (rank[key] < rank[root])
            root = key;
    uint8_t right = static_cast<uint8_t>(place + 1);
    uint8_t left = static_cast<uint8_t>(place + end - root);
    p_tree->key[place] = root;
    if (root + 1 < end) {
        p_tree->right[place] = right;
        lay_out(p_tree, rank, static_cast<uint8_t>(root + 1), end, right);
    }
    if (root > begin) {
        p_tree->left[place] = left;
        lay_out(p_tree, rank, begin, root, left);
    }
}

static constexpr t_small_trees make_small_trees()
{
    t_small_trees all = {};
    uint32_t next = 0;
    for (uint8_t n = 1; n <= small_run; n++) {
        all.first[n] = next;
        uint8_t rank[small_run] = {0, 1, 2, 3, 4};
        do
            lay_out(&all.trees[next++], rank, 0, n, 0);
        while (std::next_permutation(rank, rank + n));
        all.count[n] = next - all.first[n];
    }
    return all;
}

static constexpr t_small_trees small_trees = make_small_trees();

// Offset of an entry from the first one in 32-bit words; a child that does not exist is 0.
static uint32_t link_to(bool exists, uint32_t position)
{
    return exists ? position * TARN_ENTRY_WORDS : 0;
}

// A combined stage's keys are its indices.
template <bool dense>
static inline void write_key(const t_ec_table *p_table, uint32_t key, t_tarn_table_entry *p_entry)
{
    p_entry->low = dense ? key : p_table->starts[key];
    p_entry->high = dense ? key + 1 : p_table->starts[key + 1];
    p_entry->value = p_table->classes[key];
}

// Writes the root of a run and returns the runs of its subtrees.
template <bool dense>
static inline void write_root(t_shape_random *p_shape, const t_ec_table *p_table, t_tarn_table_entry *p_out,
                              const t_run &run, t_run *p_left, t_run *p_right)
{
    uint32_t root = run.begin + shape_random_below(p_shape, run.end - run.begin);
    *p_right = {root + 1, run.end, run.position + 1};
    *p_left = {run.begin, root, run.position + run.end - root};
    t_tarn_table_entry *p_entry = &p_out[run.position];
    write_key<dense>(p_table, root, p_entry);
    p_entry->left = link_to(root > run.begin, p_left->position);
    p_entry->right = link_to(root + 1 < run.end, p_right->position);
}

// Most of a tree's nodes lie in small subtrees; those are written whole, by a shape drawn from the table.
template <bool dense>
static inline void write_small(t_shape_random *p_shape, const t_ec_table *p_table, t_tarn_table_entry *p_out,
                               const t_run &run)
{
    uint32_t size = run.end - run.begin;
    const t_small_tree &tree =
        small_trees.trees[small_trees.first[size] + shape_random_below(p_shape, small_trees.count[size])];
    for (uint32_t place = 0; place < size; place++) {
        t_tarn_table_entry *p_entry = &p_out[run.position + place];
        write_key<dense>(p_table, run.begin + tree.key[place], p_entry);
        p_entry->left = link_to(tree.left[place] != 0, run.position + tree.left[place]);
        p_entry->right = link_to(tree.right[place] != 0, run.position + tree.right[place]);
    }
}

template <bool dense>
static void write_tree(t_tarn_context *p_context, const t_ec_table *p_table, t_tarn_table_entry *p_out)
{
    static constexpr size_t batch = 8192;
    std::vector<t_run> pending;
    pending.reserve(128);
    pending.push_back({0, static_cast<uint32_t>(p_table->count), 0});
    t_shape_random shape = p_context->c_shape;
    size_t runs = 0;
    while (!pending.empty()) {
        t_run run = pending.back();
        pending.pop_back();
        // Right subtrees follow their root in memory, so the writer goes on there and leaves the left one for
        // later.
        while (run.end - run.begin > small_run) {
            t_run left;
            t_run right;
            write_root<dense>(&shape, p_table, p_out, run, &left, &right);
            if (left.begin < left.end)
                pending.push_back(left);
            run = right;
        }
        if (run.begin < run.end)
            write_small<dense>(&shape, p_table, p_out, run);
        if (++runs % batch == 0)
            tarn_context_work(p_context, batch * small_run / 2);
    }
    p_context->c_shape = shape;
}

void ec_table_write(t_tarn_context *p_context, const t_ec_table *p_table, t_tarn_table_entry *p_out)
{
    if (p_table->starts.empty())
        write_tree<true>(p_context, p_table, p_out);
    else
        write_tree<false>(p_context, p_table, p_out);
}
