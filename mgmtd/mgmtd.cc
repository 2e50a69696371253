// The management daemon's program: options, set-up in order, the loop, an orderly end.

#include "mgmtd/control/control_frame.h"
#include "mgmtd/control/mgmt_control.h"
#include "mgmtd/engine/mgmt_engine.h"
#include "mgmtd/ipc/ipc_access.h"
#include "mgmtd/ipc/ipc_server.h"
#include "mgmtd/netconf/mgmt_netconf.h"
#include "mgmtd/netconf/netconf_modules.h"
#include "mgmtd/rights/mgmt_users.h"
#include "mgmtd/snmp/mgmt_snmp.h"
#include "mgmtd/snmp/mgmt_snmp_names.h"

#include "common/lum_log.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <event2/event.h>
#include <filesystem>
#include <getopt.h>
#include <iostream>
#include <sys/resource.h>
#include <syslog.h>
#include <termios.h>
#include <unistd.h>

static constexpr const char *default_folder = "/var/lib/mgmtd";
static constexpr const char *default_access_file = "/etc/confd/confd_ipc_secret";

namespace {

struct t_options {
    std::string folder = default_folder;
    std::string yang = MGMTD_YANG_FOLDER;
    std::string access_file = default_access_file;
    std::string control = CONTROL_SOCKET;
    std::string control_group;
    std::string check;
    std::string netconf_address = NETCONF_ADDRESS;
    std::string netconf_socket = NETCONF_SOCKET;
    std::string host_key;  // empty: in the folder
    unsigned long port = IPC_DEFAULT_PORT;
    unsigned long netconf_port = NETCONF_PORT;
    bool has_netconf = true;
    bool foreground = false;
    bool hashes_password = false;
    bool supply_vrf_ids = true;
    bool supply_read_priority = true;
};

}  // namespace

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
            "  --control-group G   group whose members may use it and NETCONF's socket, beside root\n"
            "  --netconf-address A address of NETCONF over SSH (%s)\n"
            "  --netconf-port N    its port, 0 for any (%u)\n"
            "  --host-key FILE     its key, made if missing (ssh_host_key in the folder)\n"
            "  --netconf-socket P  local socket of NETCONF (%s)\n"
            "  --no-netconf        neither of them\n"
            "  --no-vrf-ids        other daemons supply the VPNs' table numbers\n"
            "  --no-read-priority  other daemons supply the order of first reading\n"
            "  --hash-password     print the hash of a password from standard input and exit\n"
            "  --check FILE        check a stored configuration and exit: 0 good, 1 bad\n"
            "  -f                  stay in the foreground, log to standard error too\n"
            "  --help              this text\n",
            default_folder, MGMTD_YANG_FOLDER, static_cast<unsigned int>(IPC_DEFAULT_PORT),
            default_access_file, CONTROL_SOCKET, NETCONF_ADDRESS, static_cast<unsigned int>(NETCONF_PORT),
            NETCONF_SOCKET);
}

enum e_option {
    OPTION_FOLDER = 256,
    OPTION_YANG,
    OPTION_PORT,
    OPTION_ACCESS,
    OPTION_CONTROL,
    OPTION_CONTROL_GROUP,
    OPTION_NETCONF_ADDRESS,
    OPTION_NETCONF_PORT,
    OPTION_HOST_KEY,
    OPTION_NETCONF_SOCKET,
    OPTION_NO_NETCONF,
    OPTION_HASH,
    OPTION_CHECK,
    OPTION_VRF,
    OPTION_READ
};

static constexpr option long_options[] = {
    {"folder", required_argument, nullptr, OPTION_FOLDER},
    {"yang", required_argument, nullptr, OPTION_YANG},
    {"port", required_argument, nullptr, OPTION_PORT},
    {"access-file", required_argument, nullptr, OPTION_ACCESS},
    {"control", required_argument, nullptr, OPTION_CONTROL},
    {"control-group", required_argument, nullptr, OPTION_CONTROL_GROUP},
    {"netconf-address", required_argument, nullptr, OPTION_NETCONF_ADDRESS},
    {"netconf-port", required_argument, nullptr, OPTION_NETCONF_PORT},
    {"host-key", required_argument, nullptr, OPTION_HOST_KEY},
    {"netconf-socket", required_argument, nullptr, OPTION_NETCONF_SOCKET},
    {"no-netconf", no_argument, nullptr, OPTION_NO_NETCONF},
    {"hash-password", no_argument, nullptr, OPTION_HASH},
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

static bool option_take_netconf(int option, t_options *p_options)
{
    switch (option) {
    case OPTION_NETCONF_ADDRESS:
        p_options->netconf_address = optarg;
        return true;
    case OPTION_NETCONF_PORT:
        return port_read(optarg, &p_options->netconf_port);
    case OPTION_HOST_KEY:
        p_options->host_key = optarg;
        return true;
    case OPTION_NETCONF_SOCKET:
        p_options->netconf_socket = optarg;
        return true;
    case OPTION_NO_NETCONF:
        p_options->has_netconf = false;
        return true;
    default:
        return false;
    }
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
    case OPTION_HASH:
        p_options->hashes_password = true;
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
        return option_take_netconf(option, p_options);
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
    options.netconf_socket = std::filesystem::absolute(options.netconf_socket);
    options.host_key = options.host_key.empty() ? options.folder + "/ssh_host_key"
                                                : std::filesystem::absolute(options.host_key).string();
    return options;
}

// ---- The model ----

namespace {

struct t_model {
    schema_context_ptr context;
    std::unique_ptr<const t_schema_index> index;
};

}  // namespace

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
    if (p_model->context == nullptr || !netconf_modules_load(p_model->context.get(), &error))
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

// What an operator types does not appear on the terminal.
static int password_hash()
{
    termios before = {};
    bool is_terminal = tcgetattr(STDIN_FILENO, &before) == 0;
    termios quiet = before;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    if (is_terminal)
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    std::string password;
    bool has_line = static_cast<bool>(std::getline(std::cin, password));
    if (is_terminal)
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &before);
    std::string hash = has_line && !password.empty() ? mgmt_password_hash(password) : "";
    if (hash.empty()) {
        fprintf(stderr, "mgmtd: no password on standard input\n");
        return 1;
    }
    printf("%s\n", hash.c_str());
    return 0;
}

// ---- Running ----

// All that stands while the daemon runs, taken down from the last to the first.
struct t_parts {
    t_model model;
    event_base *p_base = nullptr;
    mgmt_snmp_ptr snmp;
    mgmt_engine_ptr engine;
    ipc_server_ptr server;
    mgmt_control_ptr control;
    mgmt_netconf_ptr netconf;
    bool is_stopping = false;

    ~t_parts()
    {
        netconf.reset();
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
    p_parts->snmp =
        mgmt_snmp_new({.running = [p_parts] { return mgmt_tree_of(p_parts->engine.get(), MGMT_DS_RUNNING); },
                       .oid_of = mgmt_snmp_name_find});
    p_parts->engine =
        mgmt_engine_new(p_parts->p_base, p_parts->model.index.get(), p_parts->model.context.get(),
                        {.store_folder = options.folder,
                         .supply_vrf_ids = options.supply_vrf_ids,
                         .supply_read_priority = options.supply_read_priority,
                         .now_ms = nullptr,
                         .p_snmp = &g_mgmt_snmp_ops,
                         .p_snmp_ctx = p_parts->snmp.get()},
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
    t_mgmt_control_options control = {.path = options.control};
    if (!options.control_group.empty() && !control_group_find(options.control_group, &control.group))
        return complain("there is no group " + options.control_group);
    p_parts->control = mgmt_control_open(p_parts->p_base, p_parts->engine.get(), control, &error);
    return p_parts->control != nullptr || complain(error);
}

static bool netconf_open(const t_options &options, t_parts *p_parts)
{
    std::string error;
    t_mgmt_netconf_options netconf = {.address = options.netconf_address,
                                      .port = static_cast<int>(options.netconf_port),
                                      .host_key = options.host_key,
                                      .socket = options.netconf_socket,
                                      .group = CONTROL_NO_GROUP};
    if (!options.has_netconf)
        return true;
    if (!options.control_group.empty() && !control_group_find(options.control_group, &netconf.group))
        return complain("there is no group " + options.control_group);
    p_parts->netconf =
        mgmt_netconf_open(p_parts->engine.get(), p_parts->model.context.get(), netconf, &error);
    return p_parts->netconf != nullptr || complain(error);
}

// In the order in which they are needed. Operators' sides (control socket, NETCONF) come after the server,
// so that who can commit finds the daemons' port open.
static bool parts_open(const t_options &options, t_parts *p_parts)
{
    p_parts->p_base = event_base_new();
    return p_parts->p_base != nullptr && engine_open(options, p_parts) && server_open(options, p_parts) &&
           control_open(options, p_parts) && netconf_open(options, p_parts);
}

// NETCONF's sessions still ask the engine while they end.
static void stop(evutil_socket_t, short, void *p_ctx)
{
    t_parts *p_parts = static_cast<t_parts *>(p_ctx);
    if (std::exchange(p_parts->is_stopping, true))
        return;
    LUM_LOG(LUM_LOG_NOTICE, "Stopping");
    if (p_parts->netconf == nullptr)
        event_base_loopbreak(p_parts->p_base);
    else
        mgmt_netconf_stop(p_parts->netconf.get(), [p_parts] { event_base_loopbreak(p_parts->p_base); });
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
    event *p_term = evsignal_new(p_parts->p_base, SIGTERM, stop, p_parts);
    event *p_int = evsignal_new(p_parts->p_base, SIGINT, stop, p_parts);
    if (p_term == nullptr || p_int == nullptr || evsignal_add(p_term, nullptr) != 0 ||
        evsignal_add(p_int, nullptr) != 0)
        return 1;
    std::string error;
    if (p_parts->netconf != nullptr && !mgmt_netconf_start(p_parts->netconf.get(), &error)) {
        complain(error);
        return 1;
    }
    mgmt_engine_set_phase(p_parts->engine.get(), 2);
    LUM_LOG(LUM_LOG_NOTICE, "Running, port %u", static_cast<unsigned int>(ipc_server_port(*p_parts->server)));
    event_base_dispatch(p_parts->p_base);
    event_free(p_term);
    event_free(p_int);
    return 0;
}

int main(int argc, char **argv)
{
    t_options options = options_read(argc, argv);
    if (options.hashes_password)
        return password_hash();
    openlog("mgmtd", LOG_PID | (options.foreground ? LOG_PERROR : 0), LOG_LOCAL7);
    t_parts parts;
    if (!model_load(options, &parts.model))
        return 1;
    return options.check.empty() ? run(options, &parts) : check(options, parts.model);
}
