#include "lab/fp/fp_engine.h"

#include <cstring>

// What tells a slot's program from another.
struct t_slot_key {
    bool valid;
    uint32_t hw_index;
    uint32_t num_blocks;
    uint32_t length;
    std::array<char, TARN_PROGRAM_NAME_SIZE> name;

    bool operator==(const t_slot_key &) const = default;
};

// A slot as it was opened. Without a walker `error` tells why.
struct t_opened {
    bool is_used;  // since it was opened, so the activity bit is ours
    t_slot_key key;
    fp_walker_ptr walker;
    std::string name;
    std::string error;
    uint32_t default_record;  // number, or FP_NO_RECORD
};

struct t_fp_engine {
    t_fp_pool pool;
    std::vector<t_opened> opened;          // by filter id
    std::vector<t_fp_filter_stats> stats;  // by filter id
    t_fp_filter_stats total;
    std::string no_such_filter;
};

// ---- Slots ----

// The word that holds the activity bit, which has no address of its own.
static uint16_t *activity_word(t_tarn_filter *p_slot)
{
    void *p_words = p_slot;
    return static_cast<uint16_t *>(p_words) + 1;
}

static constexpr uint16_t activity_bit = 1;

// Sets the bit. Returns whether it was set.
static bool activity_set(t_tarn_filter *p_slot)
{
    uint16_t before = __atomic_fetch_or(activity_word(p_slot), activity_bit, __ATOMIC_SEQ_CST);
    return (before & activity_bit) != 0;
}

static std::byte *block_address(const t_fp_pool &pool, uint32_t hw_index)
{
    return std::as_writable_bytes(pool.blocks).data() + hw_index * TARN_FILTER_MEM_BLOCK_SIZE;
}

// Whether the blocks are there and have room for a program's header.
static bool blocks_hold(const t_fp_pool &pool, const t_slot_key &key)
{
    return key.hw_index < pool.blocks.size() && key.num_blocks <= pool.blocks.size() - key.hw_index &&
           key.num_blocks * TARN_FILTER_MEM_BLOCK_SIZE >= sizeof(t_tarn_program_hdr);
}

// The slot as it is now; a free one is all zero, and one whose blocks aren't there has no length and no name.
static t_slot_key key_read(const t_fp_pool &pool, uint32_t filter_id)
{
    const t_tarn_filter *p_slot = &pool.filters[filter_id];
    t_slot_key key = {};
    key.valid = __atomic_load_n(&p_slot->record_valid, __ATOMIC_ACQUIRE) != 0;
    if (!key.valid)
        return key;
    key.hw_index = __atomic_load_n(&p_slot->hw_index, __ATOMIC_RELAXED);
    key.num_blocks = __atomic_load_n(&p_slot->num_hw_mem_blocks, __ATOMIC_RELAXED);
    if (!blocks_hold(pool, key))
        return key;
    const std::byte *p_program = block_address(pool, key.hw_index);
    memcpy(&key.length, p_program + offsetof(t_tarn_program_hdr, p_length), sizeof(key.length));
    memcpy(key.name.data(), p_program + offsetof(t_tarn_program_hdr, p_name), key.name.size());
    return key;
}

// ---- Opening ----

// The first record that is marked as the default's.
static uint32_t default_record_find(const t_fp_walker *p_walker, std::span<const std::byte> program)
{
    for (uint32_t i = 0; i < fp_walker_num_records(p_walker); i++) {
        uint32_t flags;
        memcpy(&flags, &program[fp_walker_record_offset(p_walker, i) + offsetof(t_tarn_action, a_flags)],
               sizeof(flags));
        if (flags & TARN_ACTION_FLAG_DEFAULT)
            return i;
    }
    return FP_NO_RECORD;
}

// Opens a private copy, so that a program that is written meanwhile can't change between a check and what
// relies on it.
static void program_open(const t_fp_pool &pool, t_opened *p_opened)
{
    const t_slot_key &key = p_opened->key;
    const std::byte *p_program = block_address(pool, key.hw_index);
    std::vector<std::byte> program(p_program, p_program + key.length);
    p_opened->walker = fp_walker_open(program, &p_opened->error);
    if (p_opened->walker == nullptr)
        return;
    const t_fp_walker *p_walker = p_opened->walker.get();
    uint32_t size = fp_walker_record_size(p_walker);
    if (size != sizeof(t_tarn_action) + TARN_ACTION_DATA_SIZE) {
        p_opened->error = "action table: records of " + std::to_string(size) + " bytes have no twelve slots";
        p_opened->walker.reset();
        return;
    }
    p_opened->name = fp_walker_name(p_walker);
    p_opened->default_record = default_record_find(p_walker, program);
}

// Forgets what was opened and opens the slot as it is now.
static void slot_open(const t_fp_engine *p_engine, const t_slot_key &key, t_opened *p_opened)
{
    const t_fp_pool &pool = p_engine->pool;
    *p_opened = {};
    p_opened->key = key;
    p_opened->default_record = FP_NO_RECORD;
    if (!key.valid)
        p_opened->error = "the slot is free";
    else if (!blocks_hold(pool, key))
        p_opened->error = "slot: blocks " + std::to_string(key.hw_index) + " and on (" +
                          std::to_string(key.num_blocks) + ") hold no program";
    else if (key.length > key.num_blocks * TARN_FILTER_MEM_BLOCK_SIZE)
        p_opened->error = "header: a length of " + std::to_string(key.length) + " is more than " +
                          std::to_string(key.num_blocks) + " blocks";
    else
        program_open(pool, p_opened);
}

// The slot's program for a use. Setting the bit comes before anything is read: what the daemon gives out
// again behind that has the bit clear.
static const t_opened *slot_use(t_fp_engine *p_engine, uint32_t filter_id)
{
    t_opened *p_opened = &p_engine->opened[filter_id];
    t_tarn_filter *p_slot = &p_engine->pool.filters[filter_id];
    bool is_valid = __atomic_load_n(&p_slot->record_valid, __ATOMIC_ACQUIRE) != 0;
    bool was_active = is_valid && activity_set(p_slot);
    t_slot_key key = key_read(p_engine->pool, filter_id);
    if (!p_opened->is_used || !was_active || key != p_opened->key)
        slot_open(p_engine, key, p_opened);
    p_opened->is_used = true;
    return p_opened;
}

// ---- Execution ----

static void outcome_decide(t_fp_outcome *p_outcome, uint32_t action)
{
    p_outcome->plain_action = action;
    p_outcome->decision = action == TARN_FILTER_ACTION_ACCEPT   ? FP_DECISION_ACCEPT
                          : action == TARN_FILTER_ACTION_REJECT ? FP_DECISION_REJECT
                                                                : FP_DECISION_OTHER;
}

static e_fp_police action_execute(t_tarn_filter_action *p_slot, uint32_t action, const t_fp_use &use)
{
    if (action == TARN_FILTER_ACTION_COUNT)
        fp_active_element_count(&p_slot->counter.version, p_slot->counter.pkts, p_slot->counter.bytes,
                                use.bytes);
    if (action == TARN_FILTER_ACTION_POLICE)
        return fp_policer_run(&p_slot->policer, use.now, use.bytes);
    return FP_POLICE_IN_BOUNDS;
}

static void record_execute(t_tarn_filter_action *p_slots, const t_fp_use &use, t_fp_outcome *p_outcome)
{
    p_outcome->p_slots = p_slots;
    for (uint32_t i = 0; i < MAX_ACTIONS_IN_RULE; i++) {
        if (p_slots[i].action != 0 && p_outcome->decision == FP_DECISION_NONE)
            outcome_decide(p_outcome, p_slots[i].action);
        uint32_t action = p_slots[i].fwding_action;
        if (action == 0)
            continue;
        e_fp_police police = action_execute(&p_slots[i], action, use);
        p_outcome->policer_drop |= police == FP_POLICE_DROP;
        p_outcome->plp_high |= police == FP_POLICE_MARK;
        p_outcome->executed[p_outcome->num_executed++] = {i, police};
    }
}

static void program_execute(const t_fp_engine *p_engine, const t_opened &opened, const t_fp_use &use,
                            t_fp_outcome *p_outcome)
{
    const t_fp_walker *p_walker = opened.walker.get();
    p_outcome->decision = FP_DECISION_NONE;
    p_outcome->p_name = &opened.name;
    p_outcome->verdict = fp_walker_classify(p_walker, *use.p_header);
    bool found = p_outcome->verdict.class_id != FP_NO_RECORD;
    p_outcome->record = found ? p_outcome->verdict.class_id : opened.default_record;
    p_outcome->is_default = !found || p_outcome->record == opened.default_record;
    if (p_outcome->record == FP_NO_RECORD)
        return;
    // The walker has seen that the records lie inside the program, on a multiple of 8.
    std::byte *p_record = block_address(p_engine->pool, opened.key.hw_index) +
                          fp_walker_record_offset(p_walker, p_outcome->record);
    void *p_slots = p_record + sizeof(t_tarn_action);
    record_execute(static_cast<t_tarn_filter_action *>(p_slots), use, p_outcome);
}

void fp_filter_stats_count(t_fp_filter_stats *p_stats, const t_fp_outcome &outcome, uint32_t bytes)
{
    p_stats->packets++;
    p_stats->bytes += bytes;
    p_stats->accepted += outcome.decision == FP_DECISION_ACCEPT;
    p_stats->rejected += outcome.decision == FP_DECISION_REJECT;
    p_stats->defaults += outcome.is_default;
    p_stats->no_program += outcome.decision == FP_DECISION_NO_PROGRAM;
    p_stats->policer_drops += outcome.policer_drop;
    p_stats->policer_marks += outcome.plp_high;
}

t_fp_outcome fp_engine_run(t_fp_engine *p_engine, const t_fp_use &use)
{
    t_fp_outcome outcome = {};
    outcome.filter_id = use.filter_id;
    outcome.verdict = {FP_NO_RECORD, FP_NO_RECORD};
    outcome.record = FP_NO_RECORD;
    outcome.came_high = use.p_header->values[tarn_ip_plp] != 0;
    outcome.p_error = &p_engine->no_such_filter;
    if (use.filter_id < p_engine->opened.size()) {
        const t_opened *p_opened = slot_use(p_engine, use.filter_id);
        outcome.p_error = p_opened->walker == nullptr ? &p_opened->error : nullptr;
        if (p_opened->walker != nullptr)
            program_execute(p_engine, *p_opened, use, &outcome);
        fp_filter_stats_count(&p_engine->stats[use.filter_id], outcome, use.bytes);
    }
    fp_filter_stats_count(&p_engine->total, outcome, use.bytes);
    return outcome;
}

// ---- The whole ----

fp_engine_ptr fp_engine_new(const t_fp_pool &pool)
{
    fp_engine_ptr engine(new t_fp_engine());
    engine->pool = pool;
    engine->opened.resize(pool.filters.size());
    engine->stats.resize(pool.filters.size());
    engine->no_such_filter = "there are " + std::to_string(pool.filters.size()) + " slots";
    return engine;
}

void t_fp_engine_deleter::operator()(t_fp_engine *p_engine) const
{
    delete p_engine;
}

static t_fp_filter_info info_of(t_fp_engine *p_engine, uint32_t filter_id)
{
    const t_opened &opened = p_engine->opened[filter_id];
    t_fp_filter_info info = {};
    info.filter_id = filter_id;
    info.hw_index = opened.key.hw_index;
    info.num_blocks = opened.key.num_blocks;
    uint16_t word = __atomic_load_n(activity_word(&p_engine->pool.filters[filter_id]), __ATOMIC_RELAXED);
    info.activity = (word & activity_bit) != 0;
    info.error = opened.error;
    if (opened.walker == nullptr)
        return info;
    info.name = opened.name;
    info.length = opened.key.length;
    info.num_records = fp_walker_num_records(opened.walker.get());
    return info;
}

std::vector<t_fp_filter_info> fp_engine_load(t_fp_engine *p_engine)
{
    std::vector<t_fp_filter_info> infos;
    for (uint32_t id = 0; id < p_engine->opened.size(); id++) {
        t_slot_key key = key_read(p_engine->pool, id);
        slot_open(p_engine, key, &p_engine->opened[id]);
        if (key.valid)
            infos.push_back(info_of(p_engine, id));
    }
    return infos;
}

const t_fp_filter_stats &fp_engine_total(const t_fp_engine *p_engine)
{
    return p_engine->total;
}

std::span<const t_fp_filter_stats> fp_engine_stats(const t_fp_engine *p_engine)
{
    return p_engine->stats;
}
