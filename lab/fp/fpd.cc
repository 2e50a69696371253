// fpd: the forwarding plane of a lab router, as a process. See docs/fpd.md.
#include "fp_api/fp_scaling.h"
#include "lab/fp/fp_block.h"
#include "lab/fp/fp_control.h"
#include "libcvmx/sim/_cvmx-clock.h"
#include "libcvmx/sim/sim_log.h"

#include <csignal>
#include <cstdio>
#include <event2/event.h>
#include <getopt.h>
#include <memory>

struct t_options {
    std::string socket = FP_CONTROL_SOCKET;
    bool recreate = false;
    std::string mirror;
    std::string applications;
};

static constexpr char usage[] =
    "Usage: fpd [-f] [--socket PATH] [--recreate] [--mirror FILE] [--applications FILE]\n"
    "The forwarding plane of a lab router: lays out the shared block and executes the programs in it.\n\n"
    "  -f, --foreground   log to standard output instead of syslog (fpd never leaves the foreground)\n"
    "  -s, --socket PATH  control socket; default /var/run/fpd.sock\n"
    "      --recreate     remove a block that an earlier run left\n"
    "      --mirror FILE  capture file to which the copies of mirrored packets are appended\n"
    "      --applications FILE\n"
    "                     ports and their applications, for replayed packets\n"
    "  -h, --help         this text\n";

// Returns the exit status, or -1 to go on.
static int options_read(int argc, char **argv, t_options *p_options)
{
    enum { RECREATE = 256, MIRROR, APPLICATIONS };
    static const option names[] = {{"foreground", no_argument, nullptr, 'f'},
                                   {"socket", required_argument, nullptr, 's'},
                                   {"recreate", no_argument, nullptr, RECREATE},
                                   {"mirror", required_argument, nullptr, MIRROR},
                                   {"applications", required_argument, nullptr, APPLICATIONS},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
    int letter;
    while ((letter = getopt_long(argc, argv, "fs:h", names, nullptr)) != -1) {
        if (letter == 'f')
            g_fp_sim_use_printf = 1;
        else if (letter == 's')
            p_options->socket = optarg;
        else if (letter == RECREATE)
            p_options->recreate = true;
        else if (letter == MIRROR)
            p_options->mirror = optarg;
        else if (letter == APPLICATIONS)
            p_options->applications = optarg;
        else if (letter == 'h')
            return fputs(usage, stdout) < 0;
        else
            return 2;
    }
    if (optind == argc)
        return -1;
    fprintf(stderr, "fpd: unknown word %s\n%s", argv[optind], usage);
    return 2;
}

static int fail(const std::string &reason)
{
    fprintf(stderr, "fpd: %s\n", reason.c_str());
    return 1;
}

static uint64_t core_ticks()
{
    return cvmx_clock_get_count(CVMX_CLOCK_CORE);
}

static void on_end(evutil_socket_t, short, void *p_arg)
{
    event_base_loopbreak(static_cast<event_base *>(p_arg));
}

using base_ptr = std::unique_ptr<event_base, void (*)(event_base *)>;
using event_ptr = std::unique_ptr<event, void (*)(event *)>;

static event_ptr signal_watch(event_base *p_base, int number)
{
    event_ptr watch(evsignal_new(p_base, number, on_end, p_base), event_free);
    if (watch != nullptr)
        event_add(watch.get(), nullptr);
    return watch;
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

static int serve(const t_options &options)
{
    base_ptr base(event_base_new(), event_base_free);
    t_fp_service service = {.engine = fp_engine_new(fp_block_pool()),
                            .clock = fp_clock_make(core_ticks, cvmx_clock_get_rate(CVMX_CLOCK_CORE)),
                            .frames = {}};
    std::string error;
    if (!files_open(options, &service, &error))
        return fail(error);
    error = "no event loop";
    fp_control_ptr control;
    if (base != nullptr)
        control = fp_control_open(base.get(), &service, options.socket, &error);
    if (control == nullptr)
        return fail(error);
    event_ptr on_term = signal_watch(base.get(), SIGTERM);
    event_ptr on_int = signal_watch(base.get(), SIGINT);
    fp_block_set_ready(true);
    cvmx_sim_log("fpd: ready, %d filters in %d blocks, control socket %s\n", g_fp_scaling.num_filters,
                 g_fp_scaling.num_filter_blocks, options.socket.c_str());
    int result = event_base_dispatch(base.get());
    fp_block_set_ready(false);
    cvmx_sim_log("fpd: leaves\n");
    return result == 0 ? 0 : 1;
}

int main(int argc, char **argv)
{
    t_options options;
    int status = options_read(argc, argv, &options);
    if (status >= 0)
        return status;
    signal(SIGPIPE, SIG_IGN);
    std::string error;
    if (!fp_control_path_clear(options.socket, &error))
        return fail(error);
    if (!fp_block_create(options.recreate))
        return fail("the shared block can't be had");
    return serve(options);
}
