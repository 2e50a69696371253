// fpd: the forwarding plane of a lab router, as a process. See docs/fpd.md.
#include "common/unix_socket.h"
#include "fp_api/fp_scaling.h"
#include "lab/control/lab_program.h"
#include "lab/fp/fp_block.h"
#include "lab/fp/fp_control.h"
#include "lab/fp/fp_live.h"
#include "libcvmx/sim/_cvmx-clock.h"
#include "libcvmx/sim/sim_log.h"

namespace {

struct t_options {
    bool foreground = false;
    std::string socket = FP_CONTROL_SOCKET;
    bool recreate = false;
    std::string mirror;
    std::string applications;
    std::string live;
};

}  // namespace

static constexpr char usage[] =
    "Usage: fpd [-f] [--socket PATH] [--recreate] [--mirror FILE] [--applications FILE]\n"
    "           [--live FILE]\n"
    "The forwarding plane of a lab router: lays out the shared block and executes the programs in it.\n\n"
    "  -f, --foreground   log to standard output instead of syslog (fpd never leaves the foreground)\n"
    "  -s, --socket PATH  control socket; default /var/run/fpd.sock\n"
    "      --recreate     remove a block that an earlier run left\n"
    "      --mirror FILE  capture file to which the copies of mirrored packets are appended\n"
    "      --applications FILE\n"
    "                     ports and their applications, for replayed and live packets\n"
    "      --live FILE    ports and routes: forward the packets of these ports\n"
    "  -h, --help         this text\n";

static uint64_t core_ticks()
{
    return cvmx_clock_get_count(CVMX_CLOCK_CORE);
}

// Opens what the service keeps for all replays. False with the reason.
static bool files_open(const t_options &options, t_fp_service *p_service, std::string *p_error)
{
    if (!options.applications.empty() &&
        !fp_applications_read(options.applications, &p_service->applications, p_error))
        return false;
    if (options.mirror.empty())
        return true;
    p_service->mirror = fp_mirror_open(options.mirror, p_error);
    return p_service->mirror != nullptr;
}

static fp_live_ptr live_open(const t_lab_daemon *p_daemon, t_fp_service *p_service, const std::string &path,
                             std::string *p_error)
{
    t_fp_live_config config;
    if (!fp_live_config_read(path, &config, p_error))
        return nullptr;
    return fp_live_open(p_daemon->p_base, p_service, config, p_error);
}

static int serve(const t_lab_daemon *p_daemon, const t_options &options)
{
    g_fp_sim_use_printf = options.foreground;
    std::string error;
    if (!unix_socket_clear(options.socket, &error))
        return lab_program_fail(error);
    if (!fp_block_create(options.recreate))
        return lab_program_fail("the shared block can't be had");
    t_fp_service service = {.engine = fp_engine_new(fp_block_pool()),
                            .clock = fp_clock_make(core_ticks, cvmx_clock_get_rate(CVMX_CLOCK_CORE)),
                            .frames = {},
                            .zones = fp_block_zones()};
    service.flows.limit = static_cast<size_t>(g_fp_scaling.num_zbf_flow_records);
    fp_flows_idle_after(&service.flows, FP_FLOW_IDLE_SECONDS, service.clock.ticks_per_second);
    if (!files_open(options, &service, &error))
        return lab_program_fail(error);
    lab_control_ptr control = fp_control_open(p_daemon->p_base, &service, options.socket, &error);
    if (control == nullptr)
        return lab_program_fail(error);
    fp_live_ptr live;
    if (!options.live.empty()) {
        live = live_open(p_daemon, &service, options.live, &error);
        if (live == nullptr)
            return lab_program_fail(error);
    }
    fp_block_set_ready(true);
    cvmx_sim_log("fpd: ready, %d filters in %d blocks, control socket %s\n", g_fp_scaling.num_filters,
                 g_fp_scaling.num_filter_blocks, options.socket.c_str());
    int status = lab_daemon_run(p_daemon);
    fp_block_set_ready(false);
    cvmx_sim_log("fpd: leaves\n");
    return status;
}

int main(int argc, char **argv)
{
    t_options options;
    const t_lab_option names[] = {
        {.name = "foreground", .letter = 'f', .p_switch = &options.foreground},
        {.name = "socket", .letter = 's', .p_value = &options.socket},
        {.name = "recreate", .letter = 0, .p_switch = &options.recreate},
        {.name = "mirror", .letter = 0, .p_value = &options.mirror},
        {.name = "applications", .letter = 0, .p_value = &options.applications},
        {.name = "live", .letter = 0, .p_value = &options.live},
    };
    return lab_program_main({"fpd", usage, names}, argc, argv,
                            [&](t_lab_daemon *p_daemon) { return serve(p_daemon, options); });
}
