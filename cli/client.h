// The command line's end of the control socket: one request, its output as it comes, one answer.
//
// Calls wait as long as the daemon takes; a commit may take minutes. Ctrl-C (interrupt.h) ends the waiting:
// the request goes on, and what still comes of it is passed over by the next call. The first failure of the
// connection ends it, and the next call makes another.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

// In the order in which the daemon sends it.
using t_cli_json = nlohmann::ordered_json;

struct t_cli_client {
    t_cli_client() = default;
    ~t_cli_client();
    t_cli_client(const t_cli_client &) = delete;
    t_cli_client &operator=(const t_cli_client &) = delete;

    int fd = -1;
    int64_t last_id = 0;
    std::string input;  // what came and was not looked at yet
};

enum e_cli_outcome {
    CLI_ANSWER_DONE,
    CLI_ANSWER_REFUSED,
    CLI_ANSWER_LOST,  // no connection, or it broke, or what came was no answer
    CLI_ANSWER_INTERRUPTED,
};

struct t_cli_answer {
    e_cli_outcome outcome;
    t_cli_json result;  // an object, or null where there is no result
    std::vector<std::string> warnings;
    std::string path;  // of a refusal; may be empty
    std::string reason;
};

// What comes before the answer. All may be null.
struct t_cli_listener {
    std::function<void(std::string_view text)> output;
    std::function<void(const std::string &line)> progress;
    std::function<bool()> until = nullptr;  // asked after each piece: the rest is not wanted, as with Ctrl-C
};

// False with the reason.
[[nodiscard]] bool cli_client_connect(t_cli_client *p_client, const std::string &socket_path,
                                      std::string *p_reason);
void cli_client_close(t_cli_client *p_client);

// Sends a request (its id is filled in) and waits for the answer.
t_cli_answer cli_client_call(t_cli_client *p_client, t_cli_json head, std::string_view body = {},
                             const t_cli_listener &listener = {});
