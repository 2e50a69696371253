// What the machine is: memory, board type, serial number, revision.
//
// One static record, filled on the first call of cvmx_sysinfo_get; its non-zero board_type says that it is
// filled. Main thread only, except for the core mask, which has a lock.
#pragma once

#include <cstdint>

// Boards that the scaling of the shared tables tells apart; numbers between them go by the machine's size.
enum e_cvmx_board_type : uint16_t {
    CVMX_BOARD_TYPE_UNKNOWN = 20000,
    CVMX_BOARD_TYPE_PYLON_A2 = 20003,
    CVMX_BOARD_TYPE_PYLON_A3 = 20004,
    CVMX_BOARD_TYPE_PYLON_A1_R1 = 20005,
    CVMX_BOARD_TYPE_PYLON_A1_R2 = 20006,
    CVMX_BOARD_TYPE_PYLON_A4 = 40001,
    CVMX_BOARD_TYPE_MOCHA_B1 = 60001,
    CVMX_BOARD_TYPE_MOCHA_B2 = 60002,
    CVMX_BOARD_TYPE_MOCHA_B3 = 60003,
};

struct cvmx_sysinfo_t {
    uint64_t system_dram_size;  // bytes
    uint64_t phy_mem_desc_addr;
    uint64_t stack_top;
    uint64_t heap_base;
    uint32_t stack_size;
    uint32_t heap_size;
    uint32_t core_mask;  // bit 0: this process takes part
    uint32_t init_core;
    uint64_t exception_base_addr;
    uint32_t cpu_clock_hz;
    uint32_t dram_data_rate_hz;
    uint16_t board_type;  // e_cvmx_board_type; 0 while the record isn't filled
    uint8_t board_rev_major;
    uint8_t board_rev_minor;
    uint8_t mac_addr_base[6];
    uint8_t mac_addr_count;
    char board_serial_number[40];
};

// The filled record. Never null.
cvmx_sysinfo_t *cvmx_sysinfo_get();

// The board's type: from the board's own code, else from the text of /etc/default/chassis_type, else
// CVMX_BOARD_TYPE_UNKNOWN.
int cvmx_sim_get_board_type();

// Serial number and revision of a large board, by dmidecode, and of a small one, by /tmp/serial-num and
// dmidecode. What can't be learnt stays "sim" and 1.0.
void cvmx_get_pd1_info(cvmx_sysinfo_t *p_info);
void cvmx_get_mocha_info(cvmx_sysinfo_t *p_info);

// Set or clear bit 0 of core_mask, under a spin lock.
void cvmx_sysinfo_add_self_to_core_mask();
void cvmx_sysinfo_remove_self_from_core_mask();
