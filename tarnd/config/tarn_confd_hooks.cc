// Hooks: what the daemon itself writes into an operator's transaction.
//
// The operator waits in a transaction while a hook runs. The hook attaches to it by the adapter's session
// socket, writes its leaf and lets go of it.
#include "common/lum_assert.h"
#include "common/lum_log.h"
#include "common/strlcpy.h"
#include "lconfd/lconfd_util.h"
#include "platform/confd/confd_cdb.h"
#include "platform/confd/confd_maapi.h"
#include "tarnd/config/tarn_confd_private.h"
#include "tarnd/oper/tarn_show.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

static constexpr int hook_refused = 16;

uint32_t g_zone_pair_id_count = 1;

// ---- Registering ----

static int register_hook(t_lconfd_context *p_ctx, const char *callpoint,
                         int (*create)(confd_trans_ctx *, confd_hkeypath_t *))
{
    confd_data_cbs cbs = {};
    lum_strlcpy(cbs.callpoint, callpoint, sizeof(cbs.callpoint));
    cbs.create = create;
    return confd_register_data_cb(p_ctx->confd_dctx_p, &cbs);
}

int tarn_confd_register_data_cbs(t_lconfd_context *p_ctx)
{
    if (register_hook(p_ctx, "zone-pair-id-cp", tarn_confd_hook_pair_id_create) != CONFD_OK) {
        TARN_LOG("Failed to register hook for zone pair id  cb, %s (%d) : %s", confd_strerror(confd_errno),
                 confd_errno, confd_lasterr());
        return hook_refused;
    }
    if (register_hook(p_ctx, "zone-policy-seq-cp", tarn_confd_hook_zone_policy_seq_create) != CONFD_OK) {
        TARN_LOG("Failed to register hook for zone policy seq cb, %s (%d) : %s", confd_strerror(confd_errno),
                 confd_errno, confd_lasterr());
        return hook_refused;
    }
    return tarn_show_init(p_ctx) != 0;
}

// ---- Numbers of zone pairs ----

// 0 for a pair whose id can't be read.
static uint32_t pair_id_of(int sock, int index)
{
    uint32_t pair_id = 0;
    int status = cdb_cd(sock, "/lumora-policy:policy/zone-pair[%d]", index);
    if (status == CONFD_OK)
        status = cdb_get_u_int32(sock, &pair_id, "pair-id");
    if (status != CONFD_OK)
        TARN_LOG("Failed to get pair-id of zone pair %d, %s (%d) : %s", index, confd_strerror(confd_errno),
                 confd_errno, confd_lasterr());
    return pair_id;
}

int tarn_confd_zone_pair_id_count_init(t_lconfd_context *p_ctx)
{
    int sock = p_ctx->data_socket;
    if (cdb_start_session(sock, CDB_RUNNING) != CONFD_OK) {
        TARN_LOG("Failed to start session for zone pair ids, %s (%d) : %s", confd_strerror(confd_errno),
                 confd_errno, confd_lasterr());
        return LCONFD_STATUS_IN_RETRY;
    }
    int count = cdb_num_instances(sock, "/lumora-policy:policy/zone-pair");
    uint32_t highest = 0;
    for (int index = 0; index < count; index++)
        highest = std::max(highest, pair_id_of(sock, index));
    g_zone_pair_id_count = highest + 1;
    int status = cdb_end_session(sock);
    if (status == CONFD_EOF)
        return LCONFD_STATUS_IN_RETRY;
    return status != CONFD_OK;
}

void tarn_confd_zone_pair_id_seen(uint32_t pair_id)
{
    g_zone_pair_id_count = std::max(g_zone_pair_id_count, pair_id + 1);
}

// ---- In a transaction ----

static int socket_of(const confd_trans_ctx *p_tctx)
{
    return static_cast<t_lconfd_context *>(p_tctx->dx->d_opaque)->maapi_socket;
}

// The one key of the list with that tag on the path; it points into the path.
static confd_value_t key_of(const confd_hkeypath_t *p_keypath, uint32_t tag, confd_vtype type)
{
    confd_value_t key = {};
    confd_value_t *p_key = lconfd_keypath_get_keys(p_keypath, &key, 1, tag);
    LUM_ASSERT(p_key != nullptr && p_key->type == type, "p_key != NULL && p_key->type == type");
    return key;
}

static int write_pair_id(int sock, confd_trans_ctx *p_tctx, const char *pair_name)
{
    confd_value_t id = {};
    id.type = C_UINT32;
    id.val.u32 = g_zone_pair_id_count;
    int status =
        maapi_set_elem(sock, p_tctx->thandle, &id, "/lumora-policy:policy/zone-pair{%s}/pair-id", pair_name);
    if (status == CONFD_OK)
        g_zone_pair_id_count++;
    else
        TARN_LOG("\nmaapi_set_elem failed -->(%" PRIu32 ") %s (%d) : %s\n", id.val.u32,
                 confd_strerror(confd_errno), confd_errno, confd_lasterr());
    return status;
}

int tarn_confd_hook_pair_id_create(confd_trans_ctx *p_tctx, confd_hkeypath_t *p_keypath)
{
    int sock = socket_of(p_tctx);
    int status = maapi_attach(sock, LUMORA_NS_POLICY, p_tctx);
    if (status != CONFD_OK) {
        TARN_LOG("\nmaapi_attach failed -->(%" PRIu32 ") %s (%d) : %s\n", g_zone_pair_id_count,
                 confd_strerror(confd_errno), confd_errno, confd_lasterr());
        return status;
    }
    confd_value_t key = key_of(p_keypath, LUMORA_TAG_ZONE_PAIR, C_BUF);
    status = write_pair_id(sock, p_tctx, t_tarn_confd_name(&key));
    if (maapi_detach(sock, p_tctx) == CONFD_OK || status != CONFD_OK)
        return status;
    TARN_LOG("\nmaapi_detach failed -->(%" PRIu32 ") %s (%d) : %s\n", g_zone_pair_id_count,
             confd_strerror(confd_errno), confd_errno, confd_lasterr());
    return -1;
}

static int write_counter(int sock, confd_trans_ctx *p_tctx, const char *policy, uint16_t number)
{
    char counter[32];
    snprintf(counter, sizeof(counter), "%s_%d", "counter_seq", number);
    int status = maapi_set_elem2(sock, p_tctx->thandle, counter,
                                 "/lumora-policy:policy/zone-based-policy{%s}/sequence{%d}/action/count",
                                 policy, number);
    if (status != CONFD_OK)
        TARN_LOG("\nmaapi_set_elem failed zbf seq counter -->(%u) %s (%d) : %s\n", number,
                 confd_strerror(confd_errno), confd_errno, confd_lasterr());
    return status;
}

// Comes for every entry and empty leaf created at or below a sequence; only the sequence itself counts.
int tarn_confd_hook_zone_policy_seq_create(confd_trans_ctx *p_tctx, confd_hkeypath_t *p_keypath)
{
    LUM_ASSERT(p_keypath->v[1][0].type == C_XMLTAG, "(&(keypath->v[1][0]))->type == C_XMLTAG");
    if (p_keypath->v[1][0].val.xmltag.tag != LUMORA_TAG_SEQUENCE)
        return 0;
    confd_value_t policy_key = key_of(p_keypath, LUMORA_TAG_ZONE_BASED_POLICY, C_BUF);
    uint16_t number = key_of(p_keypath, LUMORA_TAG_SEQUENCE, C_UINT16).val.u16;
    int sock = socket_of(p_tctx);
    int status = maapi_attach(sock, LUMORA_NS_POLICY, p_tctx);
    if (status != CONFD_OK) {
        TARN_LOG("\nmaapi_attach failed zbf seq create -->(%u) %s (%d) : %s\n", number,
                 confd_strerror(confd_errno), confd_errno, confd_lasterr());
        return status;
    }
    status = write_counter(sock, p_tctx, t_tarn_confd_name(&policy_key), number);
    if (maapi_detach(sock, p_tctx) == CONFD_OK || status != CONFD_OK)
        return status;
    TARN_LOG("\nmaapi_detach failed zbf seq counter -->(%u) %s (%d) : %s\n", number,
             confd_strerror(confd_errno), confd_errno, confd_lasterr());
    return -1;
}
