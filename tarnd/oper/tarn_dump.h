// Dumps: the daemon's live state as plain text, for support staff.
//
// Each dump walks the stores and prints to the session of the operator who asked; nothing is kept, nothing
// changes. The main thread is busy for a dump's whole length, but the timers of high priority are run between
// the parts of the long ones. An empty store prints its title alone.
#pragma once

#include "platform/confd/confd_dp.h"

#include <cstddef>
#include <cstdint>

struct t_lconfd_context;
struct t_tarn_config_action;

// ---- Texts ----

// Room for the names of all colors, or of all encapsulations.
inline constexpr size_t TARN_MASK_TEXT_SIZE = 256;

// The names of a mask's bits (bit n stands for value n) into a buffer of TARN_MASK_TEXT_SIZE bytes, each with
// a blank behind it. Bits that stand for nothing are passed over.
void tarn_dump_color_mask(uint32_t mask, char *buffer);
void tarn_dump_encap_mask(uint32_t mask, char *buffer);

// Prints one action of a rule.
void tarn_dump_action(t_lconfd_context *ctx, int usid, const t_tarn_config_action *p_action);

// ---- Commands of operators (the framework's callbacks; 0) ----
//
// path, argc and argv are not used. Those of filter memory and of the catalogue are tarn_if_octeon.h's and
// tarn_dpi.h's.

int tarn_dump_config(confd_user_info *uinfo, char *path, int argc, char **argv);
int tarn_dump_policy(confd_user_info *uinfo, char *path, int argc, char **argv);
int tarn_dump_acl(confd_user_info *uinfo, char *path, int argc, char **argv);
int tarn_dump_acl6(confd_user_info *uinfo, char *path, int argc, char **argv);
int tarn_dump_vpn_list(confd_user_info *uinfo, char *path, int argc, char **argv);
int tarn_dump_prefix_list(confd_user_info *uinfo, char *path, int argc, char **argv);
int tarn_dump_tloc_list(confd_user_info *uinfo, char *path, int argc, char **argv);
int tarn_dump_tloc(confd_user_info *uinfo, char *path, int argc, char **argv);
int tarn_dump_mirror(confd_user_info *uinfo, char *path, int argc, char **argv);
int tarn_dump_policer(confd_user_info *uinfo, char *path, int argc, char **argv);
int tarn_dump_class(confd_user_info *uinfo, char *path, int argc, char **argv);
int tarn_dump_sla_class(confd_user_info *uinfo, char *path, int argc, char **argv);
int tarn_dump_app_list(confd_user_info *uinfo, char *path, int argc, char **argv);
int tarn_dump_msgq(confd_user_info *uinfo, char *path, int argc, char **argv);

// All of them with those of filter memory, in a fixed order. The second is the first under another name.
int tarn_dump_all(confd_user_info *uinfo, char *path, int argc, char **argv);
int tarn_dump_admin_tech(confd_user_info *uinfo, char *path, int argc, char **argv);
