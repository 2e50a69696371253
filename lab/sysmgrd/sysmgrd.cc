// sysmgrd: the system manager of a lab router. See docs/peers.md.
#include "lab/peers/peer_program.h"
#include "lab/sysmgrd/daemon_config.h"
#include "lab/sysmgrd/sysmgr_service.h"

#include <csignal>
#include <cstdio>
#include <fstream>
#include <getopt.h>
#include <iterator>
#include <nlohmann/json.hpp>

struct t_options {
    std::string socket = SYSMGR_SERVICE_SOCKET;
    std::string control = "/var/run/sysmgrd.sock";
    std::string config;
};

static constexpr char usage[] =
    "Usage: sysmgrd [--config FILE] [--socket PATH] [--control PATH]\n"
    "The system manager of a lab router: starts daemons, watches their hellos, restarts those that fall "
    "silent.\n\n"
    "      --config FILE   the daemons to supervise, in JSON; without it hellos are only watched\n"
    "  -s, --socket PATH   where clients connect; default /var/run/.sysmgrd\n"
    "  -c, --control PATH  control socket; default /var/run/sysmgrd.sock\n"
    "  -h, --help          this text\n\n"
    "Requests, by `peerctl sysmgrd REQUEST`: list, stats, start NAME, stop NAME, restart NAME\n";

static int fail(const std::string &reason)
{
    fprintf(stderr, "sysmgrd: %s\n", reason.c_str());
    return 1;
}

// Returns the exit status, or -1 to go on.
static int options_read(int argc, char **argv, t_options *p_options)
{
    enum { CONFIG = 256 };
    static const option names[] = {{"socket", required_argument, nullptr, 's'},
                                   {"control", required_argument, nullptr, 'c'},
                                   {"config", required_argument, nullptr, CONFIG},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
    int letter;
    while ((letter = getopt_long(argc, argv, "s:c:h", names, nullptr)) != -1) {
        if (letter == 's')
            p_options->socket = optarg;
        else if (letter == 'c')
            p_options->control = optarg;
        else if (letter == CONFIG)
            p_options->config = optarg;
        else if (letter == 'h')
            return fputs(usage, stdout) < 0;
        else
            return 2;
    }
    if (optind == argc)
        return -1;
    fprintf(stderr, "sysmgrd: unknown word %s\n%s", argv[optind], usage);
    return 2;
}

static bool config_read(const std::string &path, std::vector<t_daemon_spec> *p_specs, std::string *p_error)
{
    std::ifstream file(path);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    bool is_read = file.good() || file.eof();
    if (is_read && daemon_config_parse(text, p_specs, p_error))
        return true;
    *p_error = path + ": " + (is_read ? *p_error : "can't be read");
    return false;
}

static void on_stop(evutil_socket_t, short, void *p_arg)
{
    peer_log("stops its daemons");
    sysmgr_service_stop(static_cast<t_sysmgr_service *>(p_arg));
}

static nlohmann::ordered_json on_request(void *p_user, const t_peer_words &words)
{
    return sysmgr_service_answer(static_cast<t_sysmgr_service *>(p_user), words);
}

static int serve(const t_options &options, const std::vector<t_daemon_spec> &specs)
{
    peer_base_ptr base(event_base_new());
    std::string error = "no event loop";
    sysmgr_service_ptr service;
    peer_control_ptr control;
    if (base != nullptr)
        service = sysmgr_service_open(base.get(), options.socket, specs, &error);
    if (service != nullptr)
        control = peer_control_open(base.get(), options.control, on_request, service.get(), &error);
    if (control == nullptr)
        return fail(error);
    peer_event_ptr on_term = peer_signal_watch(base.get(), SIGTERM, on_stop, service.get());
    peer_event_ptr on_int = peer_signal_watch(base.get(), SIGINT, on_stop, service.get());
    peer_log("ready, clients at %s, control socket %s", options.socket.c_str(), options.control.c_str());
    int result = event_base_dispatch(base.get());
    peer_log("leaves");
    return result == 0 ? 0 : 1;
}

int main(int argc, char **argv)
{
    t_options options;
    int status = options_read(argc, argv, &options);
    if (status >= 0)
        return status;
    signal(SIGPIPE, SIG_IGN);
    peer_log_name("sysmgrd");
    std::vector<t_daemon_spec> specs;
    std::string error;
    if (!options.config.empty() && !config_read(options.config, &specs, &error))
        return fail(error);
    return serve(options, specs);
}
