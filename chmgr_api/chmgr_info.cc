#include "chmgr_api/chmgr_api.h"

#include "chmgr_api/chmgr_hwapi.h"
#include "chmgr_api/chmgr_private.h"
#include "common/lum_assert.h"
#include "common/lum_log.h"
#include "common/strlcpy.h"
#include "libcvmx/sim/_cvmx-sysinfo.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

t_chassis_info *gp_chassis_info = nullptr;
const t_chassis_hwapi *gp_hwapi = nullptr;

// ---- Mapping ----

static int map_block(int fd, int oflag)
{
    if (ftruncate(fd, sizeof(t_chassis_info)) != 0)
        return -2;
    int access = (oflag & O_RDWR) != 0 ? PROT_READ | PROT_WRITE : PROT_NONE;
    void *p_block = mmap(nullptr, sizeof(t_chassis_info), access, MAP_SHARED, fd, 0);
    bool is_mapped = p_block != MAP_FAILED;
    gp_chassis_info = is_mapped ? static_cast<t_chassis_info *>(p_block) : nullptr;
    return is_mapped ? 0 : -3;
}

// A descriptor without read access gets no mapping, one without write access no size: who comes through here
// with 0 can read the block.
int chmgr_info_get(int oflag)
{
    int fd = shm_open(CHMGR_BLOCK_NAME, oflag, 0600);
    if (fd < 0)
        return -1;
    int status = map_block(fd, oflag);
    close(fd);
    if (status != 0)
        return status;
    chmgr_set_hwapi();
    LUM_LOG(LUM_LOG_DEBUG, "Chassis_type %d, num_cores %d, num_cp_cores %d, num_fp_cores %d",
            static_cast<int>(gp_chassis_info->chassis_type), gp_chassis_info->num_cores,
            gp_chassis_info->num_cp_cores, gp_chassis_info->num_fp_cores);
    return 0;
}

t_chassis_info *chmgr_block()
{
    if (gp_chassis_info == nullptr)
        chmgr_info_get(O_RDWR);
    return gp_chassis_info;
}

void chmgr_set_hwapi()
{
    switch (gp_chassis_info->chassis_type) {
    case CHASSIS_TYPE_PYLON_E2_R1:
    case CHASSIS_TYPE_PYLON_E1_R1:
    case CHASSIS_TYPE_PYLON_E3_R1:
        gp_hwapi = &g_pylon_pa2_hwapi;
        return;
    case CHASSIS_TYPE_PYLON_A4:
        gp_hwapi = &g_pylon_pd1_hwapi;
        return;
    default:
        gp_hwapi = &g_pylon_sim_hwapi;
    }
}

// ---- The platform ----

e_chassis_type chmgr_chassis_type_of_board(uint16_t board_type, uint8_t board_rev_major)
{
    static constexpr uint8_t last_revision_of_a1_r1 = 4;
    switch (board_type) {
    case CVMX_BOARD_TYPE_UNKNOWN:
        return CHASSIS_TYPE_PYLON_CLOUD;
    case CVMX_BOARD_TYPE_PYLON_A3:
        return CHASSIS_TYPE_PYLON_A3_R1;
    case CVMX_BOARD_TYPE_PYLON_A1_R1:
        return board_rev_major <= last_revision_of_a1_r1 ? CHASSIS_TYPE_PYLON_A1_R1
                                                         : CHASSIS_TYPE_PYLON_A1_R3;
    case CVMX_BOARD_TYPE_PYLON_A1_R2:
        return CHASSIS_TYPE_PYLON_A1_R2;
    case CVMX_BOARD_TYPE_PYLON_A4:
        return CHASSIS_TYPE_PYLON_A4;
    case CVMX_BOARD_TYPE_MOCHA_B1:
        return CHASSIS_TYPE_PYLON_E2_R1;
    case CVMX_BOARD_TYPE_MOCHA_B2:
        return CHASSIS_TYPE_PYLON_E1_R1;
    case CVMX_BOARD_TYPE_MOCHA_B3:
        return CHASSIS_TYPE_PYLON_E3_R1;
    default:
        return CHASSIS_TYPE_PYLON_A2_R1;
    }
}

void chmgr_chassis_set_type(t_chassis_info *p_chassis, e_chassis_type type)
{
    const t_chassis_descr &descr = g_chassis_descr[type];
    p_chassis->chassis_state = HW_STATE_OK;
    p_chassis->chassis_type = type;
    lum_strlcpy(p_chassis->description, descr.description, sizeof(p_chassis->description));
    lum_strlcpy(p_chassis->sysfs_pfx, descr.sysfs_pfx, sizeof(p_chassis->sysfs_pfx));
}

t_chassis_info *chmgr_api_common_init(bool init_platform)
{
    int ret = chmgr_info_get(O_CREAT | O_RDWR);
    LUM_ASSERT(ret == 0, "ret == 0");
    if (!init_platform)
        return gp_chassis_info;
    cvmx_sysinfo_t *p_sysinfo = cvmx_sysinfo_get();
    gp_chassis_info->p_sysinfo = p_sysinfo;
    chmgr_chassis_set_type(gp_chassis_info,
                           chmgr_chassis_type_of_board(p_sysinfo->board_type, p_sysinfo->board_rev_major));
    chmgr_set_hwapi();
    LUM_LOG(LUM_LOG_INFO, "Initializing platform");
    int status = gp_hwapi->plat_init(gp_chassis_info);
    if (status != 0)
        LUM_LOG(LUM_LOG_ERROR, "The platform can't be initialised: %d", status);
    return gp_chassis_info;
}
