// Who may log in: users of the running configuration, by password or key; local peers by what the kernel
// tells of them.

#include "common/lum_log.h"
#include "mgmtd/control/control_peer.h"
#include "mgmtd/netconf/netconf_private.h"

#include <algorithm>
#include <poll.h>

static constexpr int owner_ms = 10 * 1000;      // for looking a user up
static constexpr int first_delay_ms = 250;      // behind a wrong password; doubled with each more
static constexpr unsigned int max_doubled = 4;  // so never above 4 s
static constexpr auto failures_kept = std::chrono::seconds(60);
static constexpr size_t max_failing = 4096;  // addresses that are remembered

std::string netconf_log_name(const std::string &name)
{
    std::string shown = name.substr(0, 64);
    std::ranges::replace_if(
        shown, [](char byte) { return byte <= ' ' || byte > '~'; }, '?');
    return shown;
}

// The login of a user that is not configured stays empty and fits nothing.
static t_mgmt_login login_find(t_mgmt_netconf *p_netconf, const std::string &user)
{
    auto found = std::make_shared<t_mgmt_login>();
    t_mgmt_engine *p_engine = p_netconf->p_engine;
    auto look = [found, p_engine, user] {
        t_mgmt_login login;
        if (mgmt_user_find(*mgmt_tree_of(p_engine, MGMT_DS_RUNNING), user, &login))
            *found = std::move(login);
    };
    return netconf_owner_try(p_engine, look, owner_ms) ? *found : t_mgmt_login();
}

// ---- Failures ----

// Counts one, and gives the time to wait before it is told.
static int failure_count(t_netconf_link *p_link)
{
    t_mgmt_netconf *p_netconf = p_link->p_netconf;
    auto now = netconf_clock::now();
    std::lock_guard guard(p_netconf->lock);
    if (p_netconf->failures.size() >= max_failing)
        std::erase_if(p_netconf->failures,
                      [now](const auto &item) { return now - item.second.last > failures_kept; });
    if (p_netconf->failures.size() >= max_failing)
        p_netconf->failures.clear();
    t_netconf_failures &entry = p_netconf->failures[p_link->address_key];
    entry.count = now - entry.last > failures_kept ? 0 : entry.count;
    entry.last = now;
    return first_delay_ms << std::min(entry.count++, max_doubled);
}

static void failure_tell(t_netconf_link *p_link, const std::string &user, const char *method)
{
    LUM_LOG(LUM_LOG_NOTICE, "NETCONF: login of user %s from %s failed (%s)", netconf_log_name(user).c_str(),
            p_link->host.c_str(), method);
    pollfd bell = {.fd = p_link->bell.fd, .events = POLLIN, .revents = 0};
    poll(&bell, 1, failure_count(p_link));
}

// ---- Methods ----

bool netconf_login_password(t_netconf_link *p_link, const std::string &user, const std::string &password)
{
    t_mgmt_login login = login_find(p_link->p_netconf, user);
    bool fits = false;
    {
        // Hashing is costly by design: many logins at once must not take all processors.
        std::lock_guard guard(p_link->p_netconf->password_lock);
        fits = !p_link->is_ending && mgmt_password_fits(login.password_hash, password);
    }
    if (!fits)
        failure_tell(p_link, user, "password");
    return fits;
}

static bool key_fits(const std::pair<std::string, std::string> &line, ssh_key p_key)
{
    ssh_key p_own = nullptr;
    ssh_keytypes_e type = ssh_key_type_from_name(line.first.c_str());
    if (ssh_pki_import_pubkey_base64(line.second.c_str(), type, &p_own) != SSH_OK)
        return false;
    ssh_key_ptr own(p_own);
    return ssh_key_cmp(p_own, p_key, SSH_KEY_CMP_PUBLIC) == 0;
}

bool netconf_login_key(t_netconf_link *p_link, const std::string &user, ssh_key p_key)
{
    t_mgmt_login login = login_find(p_link->p_netconf, user);
    bool fits = std::ranges::any_of(login.keys, [p_key](const auto &line) { return key_fits(line, p_key); });
    // Clients offer what keys they have: one that is unknown is no attack, but is told.
    if (!fits)
        LUM_LOG(LUM_LOG_INFO, "NETCONF: user %s from %s has no such key", netconf_log_name(user).c_str(),
                p_link->host.c_str());
    return fits;
}

bool netconf_login_local(t_netconf_link *p_link)
{
    t_control_peer peer;
    if (!control_peer_of(p_link->fd, &peer))
        return false;
    p_link->user = control_user_name(peer.uid);
    p_link->is_recovery = peer.uid == 0;
    if (!p_link->is_recovery && login_find(p_link->p_netconf, p_link->user).name.empty()) {
        LUM_LOG(LUM_LOG_NOTICE, "NETCONF: local user %s is not configured",
                netconf_log_name(p_link->user).c_str());
        return false;
    }
    netconf_link_advance(p_link, NETCONF_STAGE_LOGIN);
    return netconf_place_take(p_link);
}
