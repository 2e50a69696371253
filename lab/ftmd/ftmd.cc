// ftmd: the forwarding table manager of a lab router, as a process. See docs/ftmd.md.
#include "lab/control/lab_program.h"
#include "lab/ftmd/ftm_daemon.h"

static constexpr char usage[] =
    "Usage: ftmd [--tarnd PATH] [--fpd PATH] [--socket PATH]\n"
    "The forwarding table manager of a lab router: learns from tarnd which filter is bound where\n"
    "and hands the table to fpd. Ask it with peerctl. Logs to standard output.\n\n"
    "  -t, --tarnd PATH   tarnd's socket; default /var/run/.tarnd\n"
    "  -p, --fpd PATH     fpd's control socket; default /var/run/fpd.sock\n"
    "  -s, --socket PATH  own control socket; default /var/run/ftmd.sock\n"
    "  -h, --help         this text\n";

static int serve(const t_lab_daemon *p_daemon, const t_ftm_daemon_places &places)
{
    std::string error;
    ftm_daemon_ptr daemon = ftm_daemon_open(p_daemon->p_base, places, &error);
    if (daemon == nullptr)
        return lab_program_fail(error);
    lab_log("ready, control socket %s", places.control.c_str());
    return lab_daemon_run(p_daemon);
}

int main(int argc, char **argv)
{
    t_ftm_daemon_places places;
    const t_lab_option options[] = {{.name = "tarnd", .letter = 't', .p_value = &places.tarnd},
                                    {.name = "fpd", .letter = 'p', .p_value = &places.fpd},
                                    {.name = "socket", .letter = 's', .p_value = &places.control}};
    return lab_program_main({"ftmd", usage, options}, argc, argv,
                            [&](t_lab_daemon *p_daemon) { return serve(p_daemon, places); });
}
