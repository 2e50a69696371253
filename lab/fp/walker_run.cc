// Executing an opened program. Everything was checked at opening; what is left to test here is whether a
// value lies in an entry.
#include "common/lum_assert.h"
#include "lab/fp/walker_private.h"

#include <algorithm>

// Segments of one cell, by halving without branches on the data.
static uint32_t segments_search(const t_fp_table &table, t_fp_cell cell, uint32_t key)
{
    const uint32_t *p_base = &table.starts[cell.value];
    for (uint32_t count = cell.count; count > 1;) {
        uint32_t half = count / 2;
        p_base = p_base[half] <= key ? p_base + half : p_base;
        count -= half;
    }
    return table.classes[static_cast<size_t>(p_base - table.starts.data())];
}

static inline uint32_t segments_find(const t_fp_table &table, uint32_t key)
{
    size_t index = std::min<size_t>(key >> table.shift, table.cells.size() - 1);
    t_fp_cell cell = table.cells[index];
    return cell.count == 1 ? cell.value : segments_search(table, cell, key);
}

// The class of the entry that holds the key, or FP_NO_CLASS.
static inline uint32_t table_find(const t_fp_table &table, uint32_t key)
{
    if (table.kind == FP_TABLE_DENSE16)
        return key < table.dense16.size() ? table.dense16[key] : FP_NO_CLASS;
    if (table.kind == FP_TABLE_DENSE32)
        return key < table.dense32.size() ? table.dense32[key] : FP_NO_CLASS;
    return segments_find(table, key);
}

static t_fp_verdict verdict_of(const t_fp_walker *p_walker, uint32_t class_id)
{
    return {class_id, fp_walker_record_offset(p_walker, class_id)};
}

static constexpr t_fp_verdict verdict_default = {FP_NO_RECORD, FP_NO_RECORD};

t_fp_header fp_header_blank()
{
    t_fp_header header = {};
    header.values[tarn_ip_match_any] = 1;
    return header;
}

t_fp_verdict fp_walker_classify(const t_fp_walker *p_walker, const t_fp_header &header)
{
    uint32_t registers[TARN_MAX_REGISTERS] = {};
    for (const t_fp_op &op : p_walker->ops) {
        uint32_t key = registers[op.a];
        switch (op.code) {
        case FP_OP_LOOKUP_FIELD:
            key = header.values[op.a];
            break;
        case FP_OP_LOOKUP_REGISTER:
            break;
        case FP_OP_LOOKUP_PAIR:
            key = key * op.multiplier + registers[op.b];
            break;
        case FP_OP_MUL:
            registers[op.dst] = key * op.multiplier;
            continue;
        case FP_OP_ADD:
            registers[op.dst] += key;
            continue;
        }
        registers[op.dst] = table_find(*op.p_table, key);
        if (registers[op.dst] == FP_NO_CLASS)
            return verdict_default;
    }
    return verdict_of(p_walker, registers[p_walker->result]);
}

// Headers that are executed together, so that their cache misses overlap.
static constexpr size_t group_size = 64;

struct t_group {
    std::span<const t_fp_header> headers;  // at most group_size
    uint32_t registers[TARN_MAX_REGISTERS][group_size];
    bool missed[group_size];  // a value was in no entry; the registers are void from there on
};

static void group_keys(const t_group &group, const t_fp_op &op, uint32_t *p_keys)
{
    const uint32_t *p_a = group.registers[op.a];
    const uint32_t *p_b = group.registers[op.b];
    size_t count = group.headers.size();
    if (op.code == FP_OP_LOOKUP_FIELD) {
        for (size_t i = 0; i < count; i++)
            p_keys[i] = group.headers[i].values[op.a];
    } else if (op.code == FP_OP_LOOKUP_PAIR) {
        for (size_t i = 0; i < count; i++)
            p_keys[i] = p_a[i] * op.multiplier + p_b[i];
    } else {
        std::copy_n(p_a, count, p_keys);
    }
}

static void group_lookup(t_group *p_group, const t_fp_op &op)
{
    uint32_t keys[group_size];
    group_keys(*p_group, op, keys);
    uint32_t *p_dst = p_group->registers[op.dst];
    for (size_t i = 0; i < p_group->headers.size(); i++) {
        p_dst[i] = table_find(*op.p_table, keys[i]);
        p_group->missed[i] |= p_dst[i] == FP_NO_CLASS;
    }
}

static void group_execute(t_group *p_group, const t_fp_op &op)
{
    uint32_t *p_dst = p_group->registers[op.dst];
    const uint32_t *p_src = p_group->registers[op.a];
    size_t count = p_group->headers.size();
    if (op.code == FP_OP_MUL) {
        for (size_t i = 0; i < count; i++)
            p_dst[i] = p_src[i] * op.multiplier;
    } else if (op.code == FP_OP_ADD) {
        for (size_t i = 0; i < count; i++)
            p_dst[i] += p_src[i];
    } else {
        group_lookup(p_group, op);
    }
}

static void group_classify(const t_fp_walker *p_walker, std::span<const t_fp_header> headers,
                           t_fp_verdict *p_verdicts)
{
    t_group group = {};
    group.headers = headers;
    for (const t_fp_op &op : p_walker->ops)
        group_execute(&group, op);
    const uint32_t *p_result = group.registers[p_walker->result];
    for (size_t i = 0; i < headers.size(); i++)
        p_verdicts[i] = group.missed[i] ? verdict_default : verdict_of(p_walker, p_result[i]);
}

void fp_walker_classify_burst(const t_fp_walker *p_walker, std::span<const t_fp_header> headers,
                              std::span<t_fp_verdict> verdicts)
{
    LUM_ASSERT_TRAP(headers.size() == verdicts.size(), "headers.size == verdicts.size");
    for (size_t begin = 0; begin < headers.size(); begin += group_size) {
        size_t count = std::min(group_size, headers.size() - begin);
        group_classify(p_walker, headers.subspan(begin, count), &verdicts[begin]);
    }
}

// Executes one instruction and fills the step.
static void trace_step(const t_fp_walker *p_walker, const t_fp_header &header, uint32_t *p_registers,
                       t_fp_step *p_step)
{
    uint32_t src = tarn_get_src_index(p_step->instruction);
    uint32_t dst = tarn_get_dst_index(p_step->instruction);
    bool from_header = tarn_get_src_type(p_step->instruction) == tarn_header;
    p_step->input = from_header ? header.values[p_walker->field_types[src]] : p_registers[src];
    p_step->found = true;
    switch (tarn_get_opcode(p_step->instruction)) {
    case tarn_op_lookup:
        p_step->output = table_find(p_walker->tables[tarn_get_table_id(p_step->instruction)], p_step->input);
        p_step->found = p_step->output != FP_NO_CLASS;
        break;
    case tarn_op_mul:
        p_step->output = p_step->input * tarn_get_mul(p_step->instruction);
        break;
    case tarn_op_or:
        p_step->output = p_registers[dst] + p_step->input;
        break;
    default:
        p_step->output = p_step->input;
        return;
    }
    p_registers[dst] = p_step->output;
}

t_fp_verdict fp_walker_trace(const t_fp_walker *p_walker, const t_fp_header &header,
                             std::vector<t_fp_step> *p_steps)
{
    uint32_t registers[TARN_MAX_REGISTERS] = {};
    p_steps->clear();
    for (tarn_instruction word : p_walker->instructions) {
        t_fp_step step = {.instruction = word, .input = 0, .output = 0, .found = false};
        trace_step(p_walker, header, registers, &step);
        p_steps->push_back(step);
        if (!step.found)
            return verdict_default;
    }
    return verdict_of(p_walker, p_steps->back().output);
}
