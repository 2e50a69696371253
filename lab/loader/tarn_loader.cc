// tarn_loader: the daemon with objects from JSON files in place of a management framework.
//
// It starts as tarnd does and serves a control socket: `peerctl --socket /var/run/tarn_loader.sock load FILE`
// carries out a file's operations and a pass.
#include "lab/control/lab_control.h"
#include "lab/loader/loader.h"
#include "tarnd/core/tarn_main.h"

#include <CLI/CLI.hpp>
#include <csignal>
#include <event2/event.h>
#include <nlohmann/json.hpp>

static nlohmann::ordered_json answer(void *p_user, const t_lab_words &words)
{
    if (words.size() != 2 || words[0] != "load")
        return lab_answer_refusal("requests: load FILE");
    std::string refusal = loader_apply_file(static_cast<t_tarn *>(p_user), words[1]);
    return refusal.empty() ? lab_answer_done() : lab_answer_refusal(refusal);
}

// The daemon's life between start and stop: 0, or 1 when a file or the socket is refused.
static int serve(const std::string &socket_path, const std::vector<std::string> &files)
{
    for (const std::string &file : files) {
        if (std::string refusal = loader_apply_file(&g_tarn, file); !refusal.empty()) {
            fprintf(stderr, "tarn_loader: %s\n", refusal.c_str());
            return 1;
        }
    }
    std::string error;
    lab_control_ptr control = lab_control_open(g_tarn.p_event_base, socket_path, answer, &g_tarn, &error);
    if (control == nullptr) {
        fprintf(stderr, "tarn_loader: %s\n", error.c_str());
        return 1;
    }
    event_base_loop(g_tarn.p_event_base, 0);
    return 0;
}

int main(int argc, char **argv)
{
    CLI::App app("The policy daemon with objects from JSON files in place of a management framework.");
    std::string socket_path = "/var/run/tarn_loader.sock";
    std::vector<std::string> files;
    app.add_option("-s,--socket", socket_path, "control socket")->capture_default_str();
    app.add_option("files", files, "descriptions to load at start, in order");
    CLI11_PARSE(app, argc, argv);
    signal(SIGPIPE, SIG_IGN);
    if (int status = tarn_init(&g_tarn); status != 0)
        return status;
    loader_init(&g_tarn);
    int result = serve(socket_path, files);
    tarn_destroy(&g_tarn);
    return result;
}
