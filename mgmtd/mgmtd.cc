// The management daemon's program: options, set-up in order, the loop, an orderly end.

#include "mgmtd/control/control_frame.h"
#include "mgmtd/control/mgmt_control.h"
#include "mgmtd/engine/mgmt_engine.h"
#include "mgmtd/ipc/ipc_access.h"
#include "mgmtd/ipc/ipc_server.h"

#include "common/lum_log.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <event2/event.h>
#include <filesystem>
#include <getopt.h>
#include <sys/resource.h>
#include <syslog.h>
#include <unistd.h>

static constexpr const char *default_folder = "/var/lib/mgmtd";
static constexpr const char *default_access_file = "/etc/confd/confd_ipc_secret";

struct t_options {
    std::string folder = default_folder;
    std::string yang = MGMTD_YANG_FOLDER;
    std::string access_file = default_access_file;
    std::string control = CONTROL_SOCKET;
    std::string control_group;
    std::string check;
    unsigned long port = IPC_DEFAULT_PORT;
    bool foreground = false;
    bool supply_vrf_ids = true;
    bool supply_read_priority = true;
};

// ---- Options ----

static void usage(FILE *p_out)
{
    fprintf(p_out,
            "Usage: mgmtd [options]\n"
            "  --folder DIR        where configurations are stored (%s)\n"
            "  --yang DIR          the data model's modules (%s)\n"
            "  --port N            port of the daemons, 0 for any (%u)\n"
            "  --access-file FILE  secret of the daemons, made if missing (%s)\n"
            "  --control PATH      control socket of lumora-cli (%s)\n"
            "  --control-group G   group whose members may use it, beside root\n"
            "  --no-vrf-ids        other daemons supply the VPNs' table numbers\n"
            "  --no-read-priority  other daemons supply the order of first reading\n"
            "  --check FILE        check a stored configuration and exit: 0 good, 1 bad\n"
            "  -f                  stay in the foreground, log to standard error too\n"
            "  --help              this text\n",
            default_folder, MGMTD_YANG_FOLDER, static_cast<unsigned int>(IPC_DEFAULT_PORT),
            default_access_file, CONTROL_SOCKET);
}

enum e_option {
    OPTION_FOLDER = 256,
    OPTION_YANG,
    OPTION_PORT,
    OPTION_ACCESS,
    OPTION_CONTROL,
    OPTION_CONTROL_GROUP,
    OPTION_CHECK,
    OPTION_VRF,
    OPTION_READ
};

static constexpr option long_options[] = {{"folder", required_argument, nullptr, OPTION_FOLDER},
                                          {"yang", required_argument, nullptr, OPTION_YANG},
                                          {"port", required_argument, nullptr, OPTION_PORT},
                                          {"access-file", required_argument, nullptr, OPTION_ACCESS},
                                          {"control", required_argument, nullptr, OPTION_CONTROL},
                                          {"control-group", required_argument, nullptr, OPTION_CONTROL_GROUP},
                                          {"check", required_argument, nullptr, OPTION_CHECK},
                                          {"no-vrf-ids", no_argument, nullptr, OPTION_VRF},
                                          {"no-read-priority", no_argument, nullptr, OPTION_READ},
                                          {"help", no_argument, nullptr, 'h'},
                                          {nullptr, 0, nullptr, 0}};

static bool port_read(const char *text, unsigned long *p_port)
{
    char *p_end = nullptr;
    *p_port = strtoul(text, &p_end, 10);
    return *text >= '0' && *text <= '9' && *p_end == '\0' && *p_port <= UINT16_MAX;
}

static bool option_take(int option, t_options *p_options)
{
    switch (option) {
    case OPTION_FOLDER:
        p_options->folder = optarg;
        return true;
    case OPTION_YANG:
        p_options->yang = optarg;
        return true;
    case OPTION_PORT:
        return port_read(optarg, &p_options->port);
    case OPTION_ACCESS:
        p_options->access_file = optarg;
        return true;
    case OPTION_CONTROL:
        p_options->control = optarg;
        return true;
    case OPTION_CONTROL_GROUP:
        p_options->control_group = optarg;
        return true;
    case OPTION_CHECK:
        p_options->check = optarg;
        return true;
    case OPTION_VRF:
        p_options->supply_vrf_ids = false;
        return true;
    case OPTION_READ:
        p_options->supply_read_priority = false;
        return true;
    case 'f':
        p_options->foreground = true;
        return true;
    default:
        return false;
    }
}

// Exits for --help and for what it does not know.
static t_options options_read(int argc, char **argv)
{
    t_options options;
    for (int option; (option = getopt_long(argc, argv, "fh", long_options, nullptr)) != -1;) {
        if (option == 'h') {
            usage(stdout);
            exit(0);
        }
        if (!option_take(option, &options)) {
            usage(stderr);
            exit(2);
        }
    }
    if (optind < argc || options.folder.empty() || options.access_file.empty()) {
        usage(stderr);
        exit(2);
    }
    // The program leaves its folder when it goes to the background.
    options.folder = std::filesystem::absolute(options.folder);
    options.access_file = std::filesystem::absolute(options.access_file);
    return options;
}

// ---- The model ----

struct t_model {
    schema_context_ptr context;
    std::unique_ptr<const t_schema_index> index;
};

static bool complain(const std::string &text)
{
    fprintf(stderr, "mgmtd: %s\n", text.c_str());
    LUM_LOG(LUM_LOG_ERROR, "%s", text.c_str());
    return false;
}

static bool model_load(const t_options &options, t_model *p_model)
{
    std::string error;
    std::vector<std::string> errors;
    p_model->context = schema_context_new(options.yang, &error);
    if (p_model->context == nullptr)
        return complain(options.yang + ": " + error);
    p_model->index = schema_index_new(p_model->context.get(), &errors);
    return p_model->index != nullptr || complain(errors.empty() ? "the model has faults" : errors.front());
}

static int check(const t_options &options, const t_model &model)
{
    t_mgmt_error error;
    if (mgmt_file_check(model.index.get(), model.context.get(), options.check, nullptr, &error)) {
        printf("%s: good\n", options.check.c_str());
        return 0;
    }
    complain(options.check + ": " + mgmt_error_text(error));
    return 1;
}

// ---- Running ----

// All that stands while the daemon runs, taken down from the last to the first.
struct t_parts {
    t_model model;
    event_base *p_base = nullptr;
    mgmt_engine_ptr engine;
    ipc_server_ptr server;
    mgmt_control_ptr control;

    ~t_parts()
    {
        control.reset();
        server.reset();
        engine.reset();
        if (p_base != nullptr)
            event_base_free(p_base);
    }
};

static bool engine_open(const t_options &options, t_parts *p_parts)
{
    t_mgmt_error error;
    p_parts->engine =
        mgmt_engine_new(p_parts->p_base, p_parts->model.index.get(), p_parts->model.context.get(),
                        {.store_folder = options.folder,
                         .supply_vrf_ids = options.supply_vrf_ids,
                         .supply_read_priority = options.supply_read_priority,
                         .now_ms = nullptr},
                        &error);
    return p_parts->engine != nullptr || complain(mgmt_error_text(error));
}

static bool server_open(const t_options &options, t_parts *p_parts)
{
    std::string error;
    t_ipc_server_options server = {.port = static_cast<uint16_t>(options.port), .secret = ""};
    if (!ipc_access_open(options.access_file, &server.secret, &error))
        return complain(error);
    p_parts->server = ipc_server_open(p_parts->p_base, p_parts->engine.get(), server, &error);
    return p_parts->server != nullptr || complain(error);
}

static bool control_open(const t_options &options, t_parts *p_parts)
{
    std::string error;
    t_mgmt_control_options control = {.path = options.control, .facts = nullptr};
    if (!options.control_group.empty() && !control_group_find(options.control_group, &control.group))
        return complain("there is no group " + options.control_group);
    p_parts->control = mgmt_control_open(p_parts->p_base, p_parts->engine.get(), control, &error);
    return p_parts->control != nullptr || complain(error);
}

// In the order in which they are needed. Operators' sides (control socket, NETCONF) come after the server,
// so that who can commit finds the daemons' port open.
static bool parts_open(const t_options &options, t_parts *p_parts)
{
    p_parts->p_base = event_base_new();
    return p_parts->p_base != nullptr && engine_open(options, p_parts) && server_open(options, p_parts) &&
           control_open(options, p_parts);
}

static void stop(evutil_socket_t, short, void *p_ctx)
{
    event_base_loopbreak(static_cast<event_base *>(p_ctx));
}

static void limits_set()
{
    // A connection is a descriptor.
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    signal(SIGPIPE, SIG_IGN);
}

static int run(const t_options &options, t_parts *p_parts)
{
    limits_set();
    if (!parts_open(options, p_parts))
        return 1;
    if (!options.foreground && daemon(0, 0) != 0)
        return 1;
    if (event_reinit(p_parts->p_base) != 0)
        return 1;
    event *p_term = evsignal_new(p_parts->p_base, SIGTERM, stop, p_parts->p_base);
    event *p_int = evsignal_new(p_parts->p_base, SIGINT, stop, p_parts->p_base);
    if (p_term == nullptr || p_int == nullptr || evsignal_add(p_term, nullptr) != 0 ||
        evsignal_add(p_int, nullptr) != 0)
        return 1;
    mgmt_engine_set_phase(p_parts->engine.get(), 2);
    LUM_LOG(LUM_LOG_NOTICE, "Running, port %u", static_cast<unsigned int>(ipc_server_port(*p_parts->server)));
    event_base_dispatch(p_parts->p_base);
    LUM_LOG(LUM_LOG_NOTICE, "Stopping");
    event_free(p_term);
    event_free(p_int);
    return 0;
}

int main(int argc, char **argv)
{
    t_options options = options_read(argc, argv);
    openlog("mgmtd", LOG_PID | (options.foreground ? LOG_PERROR : 0), LOG_LOCAL7);
    t_parts parts;
    if (!model_load(options, &parts.model))
        return 1;
    return options.check.empty() ? run(options, &parts) : check(options, parts.model);
}
