#include "tests/support/plain_compiler.h"

#include "tarnd/compiler/epi.h"
#include "tarnd/compiler/interval.h"
#include "tarnd/compiler/rbst.h"
#include "tarnd/compiler/tarn_cmp.h"

#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>

static constexpr uint32_t no_class = 0xffffffff;

struct t_plain_stage {
    uint32_t ec_id = 0;
    uint32_t register_index = 0;
    uint32_t values = 0;
    bool is_intermediate = false;
    t_rbst endpoints;  // keys: numbers
    t_rbst ival_ec;    // keys: entries
    t_rbst bitvec;     // keys: t_epi, data: numbers
    t_plain_stage *p_left = nullptr;
    t_plain_stage *p_right = nullptr;
    t_plain_stage *p_root = nullptr;
    std::deque<uint32_t> numbers;  // what the trees point to
    std::deque<t_ival_ec_entry> entries;

    t_plain_stage();
    ~t_plain_stage();
    t_plain_stage(const t_plain_stage &) = delete;
    t_plain_stage &operator=(const t_plain_stage &) = delete;
};

static void free_bitvec(t_rbst_node *p_node)
{
    epi_free(static_cast<t_epi *>(p_node->key));
    free(p_node);
}

t_plain_stage::t_plain_stage()
{
    rbst_init(&endpoints);
    rbst_init(&ival_ec);
    rbst_init(&bitvec);
    ival_ec.cmp = intervals_cmp;
    bitvec.cmp = bitvectors_cmp;
}

t_plain_stage::~t_plain_stage()
{
    rbst_delete_all(&endpoints, free_node);
    rbst_delete_all(&ival_ec, free_node);
    rbst_delete_all(&bitvec, free_bitvec);
}

using t_work = std::map<uint32_t, t_plain_stage *>;

struct t_plain {
    const t_tarn_context *p_context;
    const t_tarn_ruletable *p_table;
    std::deque<t_plain_stage> stages;
    t_work ecs;  // all stages by number
    uint32_t latest_ec_id = 0;
    uint32_t reg_allocated = 0;
    t_plain_stage *p_root = nullptr;

    uint32_t length = 0;
    uint32_t table_dir_len = 0;
    uint32_t num_instructions = 0;
    std::vector<std::byte> program;
    size_t dir_offset = 0;  // writing cursors, bytes
    size_t ins_offset = 0;
    size_t table_offset = 0;
    uint32_t action_table_offset = 0;  // words
    uint32_t ecid_table_map[TARN_MAX_ECS] = {};
};

static t_plain_stage *stage_create(t_plain *p_plain)
{
    uint32_t id = ++p_plain->latest_ec_id;
    uint32_t reg = ++p_plain->reg_allocated;
    if (reg >= TARN_MAX_REGISTERS)
        return nullptr;
    t_plain_stage &stage = p_plain->stages.emplace_back();
    stage.ec_id = id;
    stage.register_index = reg;
    p_plain->ecs[id] = &stage;
    return &stage;
}

static void endpoint_add(t_plain_stage *p_stage, uint32_t value)
{
    rbst_add(&p_stage->endpoints, &p_stage->numbers.emplace_back(value), nullptr);
}

// One leaf for each field type that the context knows, with the end points of all rules.
static void leaves_create(t_plain *p_plain)
{
    uint32_t count = 0;
    for (const t_field_info_item &item : p_plain->p_context->c_field_ec_mapping)
        count += item.f_id != 0 ? 1 : 0;
    for (uint32_t i = 0; i < count; i++) {
        t_plain_stage *p_leaf = stage_create(p_plain);
        endpoint_add(p_leaf, 0);
        endpoint_add(p_leaf, 0xffffffff);
    }
    for (const t_tarn_rule *p_rule = p_plain->p_table->rules; p_rule != nullptr; p_rule = p_rule->r_next)
        for (const t_tarn_field *p_field = p_rule->r_fields; p_field != nullptr; p_field = p_field->f_next)
            for (const t_interval *p_ival = p_field->f_intervals; p_ival != nullptr;
                 p_ival = p_ival->i_next) {
                endpoint_add(p_plain->ecs[p_field->f_id], p_ival->i_min);
                endpoint_add(p_plain->ecs[p_field->f_id], p_ival->i_max + 1);
            }
}

static bool rule_matches(const t_tarn_rule *p_rule, uint32_t ec_id, uint32_t value)
{
    for (const t_tarn_field *p_field = p_rule->r_fields; p_field != nullptr; p_field = p_field->f_next) {
        if (p_field->f_id != ec_id)
            continue;
        for (const t_interval *p_ival = p_field->f_intervals; p_ival != nullptr; p_ival = p_ival->i_next)
            if (p_ival->i_min <= value && value <= p_ival->i_max)
                return true;
        return false;
    }
    return true;
}

static void evaluate(const t_plain *p_plain, uint32_t ec_id, t_epi *p_bitvec, uint32_t value)
{
    int bit = 0;
    for (const t_tarn_rule *p_rule = p_plain->p_table->rules; p_rule != nullptr; p_rule = p_rule->r_next)
        epi_set_bit(p_bitvec, bit++, rule_matches(p_rule, ec_id, value) ? 1 : 0);
}

static uint32_t class_search(const t_plain_stage *p_stage, t_epi *p_bitvec)
{
    t_rbst_node *p_node = rbst_search(&p_stage->bitvec, p_bitvec);
    return p_node != nullptr ? *static_cast<uint32_t *>(p_node->data) : no_class;
}

static uint32_t class_add(t_plain_stage *p_stage, const t_epi *p_bitvec)
{
    uint32_t number = p_stage->values++;
    rbst_add(&p_stage->bitvec, epi_create_copy(p_bitvec), &p_stage->numbers.emplace_back(number));
    return number;
}

static uint32_t class_search_or_add(t_plain_stage *p_stage, t_epi *p_bitvec)
{
    uint32_t number = class_search(p_stage, p_bitvec);
    return number != no_class ? number : class_add(p_stage, p_bitvec);
}

static void compile_field(t_plain *p_plain, t_plain_stage *p_leaf)
{
    t_rbst_node *p_low = rbst_first(&p_leaf->endpoints);
    for (t_rbst_node *p_high; (p_high = rbst_getnext(&p_leaf->endpoints, p_low)) != nullptr; p_low = p_high) {
        t_interval interval = {*static_cast<uint32_t *>(p_low->key), *static_cast<uint32_t *>(p_high->key),
                               nullptr};
        rbst_add(&p_leaf->ival_ec, &p_leaf->entries.emplace_back(t_ival_ec_entry{interval, 0}), nullptr);
    }
    t_epi *p_bitvec = epi_create(static_cast<int>(p_plain->p_table->num_rules));
    for (t_rbst_node *p_node = rbst_first(&p_leaf->ival_ec); p_node != nullptr;
         p_node = rbst_getnext(&p_leaf->ival_ec, p_node)) {
        t_ival_ec_entry *p_entry = static_cast<t_ival_ec_entry *>(p_node->key);
        evaluate(p_plain, p_leaf->ec_id, p_bitvec, p_entry->e_interval.i_min);
        p_entry->e_ec = class_search_or_add(p_leaf, p_bitvec);
    }
    epi_free(p_bitvec);
}

static void combine_pair(t_plain_stage *p_stage, const t_rbst_node *p_node1, const t_rbst_node *p_node2,
                         uint32_t values2, t_epi *p_scratch)
{
    uint32_t index =
        *static_cast<uint32_t *>(p_node1->data) * values2 + *static_cast<uint32_t *>(p_node2->data);
    t_ival_ec_entry &entry = p_stage->entries.emplace_back(t_ival_ec_entry{{index, index + 1, nullptr}, 0});
    rbst_add(&p_stage->ival_ec, &entry, nullptr);
    epi_and(p_scratch, static_cast<t_epi *>(p_node1->key), static_cast<t_epi *>(p_node2->key));
    entry.e_ec = class_search_or_add(p_stage, p_scratch);
}

static t_plain_stage *combine(t_plain *p_plain, t_plain_stage *p_left, t_plain_stage *p_right)
{
    t_plain_stage *p_stage = stage_create(p_plain);
    if (p_stage == nullptr)
        return nullptr;
    p_stage->is_intermediate = true;
    t_epi *p_scratch = epi_create(epi_size(static_cast<t_epi *>(rbst_first(&p_left->bitvec)->key)));
    for (t_rbst_node *p_node1 = nullptr; (p_node1 = rbst_getnext(&p_left->bitvec, p_node1)) != nullptr;)
        for (t_rbst_node *p_node2 = nullptr; (p_node2 = rbst_getnext(&p_right->bitvec, p_node2)) != nullptr;)
            combine_pair(p_stage, p_node1, p_node2, p_right->values, p_scratch);
    epi_free(p_scratch);
    return p_stage;
}

// Pairs the stages by number until one is left.
static bool compile_combined(t_plain *p_plain)
{
    t_work current = p_plain->ecs;
    while (current.size() >= 2) {
        t_work next;
        auto place = current.begin();
        for (size_t pair = 0; pair < current.size() / 2; pair++) {
            t_plain_stage *p_first = (place++)->second;
            t_plain_stage *p_second = (place++)->second;
            t_plain_stage *p_stage = combine(p_plain, p_first, p_second);
            if (p_stage == nullptr)
                return false;
            p_stage->p_left = p_first;
            p_stage->p_right = p_second;
            p_first->p_root = p_stage;
            p_second->p_root = p_stage;
            next[p_stage->ec_id] = p_stage;
        }
        if (place != current.end())
            next[place->first] = place->second;
        current = next;
    }
    p_plain->p_root = current.begin()->second;
    return true;
}

static void program_size(t_plain *p_plain, t_plain_stage *p_stage)
{
    if (p_stage == nullptr)
        return;
    program_size(p_plain, p_stage->p_left);
    program_size(p_plain, p_stage->p_right);
    p_plain->table_dir_len++;
    p_plain->length += 4 + 20 * rbst_elements(&p_stage->ival_ec);
    p_plain->num_instructions += p_stage->is_intermediate ? 3 : 1;
}

template <typename T>
static T *program_at(t_plain *p_plain, size_t offset)
{
    return static_cast<T *>(static_cast<void *>(p_plain->program.data() + offset));
}

static t_table_dir_entry *directory_next(t_plain *p_plain)
{
    t_table_dir_entry *p_dir = program_at<t_table_dir_entry>(p_plain, p_plain->dir_offset);
    p_plain->dir_offset += sizeof(t_table_dir_entry);
    return p_dir;
}

static void write_entry(t_rbst *p_tree, t_rbst_node *p_node)
{
    const t_ival_ec_entry *p_entry = static_cast<const t_ival_ec_entry *>(p_node->key);
    p_node->mem_ptr = p_tree->mem_ptr;
    *p_tree->mem_ptr++ = p_entry->e_interval.i_min;
    *p_tree->mem_ptr++ = p_entry->e_interval.i_max;
    *p_tree->mem_ptr++ = p_entry->e_ec;
    *p_tree->mem_ptr++ = 0;
    *p_tree->mem_ptr++ = 0;
    if (p_node->parent == nullptr)
        return;
    int link = p_node->parent->left == p_node ? 3 : 4;
    p_node->parent->mem_ptr[link] = static_cast<uint32_t>(p_node->mem_ptr - p_tree->base_mem_ptr);
}

static void write_table(t_plain *p_plain, t_plain_stage *p_stage)
{
    t_table_dir_entry *p_dir = directory_next(p_plain);
    p_dir->t_table_offset = static_cast<uint32_t>(p_plain->table_offset);
    p_dir->t_num_table_entries = rbst_elements(&p_stage->ival_ec);
    p_dir->t_table_entry_size = 20;
    *program_at<uint32_t>(p_plain, p_plain->table_offset) = 1 | p_stage->ec_id << 8;
    p_plain->table_offset += 4;
    p_plain->ecid_table_map[p_stage->ec_id] = static_cast<uint32_t>(p_plain->table_offset / 4);
    p_stage->ival_ec.base_mem_ptr = program_at<uint32_t>(p_plain, p_plain->table_offset);
    p_stage->ival_ec.mem_ptr = p_stage->ival_ec.base_mem_ptr;
    rbst_traverse(&p_stage->ival_ec, write_entry);
    p_plain->table_offset += 20 * p_dir->t_num_table_entries;
}

// Instruction words by their bits: opcode 31, source type 28, source 26, destination 21 downwards.
static void emit(t_plain *p_plain, uint32_t opcode, uint32_t src_type, uint32_t src, uint32_t dst,
                 uint32_t low_bits)
{
    *program_at<uint32_t>(p_plain, p_plain->ins_offset) =
        opcode << 29 | src_type << 27 | src << 22 | dst << 17 | low_bits;
    p_plain->ins_offset += 4;
}

static void gen_program(t_plain *p_plain, t_plain_stage *p_stage)
{
    if (p_stage == nullptr)
        return;
    gen_program(p_plain, p_stage->p_left);
    gen_program(p_plain, p_stage->p_right);
    write_table(p_plain, p_stage);
    uint32_t table_bits = p_stage->ec_id << 12;
    if (!p_stage->is_intermediate) {
        emit(p_plain, 1, 1, p_stage->ec_id, p_stage->register_index, table_bits);
        return;
    }
    uint32_t a = p_stage->p_left->register_index;
    uint32_t b = p_stage->p_right->register_index;
    emit(p_plain, 3, 2, a, a, (p_stage->p_right->values & 0xffff) << 1);
    emit(p_plain, 2, 2, a, b, 0);
    emit(p_plain, 1, 2, b, p_stage->register_index, table_bits);
}

static void write_action_table(t_plain *p_plain)
{
    const t_tarn_action *p_default = p_plain->p_table->default_action;
    t_table_dir_entry *p_dir = directory_next(p_plain);
    p_dir->t_table_offset = static_cast<uint32_t>(p_plain->table_offset);
    p_dir->t_num_table_entries = p_plain->p_root->values;
    p_dir->t_table_entry_size = p_default->a_len;
    *program_at<uint32_t>(p_plain, p_plain->table_offset) = 2;
    p_plain->table_offset += 4;
    if (p_plain->table_offset % 8 != 0)
        p_plain->table_offset += 4;
    p_plain->action_table_offset = static_cast<uint32_t>(p_plain->table_offset / 4);
    for (t_rbst_node *p_node = nullptr;
         (p_node = rbst_getnext(&p_plain->p_root->bitvec, p_node)) != nullptr;) {
        const t_tarn_action *p_action = p_default;
        int first;
        if (epi_find_first(static_cast<t_epi *>(p_node->key), &first))
            p_action = tarn_get_rule_by_index(p_plain->p_table, static_cast<uint32_t>(first))->r_action;
        size_t place =
            p_plain->table_offset + *static_cast<uint32_t *>(p_node->data) * size_t{p_action->a_len};
        memcpy(program_at<void>(p_plain, place), p_action, p_action->a_len);
    }
}

static void write_header_maps(t_plain *p_plain, t_tarn_program_hdr *p_hdr)
{
    for (uint32_t type = 0; type <= 18; type++) {
        const t_field_info_item &item = p_plain->p_context->c_field_ec_mapping[type];
        if (item.f_id == 0)
            continue;
        prot_ecid_entry entry = {static_cast<uint8_t>(item.f_type), static_cast<uint8_t>(item.f_id)};
        p_hdr->p_prot_ecid_map[p_hdr->p_pe_map_size++] = entry;
        p_hdr->p_id_to_field_type[item.f_id] = item.f_type;
    }
    memcpy(p_hdr->p_ecid_table_map, p_plain->ecid_table_map, sizeof(p_plain->ecid_table_map));
    p_hdr->p_action_table_offset = p_plain->action_table_offset;
}

static void write_program(t_plain *p_plain)
{
    program_size(p_plain, p_plain->p_root);
    p_plain->table_dir_len++;
    p_plain->num_instructions++;
    uint32_t action_size = p_plain->p_root->values * p_plain->p_table->rules->r_action->a_len + 8;
    uint32_t size =
        472 + p_plain->length + 24 * p_plain->table_dir_len + 4 * p_plain->num_instructions + action_size;
    p_plain->program.resize(size);

    t_tarn_program_hdr *p_hdr = program_at<t_tarn_program_hdr>(p_plain, 0);
    p_hdr->p_length = size;
    p_hdr->p_table_dir_len = p_plain->table_dir_len;
    p_hdr->p_num_instructions = p_plain->num_instructions;
    memcpy(p_hdr->p_name, p_plain->p_table->name, strnlen(p_plain->p_table->name, sizeof(p_hdr->p_name)));
    p_plain->dir_offset = 472;
    p_plain->ins_offset = p_plain->dir_offset + 24 * p_plain->table_dir_len;
    p_plain->table_offset = p_plain->ins_offset + 4 * p_plain->num_instructions;
    gen_program(p_plain, p_plain->p_root);
    emit(p_plain, 4, 2, p_plain->reg_allocated, 31, 0);
    write_action_table(p_plain);
    write_header_maps(p_plain, p_hdr);
}

static t_plain_stage_summary stage_summary(const t_plain_stage &stage)
{
    t_plain_stage_summary summary = {.ec_id = stage.ec_id,
                                     .register_index = stage.register_index,
                                     .left = stage.p_left != nullptr ? stage.p_left->ec_id : 0,
                                     .right = stage.p_right != nullptr ? stage.p_right->ec_id : 0,
                                     .classes = {}};
    summary.classes.resize(stage.values);
    for (t_rbst_node *p_node = nullptr; (p_node = rbst_getnext(&stage.bitvec, p_node)) != nullptr;) {
        const t_epi *p_bitvec = static_cast<const t_epi *>(p_node->key);
        std::vector<bool> &rules = summary.classes[*static_cast<uint32_t *>(p_node->data)];
        for (int i = 0; i < epi_size(p_bitvec); i++)
            rules.push_back(epi_get_bit(p_bitvec, i) != 0);
    }
    return summary;
}

t_plain_result plain_compile(const t_tarn_context *p_context, const t_tarn_ruletable *p_table)
{
    t_plain plain;
    plain.p_context = p_context;
    plain.p_table = p_table;
    memcpy(plain.ecid_table_map, p_context->c_ecid_table_map, sizeof(plain.ecid_table_map));
    leaves_create(&plain);
    if (plain.ecs.empty())
        return {};
    for (auto &[id, p_leaf] : plain.ecs)
        compile_field(&plain, p_leaf);
    if (!compile_combined(&plain))
        return {.too_many_stages = true, .program = {}, .stages = {}};
    write_program(&plain);
    t_plain_result result = {.too_many_stages = false, .program = std::move(plain.program), .stages = {}};
    for (const t_plain_stage &stage : plain.stages)
        result.stages.push_back(stage_summary(stage));
    return result;
}
