// Runs a command and keeps what it said; folders for its files.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct t_command_result {
    int status;  // exit status, or 128 and the signal
    std::string out;
    std::string err;
};

// command is a line for the shell.
t_command_result run_command(const std::string &command);

// A folder of its own that goes with its content.
struct t_temp_folder {
    t_temp_folder();
    ~t_temp_folder();
    t_temp_folder(const t_temp_folder &) = delete;
    t_temp_folder &operator=(const t_temp_folder &) = delete;

    std::string path(std::string_view name) const;
    std::string write(std::string_view name, std::string_view text) const;  // returns the path
    std::vector<std::string> names() const;                                 // what lies in it, sorted

    std::string folder;
};

std::string read_file(const std::string &path);
