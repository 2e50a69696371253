// The system manager: clients that say hello, and the daemons that are supervised by it.
//
// A client is told which modules are up as soon as it has registered. Hellos go to the daemon of the client's
// module; a module that the configuration doesn't name is listed as observed from its first connection on.
// The other requests are logged and counted, and nothing more: this lab reboots nothing.
//
// On the event base's thread.
#pragma once

#include "lab/control/lab_control.h"
#include "lab/sysmgrd/daemon.h"

#include <nlohmann/json_fwd.hpp>

inline constexpr char SYSMGR_SERVICE_SOCKET[] = "/var/run/.sysmgrd";

struct event_base;
struct t_sysmgr_service;

struct t_sysmgr_service_deleter {
    void operator()(t_sysmgr_service *p_service) const;
};
using sysmgr_service_ptr = std::unique_ptr<t_sysmgr_service, t_sysmgr_service_deleter>;

// Listens for clients at the path and starts the daemons in the loop. Null with the reason. The service's end
// leaves daemons running; sysmgr_service_stop comes before it.
sysmgr_service_ptr sysmgr_service_open(event_base *p_base, const std::string &path,
                                       const std::vector<t_daemon_spec> &specs, std::string *p_error);

// Stops all daemons, the last one first, and ends the base's loop when they have gone. The second call kills
// them.
void sysmgr_service_stop(t_sysmgr_service *p_service);

// Answers `list`, `stats`, `start NAME`, `stop NAME` and `restart NAME`.
nlohmann::ordered_json sysmgr_service_answer(t_sysmgr_service *p_service, const t_lab_words &words);
