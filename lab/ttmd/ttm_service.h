// The TLOC table manager: a table of locators, and the clients that have registered for them.
//
// A client's registration names an address family; it gets all locators of that family at once and each
// change from then on, as one record a message. An announcement is sent even when it changes nothing. The
// table lives as long as the service and doesn't depend on clients: whoever comes back gets all of it again.
// Registrations that break the format, or ask for what they can't, are counted and left out; the connection
// stays.
//
// On the event base's thread.
#pragma once

#include "lab/ttmd/ttm_command.h"

#include <memory>
#include <nlohmann/json_fwd.hpp>

inline constexpr char TTM_SERVICE_SOCKET[] = "/var/run/.ttmd";

struct event_base;
struct t_ttm_service;

struct t_ttm_service_deleter {
    void operator()(t_ttm_service *p_service) const;
};
using ttm_service_ptr = std::unique_ptr<t_ttm_service, t_ttm_service_deleter>;

// Listens for clients at the path. Null with the reason.
ttm_service_ptr ttm_service_open(event_base *p_base, const std::string &path, std::string *p_error);

// Does any command but sleep; the answer is as lab_answer.h has it. announce and withdraw end a flapping of
// the same locator.
nlohmann::ordered_json ttm_service_run(t_ttm_service *p_service, const t_ttm_command &command);
