#include "mgmtd/snmp/mgmt_snmp.h"

#include "common/lum_log.h"
#include "mgmtd/snmp/mgmt_snmp_value.h"
#include "platform/confd/confd_dp.h"

// The library's configuration must stand before its other headers.
#include <net-snmp/net-snmp-config.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <libyang/libyang.h>
#include <net-snmp/net-snmp-includes.h>

struct t_session_deleter {
    void operator()(void *p_session) const
    {
        snmp_sess_close(p_session);
    }
};

namespace {

struct t_target {
    std::string group;
    std::string peer;  // "udp:192.0.2.1:162"
    std::string community;
    std::unique_ptr<void, t_session_deleter> session;  // opened for the first trap
};

}  // namespace

struct t_pdu_deleter {
    void operator()(netsnmp_pdu *p_pdu) const
    {
        snmp_free_pdu(p_pdu);
    }
};
using pdu_ptr = std::unique_ptr<netsnmp_pdu, t_pdu_deleter>;

struct t_mgmt_snmp {
    t_mgmt_snmp_options options;
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    std::weak_ptr<const t_mgmt_tree> config;  // that the targets are of; old trees are not kept alive
    std::vector<t_target> targets;
    t_mgmt_snmp_status status = {};
};

void t_mgmt_snmp_deleter::operator()(t_mgmt_snmp *p_snmp) const
{
    delete p_snmp;
}

mgmt_snmp_ptr mgmt_snmp_new(t_mgmt_snmp_options options)
{
    // The library would print to standard error; what matters is logged here.
    snmp_disable_log();
    mgmt_snmp_ptr snmp(new t_mgmt_snmp);
    snmp->options = std::move(options);
    return snmp;
}

t_mgmt_snmp_status mgmt_snmp_status(const t_mgmt_snmp &snmp)
{
    return snmp.status;
}

// ---- Targets ----

static t_target target_read(const lyd_node *p_entry)
{
    std::map<std::string_view, std::string> leaves;
    for (const lyd_node *p_leaf = lyd_child(p_entry); p_leaf != nullptr; p_leaf = p_leaf->next)
        leaves[p_leaf->schema->name] = lyd_get_value(p_leaf);
    bool is_ipv6 = leaves["address"].find(':') != std::string::npos;
    return {.group = leaves["group-name"],
            .peer = (is_ipv6 ? "udp6:[" + leaves["address"] + "]:" : "udp:" + leaves["address"] + ":") +
                    leaves["port"],
            .community = leaves.contains("community") ? leaves["community"] : "public",
            .session = nullptr};
}

static void targets_update(t_mgmt_snmp *p_snmp)
{
    mgmt_tree_ptr config = p_snmp->options.running();
    if (config == p_snmp->config.lock())
        return;
    p_snmp->targets.clear();
    const t_schema_node *p_list = schema_find(*config->p_schema, "/snmp/trap/target");
    const lyd_node *p_parent = nullptr;
    for (const char *p_path : {"/snmp", "/snmp/trap"}) {
        const t_schema_node *p_schema = schema_find(*config->p_schema, p_path);
        p_parent = p_schema != nullptr ? mgmt_tree_child(*config, p_parent, p_schema) : nullptr;
        if (p_parent == nullptr)
            break;
    }
    if (p_parent != nullptr && p_list != nullptr)
        for (const lyd_node *p_entry : mgmt_tree_entries(*config, p_parent, p_list))
            p_snmp->targets.push_back(target_read(p_entry));
    p_snmp->config = config;
}

// Addresses are numbers, so that nothing is looked up by name.
static bool session_open(t_target *p_target)
{
    snmp_session wanted;
    snmp_sess_init(&wanted);
    wanted.version = SNMP_VERSION_2c;
    wanted.retries = 0;
    wanted.peername = p_target->peer.data();
    wanted.community = reinterpret_cast<u_char *>(p_target->community.data());
    wanted.community_len = p_target->community.size();
    p_target->session.reset(snmp_sess_open(&wanted));
    if (p_target->session == nullptr)
        return false;
    int fd = snmp_sess_transport(p_target->session.get())->sock;
    if (fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK) == 0)
        return true;
    p_target->session.reset();
    return false;
}

// ---- Traps ----

static std::vector<oid> oid_of(std::span<const uint32_t> numbers)
{
    return {numbers.begin(), numbers.end()};
}

static bool name_find(const t_mgmt_snmp &snmp, const std::string &name, std::vector<uint32_t> *p_oid)
{
    return snmp.options.oid_of && snmp.options.oid_of(name, p_oid) && p_oid->size() > 1;
}

static bool variable_add(netsnmp_pdu *p_pdu, std::span<const uint32_t> id, const t_snmp_value &value)
{
    std::vector<oid> name = oid_of(id);
    return snmp_pdu_add_variable(p_pdu, name.data(), name.size(), value.type, value.bytes.data(),
                                 value.bytes.size()) != nullptr;
}

static bool head_add(netsnmp_pdu *p_pdu, const t_mgmt_snmp &snmp, std::span<const uint32_t> trap)
{
    static constexpr oid up_time_id[] = {1, 3, 6, 1, 2, 1, 1, 3, 0};
    static constexpr oid trap_id[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
    using t_hundredths = std::chrono::duration<int64_t, std::centi>;
    auto passed = std::chrono::steady_clock::now() - snmp.start;
    u_long up_time = static_cast<uint32_t>(std::chrono::duration_cast<t_hundredths>(passed).count());
    std::vector<oid> value = oid_of(trap);
    return snmp_pdu_add_variable(p_pdu, up_time_id, std::size(up_time_id), ASN_TIMETICKS, &up_time,
                                 sizeof(up_time)) != nullptr &&
           snmp_pdu_add_variable(p_pdu, trap_id, std::size(trap_id), ASN_OBJECT_ID, value.data(),
                                 value.size() * sizeof(oid)) != nullptr;
}

static void varbind_add(netsnmp_pdu *p_pdu, const t_mgmt_snmp &snmp, const t_ipc_varbind &varbind)
{
    std::vector<uint32_t> id = varbind.oid;
    bool is_named = varbind.type == CONFD_SNMP_VARIABLE;
    bool is_known = is_named ? name_find(snmp, varbind.name, &id) : id.size() > 1;
    if (is_named)
        id.push_back(0);  // a scalar's only instance
    t_snmp_value value;
    if (!is_known || id.size() > MAX_OID_LEN || !snmp_value_make(varbind.value.v, &value) ||
        !variable_add(p_pdu, id, value))
        LUM_LOG(LUM_LOG_INFO, "A trap goes without its variable %s",
                is_named ? varbind.name.c_str() : "of an object identifier");
}

static pdu_ptr pdu_make(const t_mgmt_snmp &snmp, const t_ipc_snmp_notification &notification,
                        std::span<const uint32_t> trap)
{
    pdu_ptr pdu(snmp_pdu_create(SNMP_MSG_TRAP2));
    if (pdu == nullptr || trap.size() > MAX_OID_LEN || !head_add(pdu.get(), snmp, trap))
        return nullptr;
    for (const t_ipc_varbind &varbind : notification.varbinds)
        varbind_add(pdu.get(), snmp, varbind);
    return pdu;
}

static bool target_send(t_target *p_target, netsnmp_pdu *p_pdu)
{
    if (p_target->session == nullptr && !session_open(p_target))
        return false;
    // A receiver that has refused an earlier trap makes the system refuse the next one, once.
    for (int i = 0; i < 2; i++) {
        pdu_ptr copy(snmp_clone_pdu(p_pdu));
        errno = 0;
        if (copy != nullptr && snmp_sess_send(p_target->session.get(), copy.get()) != 0) {
            static_cast<void>(copy.release());  // the library has freed it
            return true;
        }
        if (errno != ECONNREFUSED)
            return false;
    }
    return false;
}

static void notification_send(void *p_ctx, const t_ipc_snmp_notification &notification)
{
    t_mgmt_snmp *p_snmp = static_cast<t_mgmt_snmp *>(p_ctx);
    std::vector<uint32_t> trap;
    if (!name_find(*p_snmp, notification.notification, &trap)) {
        p_snmp->status.unknown++;
        LUM_LOG(LUM_LOG_NOTICE, "No object identifier is known for the trap %s",
                notification.notification.c_str());
        return;
    }
    targets_update(p_snmp);
    pdu_ptr pdu;
    for (t_target &target : p_snmp->targets) {
        if (target.group != notification.notify_name)
            continue;
        if (pdu == nullptr)
            pdu = pdu_make(*p_snmp, notification, trap);
        bool is_sent = pdu != nullptr && target_send(&target, pdu.get());
        (is_sent ? p_snmp->status.sent : p_snmp->status.dropped)++;
        if (!is_sent)
            LUM_LOG(LUM_LOG_INFO, "The trap %s for %s is dropped", notification.notification.c_str(),
                    target.peer.c_str());
    }
}

const t_mgmt_snmp_ops g_mgmt_snmp_ops = {.send = notification_send};
