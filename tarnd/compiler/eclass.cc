#include "tarnd/compiler/eclass.h"

#include "common/lum_log.h"
#include "tarnd/compiler/epi.h"
#include "tarnd/compiler/tarn_cmp.h"

#include <bit>
#include <memory>

t_ec *eclass_create(t_tarn_context *p_context, int add)
{
    auto p_ec = std::make_unique<t_ec>();
    p_ec->ec_id = ++p_context->c_latest_ec_id;
    p_ec->register_index = ++p_context->c_reg_allocated;
    if (p_ec->register_index >= TARN_MAX_REGISTERS) {
        TARN_LOG("eclass with register index %d creation failed due to exceeded match criteria",
                 static_cast<int>(p_ec->register_index));
        return nullptr;
    }
    rbst_init(&p_ec->endpoints);
    p_ec->endpoints.cmp = uint32s_cmp;
    p_ec->ec_bitvec.empty_class = EC_NO_CLASS;
    if (add && rbst_add(&p_context->c_ecs, p_ec.get(), p_ec.get()) != 1)
        throw std::bad_alloc();
    return p_ec.release();
}

void eclass_delete(t_ec *p_ec)
{
    if (p_ec == nullptr)
        return;
    rbst_delete_all(&p_ec->endpoints, free_atomic_key);
    delete p_ec;
}

static t_fingerprint fingerprint_of(const t_tarn_context *p_context, const t_epi *p_bitvec)
{
    t_fingerprint fingerprint = EMPTY_FINGERPRINT;
    for (int i = 0; i < epi_words(p_bitvec); i++) {
        const t_fingerprint *p_keys = &p_context->p_rule_keys->keys[static_cast<size_t>(i) * 64];
        for (uint64_t word = epi_get_word(p_bitvec, i); word != 0; word &= word - 1)
            fingerprint ^= p_keys[std::countr_zero(word)];
    }
    return fingerprint;
}

uint32_t eclass_search(const t_tarn_context *p_context, const t_ec *p_ec, const t_epi *p_bitvec)
{
    return ec_classes_find(&p_ec->ec_bitvec, fingerprint_of(p_context, p_bitvec));
}

uint32_t eclass_add(t_tarn_context *p_context, t_ec *p_ec, const t_epi *p_bitvec)
{
    if (p_ec->ec_bitvec.p_index == nullptr)
        ec_classes_init(p_context, &p_ec->ec_bitvec);
    t_fingerprint fingerprint = fingerprint_of(p_context, p_bitvec);
    bool added;
    uint32_t class_id = ec_classes_find_or_add(&p_ec->ec_bitvec, fingerprint, &added);
    for (int rule = epi_size(p_bitvec) - 1; rule >= 0; rule--)
        if (epi_get_bit(p_bitvec, rule))
            p_ec->ec_bitvec.lists.push_back(static_cast<uint32_t>(rule));
    ec_classes_close_list(&p_ec->ec_bitvec, fingerprint);
    p_ec->ec_values++;
    return class_id;
}

uint64_t eclass_table_size(const t_ec *p_ec)
{
    return TARN_TABLE_HEADER_SIZE + uint64_t{TARN_ENTRY_SIZE} * p_ec->ival_ec.count;
}

void eclass_program_table(t_tarn_context *p_context, const t_ec *p_ec)
{
    t_table_dir_entry *p_entry = p_context->c_tdir_ptr++;
    p_entry->t_table_offset = static_cast<uint32_t>((p_context->c_table_ptr - p_context->c_base_addr) * 4);
    p_entry->t_num_table_entries = static_cast<uint32_t>(p_ec->ival_ec.count);
    p_entry->t_table_entry_size = TARN_ENTRY_SIZE;

    *p_context->c_table_ptr = 0;
    tarn_set_table_type(tarn_interval_ecid, p_context->c_table_ptr);
    tarn_set_table_ecid(p_ec->ec_id, p_context->c_table_ptr);
    p_context->c_table_ptr++;
    p_context->c_ecid_table_map[p_ec->ec_id] =
        static_cast<uint32_t>(p_context->c_table_ptr - p_context->c_base_addr);

    ec_table_write(p_context, &p_ec->ival_ec, reinterpret_cast<t_tarn_table_entry *>(p_context->c_table_ptr));
    p_context->c_table_ptr += p_ec->ival_ec.count * TARN_ENTRY_WORDS;
}
