#include "chmgr_api/chmgr_api.h"

#include "common/lum_log.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

t_chassis_info *gp_chassis_info = nullptr;

static int map_block(int fd, int oflag)
{
    if (ftruncate(fd, sizeof(t_chassis_info)) != 0)
        return -2;
    int access = (oflag & O_RDWR) != 0 ? PROT_READ | PROT_WRITE : PROT_NONE;
    void *p_block = mmap(nullptr, sizeof(t_chassis_info), access, MAP_SHARED, fd, 0);
    if (p_block == MAP_FAILED)
        return -3;
    gp_chassis_info = static_cast<t_chassis_info *>(p_block);
    return 0;
}

int chmgr_info_get(int oflag)
{
    int fd = shm_open(CHMGR_BLOCK_NAME, oflag, 0600);
    if (fd < 0)
        return -1;
    int status = map_block(fd, oflag);
    close(fd);
    if (status == 0 && (oflag & O_RDWR) != 0)
        LUM_LOG(LUM_LOG_DEBUG, "Chassis_type %d, num_cores %d, num_cp_cores %d, num_fp_cores %d",
                static_cast<int>(gp_chassis_info->chassis_type), gp_chassis_info->num_cores,
                gp_chassis_info->num_cp_cores, gp_chassis_info->num_fp_cores);
    return status;
}
