// sysmgrd: the system manager of a lab router. See docs/peers.md.
#include "lab/control/lab_program.h"
#include "lab/sysmgrd/daemon_config.h"
#include "lab/sysmgrd/sysmgr_service.h"

#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

namespace {

struct t_options {
    std::string socket = SYSMGR_SERVICE_SOCKET;
    std::string control = "/var/run/sysmgrd.sock";
    std::string config;
};

}  // namespace

static constexpr char usage[] =
    "Usage: sysmgrd [--config FILE] [--socket PATH] [--control PATH]\n"
    "The system manager of a lab router: starts daemons, watches their hellos, restarts those that fall "
    "silent.\n\n"
    "      --config FILE   the daemons to supervise, in JSON; without it hellos are only watched\n"
    "  -s, --socket PATH   where clients connect; default /var/run/.sysmgrd\n"
    "  -c, --control PATH  control socket; default /var/run/sysmgrd.sock\n"
    "  -h, --help          this text\n\n"
    "Requests, by `peerctl sysmgrd REQUEST`: list, stats, start NAME, stop NAME, restart NAME\n";

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

static nlohmann::ordered_json on_request(void *p_user, const t_lab_words &words)
{
    return sysmgr_service_answer(static_cast<t_sysmgr_service *>(p_user), words);
}

static int serve(t_lab_daemon *p_daemon, const t_options &options)
{
    std::vector<t_daemon_spec> specs;
    std::string error;
    if (!options.config.empty() && !config_read(options.config, &specs, &error))
        return lab_program_fail(error);
    sysmgr_service_ptr service = sysmgr_service_open(p_daemon->p_base, options.socket, specs, &error);
    lab_control_ptr control;
    if (service != nullptr)
        control = lab_control_open(p_daemon->p_base, options.control, on_request, service.get(), &error);
    if (control == nullptr)
        return lab_program_fail(error);
    p_daemon->on_end = [&service] {
        lab_log("stops its daemons");
        sysmgr_service_stop(service.get());
    };
    lab_log("ready, clients at %s, control socket %s", options.socket.c_str(), options.control.c_str());
    int status = lab_daemon_run(p_daemon);
    lab_log("leaves");
    return status;
}

int main(int argc, char **argv)
{
    t_options options;
    const t_lab_option names[] = {{.name = "socket", .letter = 's', .p_value = &options.socket},
                                  {.name = "control", .letter = 'c', .p_value = &options.control},
                                  {.name = "config", .letter = 0, .p_value = &options.config}};
    return lab_program_main({"sysmgrd", usage, names}, argc, argv,
                            [&](t_lab_daemon *p_daemon) { return serve(p_daemon, options); });
}
