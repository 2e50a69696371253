// A control socket that answers by a script: what the command line meets instead of mgmtd.
#pragma once

#include <mutex>
#include <string>
#include <thread>
#include <vector>

// The frames that follow a request, each as head and body; "ID" in a head becomes the request's id. An empty
// head closes the connection.
struct t_scripted_answer {
    std::vector<std::pair<std::string, std::string>> frames;
};

// Serves one connection after the other until it is destroyed. Each request takes the script's next answer.
struct t_scripted_daemon {
    t_scripted_daemon(const std::string &path, std::vector<t_scripted_answer> script);
    ~t_scripted_daemon();
    t_scripted_daemon(const t_scripted_daemon &) = delete;
    t_scripted_daemon &operator=(const t_scripted_daemon &) = delete;

    // What came: head without its id, a blank and the body.
    std::vector<std::string> requests();

    std::string path;
    int listener;
    std::vector<t_scripted_answer> script;
    size_t next = 0;
    std::mutex lock;
    std::vector<std::string> came;
    std::thread server;
};
