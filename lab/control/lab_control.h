// The control socket of a lab daemon: a line with a request comes in, an answer goes out.
//
// Answers come in the order of a connection's requests, at once or later. A request that takes long is worked
// off in slices, and so are requests that come in heaps; other connections are served meanwhile. A client
// that doesn't take its answers is not read from until it has; one that sends a line that is too long is told
// so and dropped. What a client sends before it shuts down its sending side is still answered, also a last
// line without its end; one that closes takes its request in work with it. `fpctl` and `peerctl` are the
// commands for it.
//
// Runs on the event base's thread. The process ignores SIGPIPE. Only the owner may connect. At most 64
// connections; further ones are closed at once.
#pragma once

#include "lab/control/lab_answer.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct event_base;

struct t_lab_control;

struct t_lab_control_deleter {
    void operator()(t_lab_control *p_control) const;
};
// Its end closes all connections and removes the socket. Base and users must outlive it.
using lab_control_ptr = std::unique_ptr<t_lab_control, t_lab_control_deleter>;

// ---- Requests in words, answers in JSON ----

using t_lab_words = std::vector<std::string>;

// Answers a request; see lab_answer.h. Never called without words. What it throws is answered as a refusal.
using f_lab_answer = nlohmann::ordered_json (*)(void *p_user, const t_lab_words &words);

// Listens at the path; a socket that nobody serves any more is replaced. Requests are words separated by
// blanks, up to 64 KiB a line; the word --json is dropped, since answers are JSON anyway. Null with the
// reason.
lab_control_ptr lab_control_open(event_base *p_base, const std::string &path, f_lab_answer answer,
                                 void *p_user, std::string *p_error);

// The words of a line.
t_lab_words lab_words_split(const std::string &line);

// ---- Requests and answers of any form ----

// A request in work: called once in a turn of the loop until it returns true, with the answer set. Does not
// throw.
using f_lab_job = std::function<bool(std::string *p_text)>;

// What comes back for a line.
struct t_lab_reply {
    std::string text = {};    // with its line ends; empty: nothing comes back
    f_lab_job job = nullptr;  // set: it gives the text later
};

struct t_lab_line_server {
    std::function<t_lab_reply(std::string_view line)> answer;  // the line may be empty; does not throw
    size_t max_line;                                           // bytes, without the line end
    std::string too_long;                                      // the answer to a longer line
};

// Listens as above.
lab_control_ptr lab_control_open_lines(event_base *p_base, const std::string &path, t_lab_line_server server,
                                       std::string *p_error);
