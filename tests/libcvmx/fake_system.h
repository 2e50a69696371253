// A machine of the test's own under the code in test.
//
// While a FakeSystem lives, the fixed files (/etc/default, /etc/lumora, /boot, /proc/cpuinfo, the two of
// /tmp) and the named shared blocks lie in a temporary folder, and RAM, processors, the board's code and what
// commands answer are fields. Programs that link the library fake_system have the calls in question wrapped;
// without a FakeSystem they reach the real system. Children of fork see the same machine.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

class FakeSystem {
public:
    FakeSystem();
    ~FakeSystem();
    FakeSystem(const FakeSystem &) = delete;
    FakeSystem &operator=(const FakeSystem &) = delete;

    // A fixed file by its real path. get gives "(none)" for a missing one.
    void put(const std::string &path, const std::string &text) const;
    std::string get(const std::string &path) const;
    void remove(const std::string &path) const;

    // Where a named shared block lies. Removing it makes the next process create it anew.
    std::string block_path(const std::string &name) const;
    void remove_block(const std::string &name) const;

    // Where a fixed file lies.
    std::string path_of(const std::string &path) const;

    uint64_t ram = 1ull << 30;
    int processors = 4;
    int board_code = -1;
    bool shm_fails = false;

    // What a command of lum_execute_output prints; commands without an entry end with 2.
    std::map<std::string, std::string> output;
    int output_result = 0;

    // What system() puts into /tmp/system-version, and its result.
    std::string system_version;
    int system_result = 0;

private:
    std::string root;
};

// How a child process ended and what it wrote to standard output.
struct t_child_end {
    int signal;     // 0 when it came to its end
    int exit_code;  // -1 when a signal ended it
    std::string text;
};

// Runs the function in a child of its own, whose globals are as fresh as this process's, and waits for it.
t_child_end run_in_child(const std::function<void()> &function);
