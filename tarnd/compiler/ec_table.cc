#include "tarnd/compiler/ec_table.h"

#include "tarnd/compiler/tarn_context.h"

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

}  // namespace

// Offset of an entry from the first one in 32-bit words; a child that does not exist is 0.
static uint32_t link_to(bool exists, uint32_t position)
{
    return exists ? position * TARN_ENTRY_WORDS : 0;
}

// Writes the root of a run and returns the runs of its subtrees.
template <bool dense>
static inline void write_root(t_shape_random *p_shape, const t_ec_table *p_table, t_tarn_table_entry *p_out,
                              const t_run &run, t_run *p_left, t_run *p_right)
{
    uint32_t root = run.begin + shape_random_below(p_shape, run.end - run.begin);
    *p_right = {root + 1, run.end, run.position + 1};
    *p_left = {run.begin, root, run.position + run.end - root};
    t_tarn_table_entry &entry = p_out[run.position];
    entry.low = dense ? root : p_table->starts[root];
    entry.high = dense ? root + 1 : p_table->starts[root + 1];
    entry.value = p_table->classes[root];
    entry.left = link_to(root > run.begin, p_left->position);
    entry.right = link_to(root + 1 < run.end, p_right->position);
}

template <bool dense>
static void write_tree(t_tarn_context *p_context, const t_ec_table *p_table, t_tarn_table_entry *p_out)
{
    static constexpr size_t batch = 8192;
    std::vector<t_run> pending;
    pending.reserve(128);
    pending.push_back({0, static_cast<uint32_t>(p_table->count), 0});
    t_shape_random shape = p_context->c_shape;
    size_t written = 0;
    while (!pending.empty()) {
        t_run run = pending.back();
        pending.pop_back();
        // Right subtrees follow their root in memory, so the writer goes on there and leaves the left one for later.
        while (run.begin < run.end) {
            t_run left;
            t_run right;
            write_root<dense>(&shape, p_table, p_out, run, &left, &right);
            if (left.begin < left.end)
                pending.push_back(left);
            run = right;
            if (++written % batch == 0)
                tarn_context_work(p_context, batch);
        }
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
