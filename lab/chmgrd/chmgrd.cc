// chmgrd: tells a lab router's daemons its system address and host name, and what box they run on.
#include "chmgr_api/chmgr_hwapi.h"
#include "lab/chmgrd/chassis_fill.h"
#include "lab/chmgrd/shared_region.h"
#include "lab/control/lab_program.h"
#include "libcvmx/sim/_cvmx-sysinfo.h"

#include <algorithm>
#include <unistd.h>

namespace {

struct t_options {
    std::string address;
    std::string host_name = "lab";
    std::string chassis;
};

}  // namespace

static constexpr char usage[] =
    "Usage: chmgrd [--system-ip ADDR] [--host-name NAME] [--chassis TYPE]\n"
    "Writes a lab router's system address, host name and chassis into shared memory, where its daemons read "
    "them, and stays.\n\n"
    "  -i, --system-ip ADDR  IPv4 or IPv6; default: none\n"
    "  -n, --host-name NAME  up to 252 characters; default lab\n"
    "  -c, --chassis TYPE    unknown, pylon-a1-r1, -a1-r2, -a1-r3, -a2-r1, -a3-r1, -a4, -cloud, -e1-r1, "
    "-e2-r1\n"
    "                        or -e3-r1; default: by /etc/default/chassis_type, else pylon-cloud\n"
    "  -h, --help            this text\n";

static e_chassis_type type_of_board()
{
    const cvmx_sysinfo_t *p_sysinfo = cvmx_sysinfo_get();
    return chmgr_chassis_type_of_board(p_sysinfo->board_type, p_sysinfo->board_rev_major);
}

// The whole block in one copy: no daemon sees it half empty for longer than that takes.
static void publish_chassis(const t_options &options, e_chassis_type type)
{
    t_chassis_options chassis = {.type = type,
                                 .host_name = options.host_name,
                                 .system_ip = {},
                                 .num_cores = 1,
                                 .serial_number = cvmx_sysinfo_get()->board_serial_number};
    if (!options.address.empty())
        str_to_ip(options.address.c_str(), &chassis.system_ip);
    chassis.num_cores = static_cast<uint8_t>(std::clamp(sysconf(_SC_NPROCESSORS_ONLN), 1L, 255L));
    std::unique_ptr<t_chassis_info> filled = chassis_fill(chassis);
    filled->p_sysinfo = cvmx_sysinfo_get();
    *chmgr_api_common_init(false) = *filled;
    chmgr_set_hwapi();
}

static int serve(const t_lab_daemon *p_daemon, const t_options &options)
{
    e_chassis_type type = CHASSIS_TYPE_UNKNOWN;
    if (options.chassis.empty())
        type = type_of_board();
    else if (!chassis_type_find(options.chassis, &type))
        return lab_program_fail(options.chassis + ": no type of chassis");
    t_shared_region_bytes bytes;
    std::string error;
    if (!shared_region_fill(options.address, options.host_name, &bytes, &error) ||
        !shared_region_publish(bytes, &error))
        return lab_program_fail(error);
    publish_chassis(options, type);
    lab_log("ready, host name %s, system address %s, chassis %s", options.host_name.c_str(),
            options.address.empty() ? "none" : options.address.c_str(), chassis_type_name(type));
    int status = lab_daemon_run(p_daemon);
    lab_log("leaves");
    return status;
}

int main(int argc, char **argv)
{
    t_options options;
    const t_lab_option names[] = {{.name = "system-ip", .letter = 'i', .p_value = &options.address},
                                  {.name = "host-name", .letter = 'n', .p_value = &options.host_name},
                                  {.name = "chassis", .letter = 'c', .p_value = &options.chassis}};
    return lab_program_main({"chmgrd", usage, names}, argc, argv,
                            [&](t_lab_daemon *p_daemon) { return serve(p_daemon, options); });
}
