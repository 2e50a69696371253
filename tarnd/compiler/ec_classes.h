// The classes of one stage: which rules match in each.
//
// A class is a set of rules, kept as a list of rule indices. Most rules of a real table leave most fields
// open and so belong to nearly every class of a stage; those that belong to every class but the empty one are
// kept once, in `common`, and stand in no list. Lists are descending, so that comparing two of them word by
// word is comparing the bit vectors as numbers.
//
// While a stage fills, an index finds the class of a set by its fingerprint (rule_keys.h).
#pragma once

#include "tarnd/compiler/rule_keys.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

struct t_tarn_context;

inline constexpr uint32_t EC_NO_CLASS = 0xffffffff;
inline constexpr uint32_t EC_NO_RULE = 0xffffffff;

// A set of rules as a bitmap.
struct t_rule_bits {
    std::vector<uint64_t> words;

    bool has(uint32_t rule) const
    {
        return words[rule / 64] >> (rule % 64) & 1;
    }
    void flip(uint32_t rule)
    {
        words[rule / 64] ^= uint64_t{1} << (rule % 64);
    }
};

// An empty bitmap for rules 0 to num_rules - 1. Throws std::bad_alloc.
t_rule_bits rule_bits_create(uint32_t num_rules);

// The lowest rule of a bitmap, or EC_NO_RULE.
uint32_t rule_bits_lowest(const t_rule_bits &bits);

// Finds the class of a fingerprint, for the one stage that is being filled: open addressing with linear
// probing, the fingerprint itself being the hash. It belongs to the context and passes from stage to stage,
// so that its memory is had only once.
struct t_class_index {
    struct t_slot {
        t_fingerprint fingerprint;
        uint32_t class_id;  // EC_NO_CLASS in a free slot
    };
    std::vector<t_slot> slots;  // a power of two
    size_t used;

    // The slot that holds the fingerprint, or the free one where it belongs.
    t_slot *find(const t_fingerprint &fingerprint)
    {
        size_t mask = slots.size() - 1;
        t_slot *p_slots = slots.data();
        for (size_t i = fingerprint.lo & mask;; i = (i + 1) & mask)
            if (p_slots[i].fingerprint == fingerprint || p_slots[i].class_id == EC_NO_CLASS)
                return &p_slots[i];
    }

    // Starts the look-up of a fingerprint that will be wanted soon.
    void prefetch(const t_fingerprint &fingerprint) const
    {
        __builtin_prefetch(&slots[fingerprint.lo & (slots.size() - 1)]);
    }
};

struct t_ec_classes {
    t_rule_bits common;              // rules of every class that is not empty
    std::vector<size_t> list_start;  // class c has lists[list_start[c]] up to lists[list_start[c + 1]]
    std::vector<uint32_t> lists;     // the other rules of each class, descending
    uint32_t empty_class;            // the class that no rule matches, or EC_NO_CLASS
    t_class_index *p_index;          // the context's, while the stage fills; else null
};

// Makes an empty set of classes over the context's rules, with the context's index cleared for it.
void ec_classes_init(t_tarn_context *p_context, t_ec_classes *p_classes);
void ec_classes_release(t_ec_classes *p_classes);
uint32_t ec_classes_count(const t_ec_classes *p_classes);

// The class with this fingerprint, or EC_NO_CLASS.
uint32_t ec_classes_find(const t_ec_classes *p_classes, const t_fingerprint &fingerprint);

// The class with this fingerprint; if there is none, the next class number is entered under it, *p_added
// becomes true, and the caller owes ec_classes_close_list after appending the rules to `lists`.
uint32_t ec_classes_find_or_add(t_ec_classes *p_classes, const t_fingerprint &fingerprint, bool *p_added);
void ec_classes_close_list(t_ec_classes *p_classes, const t_fingerprint &fingerprint);

// Moves the rules that stand in every list of a class that is not empty to `common`. The stage is full.
void ec_classes_factor_common(t_tarn_context *p_context, t_ec_classes *p_classes);

// The rules of a class beside the common ones, descending.
std::span<const uint32_t> ec_classes_list(const t_ec_classes *p_classes, uint32_t class_id);

// The lowest rule of a class, or EC_NO_RULE: the rule that wins there.
uint32_t ec_classes_lowest(const t_ec_classes *p_classes, uint32_t class_id);

// All class numbers in the numeric order of their vectors.
std::vector<uint32_t> ec_classes_order(t_tarn_context *p_context, const t_ec_classes *p_classes);
