#include "tarnd/compiler/tarn_program.h"

#include "common/cli_print.h"
#include "common/priority_timers.h"

#include <atomic>
#include <cstring>

namespace {

// The records of one action table.
struct t_record_walk {
    const unsigned char *p_record;
    uint32_t left;
};

}  // namespace

template <typename t_word>
static t_word load(const void *p_from)
{
    t_word word;
    memcpy(&word, p_from, sizeof(word));
    return word;
}

static const t_table_dir_entry *directory(const void *p_program)
{
    return reinterpret_cast<const t_table_dir_entry *>(static_cast<const unsigned char *>(p_program) +
                                                       sizeof(t_tarn_program_hdr));
}

static const t_tarn_program_hdr *header_of(const void *p_program)
{
    return static_cast<const t_tarn_program_hdr *>(p_program);
}

static const unsigned char *table_at(const void *p_program, const t_table_dir_entry &entry)
{
    return static_cast<const unsigned char *>(p_program) + entry.t_table_offset;
}

// The first record stands behind the header word, 4 bytes later if that is not 8-byte aligned.
static t_record_walk records_of(const unsigned char *p_table, const t_table_dir_entry &entry)
{
    const unsigned char *p_record = p_table + TARN_TABLE_HEADER_SIZE;
    if (reinterpret_cast<uintptr_t>(p_record) % 8 != 0)
        p_record += 4;
    return {p_record, entry.t_num_table_entries};
}

static uint32_t record_flags(const unsigned char *p_record)
{
    return load<uint32_t>(p_record + offsetof(t_tarn_action, a_flags));
}

static uint32_t record_length(const unsigned char *p_record)
{
    return load<uint32_t>(p_record + offsetof(t_tarn_action, a_len));
}

// Records follow each other by their length in whole 32-bit words.
static void next_record(t_record_walk *p_walk)
{
    p_walk->p_record += record_length(p_walk->p_record) / 4 * 4;
    p_walk->left--;
}

// Calls visit with the payload of every action record.
template <typename f_visit>
static void for_each_record(const void *p_program, f_visit visit)
{
    for (uint32_t i = 0; i < header_of(p_program)->p_table_dir_len; i++) {
        const t_table_dir_entry &entry = directory(p_program)[i];
        const unsigned char *p_table = table_at(p_program, entry);
        if (tarn_get_table_type(load<uint32_t>(p_table)) != tarn_index_action)
            continue;
        for (t_record_walk walk = records_of(p_table, entry); walk.left > 0; next_record(&walk))
            visit(walk.p_record + sizeof(t_tarn_action));
    }
}

// Calls visit with every slot of the given forwarding action whose name, at name_offset in the slot, is
// `name`.
template <typename f_visit>
static void for_each_named(const void *p_program, uint32_t fwding_action, size_t name_offset,
                           const char *name, f_visit visit)
{
    for_each_record(p_program, [&](const unsigned char *p_payload) {
        for (uint32_t slot = 0; slot < MAX_ACTIONS_IN_RULE; slot++) {
            const unsigned char *p_slot = p_payload + slot * sizeof(t_tarn_filter_action);
            if (load<uint32_t>(p_slot + offsetof(t_tarn_filter_action, fwding_action)) != fwding_action)
                continue;
            if (strncmp(reinterpret_cast<const char *>(p_slot + name_offset), name, TARN_COUNTER_NAME_SIZE) ==
                0)
                visit(reinterpret_cast<const t_tarn_filter_action *>(p_slot));
        }
    });
}

static_assert(TARN_COUNTER_NAME_SIZE == FP_POLICER_NAME_SIZE);

template <typename f_visit>
static void for_each_counter(const void *p_program, const char *name, f_visit visit)
{
    size_t name_offset = offsetof(t_tarn_filter_action, counter) + offsetof(t_tarn_counter, name);
    for_each_named(p_program, TARN_FILTER_ACTION_COUNT, name_offset, name, visit);
}

template <typename f_visit>
static void for_each_policer(const void *p_program, const char *name, f_visit visit)
{
    size_t name_offset = offsetof(t_tarn_filter_action, policer) + offsetof(t_fp_policer, name);
    for_each_named(p_program, TARN_FILTER_ACTION_POLICE, name_offset, name, visit);
}

// The forwarding plane writes these fields while they are read here: single loads and stores, no more.
template <typename t_value>
static t_value shared_load(const t_value &value)
{
    return std::atomic_ref<t_value>(const_cast<t_value &>(value)).load(std::memory_order_relaxed);
}

template <typename t_value>
static void shared_store(t_value *p_value, t_value value)
{
    std::atomic_ref<t_value>(*p_value).store(value, std::memory_order_release);
}

// Element of a double counter that is in use; a selector other than 0 and 1 cannot lead astray.
static uint8_t active_element(const uint8_t &version)
{
    return shared_load(version) & 1;
}

void tarn_program_get_counter(const void *p_program, const char *counter_name, int64_t *p_pkts,
                              int64_t *p_bytes)
{
    // A wrapped sum is as good as any when the counters themselves are absurd.
    uint64_t pkts = 0;
    uint64_t bytes = 0;
    for_each_counter(p_program, counter_name, [&](const t_tarn_filter_action *p_slot) {
        uint8_t active = active_element(p_slot->counter.version);
        pkts += static_cast<uint64_t>(shared_load(p_slot->counter.pkts[active]));
        bytes += static_cast<uint64_t>(shared_load(p_slot->counter.bytes[active]));
    });
    *p_pkts = static_cast<int64_t>(pkts);
    *p_bytes = static_cast<int64_t>(bytes);
}

void tarn_program_get_policer(const void *p_program, const char *policer_name, int64_t *p_pkts,
                              int64_t *p_bytes)
{
    uint64_t pkts = 0;
    uint64_t bytes = 0;
    for_each_policer(p_program, policer_name, [&](const t_tarn_filter_action *p_slot) {
        uint8_t active = active_element(p_slot->policer.version);
        pkts += static_cast<uint64_t>(shared_load(p_slot->policer.oob_pkts[active]));
        bytes += static_cast<uint64_t>(shared_load(p_slot->policer.oob_bytes[active]));
    });
    *p_pkts = static_cast<int64_t>(pkts);
    *p_bytes = static_cast<int64_t>(bytes);
}

// Moves the forwarding plane to the other element first and clears the one it left.
static void flip_and_clear(uint8_t *p_version, int64_t pkts[2], int64_t bytes[2])
{
    uint8_t left = active_element(*p_version);
    shared_store(p_version, static_cast<uint8_t>(left ^ 1));
    std::atomic_thread_fence(std::memory_order_seq_cst);
    shared_store(&pkts[left], int64_t{0});
    shared_store(&bytes[left], int64_t{0});
}

void tarn_program_clear_counter(void *p_program, const char *counter_name)
{
    for_each_counter(p_program, counter_name, [](const t_tarn_filter_action *p_slot) {
        t_tarn_counter *p_counter = &const_cast<t_tarn_filter_action *>(p_slot)->counter;
        flip_and_clear(&p_counter->version, p_counter->pkts, p_counter->bytes);
    });
}

void tarn_program_clear_policer(void *p_program, const char *policer_name)
{
    for_each_policer(p_program, policer_name, [](const t_tarn_filter_action *p_slot) {
        t_fp_policer *p_policer = &const_cast<t_tarn_filter_action *>(p_slot)->policer;
        flip_and_clear(&p_policer->version, p_policer->oob_pkts, p_policer->oob_bytes);
    });
}

void tarn_change_policer(void *p_program, t_fp_policer *p_policer, t_tarn_pol_chg_cb pol_chg_cb)
{
    for_each_record(p_program, [&](const unsigned char *p_payload) {
        pol_chg_cb(const_cast<unsigned char *>(p_payload), p_policer);
    });
}

static void display_field_map(t_lconfd_context *ctx, int usid, const t_tarn_program_hdr *p_header)
{
    cli_print(ctx, usid, "(field type, ec) map size = %d \n", static_cast<int>(p_header->p_pe_map_size));
    for (uint32_t i = 0; i < p_header->p_pe_map_size; i++)
        cli_print(ctx, usid, "Entry %d: field type = %d, ec_id = %d \n", static_cast<int>(i),
                  p_header->p_prot_ecid_map[i].p_prot_field_type, p_header->p_prot_ecid_map[i].p_ec_id);
}

static void display_lookup_table(t_lconfd_context *ctx, int usid, const unsigned char *p_table,
                                 uint32_t count)
{
    cli_print(ctx, usid, "Lookup Table:  \n");
    for (uint32_t i = 0; i < count; i++) {
        auto entry = load<t_tarn_table_entry>(p_table + TARN_TABLE_HEADER_SIZE + size_t{i} * TARN_ENTRY_SIZE);
        cli_print(ctx, usid, "Entry %d: [%d - ", static_cast<int>(i), static_cast<int>(entry.low));
        cli_print(ctx, usid, "%d] -> ", static_cast<int>(entry.high));
        cli_print(ctx, usid, "%d\n", static_cast<int>(entry.value));
        tarn_exec_priority_timers();
    }
}

static void display_action_table(t_lconfd_context *ctx, int usid, const unsigned char *p_table,
                                 const t_table_dir_entry &entry, t_tarn_display_action display_action)
{
    cli_print(ctx, usid, "Action Table:  \n");
    for (t_record_walk walk = records_of(p_table, entry); walk.left > 0; next_record(&walk)) {
        cli_print(ctx, usid, "flags = 0x%x \n", record_flags(walk.p_record));
        cli_print(ctx, usid, "length = %d \n", static_cast<int>(record_length(walk.p_record)));
        display_action(ctx, usid, walk.p_record + sizeof(t_tarn_action));
        tarn_exec_priority_timers();
    }
}

void tarn_display_program(t_lconfd_context *ctx, int usid, const void *p_program,
                          t_tarn_display_action display_action)
{
    const t_tarn_program_hdr *p_header = header_of(p_program);
    cli_print(ctx, usid, "length = %d \n", static_cast<int>(p_header->p_length));
    display_field_map(ctx, usid, p_header);
    cli_print(ctx, usid, "Table dir length = %d \n", static_cast<int>(p_header->p_table_dir_len));
    cli_print(ctx, usid, "n instructions = %d \n", static_cast<int>(p_header->p_num_instructions));
    for (uint32_t i = 0; i < p_header->p_table_dir_len; i++) {
        const t_table_dir_entry &entry = directory(p_program)[i];
        const unsigned char *p_table = table_at(p_program, entry);
        if (tarn_get_table_type(load<uint32_t>(p_table)) == tarn_interval_ecid)
            display_lookup_table(ctx, usid, p_table, entry.t_num_table_entries);
        else
            display_action_table(ctx, usid, p_table, entry, display_action);
        cli_print(ctx, usid, "\n");
    }
}
