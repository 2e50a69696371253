#include "tarnd/compiler/program_writer.h"

#include "common/lum_assert.h"
#include "common/lum_log.h"
#include "common/priority_timers.h"
#include "tarnd/compiler/eclass.h"
#include "tarnd/compiler/tarn_mem_mgr.h"

#include <cstring>
#include <memory>
#include <vector>

uint64_t tarn_record_size(const t_tarn_ruletable *p_table)
{
    LUM_ASSERT(p_table->rules != nullptr, "rule != NULL");
    LUM_ASSERT(p_table->rules->r_action != nullptr, "action");
    return p_table->rules->r_action->a_len;
}

// Stages from the leaves to the root: left subtree, right subtree, the stage.
static void collect_postorder(t_ec *p_ec, std::vector<t_ec *> *p_stages)
{
    if (p_ec->left != nullptr)
        collect_postorder(p_ec->left, p_stages);
    if (p_ec->right != nullptr)
        collect_postorder(p_ec->right, p_stages);
    p_stages->push_back(p_ec);
}

static std::vector<t_ec *> postorder(const t_tarn_context *p_context)
{
    std::vector<t_ec *> stages;
    stages.reserve(TARN_MAX_REGISTERS);
    collect_postorder(p_context->c_root, &stages);
    return stages;
}

static void trace_size(const t_tarn_ruletable *p_table, uint64_t size, const char *step)
{
    TARN_TRACE(TARN_DEBUG_POLICY, "Policy: %s  Program size: %u [%s]", p_table->name,
               static_cast<unsigned>(size), step);
}

uint64_t tarn_program_length(t_tarn_context *p_context, const t_tarn_ruletable *p_table)
{
    uint64_t tables = 0;
    p_context->c_table_dir_len = 0;
    p_context->c_num_instructions = 0;
    for (t_ec *p_ec : postorder(p_context)) {
        if (p_ec->root == nullptr)
            p_context->c_final_ec = p_ec;
        tables += eclass_table_size(p_ec);
        p_context->c_table_dir_len++;
        p_context->c_num_instructions += p_ec->ec_is_intermediate ? 3 : 1;
    }
    p_context->c_length = static_cast<uint32_t>(tables);
    p_context->c_table_dir_len++;     // the action table
    p_context->c_num_instructions++;  // the terminator

    uint64_t size = sizeof(t_tarn_program_hdr);
    trace_size(p_table, size, "Header");
    size += tables;
    trace_size(p_table, size, "Context");
    size += uint64_t{p_context->c_table_dir_len} * sizeof(t_table_dir_entry);
    trace_size(p_table, size, "Table directory entry");
    size += uint64_t{p_context->c_num_instructions} * sizeof(tarn_instruction);
    trace_size(p_table, size, "Instruction");
    size += p_context->c_final_ec->ec_values * tarn_record_size(p_table) + 8;
    trace_size(p_table, size, "Action");
    trace_size(p_table, size, "Final");
    return size;
}

static tarn_instruction *next_instruction(t_tarn_context *p_context, uint32_t opcode, uint32_t src_type)
{
    tarn_instruction *p_word = p_context->c_ins_ptr++;
    tarn_set_opcode(p_word, opcode);
    tarn_set_src_type(p_word, src_type);
    return p_word;
}

static void emit_lookup(t_tarn_context *p_context, const t_ec *p_ec, uint32_t src_type, uint32_t src_index)
{
    tarn_instruction *p_word = next_instruction(p_context, tarn_op_lookup, src_type);
    tarn_set_src_index(p_word, src_index);
    tarn_set_dst_index(p_word, p_ec->register_index);
    tarn_set_table_id(p_word, p_ec->ec_id);
}

static void emit_stage(t_tarn_context *p_context, const t_ec *p_ec)
{
    if (!p_ec->ec_is_intermediate) {
        emit_lookup(p_context, p_ec, tarn_header, p_ec->ec_id);
        return;
    }
    uint32_t left = p_ec->left->register_index;
    uint32_t right = p_ec->right->register_index;
    tarn_instruction *p_mul = next_instruction(p_context, tarn_op_mul, tarn_intermediate);
    tarn_set_src_index(p_mul, left);
    tarn_set_dst_index(p_mul, left);
    tarn_set_mul(p_mul, p_ec->right->ec_values);
    tarn_instruction *p_or = next_instruction(p_context, tarn_op_or, tarn_intermediate);
    tarn_set_src_index(p_or, left);
    tarn_set_dst_index(p_or, right);
    emit_lookup(p_context, p_ec, tarn_intermediate, right);
}

static void emit_terminator(t_tarn_context *p_context)
{
    LUM_ASSERT(p_context->c_reg_allocated <= TARN_MAX_REGISTERS - 1,
               "context->c_reg_allocated <= (TARN_MAX_REGISTERS - 1)");
    tarn_instruction *p_word = next_instruction(p_context, tarn_op_terminate, tarn_intermediate);
    tarn_set_src_index(p_word, p_context->c_reg_allocated);
    tarn_set_dst_index(p_word, TARN_MAX_REGISTERS - 1);
}

// The actions by rule index, so that a class finds its record without walking the rules.
static std::vector<const t_tarn_action *> actions_by_rule(const t_tarn_ruletable *p_table)
{
    std::vector<const t_tarn_action *> actions;
    actions.reserve(p_table->num_rules);
    for (const t_tarn_rule *p_rule = p_table->rules; p_rule != nullptr; p_rule = p_rule->r_next)
        actions.push_back(p_rule->r_action);
    return actions;
}

static void tarn_write_action_table(t_tarn_context *p_context, const t_tarn_ruletable *p_table,
                                    const std::vector<const t_tarn_action *> &actions)
{
    const t_ec *p_final = p_context->c_final_ec;
    t_table_dir_entry *p_entry = p_context->c_tdir_ptr++;
    p_entry->t_table_offset = static_cast<uint32_t>((p_context->c_table_ptr - p_context->c_base_addr) * 4);
    p_entry->t_num_table_entries = p_final->ec_values;
    p_entry->t_table_entry_size = p_table->default_action->a_len;
    *p_context->c_table_ptr = 0;
    tarn_set_table_type(tarn_index_action, p_context->c_table_ptr++);
    // Records hold 64-bit counters.
    if (reinterpret_cast<uintptr_t>(p_context->c_table_ptr) % 8 != 0)
        *p_context->c_table_ptr++ = 0;
    p_context->c_action_table_offset = static_cast<uint32_t>(p_context->c_table_ptr - p_context->c_base_addr);

    unsigned char *p_base = reinterpret_cast<unsigned char *>(p_context->c_table_ptr);
    uint64_t record_size = tarn_record_size(p_table);
    for (uint32_t class_id = 0; class_id < p_final->ec_values; class_id++) {
        uint32_t winner = ec_classes_lowest(&p_final->ec_bitvec, class_id);
        const t_tarn_action *p_action = winner == EC_NO_RULE ? p_table->default_action : actions[winner];
        LUM_ASSERT(p_action != nullptr, "action");
        LUM_ASSERT(p_action->a_len == record_size, "action->a_len == record_size");
        memcpy(p_base + class_id * record_size, p_action, record_size);
        tarn_context_work(p_context, record_size / 32 + 1);
    }
}

static void tarn_set_field_ec_map(const t_tarn_context *p_context, t_tarn_program_hdr *p_header)
{
    for (uint32_t type = 0; type < tarn_ip_field_type_max; type++) {
        const t_field_info_item &item = p_context->c_field_ec_mapping[type];
        if (item.f_id == 0)
            continue;
        prot_ecid_entry *p_entry = &p_header->p_prot_ecid_map[p_header->p_pe_map_size++];
        p_entry->p_prot_field_type = static_cast<uint8_t>(item.f_type);
        p_entry->p_ec_id = static_cast<uint8_t>(item.f_id);
        p_header->p_id_to_field_type[item.f_id] = item.f_type;
    }
}

static void tarn_set_table_map(const t_tarn_context *p_context, t_tarn_program_hdr *p_header)
{
    memcpy(p_header->p_ecid_table_map, p_context->c_ecid_table_map, sizeof(p_header->p_ecid_table_map));
    p_header->p_action_table_offset = p_context->c_action_table_offset;
}

static void set_cursors(t_tarn_context *p_context, void *p_program)
{
    p_context->c_base_addr = static_cast<uint32_t *>(p_program);
    uint32_t *p_next = p_context->c_base_addr + sizeof(t_tarn_program_hdr) / 4;
    p_context->c_tdir_ptr = reinterpret_cast<t_table_dir_entry *>(p_next);
    p_next += p_context->c_table_dir_len * sizeof(t_table_dir_entry) / 4;
    p_context->c_ins_ptr = p_next;
    p_context->c_table_ptr = p_next + p_context->c_num_instructions;
}

// Clears what is not covered by table entries and records: all in front of the first table, and at the end
// the word that remains when the records needed no alignment step.
static void clear_unwritten(const t_tarn_context *p_context, void *p_program, uint32_t size)
{
    size_t front = sizeof(t_tarn_program_hdr) + p_context->c_table_dir_len * sizeof(t_table_dir_entry) +
                   p_context->c_num_instructions * sizeof(tarn_instruction);
    memset(p_program, 0, front);
    memset(static_cast<unsigned char *>(p_program) + size - 4, 0, 4);
}

namespace {

struct t_program_deleter {
    void operator()(void *p_program) const
    {
        tarn_mem_free(p_program, g_tarn_mem_mgr);
    }
};

}  // namespace

using program_ptr = std::unique_ptr<void, t_program_deleter>;

void *tarn_compile_program_ec(t_tarn_context *p_context, const t_tarn_ruletable *p_table, uint32_t size)
{
    std::vector<t_ec *> stages = postorder(p_context);
    std::vector<const t_tarn_action *> actions = actions_by_rule(p_table);
    program_ptr program(tarn_mem_alloc_dirty(size, g_tarn_mem_mgr));
    // The allocator leaves the slot behind, -1 when it failed.
    p_context->c_filter_id = program != nullptr ? g_filter_id : -1;
    if (program == nullptr)
        return nullptr;
    clear_unwritten(p_context, program.get(), size);
    auto *p_header = static_cast<t_tarn_program_hdr *>(program.get());
    p_header->p_length = size;
    p_header->p_table_dir_len = p_context->c_table_dir_len;
    p_header->p_num_instructions = p_context->c_num_instructions;
    memcpy(p_header->p_name, p_table->name, strnlen(p_table->name, sizeof(p_header->p_name)));
    set_cursors(p_context, program.get());
    tarn_exec_priority_timers();
    for (const t_ec *p_ec : stages) {
        eclass_program_table(p_context, p_ec);
        emit_stage(p_context, p_ec);
    }
    emit_terminator(p_context);
    tarn_write_action_table(p_context, p_table, actions);
    tarn_set_field_ec_map(p_context, p_header);
    tarn_set_table_map(p_context, p_header);
    return program.release();
}
