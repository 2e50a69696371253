// Forwarding classes and SLA classes: named, and known to the forwarding plane by small numbers.
//
// The numbers come from a bit string in t_tarn, a set bit for a number in use, lowest clear bit first; a
// number freed is the next one given. Adding, changing or deleting a class marks the rules that name it, and
// the next pass finds it by name again. Number 0 of either kind is built in.
#pragma once

#include "platform/avl/avl.h"
#include "tarnd/config/tarn_policy.h"

#include <cstdint>

struct t_tarn_class {
    avl_node_t avl_node;
    char name[TARN_CLASS_NAME_SIZE];
    int _class;
    int queue;
    int ignore;  // in an action's copy: the class is missing
};

struct t_tarn_class_params {
    const char *class_name;
    uint8_t queue;
};

inline constexpr int TARN_NUM_CLASSES = 72;
inline constexpr int TARN_NUM_SLA_CLASSES = 8;

struct t_tarn_sla_class_key {
    char name[TARN_CLASS_NAME_SIZE];
};

struct t_tarn_sla_class {
    avl_node_t avl_node;
    t_tarn_sla_class_key key;
    uint8_t id;
};

int tarn_class_cmp(const void *p_key, const void *p_object);  // names, no length test
int tarn_sla_class_key_cmp(const void *p_key, const void *p_object);

// ---- Forwarding classes ----

int tarn_class_init(t_tarn *p_tarn);
void tarn_class_destroy(t_tarn *p_tarn);  // leaves the bit string

// 17; 2 when there is no memory, 12 when no number is free; 74.
int tarn_class_add(t_tarn *p_tarn, const t_tarn_class_params *p_params);
int tarn_class_modify(t_tarn *p_tarn, const t_tarn_class_params *p_params);
int tarn_class_delete(t_tarn *p_tarn, const t_tarn_class_params *p_params);
t_tarn_class *tarn_class_lookup(t_tarn *p_tarn, const char *class_name);  // or null
void tarn_class_config(t_tarn *p_tarn);

// ---- SLA classes ----

int tarn_sla_class_init(t_tarn *p_tarn);
void tarn_sla_class_destroy(t_tarn *p_tarn);
int tarn_sla_class_add(t_tarn *p_tarn, const char *sla_class_name);  // 17, 12
int tarn_sla_class_delete(t_tarn *p_tarn, const char *sla_class_name);
int tarn_sla_class_lookup(t_tarn *p_tarn, const char *sla_class_name, t_tarn_sla_class **pp_sla_class);
