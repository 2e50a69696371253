// What access lists' callbacks ask of the datastore; the callbacks themselves are tarn_confd.h's.
#pragma once

#include "platform/confd/confd_lib.h"
#include "tarnd/acl/tarn_access_list.h"

// With the terminator; the data model keeps access lists' names below it.
inline constexpr size_t TARN_PRE_COMMIT_NAME_SIZE = 33;

// The access list that a binding named before the commit that is being applied. keys: VPN, interface,
// direction, as the callback has them. buf takes the name, cut to size - 1 bytes. 0, or 1 after a message. A
// connection of its own is made and closed; the main thread waits for the datastore.
int tarn_config_get_pre_commit_access_list(e_tarn_af_type af_type, const confd_value_t *p_keys, char *buf,
                                           int size);
