// A management daemon for tests of the client library: it goes through the handshake, answers each op as it
// was told, keeps what it has received, and dies where it was told to. A thread accepts, one serves each
// connection.
#pragma once

#include "platform/confd/ipc/ipc_frame.h"
#include "platform/confd/ipc/ipc_messages.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <netinet/in.h>
#include <string>
#include <thread>
#include <vector>

// Where the server closes the connection.
enum e_death {
    DEATH_NEVER,
    DEATH_AT_ACCEPT,
    DEATH_AT_HELLO,
    DEATH_AT_PROOF,
    DEATH_AT_REQUEST,
    DEATH_IN_REPLY,  // after half of it
};

// Also opens a descriptor that is closed with it.
struct t_client_fd {
    int fd;
    t_client_fd();
    ~t_client_fd();
};

class ScriptedServer {
public:
    ScriptedServer();
    ~ScriptedServer();

    const sockaddr *address() const
    {
        return reinterpret_cast<const sockaddr *>(&_address);
    }
    static int address_size()
    {
        return sizeof(sockaddr_in);
    }

    // The script. Members are to be set while no call is under way.
    std::string secret;  // empty: no proof is asked for
    std::atomic<e_death> death = DEATH_NEVER;
    using f_answer = std::function<std::vector<uint8_t>(const t_ipc_frame &request)>;
    void answer(e_ipc_op op, std::vector<uint8_t> body);
    void answer_with(e_ipc_op op, f_answer answer);
    void refuse(e_ipc_op op, int code, const std::string &text);

    // Connections are numbered from 0 in the order of accepting.
    t_ipc_hello hello(size_t connection);
    void push(size_t connection, const t_ipc_frame &frame);
    void hang_up(size_t connection);

    // Waits until so many frames have come behind the handshake, and gives all of them.
    std::vector<t_ipc_frame> wait_frames(size_t connection, size_t count);

private:
    struct t_connection {
        int fd;
        uint32_t id;
        t_ipc_hello hello;
        std::vector<t_ipc_frame> frames;
        std::thread thread;
    };
    struct t_answer {
        int32_t status;
        f_answer body;
    };

    void accept_all();
    void serve(t_connection *p_connection);
    bool shake_hands(t_connection *p_connection, t_ipc_frame *p_frame);
    bool reply(const t_connection *p_connection, const t_ipc_frame &request);
    t_answer find_answer(uint16_t op);

    int _listener;
    sockaddr_in _address = {};
    std::map<uint16_t, t_answer> _answers;
    std::mutex _lock;
    std::condition_variable _changed;
    std::vector<std::unique_ptr<t_connection>> _connections;
    std::thread _acceptor;
};
