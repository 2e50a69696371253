// The control socket of a lab daemon: a line with a request comes in, a line with a JSON object goes out.
//
// A request is words separated by blanks; the word --json is dropped, since answers are JSON anyway. An
// answer has "ok": true, or "ok": false and "error". Answers come in the order of a connection's requests. A
// client that doesn't take its answers is not read from; one that sends a line of more than 64 KiB is told so
// and dropped. `peerctl` is the command for it.
//
// Runs on the event base's thread. The process ignores SIGPIPE. Only the owner may connect.
#pragma once

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

struct event_base;

using t_peer_words = std::vector<std::string>;

// Answers a request. Never called without words. What it throws is answered as an error.
using f_peer_control = nlohmann::ordered_json (*)(void *p_user, const t_peer_words &words);

struct t_peer_control;

struct t_peer_control_deleter {
    void operator()(t_peer_control *p_control) const;
};
using peer_control_ptr = std::unique_ptr<t_peer_control, t_peer_control_deleter>;

// Listens at the path; a socket that nobody serves any more is replaced. Null with the reason. The control's
// end closes all connections and removes the socket.
peer_control_ptr peer_control_open(event_base *p_base, const std::string &path, f_peer_control answer,
                                   void *p_user, std::string *p_error);

// {"ok": false, "error": reason}
nlohmann::ordered_json peer_control_refusal(const std::string &reason);

// {"ok": true}, to add members to.
nlohmann::ordered_json peer_control_done();

// The words of a line.
t_peer_words peer_words_split(const std::string &line);
