// ftmd: the forwarding table manager of a lab router, as a process. See docs/ftmd.md.
#include "lab/ftmd/ftm_daemon.h"
#include "lab/peers/peer_program.h"

#include <csignal>
#include <cstdio>
#include <getopt.h>

static constexpr char usage[] =
    "Usage: ftmd [--tarnd PATH] [--fpd PATH] [--socket PATH]\n"
    "The forwarding table manager of a lab router: learns from tarnd which filter is bound where\n"
    "and hands the table to fpd. Ask it with peerctl. Logs to standard output.\n\n"
    "  -t, --tarnd PATH   tarnd's socket; default /var/run/.tarnd\n"
    "  -p, --fpd PATH     fpd's control socket; default /var/run/fpd.sock\n"
    "  -s, --socket PATH  own control socket; default /var/run/ftmd.sock\n"
    "  -h, --help         this text\n";

// Returns the exit status, or -1 to go on.
static int options_read(int argc, char **argv, t_ftm_daemon_places *p_places)
{
    static const option names[] = {{"tarnd", required_argument, nullptr, 't'},
                                   {"fpd", required_argument, nullptr, 'p'},
                                   {"socket", required_argument, nullptr, 's'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
    int letter;
    while ((letter = getopt_long(argc, argv, "t:p:s:h", names, nullptr)) != -1) {
        if (letter == 't')
            p_places->tarnd = optarg;
        else if (letter == 'p')
            p_places->fpd = optarg;
        else if (letter == 's')
            p_places->control = optarg;
        else if (letter == 'h')
            return fputs(usage, stdout) < 0;
        else
            return 2;
    }
    if (optind == argc)
        return -1;
    fprintf(stderr, "ftmd: unknown word %s\n%s", argv[optind], usage);
    return 2;
}

static int fail(const std::string &reason)
{
    fprintf(stderr, "ftmd: %s\n", reason.c_str());
    return 1;
}

static int serve(const t_ftm_daemon_places &places)
{
    peer_base_ptr base(event_base_new());
    if (base == nullptr)
        return fail("no event loop");
    std::string error;
    ftm_daemon_ptr daemon = ftm_daemon_open(base.get(), places, &error);
    if (daemon == nullptr)
        return fail(error);
    peer_event_ptr on_term = peer_signal_watch(base.get(), SIGTERM, peer_on_signal_end, base.get());
    peer_event_ptr on_int = peer_signal_watch(base.get(), SIGINT, peer_on_signal_end, base.get());
    peer_log("ready, control socket %s", places.control.c_str());
    return event_base_dispatch(base.get()) == 0 ? 0 : 1;
}

int main(int argc, char **argv)
{
    t_ftm_daemon_places places;
    int status = options_read(argc, argv, &places);
    if (status >= 0)
        return status;
    signal(SIGPIPE, SIG_IGN);
    peer_log_name("ftmd");
    return serve(places);
}
