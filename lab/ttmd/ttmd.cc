// ttmd: the TLOC table manager of a lab router. See docs/peers.md.
#include "lab/peers/peer_program.h"
#include "lab/ttmd/ttm_service.h"

#include <csignal>
#include <cstdio>
#include <fstream>
#include <getopt.h>
#include <nlohmann/json.hpp>

struct t_options {
    std::string socket = TTM_SERVICE_SOCKET;
    std::string control = "/var/run/ttmd.sock";
    std::string script;
};

static constexpr char usage[] =
    "Usage: ttmd [--socket PATH] [--control PATH] [--script FILE]\n"
    "The TLOC table manager of a lab router: announces and withdraws locators as it is told.\n\n"
    "  -s, --socket PATH   where clients connect; default /var/run/.ttmd\n"
    "  -c, --control PATH  control socket; default /var/run/ttmd.sock\n"
    "      --script FILE   commands, one a line, and `sleep MSECS`; # begins a comment\n"
    "  -h, --help          this text\n\n"
    "Commands, also by `peerctl ttmd COMMAND`:\n"
    "  announce ADDR COLOR ENCAP [pref=N] [weight=N] [index=N] [paths=N] [status=up|down]\n"
    "           [origin=local|remote|far-remote]\n"
    "  withdraw ADDR COLOR ENCAP\n"
    "  flap ADDR COLOR ENCAP COUNT MSECS\n"
    "  list, stats, drop\n";

static int fail(const std::string &reason)
{
    fprintf(stderr, "ttmd: %s\n", reason.c_str());
    return 1;
}

// Returns the exit status, or -1 to go on.
static int options_read(int argc, char **argv, t_options *p_options)
{
    enum { SCRIPT = 256 };
    static const option names[] = {{"socket", required_argument, nullptr, 's'},
                                   {"control", required_argument, nullptr, 'c'},
                                   {"script", required_argument, nullptr, SCRIPT},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
    int letter;
    while ((letter = getopt_long(argc, argv, "s:c:h", names, nullptr)) != -1) {
        if (letter == 's')
            p_options->socket = optarg;
        else if (letter == 'c')
            p_options->control = optarg;
        else if (letter == SCRIPT)
            p_options->script = optarg;
        else if (letter == 'h')
            return fputs(usage, stdout) < 0;
        else
            return 2;
    }
    if (optind == argc)
        return -1;
    fprintf(stderr, "ttmd: unknown word %s\n%s", argv[optind], usage);
    return 2;
}

// ---- Script ----

struct t_script {
    t_ttm_service *p_service;
    std::vector<t_ttm_command> commands;
    std::vector<size_t> lines;  // of the file, for each command
    size_t next;
    peer_event_ptr timer;
};

// All of the file is checked before any of it is done. False with the reason.
static bool script_read(const std::string &path, t_script *p_script, std::string *p_error)
{
    std::ifstream file(path);
    std::string text;
    size_t line = 0;
    while (std::getline(file, text)) {
        line++;
        t_peer_words words = peer_words_split(text.substr(0, text.find('#')));
        t_ttm_command command;
        if (words.empty())
            continue;
        if (!ttm_command_parse(words, &command, p_error)) {
            *p_error = path + ", line " + std::to_string(line) + ": " + *p_error;
            return false;
        }
        p_script->commands.push_back(command);
        p_script->lines.push_back(line);
    }
    *p_error = path + ": can't be read";
    return file.eof();
}

static void on_script(evutil_socket_t, short, void *p_arg)
{
    t_script *p_script = static_cast<t_script *>(p_arg);
    while (p_script->next < p_script->commands.size()) {
        size_t line = p_script->lines[p_script->next];
        const t_ttm_command &command = p_script->commands[p_script->next++];
        if (command.kind == TTM_COMMAND_SLEEP) {
            timeval pause = {.tv_sec = command.msecs / 1000, .tv_usec = command.msecs % 1000 * 1000};
            event_add(p_script->timer.get(), &pause);
            return;
        }
        nlohmann::ordered_json answer = ttm_service_run(p_script->p_service, command);
        if (!answer["ok"].get<bool>() || answer.size() > 1)
            peer_log("script, line %zu: %s", line, answer.dump().c_str());
    }
    peer_log("the script is done");
}

// ---- Program ----

static nlohmann::ordered_json on_request(void *p_user, const t_peer_words &words)
{
    t_ttm_command command;
    std::string error;
    if (!ttm_command_parse(words, &command, &error))
        return peer_control_refusal(error);
    return ttm_service_run(static_cast<t_ttm_service *>(p_user), command);
}

static int serve(const t_options &options, t_script *p_script)
{
    peer_base_ptr base(event_base_new());
    std::string error = "no event loop";
    ttm_service_ptr service;
    peer_control_ptr control;
    if (base != nullptr)
        service = ttm_service_open(base.get(), options.socket, &error);
    if (service != nullptr)
        control = peer_control_open(base.get(), options.control, on_request, service.get(), &error);
    if (control == nullptr)
        return fail(error);
    peer_event_ptr on_term = peer_signal_watch(base.get(), SIGTERM, peer_on_signal_end, base.get());
    peer_event_ptr on_int = peer_signal_watch(base.get(), SIGINT, peer_on_signal_end, base.get());
    peer_log("ready, clients at %s, control socket %s", options.socket.c_str(), options.control.c_str());
    p_script->p_service = service.get();
    p_script->timer.reset(event_new(base.get(), -1, 0, on_script, p_script));
    if (!p_script->commands.empty())
        on_script(-1, 0, p_script);
    int result = event_base_dispatch(base.get());
    p_script->timer.reset();
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
    peer_log_name("ttmd");
    t_script script = {};
    std::string error;
    if (!options.script.empty() && !script_read(options.script, &script, &error))
        return fail(error);
    return serve(options, &script);
}
