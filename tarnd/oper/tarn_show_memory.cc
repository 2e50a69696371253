// Use of filter memory: a list of one row that has no key.
#include "tarnd/oper/tarn_show_private.h"

int tarn_filter_memory_usage_get_object(confd_trans_ctx *p_tctx, confd_hkeypath_t *)
{
    tarn_show_check_reply(confd_data_reply_not_found(p_tctx));
    return CONFD_OK;
}

// Sends the end of the list with the row, since there is no key to come back with. The framework takes the
// first answer.
int tarn_filter_memory_usage_get_next_object(confd_trans_ctx *p_tctx, confd_hkeypath_t *, long)
{
    confd_tag_value_t values[TARN_SHOW_MAX_LEAVES];
    int count = tarn_filter_memory_usage_encode(values);
    tarn_show_check_reply(confd_data_reply_next_object_tag_value_array(p_tctx, values, count, -1));
    tarn_show_check_reply(confd_data_reply_next_object_tag_value_array(p_tctx, nullptr, -1, -1));
    return CONFD_OK;
}

int tarn_filter_memory_usage_find_next_object(confd_trans_ctx *p_tctx, confd_hkeypath_t *,
                                              confd_find_next_type, confd_value_t *, int)
{
    tarn_show_check_reply(confd_data_reply_next_key(p_tctx, nullptr, -1, -1));
    return CONFD_OK;
}
