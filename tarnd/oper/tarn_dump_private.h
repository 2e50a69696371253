// What the sources of the dumps share: where to print, walks, texts.
#pragma once

#include "common/cli_print.h"
#include "common/dll.h"
#include "common/ip_util.h"
#include "platform/avl/avl.h"
#include "tarnd/config/tarn_policer.h"
#include "tarnd/config/tarn_rule.h"
#include "tarnd/core/tarn.h"
#include "tarnd/oper/tarn_dump.h"
#include "tarnd/oper/tarn_oper_private.h"

// A dump on its way: the session, and what is dumped.
struct t_tarn_dump {
    t_lconfd_context *ctx;
    int usid;
    const t_tarn *p_tarn;
};

inline t_tarn_dump tarn_dump_begin(const confd_user_info *uinfo)
{
    return {tarn_oper_context(uinfo), uinfo->usid, tarn_oper_daemon(uinfo)};
}

#define DUMP(dump, ...) cli_print((dump).ctx, (dump).usid, __VA_ARGS__)

// ---- Walks ----

// visit(object) for all objects of a tree, in order.
template <typename t_object, typename F>
void tarn_dump_tree(const avl_tree_t &tree, F visit)
{
    for (void *p = avl_first(&tree); p != nullptr; p = avl_walk(&tree, p))
        visit(*static_cast<const t_object *>(p));
}

// visit(record) for all records of a list whose link is the member dlnode.
template <typename t_record, typename F>
void tarn_dump_list(const t_dll &dll, F visit)
{
    for (t_dlnode *p_link = dll.p_head; p_link != nullptr; p_link = p_link->p_next)
        visit(*DLL_RECORD(p_link, t_record, dlnode));
}

inline int tarn_dump_size(const avl_tree_t &tree)
{
    return static_cast<int>(avl_numnodes(&tree));
}

// ---- Texts ----

// Texts of addresses and TLOCs, made to stand in one print call.
struct t_tarn_dump_text {
    char text[128];
};
t_tarn_dump_text tarn_dump_address(const t_ipaddr &address);
// TLOCs of the stores have their IPv4 word in network order.
t_tarn_dump_text tarn_dump_tloc_id(const t_tloc_id &tloc);

// ---- Pieces ----

void tarn_dump_policer_rate(const t_tarn_dump &dump, const char *indent,
                            const t_tarn_policer_config &policer);
