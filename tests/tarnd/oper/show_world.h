// A store with every kind of object that the show commands read, and the callbacks that they registered.
//
// Programs of the pass lie in memory of their own; load() lays them out in filter memory as the daemon's
// allocator would, with the numbers of a forwarding plane: a counter has counted 7 packets of 700 bytes, a
// policer refused 3 of 300.
#pragma once

#include "fp_api/fp_filter.h"
#include "lconfd/lconfd_api.h"
#include "platform/confd/confd_dp.h"
#include "tarnd/acl/tarn_access_list.h"
#include "tests/tarnd/config/confd_change.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

// A list on a path, from the outside: its tag, and the keys of its entry.
using t_path = std::vector<std::pair<uint32_t, std::vector<confd_value_t>>>;
confd_hkeypath_t keypath_of(const t_path &path);

class ShowWorld : public PassWorld {
public:
    ShowWorld();
    ~ShowWorld();

    // Data policies "d1" and "d2", application-route policies "a1" and "a2", zone-based policies "z1" and
    // "z2", access lists "l1" and "l2" of both families. The first of each has two counters (but the second
    // family's), and where there are policers, two of them; access lists have two bindings.
    void add_objects();
    void load();

    // Each calls a callback and gives the replies that it sent.
    std::vector<std::string> get(const std::string &callpoint, const t_path &path);
    std::vector<std::string> get_next(const std::string &callpoint, const t_path &path, long next = -1);
    std::vector<std::string> find_next(const std::string &callpoint, const t_path &path,
                                       std::vector<confd_value_t> keys,
                                       confd_find_next_type type = CONFD_FIND_NEXT);

    // All rows, each by the key of the one before; what a row shows, without the reply.
    std::vector<std::string> walk(const std::string &callpoint, const t_path &path);

    std::map<std::string, confd_data_cbs> callbacks;
    std::vector<std::string> order;  // of registration
    int refused_after = -1;          // so many registrations; -1: none is refused

    t_lconfd_context adapter;
    confd_daemon_ctx dx = {};
    confd_trans_ctx tctx = {};

private:
    void add_policy_rules(e_tarn_policy_type type, const char *policy, const char *list);
    void add_access_list(e_tarn_af_type af_type);
    void load_program(const void *p_program, int filter_id);

    std::vector<t_tarn_filter> filters;
    std::vector<t_tarn_filter_mem_block> blocks;
    uint32_t used_blocks = 3;
    t_tarn_filter *p_real_filter;
    t_tarn_filter_mem_block *p_real_blocks;
};
