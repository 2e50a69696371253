// The sequence parser's parts: matches, actions of one leaf, and actions that several leaves make together.
//
// A walk hands each value to the three in turn. Matches and single actions are written as they come: in a
// change the old one is undone first. Leaves that make an action together are gathered, and the action is
// written after the walk, in an order that the compiled slots follow.
#pragma once

#include "tarnd/config/tarn_confd_private.h"
#include "tarnd/config/tarn_rule.h"

#include <cstdint>

// What a change says of a leaf that is gathered.
enum e_tarn_seq_leaf : uint8_t {
    TARN_SEQ_LEAF_UNTOUCHED,
    TARN_SEQ_LEAF_SET,
    TARN_SEQ_LEAF_DELETED,
};

struct t_tarn_seq_leaf {
    e_tarn_seq_leaf state;
    uint32_t value;  // a number, an address in network order, or a mask; 0 unless set

    bool touched() const
    {
        return state != TARN_SEQ_LEAF_UNTOUCHED;
    }
    bool set() const
    {
        return state == TARN_SEQ_LEAF_SET;
    }
    bool deleted() const
    {
        return state == TARN_SEQ_LEAF_DELETED;
    }
};

struct t_tarn_seq_gathered {
    t_tarn_seq_leaf sla_name;
    t_tarn_seq_leaf sla_strict;
    t_tarn_seq_leaf sla_colors;
    t_tarn_seq_leaf tloc_ip;
    t_tarn_seq_leaf tloc_color;
    t_tarn_seq_leaf tloc_encap;
    t_tarn_seq_leaf tloc_label;
    t_tarn_seq_leaf tloc_list;
    t_tarn_seq_leaf local;
    t_tarn_seq_leaf service_type;
    t_tarn_seq_leaf pair_color;  // of color-encap
    t_tarn_seq_leaf pair_encap;
    t_tarn_seq_leaf local_colors;  // of local-tloc-list
    t_tarn_seq_leaf local_encaps;
    t_tarn_seq_leaf local_restrict;
    char sla_class[TARN_NAME_SIZE];
};

// A change of one sequence.
struct t_tarn_seq {
    t_tarn *p_tarn;
    e_tarn_policy_type type;
    char policy[TARN_NAME_SIZE];
    char vpn_list[TARN_NAME_SIZE];
    uint16_t id;
    bool created;
    t_tarn_config_rule *p_rule;
    tarn_confd_scope scope;
    t_tarn_seq_gathered gathered;
};

// Each takes a value; false if its leaf belongs to another part.
bool tarn_seq_match(t_tarn_seq *p_seq, const confd_tag_value_t &value);
bool tarn_seq_action(t_tarn_seq *p_seq, const confd_tag_value_t &value);
bool tarn_seq_gather(t_tarn_seq *p_seq, const confd_tag_value_t &value);

// After the walk.
void tarn_seq_write_gathered(t_tarn_seq *p_seq);

// The rule's action of a tag. find gives null if there is none; failures are assertions.
void tarn_seq_action_add(t_tarn_seq *p_seq, uint32_t tag, const void *value);
void tarn_seq_action_delete(t_tarn_seq *p_seq, uint32_t tag);
t_tarn_config_action *tarn_seq_action_find(const t_tarn_seq *p_seq, uint32_t tag);

// The masks of a leaf-list of colors, OR-ed.
uint32_t tarn_seq_color_mask(const confd_value_t *p_value);
