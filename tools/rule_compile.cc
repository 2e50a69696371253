#include "tools/rule_compile.h"

#include "tarnd/compiler/eclass.h"
#include "tarnd/compiler/tarn_compiler.h"
#include "tarnd/compiler/tarn_field.h"
#include "tarnd/compiler/tarn_mem_mgr.h"
#include "tools/heap_arena.h"
#include "tools/rule_fields.h"

#include <algorithm>
#include <chrono>

using t_clock = std::chrono::steady_clock;

struct t_compile_context_deleter {
    void operator()(t_tarn_context *p_context) const
    {
        tarn_delete_context(p_context);
    }
};
using compile_context_ptr = std::unique_ptr<t_tarn_context, t_compile_context_deleter>;

struct t_compile_table_deleter {
    void operator()(t_tarn_ruletable *p_table) const
    {
        tarn_delete_ruletable(p_table);
    }
};
using compile_table_ptr = std::unique_ptr<t_tarn_ruletable, t_compile_table_deleter>;

void t_arena_program_deleter::operator()(void *p_program) const
{
    heap_arena_register();
    tarn_mem_free(p_program, g_tarn_mem_mgr);
}

static void *alloc_nothing(size_t)
{
    g_filter_id = -1;
    return nullptr;
}

static void free_nothing(void *) {}

static void memory_manager_choose(bool want_program)
{
    static const t_tarn_mem_mgr refusing = {alloc_nothing, free_nothing};
    if (want_program)
        heap_arena_register();
    else
        tarn_register_mem_mgr(&refusing);
}

static double seconds_since(t_clock::time_point start)
{
    return std::chrono::duration<double>(t_clock::now() - start).count();
}

// Stages are paired by number, bottom up, and one without a partner is carried to the front of the next
// round.
static std::vector<bool> right_inputs(uint32_t leaves)
{
    std::vector<bool> is_right(2 * leaves + 1, false);
    std::vector<uint32_t> current;
    for (uint32_t id = 1; id <= leaves; id++)
        current.push_back(id);
    for (uint32_t next_id = leaves + 1; current.size() >= 2;) {
        std::vector<uint32_t> next;
        if (current.size() % 2 == 1)
            next.push_back(current.back());
        for (size_t i = 0; i + 1 < current.size(); i += 2) {
            is_right[current[i + 1]] = true;
            next.push_back(next_id++);
        }
        current = next;
    }
    return is_right;
}

static void report_stages(t_tarn_context *p_context, t_compile_result *p_result)
{
    uint32_t leaves = 0;
    for (t_rbst_node *p_node = rbst_first(&p_context->c_ecs); p_node != nullptr;
         p_node = rbst_getnext(&p_context->c_ecs, p_node)) {
        const t_ec *p_ec = static_cast<const t_ec *>(p_node->data);
        uint32_t type = 0;
        tarn_get_field_type(p_context, p_ec->ec_id, &type);
        leaves += p_ec->ec_is_intermediate == 0;
        p_result->stages.push_back({.id = p_ec->ec_id,
                                    .field_type = type,
                                    .left = p_ec->left != nullptr ? p_ec->left->ec_id : 0,
                                    .right = p_ec->right != nullptr ? p_ec->right->ec_id : 0,
                                    .is_right_input = false,
                                    .is_complete = p_ec->ec_is_complete != 0,
                                    .classes = p_ec->ec_values,
                                    .entries = 0,
                                    .table_bytes = 0});
    }
    std::vector<bool> is_right = right_inputs(leaves);
    for (t_stage_report &stage : p_result->stages)
        stage.is_right_input = stage.id < is_right.size() && is_right[stage.id];
}

// Entries and sizes as the program's directory tells them.
static void report_program(t_compile_result *p_result)
{
    const std::byte *p_base = static_cast<const std::byte *>(p_result->program.get());
    const t_tarn_program_hdr *p_hdr = static_cast<const t_tarn_program_hdr *>(p_result->program.get());
    const t_table_dir_entry *p_entry = reinterpret_cast<const t_table_dir_entry *>(p_hdr + 1);
    p_result->program_size = p_hdr->p_length;
    for (uint32_t i = 0; i < p_hdr->p_table_dir_len; i++, p_entry++) {
        uint32_t word = *reinterpret_cast<const uint32_t *>(p_base + p_entry->t_table_offset);
        if (tarn_get_table_type(word) == tarn_index_action) {
            p_result->records = p_entry->t_num_table_entries;
            p_result->record_size = p_entry->t_table_entry_size;
            continue;
        }
        for (t_stage_report &stage : p_result->stages) {
            if (stage.id != tarn_get_table_ecid(word))
                continue;
            stage.entries = p_entry->t_num_table_entries;
            stage.table_bytes = TARN_TABLE_HEADER_SIZE + uint64_t{stage.entries} * TARN_ENTRY_SIZE;
        }
    }
}

static std::string failure_print(const t_tarn_context &context, uint64_t known_size, uint64_t limit)
{
    switch (context.c_failure) {
    case TARN_COMPILE_TOO_MANY_STAGES:
        return "more than 16 field types, match-any included";
    case TARN_COMPILE_OVER_LIMIT:
        return "the program is too large: at least " + std::to_string(known_size) + " bytes, " +
               (limit != 0 && limit < 0xffffffff ? "limit " + std::to_string(limit)
                                                 : "and a program ends at 4 GiB");
    default:
        return "no memory for a program of " + std::to_string(known_size) + " bytes";
    }
}

t_compile_result rule_set_compile(const t_rule_set &set, std::span<const uint32_t> order, uint64_t limit,
                                  bool want_program)
{
    t_compile_result result = {};
    compile_context_ptr context(tarn_context_create());
    if (context == nullptr) {
        result.reason = "no memory";
        return result;
    }
    context->c_program_limit = limit;
    memory_manager_choose(want_program);

    t_clock::time_point start = t_clock::now();
    compile_table_ptr table(rule_set_fill(context.get(), set, order));
    if (table == nullptr) {
        result.reason = "no memory";
        return result;
    }
    result.fill_seconds = seconds_since(start);

    start = t_clock::now();
    void *p_program = nullptr;
    int length = 0;
    e_tarn_status status = tarn_compile(context.get(), table.get(), &p_program, &length);
    result.compile_seconds = seconds_since(start);
    result.program.reset(p_program);
    result.program_size = static_cast<uint64_t>(length);
    result.is_over_limit = context->c_failure == TARN_COMPILE_OVER_LIMIT;

    report_stages(context.get(), &result);
    if (p_program != nullptr)
        report_program(&result);
    bool stopped_as_wanted = !want_program && context->c_failure == TARN_COMPILE_NO_MEMORY &&
                             result.stages.size() % 2 == 1 && result.stages.back().is_complete;
    if (status != tarn_status_ok && !stopped_as_wanted)
        result.reason = failure_print(*context, result.program_size, limit);
    return result;
}

std::span<const std::byte> compile_result_bytes(const t_compile_result &result)
{
    return {static_cast<const std::byte *>(result.program.get()), static_cast<size_t>(result.program_size)};
}

std::vector<t_stage_report> stages_misclassifying(std::span<const t_stage_report> stages)
{
    std::vector<t_stage_report> found;
    std::copy_if(stages.begin(), stages.end(), std::back_inserter(found), [](const t_stage_report &stage) {
        // The classes found when a compilation stopped are a lower bound, which is enough.
        return stage.is_right_input && stage.classes >= RIGHT_INPUT_CLASS_LIMIT;
    });
    return found;
}

std::string stage_name(const t_stage_report &stage)
{
    std::string inputs = stage.left != 0 ? std::to_string(stage.left) + ", " + std::to_string(stage.right)
                                         : rule_field_name(stage.field_type);
    return "stage " + std::to_string(stage.id) + " (" + inputs + ")";
}

std::string stage_misclassifies_print(const t_stage_report &stage)
{
    return stage_name(stage) + (stage.is_complete ? " has " : " has at least ") +
           std::to_string(stage.classes) +
           " classes and is a right input: the multiplier ends at 65535 and the program would misclassify";
}
