#include "lab/ttmd/ttm_service.h"

#include "common/lum_util.h"
#include "lab/control/lab_program.h"
#include "lab/peers/peer_link.h"

#include <arpa/inet.h>
#include <map>
#include <nlohmann/json.hpp>

using t_json = nlohmann::ordered_json;

static constexpr uint32_t epoch = 1;
static constexpr uint16_t path_mtu = 1500;

// A locator that is withdrawn and announced in turns.
struct t_flapping {
    t_ttm_service *p_service;
    t_ttm_locator locator;
    uint32_t steps;  // left; an even number when the withdrawal is next
    uint32_t msecs;
    lab_event_ptr timer;
};

struct t_registration {
    bool families[2];  // by e_ttm_record_family
    bool originates;
};

struct t_ttm_counts {
    uint64_t connections;
    uint64_t registrations;
    uint64_t malformed;  // records, and bytes that were no frames
    uint64_t refused;    // registrations
    uint64_t adds_sent;
    uint64_t deletes_sent;
    uint64_t unsent;  // a client left too much unread
};

struct t_ttm_service {
    event_base *p_base;
    peer_server_ptr server;
    std::map<t_ttm_name, t_ttm_locator> locators;
    std::map<t_ttm_name, std::unique_ptr<t_flapping>> flappings;
    std::map<t_peer_session *, t_registration> clients;
    uint32_t next_index;
    t_ttm_counts counts;
};

// ---- Sending ----

static e_ttm_record_family family_of(const t_ttm_locator &locator)
{
    return locator.name.ip_version == 6 ? TTM_RECORD_IPV6 : TTM_RECORD_IPV4;
}

static void locator_send(t_ttm_service *p_service, t_peer_session *p_session, e_ttm_record_type type,
                         const t_ttm_locator &locator)
{
    std::vector<uint8_t> bytes = ttm_record_encode({.type = type,
                                                    .family = family_of(locator),
                                                    .client = LUM_MODULE_TTM,
                                                    .announce = 0,
                                                    .originate = 0,
                                                    .locator = locator});
    if (!peer_session_send(p_session, bytes))
        p_service->counts.unsent++;
    else
        (type == TTM_RECORD_TLOC_ADD ? p_service->counts.adds_sent : p_service->counts.deletes_sent)++;
}

static void locator_send_all(t_ttm_service *p_service, e_ttm_record_type type, const t_ttm_locator &locator)
{
    for (const auto &[p_session, registration] : p_service->clients) {
        if (registration.families[family_of(locator)])
            locator_send(p_service, p_session, type, locator);
    }
}

static void table_send(t_ttm_service *p_service, t_peer_session *p_session, e_ttm_record_family family)
{
    for (const auto &[name, locator] : p_service->locators) {
        if (family_of(locator) == family)
            locator_send(p_service, p_session, TTM_RECORD_TLOC_ADD, locator);
    }
}

// ---- Clients ----

static const char *client_name(const t_peer_session *p_session)
{
    uint8_t module = peer_session_module(p_session);
    return module < LUM_MODULE_MAX ? lum_util_module_name(module) : "an unknown module";
}

static void on_up(void *p_user, t_peer_session *p_session)
{
    t_ttm_service *p_service = static_cast<t_ttm_service *>(p_user);
    p_service->counts.connections++;
    p_service->clients[p_session] = {};
    lab_log("%s has connected", client_name(p_session));
}

static void on_down(void *p_user, t_peer_session *p_session)
{
    t_ttm_service *p_service = static_cast<t_ttm_service *>(p_user);
    p_service->clients.erase(p_session);
    lab_log("%s has gone", client_name(p_session));
}

static void on_bad(void *p_user, t_peer_session *p_session, const std::string &reason)
{
    static_cast<t_ttm_service *>(p_user)->counts.malformed++;
    lab_log("%s: %s", p_session != nullptr ? client_name(p_session) : "a connection", reason.c_str());
}

// Null, or why it is refused.
static const char *registration_fault(const t_peer_session *p_session, const t_ttm_record &record)
{
    if (record.type != TTM_RECORD_REGISTER)
        return "a client sends nothing but registrations";
    if (record.client != peer_session_module(p_session))
        return "the registration is another module's";
    return record.announce > 1 || record.originate > 1 ? "announce and originate are 0 or 1" : nullptr;
}

static void on_message(void *p_user, t_peer_session *p_session, t_peer_bytes body)
{
    t_ttm_service *p_service = static_cast<t_ttm_service *>(p_user);
    t_ttm_record record = {};
    std::string reason;
    if (!ttm_record_decode(body, &record, &reason)) {
        p_service->counts.malformed++;
        return lab_log("%s: record of %zu bytes: %s", client_name(p_session), body.size(), reason.c_str());
    }
    if (const char *fault = registration_fault(p_session, record)) {
        p_service->counts.refused++;
        return lab_log("%s: %s", client_name(p_session), fault);
    }
    p_service->counts.registrations++;
    t_registration &registration = p_service->clients[p_session];
    registration.families[record.family] = record.announce == 1;
    registration.originates = record.originate == 1;
    lab_log("%s registers: ipv%d, announce %d, originate %d", client_name(p_session),
            record.family == TTM_RECORD_IPV6 ? 6 : 4, record.announce, record.originate);
    if (record.announce == 1)
        table_send(p_service, p_session, record.family);
}

static constexpr t_peer_server_ops server_ops = {
    .up = on_up, .down = on_down, .message = on_message, .bad = on_bad};

// ---- Locators ----

static t_ttm_locator locator_new(t_ttm_service *p_service, const t_ttm_name &name)
{
    t_ttm_locator locator = {};
    locator.epoch = epoch;
    locator.name = name;
    locator.origin = 2;
    locator.status = 1;
    locator.index = static_cast<int32_t>(p_service->next_index++);
    locator.attributes.weight = 1;
    return locator;
}

static void paths_set(t_ttm_locator *p_locator, uint8_t count)
{
    p_locator->path_count = count;
    for (int32_t i = 0; i < count; i++)
        p_locator->paths[static_cast<size_t>(i)] = {.local_index = i + 1,
                                                    .border_index = p_locator->index,
                                                    .mtu = path_mtu,
                                                    .label_count = 0,
                                                    .labels = {},
                                                    .sla_bitmap = 1};
}

static void changes_apply(const t_ttm_changes &changes, t_ttm_locator *p_locator)
{
    p_locator->attributes.preference = changes.preference.value_or(p_locator->attributes.preference);
    p_locator->attributes.weight = changes.weight.value_or(p_locator->attributes.weight);
    if (changes.index)
        p_locator->index = static_cast<int32_t>(*changes.index);
    p_locator->status = changes.status.value_or(p_locator->status);
    p_locator->origin = changes.origin.value_or(p_locator->origin);
    paths_set(p_locator, changes.paths.value_or(p_locator->path_count));
}

static t_json announce_run(t_ttm_service *p_service, const t_ttm_command &command)
{
    auto flapping = p_service->flappings.extract(command.name);
    auto known = p_service->locators.find(command.name);
    if (known == p_service->locators.end()) {
        t_ttm_locator locator =
            flapping.empty() ? locator_new(p_service, command.name) : flapping.mapped()->locator;
        known = p_service->locators.emplace(command.name, locator).first;
    }
    changes_apply(command.changes, &known->second);
    locator_send_all(p_service, TTM_RECORD_TLOC_ADD, known->second);
    return lab_answer_done();
}

static bool locator_withdraw(t_ttm_service *p_service, const t_ttm_name &name)
{
    auto known = p_service->locators.extract(name);
    if (known.empty())
        return false;
    locator_send_all(p_service, TTM_RECORD_TLOC_DELETE, known.mapped());
    return true;
}

// In the pause of a flapping it is out of the table already.
static t_json withdraw_run(t_ttm_service *p_service, const t_ttm_command &command)
{
    bool was_flapping = p_service->flappings.erase(command.name) != 0;
    if (!locator_withdraw(p_service, command.name) && !was_flapping)
        return lab_answer_refusal("this locator is not announced");
    return lab_answer_done();
}

// ---- Flapping ----

static void on_flap(evutil_socket_t, short, void *p_arg)
{
    t_flapping *p_flapping = static_cast<t_flapping *>(p_arg);
    t_ttm_service *p_service = p_flapping->p_service;
    if (p_flapping->steps-- % 2 == 0) {
        locator_withdraw(p_service, p_flapping->locator.name);
    } else {
        p_service->locators[p_flapping->locator.name] = p_flapping->locator;
        locator_send_all(p_service, TTM_RECORD_TLOC_ADD, p_flapping->locator);
    }
    if (p_flapping->steps == 0) {
        p_service->flappings.erase(t_ttm_name(p_flapping->locator.name));
        return;
    }
    timeval pause = {.tv_sec = p_flapping->msecs / 1000, .tv_usec = p_flapping->msecs % 1000 * 1000};
    event_add(p_flapping->timer.get(), &pause);
}

static t_json flap_run(t_ttm_service *p_service, const t_ttm_command &command)
{
    auto known = p_service->locators.find(command.name);
    if (known == p_service->locators.end() || p_service->flappings.contains(command.name))
        return lab_answer_refusal("this locator is not announced, or flaps already");
    auto flapping = std::make_unique<t_flapping>(t_flapping{.p_service = p_service,
                                                            .locator = known->second,
                                                            .steps = 2 * command.count,
                                                            .msecs = command.msecs,
                                                            .timer = nullptr});
    flapping->timer.reset(event_new(p_service->p_base, -1, 0, on_flap, flapping.get()));
    if (flapping->timer == nullptr)
        return lab_answer_refusal("no timer");
    t_flapping *p_flapping = flapping.get();
    p_service->flappings[command.name] = std::move(flapping);
    on_flap(-1, 0, p_flapping);
    return lab_answer_done();
}

// ---- Answers ----

static std::string address_text(const t_ttm_name &name)
{
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(name.ip_version == 6 ? AF_INET6 : AF_INET, name.address.data(), text, sizeof(text));
    return text;
}

static t_json locator_json(const t_ttm_locator &locator)
{
    return {{"address", address_text(locator.name)},
            {"color", lum_util_tloc_color_name(locator.name.color)},
            {"encap", lum_util_tloc_encap_name(locator.name.encap)},
            {"status", ttm_status_name(locator.status)},
            {"preference", locator.attributes.preference},
            {"weight", locator.attributes.weight},
            {"index", locator.index},
            {"origin", ttm_origin_name(locator.origin)},
            {"paths", locator.path_count}};
}

static t_json list_run(const t_ttm_service *p_service)
{
    t_json answer = lab_answer_done();
    answer["locators"] = t_json::array();
    for (const auto &[name, locator] : p_service->locators)
        answer["locators"].push_back(locator_json(locator));
    answer["clients"] = t_json::array();
    for (const auto &[p_session, registration] : p_service->clients)
        answer["clients"].push_back({{"name", client_name(p_session)},
                                     {"pid", peer_session_pid(p_session)},
                                     {"ipv4", registration.families[TTM_RECORD_IPV4]},
                                     {"ipv6", registration.families[TTM_RECORD_IPV6]},
                                     {"originates", registration.originates}});
    return answer;
}

static t_json stats_run(const t_ttm_service *p_service)
{
    t_json answer = lab_answer_done();
    answer["connections"] = p_service->counts.connections;
    answer["registrations"] = p_service->counts.registrations;
    answer["malformed"] = p_service->counts.malformed;
    answer["refused"] = p_service->counts.refused;
    answer["adds_sent"] = p_service->counts.adds_sent;
    answer["deletes_sent"] = p_service->counts.deletes_sent;
    answer["unsent"] = p_service->counts.unsent;
    answer["flapping"] = p_service->flappings.size();
    return answer;
}

static t_json drop_run(t_ttm_service *p_service)
{
    std::vector<t_peer_session *> sessions = peer_server_sessions(p_service->server.get());
    for (t_peer_session *p_session : sessions)
        peer_session_close(p_session);
    t_json answer = lab_answer_done();
    answer["dropped"] = sessions.size();
    return answer;
}

// ---- Service ----

t_json ttm_service_run(t_ttm_service *p_service, const t_ttm_command &command)
{
    switch (command.kind) {
    case TTM_COMMAND_ANNOUNCE:
        return announce_run(p_service, command);
    case TTM_COMMAND_WITHDRAW:
        return withdraw_run(p_service, command);
    case TTM_COMMAND_FLAP:
        return flap_run(p_service, command);
    case TTM_COMMAND_LIST:
        return list_run(p_service);
    case TTM_COMMAND_STATS:
        return stats_run(p_service);
    case TTM_COMMAND_DROP:
        return drop_run(p_service);
    case TTM_COMMAND_SLEEP:
        break;
    }
    return lab_answer_refusal("only a script can sleep");
}

ttm_service_ptr ttm_service_open(event_base *p_base, const std::string &path, std::string *p_error)
{
    ttm_service_ptr service(new t_ttm_service());
    service->p_base = p_base;
    service->next_index = 1;
    service->server = peer_server_open(p_base, path, LUM_MODULE_TTM, &server_ops, service.get(), p_error);
    return service->server != nullptr ? std::move(service) : nullptr;
}

void t_ttm_service_deleter::operator()(t_ttm_service *p_service) const
{
    delete p_service;
}
