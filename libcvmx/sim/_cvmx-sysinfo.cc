#include "libcvmx/sim/_cvmx-sysinfo.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sys/sysinfo.h>

#include "common/lum_exec.h"
#include "libcvmx/sim/board_code.h"
#include "libcvmx/sim/cvmx-spinlock.h"

static const char DMIDECODE[] = "/usr/sbin/dmidecode";

using t_file = std::unique_ptr<FILE, int (*)(FILE *)>;

// ---- Board type ----

struct t_board_code {
    int code;
    e_cvmx_board_type board_type;
};

static const t_board_code g_board_codes[] = {
    {0, CVMX_BOARD_TYPE_PYLON_A2},    {1, CVMX_BOARD_TYPE_PYLON_A3},  {5, CVMX_BOARD_TYPE_PYLON_A1_R1},
    {6, CVMX_BOARD_TYPE_PYLON_A1_R2}, {7, CVMX_BOARD_TYPE_PYLON_A4},  {11, CVMX_BOARD_TYPE_MOCHA_B1},
    {14, CVMX_BOARD_TYPE_MOCHA_B1},   {12, CVMX_BOARD_TYPE_MOCHA_B2}, {15, CVMX_BOARD_TYPE_MOCHA_B2},
    {13, CVMX_BOARD_TYPE_MOCHA_B3},   {16, CVMX_BOARD_TYPE_MOCHA_B3},
};

struct t_chassis_text {
    const char *text;
    e_cvmx_board_type board_type;
};

// In the order of the search: the first text found in the file decides.
static const t_chassis_text g_chassis_texts[] = {
    {"pylon-a1", CVMX_BOARD_TYPE_PYLON_A1_R1}, {"pylon-a3", CVMX_BOARD_TYPE_PYLON_A3},
    {"pylon-a4", CVMX_BOARD_TYPE_PYLON_A4},    {"Harrisonville", CVMX_BOARD_TYPE_MOCHA_B3},
    {"Pylon-B1", CVMX_BOARD_TYPE_MOCHA_B1},    {"Pylon-B2", CVMX_BOARD_TYPE_MOCHA_B2},
    {"Pylon-B3", CVMX_BOARD_TYPE_MOCHA_B3},    {"Pylon-E1", CVMX_BOARD_TYPE_MOCHA_B2},
    {"Pylon-E2", CVMX_BOARD_TYPE_MOCHA_B1},    {"Pylon-E3", CVMX_BOARD_TYPE_MOCHA_B3},
};

static int board_type_from_chassis_file()
{
    t_file file(fopen("/etc/default/chassis_type", "r"), fclose);
    if (file == nullptr)
        return CVMX_BOARD_TYPE_UNKNOWN;
    char text[64 + 1];
    text[fread(text, 1, sizeof(text) - 1, file.get())] = '\0';
    for (const t_chassis_text &row : g_chassis_texts)
        if (strstr(text, row.text) != nullptr)
            return row.board_type;
    return CVMX_BOARD_TYPE_UNKNOWN;
}

int cvmx_sim_get_board_type()
{
    int code = lum_util_get_board_type(1);
    for (const t_board_code &row : g_board_codes)
        if (row.code == code)
            return row.board_type;
    return board_type_from_chassis_file();
}

// ---- Serial number and revision ----

static void set_unknown(cvmx_sysinfo_t *p_info)
{
    strcpy(p_info->board_serial_number, "sim");
    p_info->board_rev_major = 1;
    p_info->board_rev_minor = 0;
}

// Takes "major.minor" from the head of the text; a number that isn't there keeps the field.
static void set_revision(cvmx_sysinfo_t *p_info, const char *text)
{
    int major = p_info->board_rev_major;
    int minor = p_info->board_rev_minor;
    sscanf(text, "%d.%d", &major, &minor);
    p_info->board_rev_major = static_cast<uint8_t>(major);
    p_info->board_rev_minor = static_cast<uint8_t>(minor);
}

// One string of the firmware's system table, at most size - 1 characters. False if dmidecode fails.
static bool read_dmi(const char *keyword, char *buf, size_t size)
{
    char command[64];
    snprintf(command, sizeof(command), "%s -s %s", DMIDECODE, keyword);
    memset(buf, 0, size);
    return lum_execute_output(command, buf, size) == 0;
}

void cvmx_get_pd1_info(cvmx_sysinfo_t *p_info)
{
    set_unknown(p_info);
    char text[20];
    if (read_dmi("system-serial-number", text, sizeof(text))) {
        size_t length = strnlen(text, sizeof(text) - 1);
        while (length > 0 && strchr("\t\n ", text[length - 1]) != nullptr)
            length--;
        text[length] = '\0';
        strcpy(p_info->board_serial_number, text);
    }
    if (read_dmi("system-version", text, sizeof(text)))
        set_revision(p_info, text);
}

// The first line of a file, without its newline. False if there is none.
static bool read_first_line(const char *path, char *buf, int size)
{
    t_file file(fopen(path, "r"), fclose);
    if (file == nullptr || fgets(buf, size, file.get()) == nullptr)
        return false;
    buf[strcspn(buf, "\n")] = '\0';
    return true;
}

void cvmx_get_mocha_info(cvmx_sysinfo_t *p_info)
{
    set_unknown(p_info);
    char line[sizeof(p_info->board_serial_number)];
    if (read_first_line("/tmp/serial-num", line, sizeof(line)))
        strcpy(p_info->board_serial_number, line);
    if (system("dmidecode -s system-version > /tmp/system-version") == 0 &&
        read_first_line("/tmp/system-version", line, sizeof(line)))
        set_revision(p_info, line);
}

// ---- The record ----

static cvmx_sysinfo_t g_sysinfo;
static cvmx_spinlock_t g_core_mask_lock;

static void fill(cvmx_sysinfo_t *p_info)
{
    struct sysinfo machine = {};
    sysinfo(&machine);
    p_info->system_dram_size = machine.totalram;
    p_info->cpu_clock_hz = 0;
    p_info->board_type = static_cast<uint16_t>(cvmx_sim_get_board_type());
    switch (p_info->board_type) {
    case CVMX_BOARD_TYPE_PYLON_A4:
        cvmx_get_pd1_info(p_info);
        break;
    case CVMX_BOARD_TYPE_MOCHA_B1:
    case CVMX_BOARD_TYPE_MOCHA_B2:
    case CVMX_BOARD_TYPE_MOCHA_B3:
        cvmx_get_mocha_info(p_info);
        break;
    default:
        strcpy(p_info->board_serial_number, "sim");
        p_info->board_rev_major = 1;
    }
}

cvmx_sysinfo_t *cvmx_sysinfo_get()
{
    if (g_sysinfo.board_type == 0)
        fill(&g_sysinfo);
    return &g_sysinfo;
}

void cvmx_sysinfo_add_self_to_core_mask()
{
    cvmx_spinlock_lock(&g_core_mask_lock);
    g_sysinfo.core_mask |= 1;
    cvmx_spinlock_unlock(&g_core_mask_lock);
}

void cvmx_sysinfo_remove_self_from_core_mask()
{
    cvmx_spinlock_lock(&g_core_mask_lock);
    g_sysinfo.core_mask &= ~1u;
    cvmx_spinlock_unlock(&g_core_mask_lock);
}
