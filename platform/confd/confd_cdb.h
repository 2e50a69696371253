// The management framework's client interface: reading the datastore. See confd_lib.h.
#pragma once

#include "platform/confd/confd_lib.h"

enum cdb_db_type {
    CDB_RUNNING = 1,
    CDB_STARTUP = 2,
    CDB_OPERATIONAL = 3,
    CDB_PRE_COMMIT_RUNNING = 4,
};

// Flags of cdb_start_session2.
inline constexpr int CDB_LOCK_SESSION = 1 << 0;
inline constexpr int CDB_LOCK_REQUEST = 1 << 1;
inline constexpr int CDB_LOCK_PARTIAL = 1 << 2;
inline constexpr int CDB_LOCK_WAIT = 1 << 3;

// A session on a connected socket. CONFD_OK or CONFD_ERR.
int cdb_start_session2(int sock, cdb_db_type db, int flags);
int cdb_end_session(int sock);

// Reads one value; the path is given as a format. CONFD_OK or CONFD_ERR.
__attribute__((format(printf, 3, 4))) int cdb_get_int16(int sock, int16_t *rval, const char *fmt, ...);
