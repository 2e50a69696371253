#include "common/lum_log.h"
#include "common/strlcpy.h"
#include "tarnd/config/tarn_bit_string.h"
#include "tarnd/config/tarn_class.h"
#include "tarnd/config/tarn_process.h"
#include "tarnd/core/tarn.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

int tarn_sla_class_key_cmp(const void *p_key, const void *p_object)
{
    return strncmp(static_cast<const t_tarn_sla_class *>(p_key)->key.name,
                   static_cast<const t_tarn_sla_class *>(p_object)->key.name, TARN_CLASS_NAME_SIZE);
}

int tarn_sla_class_init(t_tarn *p_tarn)
{
    if (p_tarn == nullptr)
        return EBADMSG;
    avl_create(&p_tarn->sla_class_db, tarn_sla_class_key_cmp, sizeof(t_tarn_sla_class),
               offsetof(t_tarn_sla_class, avl_node));
    p_tarn->sla_class_index = static_cast<bitstr_t *>(calloc(TARN_NUM_SLA_CLASSES / 8, 1));
    if (p_tarn->sla_class_index == nullptr)
        return ENOMEM;
    int status = tarn_sla_class_add(p_tarn, TARN_ALL_TUNNELS);
    if (status != 0) {
        TARN_LOG("Failed to add 'all tunnels' sla class, err(%d)\n", status);
        return -1;
    }
    return 0;
}

void tarn_sla_class_destroy(t_tarn *p_tarn)
{
    avl_destroy_nodes(&p_tarn->sla_class_db, free);
    avl_destroy(&p_tarn->sla_class_db);
}

int tarn_sla_class_lookup(t_tarn *p_tarn, const char *sla_class_name, t_tarn_sla_class **pp_sla_class)
{
    if (p_tarn == nullptr || sla_class_name == nullptr || pp_sla_class == nullptr)
        return EBADMSG;
    t_tarn_sla_class wanted = {};
    lum_strlcpy(wanted.key.name, sla_class_name, sizeof(wanted.key.name));
    void *p_found = avl_find(&p_tarn->sla_class_db, &wanted);
    if (p_found == nullptr)
        return ENOENT;
    *pp_sla_class = static_cast<t_tarn_sla_class *>(p_found);
    return 0;
}

int tarn_sla_class_add(t_tarn *p_tarn, const char *sla_class_name)
{
    t_tarn_sla_class *p_known = nullptr;
    int status = tarn_sla_class_lookup(p_tarn, sla_class_name, &p_known);
    if (status != ENOENT)
        return status == 0 ? EEXIST : status;
    int id = bit_check(p_tarn->sla_class_index, TARN_NUM_SLA_CLASSES, 0);
    if (id < 0)
        return ENOMEM;
    auto *p_sla_class = static_cast<t_tarn_sla_class *>(calloc(1, sizeof(t_tarn_sla_class)));
    if (p_sla_class == nullptr)
        return ENOMEM;
    lum_strlcpy(p_sla_class->key.name, sla_class_name, sizeof(p_sla_class->key.name));
    p_sla_class->id = static_cast<uint8_t>(id);
    bit_set(p_tarn->sla_class_index, id);
    (void)avl_insert(&p_tarn->sla_class_db, p_sla_class);  // not there, as looked up
    tarn_process_sla_class_change(p_tarn, p_sla_class, p_sla_class->id);
    return 0;
}

// The rules keep the old id until they are rebuilt and find the name gone.
int tarn_sla_class_delete(t_tarn *p_tarn, const char *sla_class_name)
{
    t_tarn_sla_class *p_sla_class = nullptr;
    int status = tarn_sla_class_lookup(p_tarn, sla_class_name, &p_sla_class);
    if (status != 0)
        return status;
    avl_remove(&p_tarn->sla_class_db, p_sla_class);
    bit_clear(p_tarn->sla_class_index, p_sla_class->id);
    tarn_process_sla_class_change(p_tarn, p_sla_class, p_sla_class->id);
    free(p_sla_class);
    return 0;
}
