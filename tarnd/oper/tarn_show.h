// What the show commands read: policies, access lists, their counters, policers and bindings, filter memory.
//
// The daemon keeps nothing for it. The management framework asks callpoint by callpoint for a row, and each
// answer is made from the configuration's trees and from shared filter memory at that moment. There is no
// cursor either: the framework names the last row by its key and asks for the one behind, so that a tree may
// change between two rows. Main thread only, and only one callback at a time.
#pragma once

#include <cstdint>

struct t_lconfd_context;
struct t_tarn_access_list;
struct t_tarn_policy_vpn_list;

// Registers all callpoints on the context's daemon. 0, or -1 with the first that the framework refuses; the
// ones behind it are left out then.
int tarn_show_init(t_lconfd_context *p_ctx);

// What the loaded program of a context, or of an access list, has counted under that name; 0 and 0 when
// nothing is loaded.
void tarn_policy_counter(const t_tarn_policy_vpn_list *p_vpn_list, const char *name, int64_t *p_pkts,
                         int64_t *p_bytes);
void tarn_acl_counter(const t_tarn_access_list *p_access_list, const char *name, int64_t *p_pkts,
                      int64_t *p_bytes);
