// SNMPv2c traps: what daemons send as SNMP notifications goes to the configured receivers.
//
// A notification names a group (the framework's notify name); it goes once to each target of that group under
// /snmp/trap/target of running. Which modules and levels a group gets is the daemons' choice, who know it
// from /snmp/trap/group/enable: nothing is filtered here. The configuration is looked at when a notification
// comes; a new running closes all sockets and reads the targets anew.
//
// A trap has sysUpTime.0 (since this sender was made), snmpTrapOID.0, and the notification's variables as
// scalars (instance 0). Names become object identifiers by the caller's function, which knows the MIBs; a
// notification without one is dropped, a variable without one is left out.
//
// Sending never waits: one socket a target, not blocking, no answer is expected. What the system does not
// take is counted and gone. Owner's thread only. Nothing reads or writes Net-SNMP's own files.
#pragma once

#include "mgmtd/engine/mgmt_engine.h"

struct t_mgmt_snmp;

struct t_mgmt_snmp_deleter {
    void operator()(t_mgmt_snmp *p_snmp) const;
};
using mgmt_snmp_ptr = std::unique_ptr<t_mgmt_snmp, t_mgmt_snmp_deleter>;

// The object identifier of a notification or scalar by its name in the MIB ("lumoraPolicySlaConfig"), without
// instance. False for a name that is not known.
using f_mgmt_snmp_oid = std::function<bool(const std::string &name, std::vector<uint32_t> *p_oid)>;

struct t_mgmt_snmp_options {
    std::function<mgmt_tree_ptr()> running;  // the configuration as it is now
    f_mgmt_snmp_oid oid_of;                  // null: no name is known
};

mgmt_snmp_ptr mgmt_snmp_new(t_mgmt_snmp_options options);

// For t_mgmt_engine_options::p_snmp; p_snmp_ctx is the t_mgmt_snmp, which must outlive the engine.
extern const t_mgmt_snmp_ops g_mgmt_snmp_ops;

struct t_mgmt_snmp_status {
    uint64_t sent;     // traps, counted for each target
    uint64_t dropped;  // the system did not take them
    uint64_t unknown;  // notifications without object identifier
};
t_mgmt_snmp_status mgmt_snmp_status(const t_mgmt_snmp &snmp);
