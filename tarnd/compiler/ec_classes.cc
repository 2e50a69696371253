#include "tarnd/compiler/ec_classes.h"

#include "common/priority_timers.h"
#include "tarnd/compiler/tarn_context.h"

#include <algorithm>
#include <bit>

t_rule_bits rule_bits_create(uint32_t num_rules)
{
    return {std::vector<uint64_t>((size_t{num_rules} + 63) / 64)};
}

uint32_t rule_bits_lowest(const t_rule_bits &bits)
{
    for (size_t i = 0; i < bits.words.size(); i++)
        if (bits.words[i] != 0)
            return static_cast<uint32_t>(i * 64) + static_cast<uint32_t>(std::countr_zero(bits.words[i]));
    return EC_NO_RULE;
}

static constexpr size_t smallest_index = 64;

// An index of half a million classes takes long enough to make and to move for the timers to need a turn.
static constexpr size_t slots_between_looks = 8192;

static void index_init(t_class_index *p_index, size_t size)
{
    p_index->slots.clear();
    p_index->slots.reserve(size);
    for (size_t made = 0; made < size;) {
        made = std::min(made + slots_between_looks, size);
        p_index->slots.resize(made, {EMPTY_FINGERPRINT, EC_NO_CLASS});
        tarn_exec_priority_timers();
    }
    p_index->used = 0;
}

static void index_grow(t_class_index *p_index)
{
    t_class_index bigger;
    index_init(&bigger, p_index->slots.size() * 2);
    for (size_t i = 0; i < p_index->slots.size(); i++) {
        const t_class_index::t_slot &slot = p_index->slots[i];
        if (slot.class_id != EC_NO_CLASS)
            *bigger.find(slot.fingerprint) = slot;
        if (i % slots_between_looks == slots_between_looks - 1)
            tarn_exec_priority_timers();
    }
    bigger.used = p_index->used;
    *p_index = std::move(bigger);
}

void ec_classes_init(t_tarn_context *p_context, t_ec_classes *p_classes)
{
    *p_classes = {};
    p_classes->common = rule_bits_create(p_context->c_num_rules);
    p_classes->list_start.assign(1, 0);
    p_classes->empty_class = EC_NO_CLASS;
    p_classes->p_index = &p_context->c_class_index;
    index_init(p_classes->p_index, smallest_index);
}

void ec_classes_release(t_ec_classes *p_classes)
{
    *p_classes = {};
}

uint32_t ec_classes_count(const t_ec_classes *p_classes)
{
    return p_classes->list_start.empty() ? 0 : static_cast<uint32_t>(p_classes->list_start.size() - 1);
}

uint32_t ec_classes_find(const t_ec_classes *p_classes, const t_fingerprint &fingerprint)
{
    return p_classes->p_index == nullptr ? EC_NO_CLASS : p_classes->p_index->find(fingerprint)->class_id;
}

uint32_t ec_classes_find_or_add(t_ec_classes *p_classes, const t_fingerprint &fingerprint, bool *p_added)
{
    t_class_index *p_index = p_classes->p_index;
    t_class_index::t_slot *p_slot = p_index->find(fingerprint);
    *p_added = p_slot->class_id == EC_NO_CLASS;
    if (!*p_added)
        return p_slot->class_id;
    uint32_t class_id = ec_classes_count(p_classes);
    *p_slot = {fingerprint, class_id};
    if (++p_index->used * 2 > p_index->slots.size())
        index_grow(p_index);
    return class_id;
}

void ec_classes_close_list(t_ec_classes *p_classes, const t_fingerprint &fingerprint)
{
    if (fingerprint == EMPTY_FINGERPRINT)
        p_classes->empty_class = ec_classes_count(p_classes);
    p_classes->list_start.push_back(p_classes->lists.size());
}

// Takes the rules of `common` out of all lists, in place.
static void strip_common(t_tarn_context *p_context, t_ec_classes *p_classes)
{
    size_t to = 0;
    size_t from = 0;
    for (uint32_t c = 0; c < ec_classes_count(p_classes); c++) {
        tarn_context_work(p_context, (p_classes->list_start[c + 1] - from) / 8 + 1);
        for (; from < p_classes->list_start[c + 1]; from++) {
            uint32_t rule = p_classes->lists[from];
            if (!p_classes->common.has(rule))
                p_classes->lists[to++] = rule;
        }
        p_classes->list_start[c + 1] = to;
    }
    p_classes->lists.resize(to);
    p_classes->lists.shrink_to_fit();
}

void ec_classes_factor_common(t_tarn_context *p_context, t_ec_classes *p_classes)
{
    static constexpr size_t rules_between_looks = 65536;
    std::vector<uint32_t> uses(p_context->c_num_rules);
    for (size_t i = 0; i < p_classes->lists.size(); i++) {
        uses[p_classes->lists[i]]++;
        if (i % rules_between_looks == rules_between_looks - 1)
            tarn_context_work(p_context, rules_between_looks / 8);
    }
    uint32_t filled = ec_classes_count(p_classes) - (p_classes->empty_class != EC_NO_CLASS ? 1 : 0);
    bool found = false;
    for (uint32_t rule = 0; rule < p_context->c_num_rules && filled > 0; rule++) {
        if (uses[rule] == filled) {
            p_classes->common.flip(rule);
            found = true;
        }
    }
    if (found)
        strip_common(p_context, p_classes);
    tarn_context_work(p_context, p_context->c_num_rules / 8);
    p_classes->p_index = nullptr;
}

std::span<const uint32_t> ec_classes_list(const t_ec_classes *p_classes, uint32_t class_id)
{
    size_t begin = p_classes->list_start[class_id];
    return {p_classes->lists.data() + begin, p_classes->list_start[class_id + 1] - begin};
}

uint32_t ec_classes_lowest(const t_ec_classes *p_classes, uint32_t class_id)
{
    if (class_id == p_classes->empty_class)
        return EC_NO_RULE;
    uint32_t common = rule_bits_lowest(p_classes->common);
    std::span<const uint32_t> list = ec_classes_list(p_classes, class_id);
    return list.empty() || common < list.back() ? common : list.back();
}
