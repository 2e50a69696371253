// The callbacks of all lists: find the objects around, find the row, send its leaves.
#include "common/lum_log.h"
#include "lconfd/lconfd_api.h"
#include "tarnd/oper/tarn_show_private.h"

void tarn_show_check_reply(int status)
{
    if (status != CONFD_OK)
        TARN_LOG("Failed to send oper data reply - %s (%d) : %s", confd_strerror(confd_errno), confd_errno,
                 confd_lasterr());
}

static t_tarn_show_place place_of(const t_tarn_show_list &list, const confd_trans_ctx *p_tctx,
                                  const confd_hkeypath_t *p_keypath)
{
    const auto *p_ctx = static_cast<const t_lconfd_context *>(p_tctx->dx->d_opaque);
    t_tarn_show_place place = {};
    place.p_tarn = static_cast<t_tarn *>(p_ctx->module_data.opaque_p);
    place.p_list = &list;
    place.p_keypath = p_keypath;
    return place;
}

static bool find_owners(t_tarn_show_place *p_place)
{
    const t_tarn_show_family &family = *p_place->p_list->p_family;
    return family.owners == nullptr || family.owners(p_place) == 0;
}

int tarn_show_get_object(const t_tarn_show_list &list, confd_trans_ctx *p_tctx, confd_hkeypath_t *p_keypath)
{
    t_tarn_show_place place = place_of(list, p_tctx, p_keypath);
    void *p_row;
    if (!find_owners(&place) || list.p_family->exact(place, &p_row) != 0) {
        tarn_show_check_reply(confd_data_reply_not_found(p_tctx));
        return CONFD_OK;
    }
    confd_tag_value_t values[TARN_SHOW_MAX_LEAVES];
    int count = list.p_family->encode(place, p_row, values);
    tarn_show_check_reply(confd_data_reply_tag_value_array(p_tctx, values, count));
    return CONFD_OK;
}

// The framework comes back with this row's key: there is no position to save.
static int reply_row(const t_tarn_show_place &place, confd_trans_ctx *p_tctx, const void *p_row)
{
    confd_tag_value_t values[TARN_SHOW_MAX_LEAVES];
    int count = place.p_list->p_family->encode(place, p_row, values);
    return confd_data_reply_next_object_tag_value_array(p_tctx, values, count, -1);
}

int tarn_show_get_next_object(const t_tarn_show_list &list, confd_trans_ctx *p_tctx,
                              confd_hkeypath_t *p_keypath, long next)
{
    t_tarn_show_place place = place_of(list, p_tctx, p_keypath);
    void *p_row;
    bool has_owners = find_owners(&place);
    if (!has_owners && !list.p_family->ends_without_owners)
        tarn_show_check_reply(confd_data_reply_not_found(p_tctx));
    else if (has_owners && list.p_family->first(place, next, &p_row) == 0)
        tarn_show_check_reply(reply_row(place, p_tctx, p_row));
    else
        tarn_show_check_reply(confd_data_reply_next_object_tag_value_array(p_tctx, nullptr, -1, -1));
    return CONFD_OK;
}

int tarn_show_find_next_object(const t_tarn_show_list &list, confd_trans_ctx *p_tctx,
                               confd_hkeypath_t *p_keypath, confd_find_next_type type, confd_value_t *keys,
                               int n)
{
    t_tarn_show_place place = place_of(list, p_tctx, p_keypath);
    void *p_row;
    bool has_owners = find_owners(&place);
    if (!has_owners && !list.p_family->ends_without_owners)
        tarn_show_check_reply(confd_data_reply_not_found(p_tctx));
    else if (has_owners && list.p_family->next(place, type, keys, n, &p_row) == 0)
        tarn_show_check_reply(reply_row(place, p_tctx, p_row));
    else
        tarn_show_check_reply(confd_data_reply_next_key(p_tctx, nullptr, -1, -1));
    return CONFD_OK;
}
