// Set up and end of the transport.

#include "mgmtd/netconf/mgmt_netconf.h"

#include "common/lum_assert.h"
#include "common/lum_log.h"
#include "mgmtd/control/control_peer.h"
#include "mgmtd/control/control_socket.h"
#include "mgmtd/netconf/netconf_address.h"
#include "mgmtd/netconf/netconf_private.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <libyang/libyang.h>
#include <nc_server.h>
#include <sys/socket.h>
#include <unistd.h>

static constexpr int local_backlog = 32;
static constexpr const char *extra_capabilities[] = {
    "urn:ietf:params:netconf:capability:notification:1.0",
    "urn:ietf:params:netconf:capability:interleave:1.0",
};

void t_ssh_bind_deleter::operator()(ssh_bind p_bind) const
{
    ssh_bind_free(p_bind);
}

// ---- The library ----

// What peers make of their bytes is no error of ours.
static void on_library_log(const nc_session *, NC_VERB_LEVEL, const char *text)
{
    LUM_LOG(LUM_LOG_DEBUG, "NETCONF library: %s", text);
}

static void capabilities_read(t_mgmt_netconf *p_netconf)
{
    const char **p_list = nc_server_get_cpblts(p_netconf->p_context);
    for (size_t i = 0; p_list != nullptr && p_list[i] != nullptr; i++) {
        p_netconf->monitor.capabilities.emplace_back(p_list[i]);
        lydict_remove(p_netconf->p_context, p_list[i]);
    }
    free(p_list);
}

static bool library_open(t_mgmt_netconf *p_netconf, std::string *p_error)
{
    nc_verbosity(NC_VERB_ERROR);
    nc_set_print_clb_session(on_library_log);
    netconf_callbacks_set(p_netconf->p_context);
    if (nc_server_init(p_netconf->p_context) != 0) {
        *p_error = "NETCONF: the library can't be initialised with this model";
        return false;
    }
    p_netconf->is_library_ready = true;
    nc_server_set_capab_withdefaults(NC_WD_EXPLICIT, NC_WD_ALL_TAG | NC_WD_TRIM | NC_WD_ALL);
    for (const char *capability : extra_capabilities)
        nc_server_set_capability(capability);
    nc_server_set_hello_timeout(NETCONF_HELLO_MS / 1000);
    nc_server_set_idle_timeout(0);
    capabilities_read(p_netconf);
    return true;
}

// ---- Doors ----

static bool ssh_open(t_mgmt_netconf *p_netconf, std::string *p_error)
{
    p_netconf->host_key = netconf_host_key_open(p_netconf->options.host_key, p_error);
    if (p_netconf->host_key == nullptr)
        return false;
    p_netconf->bind.reset(ssh_bind_new());
    ssh_key p_copy = p_netconf->host_key.get();
    const bool reads_files = false;  // no configuration of other SSH servers
    ssh_bind p_bind = p_netconf->bind.get();
    if (p_bind == nullptr ||
        ssh_bind_options_set(p_bind, SSH_BIND_OPTIONS_PROCESS_CONFIG, &reads_files) != 0 ||
        ssh_bind_options_set(p_bind, SSH_BIND_OPTIONS_IMPORT_KEY, p_copy) != 0) {
        *p_error = "SSH host key " + p_netconf->options.host_key + ": the SSH library does not take it";
        return false;
    }
    (void)p_netconf->host_key.release();  // the bind's from here
    p_netconf->ssh_fd =
        netconf_port_bind(p_netconf->options.address, p_netconf->options.port, &p_netconf->port, p_error);
    return p_netconf->ssh_fd >= 0;
}

static bool socket_open(t_mgmt_netconf *p_netconf, std::string *p_error)
{
    p_netconf->socket_fd = control_socket_bind(p_netconf->options.socket, p_netconf->options.group, p_error);
    if (p_netconf->socket_fd < 0)
        return false;
    if (listen(p_netconf->socket_fd, local_backlog) == 0)
        return true;
    *p_error = p_netconf->options.socket + ": " + strerror(errno);
    return false;
}

static std::string start_time()
{
    time_t now = time(nullptr);
    tm parts = {};
    char text[32];
    gmtime_r(&now, &parts);
    size_t size = strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return {text, size};
}

mgmt_netconf_ptr mgmt_netconf_open(t_mgmt_engine *p_engine, ly_ctx *p_context,
                                   const t_mgmt_netconf_options &options, std::string *p_error)
{
    mgmt_netconf_ptr netconf(new t_mgmt_netconf());
    netconf->p_engine = p_engine;
    netconf->p_context = p_context;
    netconf->options = options;
    netconf->monitor.start_time = start_time();
    bool is_open = netconf->bell.fd >= 0 && library_open(netconf.get(), p_error) &&
                   (options.port < 0 || ssh_open(netconf.get(), p_error)) &&
                   (options.socket.empty() || socket_open(netconf.get(), p_error));
    if (!is_open)
        return nullptr;
    netconf->rpc_server = mgmt_rpc_server_new(&netconf->monitor);
    return netconf;
}

// ---- Running ----

// Signals are for the owner's thread.
bool mgmt_netconf_start(t_mgmt_netconf *p_netconf, std::string *p_error)
{
    if (!netconf_listen_prepare(p_netconf, p_error))
        return false;
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    p_netconf->thread = std::thread(netconf_listen_run, p_netconf);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (p_netconf->options.port >= 0)
        LUM_LOG(LUM_LOG_NOTICE, "NETCONF over SSH, port %u", static_cast<unsigned int>(p_netconf->port));
    return true;
}

void mgmt_netconf_stop(t_mgmt_netconf *p_netconf, std::function<void()> stopped)
{
    p_netconf->stopped = std::move(stopped);
    p_netconf->is_stopping = true;
    p_netconf->bell.ring();
}

void t_mgmt_netconf_deleter::operator()(t_mgmt_netconf *p_netconf) const
{
    LUM_ASSERT(!p_netconf->thread.joinable(), "the NETCONF threads have been stopped");
    netconf_listen_free(p_netconf);
    for (int fd : {p_netconf->ssh_fd, p_netconf->socket_fd})
        if (fd >= 0)
            close(fd);
    if (!p_netconf->options.socket.empty())
        unlink(p_netconf->options.socket.c_str());
    p_netconf->bind.reset();
    if (p_netconf->is_library_ready)
        nc_server_destroy();
    delete p_netconf;
}

uint16_t mgmt_netconf_port(const t_mgmt_netconf &netconf)
{
    return netconf.port;
}

const t_netconf_monitor *mgmt_netconf_monitor(const t_mgmt_netconf &netconf)
{
    return &netconf.monitor;
}
