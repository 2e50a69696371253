#include "tests/lab/fp/fp_pool.h"

#include "tarnd/compiler/tarn_field.h"

#include <algorithm>
#include <cstring>
#include <string>

t_test_pool::t_test_pool() : memory(new t_aligned_block[POOL_BLOCKS]()), filters(POOL_FILTERS)
{
    static_assert(sizeof(t_aligned_block) == sizeof(t_tarn_filter_mem_block));
}

t_fp_pool t_test_pool::spans()
{
    return {filters, {&memory[0].block, POOL_BLOCKS}};
}

std::byte *t_test_pool::block(uint32_t hw_index)
{
    void *p_block = &memory[hw_index];
    return static_cast<std::byte *>(p_block);
}

void t_test_pool::put(uint32_t filter_id, uint32_t hw_index, std::span<const std::byte> program)
{
    std::copy(program.begin(), program.end(), block(hw_index));
    filters[filter_id] = {.record_valid = 1,
                          .activity = 0,
                          .unused = 0,
                          .hw_index = hw_index,
                          .num_hw_mem_blocks = static_cast<uint32_t>((program.size() + 127) / 128)};
}

t_tarn_filter_action plain_slot(e_tarn_filter_action action)
{
    t_tarn_filter_action slot = {};
    slot.action = action;
    return slot;
}

t_tarn_filter_action counter_slot(const char *name)
{
    t_tarn_filter_action slot = {};
    slot.fwding_action = TARN_FILTER_ACTION_COUNT;
    strncpy(slot.counter.name, name, sizeof(slot.counter.name) - 1);
    return slot;
}

t_tarn_filter_action policer_slot(const char *name, uint64_t rate, uint64_t burst,
                                  e_fp_policer_drop_action action)
{
    t_tarn_filter_action slot = {};
    slot.fwding_action = TARN_FILTER_ACTION_POLICE;
    slot.policer.rate = rate;
    slot.policer.burst = burst;
    slot.policer.oob_action = action;
    strncpy(slot.policer.name, name, sizeof(slot.policer.name) - 1);
    return slot;
}

std::vector<std::byte> ports_compile(const char *name, const std::vector<t_port_rule> &rules,
                                     const t_slots &default_slots)
{
    auto twelve = [](t_slots slots) {
        slots.resize(MAX_ACTIONS_IN_RULE);
        return slots;
    };
    context_ptr context(tarn_context_create());
    ruletable_ptr table(
        tarn_ruletable_create(name, "0test", TARN_ACTION_DATA_SIZE, twelve(default_slots).data()));
    for (const t_port_rule &rule : rules) {
        t_tarn_rule *p_rule = tarn_rule_create(table.get(), "rule");
        tarn_field_id id = tarn_get_field_id(context.get(), tarn_ip_dst_port);
        tarn_add_range_field(context.get(), p_rule, id, rule.low, rule.high);
        tarn_create_action(p_rule, TARN_ACTION_DATA_SIZE, twelve(rule.slots).data());
    }
    t_compiled compiled = compile_table(context.get(), table.get());
    std::span<const std::byte> bytes = compiled.bytes();
    return {bytes.begin(), bytes.end()};
}

t_tarn_filter_action *outcome_slots(const t_fp_outcome &outcome)
{
    return const_cast<t_tarn_filter_action *>(outcome.p_slots);
}
