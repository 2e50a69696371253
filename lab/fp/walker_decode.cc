// Instructions: checked, bounded and decoded.
#include "lab/fp/walker_private.h"

#include <algorithm>

// An instruction taken apart.
struct t_ins {
    uint32_t opcode;
    uint32_t src_type;
    uint32_t src;
    uint32_t dst;
    uint32_t table_id;
    uint32_t multiplier;
};

static t_ins ins_split(tarn_instruction word)
{
    return {tarn_get_opcode(word),    tarn_get_src_type(word), tarn_get_src_index(word),
            tarn_get_dst_index(word), tarn_get_table_id(word), tarn_get_mul(word)};
}

static bool lookup_check(const t_fp_walker &walker, uint32_t number, const t_ins &ins, t_fp_error *p_error)
{
    if (ins.src_type != tarn_header && ins.src_type != tarn_intermediate)
        return fp_error_set(p_error, "instruction %u: source type %u does not exist", number, ins.src_type);
    if (ins.src_type == tarn_header && walker.field_types[ins.src] == 0)
        return fp_error_set(p_error, "instruction %u: no packet field belongs to stage %u", number, ins.src);
    if (walker.tables[ins.table_id].kind == FP_TABLE_NONE)
        return fp_error_set(p_error, "instruction %u: stage %u has no table", number, ins.table_id);
    return true;
}

// Checks one instruction by itself. Register numbers have five bits and cannot be wrong.
static bool ins_check(const t_fp_walker &walker, uint32_t number, t_fp_error *p_error)
{
    t_ins ins = ins_split(walker.instructions[number]);
    if (ins.opcode == 0 || ins.opcode >= tarn_op_max)
        return fp_error_set(p_error, "instruction %u: operation %u does not exist", number, ins.opcode);
    if (ins.opcode == tarn_op_lookup)
        return lookup_check(walker, number, ins, p_error);
    if (ins.src_type != tarn_intermediate)
        return fp_error_set(p_error, "instruction %u: the source type is %u, but it must be a register",
                            number, ins.src_type);
    bool last = number + 1 == walker.instructions.size();
    if (ins.opcode == tarn_op_terminate && !last)
        return fp_error_set(p_error, "instruction %u: the program terminates before its last instruction",
                            number);
    if (ins.opcode == tarn_op_terminate && ins.dst != TARN_MAX_REGISTERS - 1)
        return fp_error_set(p_error, "instruction %u: the destination of the terminator is %u", number,
                            ins.dst);
    return true;
}

// Highest value that a register can hold after each step; sums and products that may wrap can be anything.
static uint64_t bound_clip(uint64_t bound)
{
    return std::min<uint64_t>(bound, 0xffffffff);
}

// Follows the registers' bounds through the program, so that the class at its end is known to have a record.
static bool result_check(const t_fp_walker &walker, t_fp_error *p_error)
{
    uint64_t bounds[TARN_MAX_REGISTERS] = {};
    for (tarn_instruction word : walker.instructions) {
        t_ins ins = ins_split(word);
        if (ins.opcode == tarn_op_lookup)
            bounds[ins.dst] = walker.tables[ins.table_id].max_class;
        else if (ins.opcode == tarn_op_mul)
            bounds[ins.dst] = bound_clip(bounds[ins.src] * ins.multiplier);
        else if (ins.opcode == tarn_op_or)
            bounds[ins.dst] = bound_clip(bounds[ins.dst] + bounds[ins.src]);
    }
    uint64_t highest = bounds[walker.result];
    if (highest < walker.num_records)
        return true;
    return fp_error_set(
        p_error, "instruction %zu: the class can be %llu, but the action table has %u records",
        walker.instructions.size() - 1, static_cast<unsigned long long>(highest), walker.num_records);
}

static uint32_t ins_reads(const t_ins &ins)
{
    uint32_t src = ins.src_type == tarn_intermediate ? 1u << ins.src : 0;
    return ins.opcode == tarn_op_or ? src | 1u << ins.dst : src;
}

// For each instruction the registers that a later one still reads, as a bit mask.
static std::vector<uint32_t> live_after(const std::vector<tarn_instruction> &words)
{
    std::vector<uint32_t> masks(words.size());
    uint32_t live = 0;
    for (size_t i = words.size(); i-- > 0;) {
        masks[i] = live;
        t_ins ins = ins_split(words[i]);
        if (ins.opcode != tarn_op_terminate)
            live &= ~(1u << ins.dst);
        live |= ins_reads(ins);
    }
    return masks;
}

// Whether words[0..2] are "mul a, a; or a, b; lookup b, r" and nobody reads a or b (unless it is r)
// afterwards.
static bool is_pair(std::span<const tarn_instruction> words, std::span<const uint32_t> live)
{
    if (words.size() < 3)
        return false;
    t_ins mul = ins_split(words[0]);
    t_ins add = ins_split(words[1]);
    t_ins lookup = ins_split(words[2]);
    if (mul.opcode != tarn_op_mul || add.opcode != tarn_op_or || lookup.opcode != tarn_op_lookup)
        return false;
    if (mul.dst != mul.src || add.src != mul.dst || add.dst == add.src)
        return false;
    if (lookup.src_type != tarn_intermediate || lookup.src != add.dst)
        return false;
    uint32_t scratch = (1u << add.src | 1u << add.dst) & ~(1u << lookup.dst);
    return (live[2] & scratch) == 0;
}

static t_fp_op op_pair(const t_fp_walker &walker, std::span<const tarn_instruction> words)
{
    t_ins mul = ins_split(words[0]);
    t_ins lookup = ins_split(words[2]);
    return {.code = FP_OP_LOOKUP_PAIR,
            .a = static_cast<uint8_t>(mul.src),
            .b = static_cast<uint8_t>(lookup.src),
            .dst = static_cast<uint8_t>(lookup.dst),
            .multiplier = mul.multiplier,
            .p_table = &walker.tables[lookup.table_id]};
}

static t_fp_op op_single(const t_fp_walker &walker, tarn_instruction word)
{
    t_ins ins = ins_split(word);
    t_fp_op op = {.code = FP_OP_ADD,
                  .a = static_cast<uint8_t>(ins.src),
                  .b = 0,
                  .dst = static_cast<uint8_t>(ins.dst),
                  .multiplier = ins.multiplier,
                  .p_table = nullptr};
    if (ins.opcode == tarn_op_mul)
        op.code = FP_OP_MUL;
    if (ins.opcode != tarn_op_lookup)
        return op;
    op.p_table = &walker.tables[ins.table_id];
    op.code = FP_OP_LOOKUP_REGISTER;
    if (ins.src_type == tarn_header) {
        op.code = FP_OP_LOOKUP_FIELD;
        op.a = walker.field_types[ins.src];
    }
    return op;
}

static void ops_fill(t_fp_walker *p_walker)
{
    std::vector<uint32_t> live = live_after(p_walker->instructions);
    std::span<const tarn_instruction> words = p_walker->instructions;
    for (size_t i = 0; i + 1 < words.size();) {
        if (is_pair(words.subspan(i), std::span<const uint32_t>(live).subspan(i))) {
            p_walker->ops.push_back(op_pair(*p_walker, words.subspan(i)));
            i += 3;
        } else {
            p_walker->ops.push_back(op_single(*p_walker, words[i]));
            i++;
        }
    }
}

bool fp_walker_decode(t_fp_walker *p_walker, t_fp_error *p_error)
{
    size_t count = p_walker->instructions.size();
    for (uint32_t i = 0; i < count; i++) {
        if (!ins_check(*p_walker, i, p_error))
            return false;
    }
    t_ins last = ins_split(p_walker->instructions[count - 1]);
    if (last.opcode != tarn_op_terminate)
        return fp_error_set(p_error, "instruction %zu: the last instruction does not terminate the program",
                            count - 1);
    p_walker->result = static_cast<uint8_t>(last.src);
    if (!result_check(*p_walker, p_error))
        return false;
    ops_fill(p_walker);
    return true;
}
