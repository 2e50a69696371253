// Tables by module, logging, and the region that the router shares.
#include "lconfd/lconfd_private.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>
#include <utility>

std::atomic<uint32_t> g_lconfd_mod_id = 0;
std::atomic<int> g_lconfd_log_id = 0;
std::atomic<int> g_lconfd_debug_enable = 0;
std::atomic<int> g_lconfd_debug_level = 0;

// ---- Logging ----

using t_log_ids = std::array<uint8_t, LUM_MODULE_MAX>;

static consteval t_log_ids log_ids()
{
    t_log_ids ids = {};
    for (uint32_t module = 0; module < LUM_MODULE_INTERNAL_MAX; module++)
        ids[module] = LOG_LOCAL7;
    for (uint32_t module : {LUM_MODULE_UNKNOWN, LUM_MODULE_NCS, LUM_MODULE_OSPF, LUM_MODULE_BGP})
        ids[module] = LOG_USER;
    ids[LUM_MODULE_FP] = 0;
    return ids;
}

const t_log_ids lconfd_lum_module_to_log_id = log_ids();

const char *lconfd_module_name()
{
    return lum_util_module_name(g_lconfd_mod_id);
}

void lconfd_debug_enable(int level)
{
    g_lconfd_debug_level = level;
    g_lconfd_debug_enable = 1;
}

void lconfd_debug_disable()
{
    g_lconfd_debug_level = 0;
    g_lconfd_debug_enable = 0;
}

// ---- The order of first reading ----

static constexpr uint32_t lconfd_initial_read_priority_to_lum_module[LCONFD_NUM_INITIAL_READ_PRIORITIES] = {
    LUM_MODULE_WLAN, LUM_MODULE_CFGMGR, LUM_MODULE_FTM, LUM_MODULE_UNKNOWN};
static constexpr uint32_t lconfd_initial_read_priority_to_confd_val[LCONFD_NUM_INITIAL_READ_PRIORITIES] = {
    1, 2, 4, 0};

uint32_t lconfd_lum_module_get_initial_read_priority(uint32_t module)
{
    uint32_t priority = 0;
    while (priority + 1 < LCONFD_NUM_INITIAL_READ_PRIORITIES &&
           lconfd_initial_read_priority_to_lum_module[priority] != module)
        priority++;
    return priority;
}

uint32_t lconfd_get_initial_read_priority_to_lum_module(uint32_t priority)
{
    return priority < LCONFD_NUM_INITIAL_READ_PRIORITIES
               ? lconfd_initial_read_priority_to_lum_module[priority]
               : 0;
}

uint32_t lconfd_get_initial_read_priority_to_confd_val(uint32_t priority)
{
    return priority < LCONFD_NUM_INITIAL_READ_PRIORITIES ? lconfd_initial_read_priority_to_confd_val[priority]
                                                         : 0;
}

// ---- The shared region ----

static const t_lconfd_shared_region *g_lconfd_shm;
static char g_lconfd_shm_host_name[sizeof(t_lconfd_shared_region::system_hostname) + 1];
static t_ipaddr g_lconfd_shm_system_ip_addr;

// Null also for a region that its writer has not given its size yet: reading that would end the process.
static const t_lconfd_shared_region *region_map(int fd)
{
    struct stat status;
    if (fd < 0 || fstat(fd, &status) != 0 ||
        status.st_size < static_cast<off_t>(sizeof(t_lconfd_shared_region)))
        return nullptr;
    void *p_mem = mmap(nullptr, sizeof(t_lconfd_shared_region), PROT_READ, MAP_SHARED, fd, 0);
    return p_mem == MAP_FAILED ? nullptr : static_cast<const t_lconfd_shared_region *>(p_mem);
}

static bool region_unmap()
{
    const t_lconfd_shared_region *p_region = std::exchange(g_lconfd_shm, nullptr);
    return p_region == nullptr ||
           munmap(const_cast<t_lconfd_shared_region *>(p_region), sizeof(*p_region)) == 0;
}

// At each connection: the writer may have made the region anew.
void lconfd_setup_shm()
{
    region_unmap();
    int fd = shm_open(LCONFD_SHARED_REGION, O_RDONLY | O_CLOEXEC, 0);
    if (fd < 0)
        LCONFD_DEBUG("Failed to open shared memory %s with an error %d", LCONFD_SHARED_REGION, errno);
    g_lconfd_shm = region_map(fd);
    if (g_lconfd_shm == nullptr)
        LCONFD_LOG("Failed to map shared memory %s", LCONFD_SHARED_REGION);
    LCONFD_DEBUG("Succesfully mapped shared memory %s", LCONFD_SHARED_REGION);
    if (fd >= 0)
        close(fd);
}

void lconfd_free_shm()
{
    if (!region_unmap())
        LCONFD_LOG("Failed to unmap shared memory %s", LCONFD_SHARED_REGION);
    LCONFD_DEBUG("Succesfully freed shared memory %s", LCONFD_SHARED_REGION);
}

const char *lconfd_get_hostname()
{
    if (g_lconfd_shm != nullptr)
        memcpy(g_lconfd_shm_host_name, g_lconfd_shm->system_hostname, sizeof(g_lconfd_shm->system_hostname));
    return g_lconfd_shm_host_name;
}

void lconfd_get_system_ip(t_ipaddr *p_addr)
{
    if (g_lconfd_shm != nullptr)
        g_lconfd_shm_system_ip_addr = g_lconfd_shm->system_ip;
    *p_addr = g_lconfd_shm_system_ip_addr;
}
