// An event loop with a control socket in a folder of its own, and clients that take turns with it.
#pragma once

#include "lab/control/lab_control.h"
#include "lab/control/lab_program.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

class ControlLoop : public testing::Test {
protected:
    ControlLoop();
    ~ControlLoop() override;

    // A connected client, closed with the fixture.
    int connect_client();
    void close_client(int fd);

    void turn_loop();

    // Sends what the socket takes and gives the server a turn. False when the connection has ended.
    bool send_some(int fd, std::string_view *p_text);

    // Sends text of which no answers have to be read meanwhile.
    void send_text(int fd, std::string_view text);

    // Runs the server until `count` lines have come or the connection has ended.
    std::vector<std::string> receive_lines(int fd, size_t count);

    bool has_ended(int fd);

    std::string folder;
    std::string path;  // of the socket
    std::string error;
    lab_base_ptr base;
    lab_control_ptr control;
    std::vector<int> clients;
};
