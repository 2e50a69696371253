// ttmd: the TLOC table manager of a lab router. See docs/peers.md.
#include "lab/control/lab_program.h"
#include "lab/ttmd/ttm_service.h"

#include <fstream>
#include <nlohmann/json.hpp>

namespace {

struct t_options {
    std::string socket = TTM_SERVICE_SOCKET;
    std::string control = "/var/run/ttmd.sock";
    std::string script;
};

}  // namespace

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

// ---- Script ----

struct t_script {
    t_ttm_service *p_service;
    std::vector<t_ttm_command> commands;
    std::vector<size_t> lines;  // of the file, for each command
    size_t next;
    lab_event_ptr timer;
};

// All of the file is checked before any of it is done. False with the reason.
static bool script_read(const std::string &path, t_script *p_script, std::string *p_error)
{
    std::ifstream file(path);
    std::string text;
    size_t line = 0;
    while (std::getline(file, text)) {
        line++;
        t_lab_words words = lab_words_split(text.substr(0, text.find('#')));
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
            lab_log("script, line %zu: %s", line, answer.dump().c_str());
    }
    lab_log("the script is done");
}

// ---- Program ----

static nlohmann::ordered_json on_request(void *p_user, const t_lab_words &words)
{
    t_ttm_command command;
    std::string error;
    if (!ttm_command_parse(words, &command, &error))
        return lab_answer_refusal(error);
    return ttm_service_run(static_cast<t_ttm_service *>(p_user), command);
}

static int serve(const t_lab_daemon *p_daemon, const t_options &options)
{
    event_base *p_base = p_daemon->p_base;
    t_script script = {};
    std::string error;
    if (!options.script.empty() && !script_read(options.script, &script, &error))
        return lab_program_fail(error);
    ttm_service_ptr service = ttm_service_open(p_base, options.socket, &error);
    lab_control_ptr control;
    if (service != nullptr)
        control = lab_control_open(p_base, options.control, on_request, service.get(), &error);
    if (control == nullptr)
        return lab_program_fail(error);
    lab_log("ready, clients at %s, control socket %s", options.socket.c_str(), options.control.c_str());
    script.p_service = service.get();
    script.timer.reset(event_new(p_base, -1, 0, on_script, &script));
    if (!script.commands.empty())
        on_script(-1, 0, &script);
    int status = lab_daemon_run(p_daemon);
    lab_log("leaves");
    return status;
}

int main(int argc, char **argv)
{
    t_options options;
    const t_lab_option names[] = {{.name = "socket", .letter = 's', .p_value = &options.socket},
                                  {.name = "control", .letter = 'c', .p_value = &options.control},
                                  {.name = "script", .letter = 0, .p_value = &options.script}};
    return lab_program_main({"ttmd", usage, names}, argc, argv,
                            [&](t_lab_daemon *p_daemon) { return serve(p_daemon, options); });
}
