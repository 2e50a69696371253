// The zone tables in this process's own memory, small enough to fill, and a reader of them.
#pragma once

#include "fp_api/fp_tables.h"

#include <cstdint>
#include <memory>
#include <vector>

inline constexpr uint32_t TEST_PAIR_RECORDS = 6;
inline constexpr uint32_t TEST_VPN_RECORDS = 12;
inline constexpr uint32_t TEST_HEADS = 8;

// Stands behind the globals while it lives; both tables are initialised, with the control record of then. It
// must outlive a store: init again when that has put another control record in place.
class ZoneTables {
public:
    ZoneTables();
    ~ZoneTables();
    ZoneTables(const ZoneTables &) = delete;
    ZoneTables &operator=(const ZoneTables &) = delete;

    void init();

    // As packets are looked up: the records that a walk of the key's chain finds, in order.
    std::vector<uint16_t> zones_of(uint16_t vpn) const;
    std::vector<const t_fp_zbf_pair_record *> pairs_of(uint16_t src_zone_id, uint16_t dst_zone_id) const;
    size_t pair_count() const;  // valid records

    t_fp_global_ctrl *p_ctrl = nullptr;  // the record of free lists and flags

private:
    std::vector<t_fp_zbf_pair_record> pairs;
    std::vector<uint32_t> pair_heads;
    std::vector<t_fp_vpn_zone_record> vpns;
    std::vector<uint32_t> vpn_heads;
    std::unique_ptr<t_fp_global_ctrl> own_ctrl;
    std::unique_ptr<t_fp_global_stats> stats;
    t_fp_global_ctrl *p_real_ctrl;
};
