#include "tarnd/config/tarn_class.h"

#include "common/strlcpy.h"
#include "tarnd/config/tarn_bit_string.h"
#include "tarnd/config/tarn_process.h"
#include "tarnd/core/tarn.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

int tarn_class_cmp(const void *p_key, const void *p_object)
{
    return strncmp(static_cast<const t_tarn_class *>(p_key)->name,
                   static_cast<const t_tarn_class *>(p_object)->name, TARN_CLASS_NAME_SIZE);
}

int tarn_class_init(t_tarn *p_tarn)
{
    if (p_tarn == nullptr)
        return EBADMSG;
    avl_create(&p_tarn->class_db, tarn_class_cmp, sizeof(t_tarn_class), offsetof(t_tarn_class, avl_node));
    p_tarn->class_index = static_cast<bitstr_t *>(calloc(TARN_NUM_CLASSES / 8, 1));
    if (p_tarn->class_index == nullptr)
        return ENOMEM;
    t_tarn_class_params control = {TARN_CONTROL_CLASS, 0};
    tarn_class_add(p_tarn, &control);
    return 0;
}

void tarn_class_destroy(t_tarn *p_tarn)
{
    avl_destroy_nodes(&p_tarn->class_db, free);
    avl_destroy(&p_tarn->class_db);
}

t_tarn_class *tarn_class_lookup(t_tarn *p_tarn, const char *class_name)
{
    if (p_tarn == nullptr || class_name == nullptr)
        return nullptr;
    t_tarn_class wanted = {};
    lum_strlcpy(wanted.name, class_name, sizeof(wanted.name));
    return static_cast<t_tarn_class *>(avl_find(&p_tarn->class_db, &wanted));
}

int tarn_class_add(t_tarn *p_tarn, const t_tarn_class_params *p_params)
{
    if (p_tarn == nullptr || p_params == nullptr || p_params->class_name == nullptr)
        return EBADMSG;
    if (tarn_class_lookup(p_tarn, p_params->class_name) != nullptr)
        return EEXIST;
    t_tarn_class *p_class = static_cast<t_tarn_class *>(calloc(1, sizeof(t_tarn_class)));
    if (p_class == nullptr)
        return ENOENT;  // what callers know this failure by
    lum_strlcpy(p_class->name, p_params->class_name, sizeof(p_class->name));
    p_class->_class = bit_check(p_tarn->class_index, TARN_NUM_CLASSES, 0);
    if (p_class->_class < 0) {
        free(p_class);
        return ENOMEM;
    }
    bit_set(p_tarn->class_index, p_class->_class);
    p_class->queue = p_params->queue;
    (void)avl_insert(&p_tarn->class_db, p_class);  // not there, as looked up
    tarn_process_class_change(p_tarn, p_class);
    return 0;
}

int tarn_class_modify(t_tarn *p_tarn, const t_tarn_class_params *p_params)
{
    if (p_tarn == nullptr || p_params == nullptr || p_params->class_name == nullptr)
        return EBADMSG;
    t_tarn_class *p_class = tarn_class_lookup(p_tarn, p_params->class_name);
    if (p_class == nullptr)
        return ENOENT;
    p_class->queue = p_params->queue;
    tarn_process_class_change(p_tarn, p_class);
    return 0;
}

int tarn_class_delete(t_tarn *p_tarn, const t_tarn_class_params *p_params)
{
    if (p_tarn == nullptr || p_params == nullptr || p_params->class_name == nullptr)
        return EBADMSG;
    t_tarn_class *p_class = tarn_class_lookup(p_tarn, p_params->class_name);
    if (p_class == nullptr)
        return ENOENT;
    avl_remove(&p_tarn->class_db, p_class);
    tarn_process_class_change(p_tarn, p_class);
    bit_clear(p_tarn->class_index, p_class->_class);
    free(p_class);
    return 0;
}

// Queues by class number. A number beyond the table is left out.
static uint8_t class_queues[65];

void tarn_class_config(t_tarn *p_tarn)
{
    for (void *p = avl_first(&p_tarn->class_db); p != nullptr; p = avl_walk(&p_tarn->class_db, p)) {
        const t_tarn_class *p_class = static_cast<const t_tarn_class *>(p);
        size_t number = static_cast<size_t>(p_class->_class);
        if (number < sizeof(class_queues))
            class_queues[number] = static_cast<uint8_t>(p_class->queue);
    }
}
