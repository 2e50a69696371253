// A command that sends one request to a daemon's control socket and prints the answer, as text or, with
// --json, as its line.
//
// Options come before the request's words: --socket PATH (-s), --json (-j, also among the words), --help
// (-h).
#pragma once

#include <string>
#include <vector>

enum e_lab_status {
    LAB_STATUS_DONE = 0,
    LAB_STATUS_REFUSED = 1,
    LAB_STATUS_USAGE = 2,
    LAB_STATUS_NO_ANSWER = 3,
};

struct t_lab_command {
    const char *name;
    const char *usage;
    std::string socket = {};              // as --socket says
    bool json = false;                    // as --json says
    std::vector<std::string> words = {};  // of the request, without --json
};

// Reads the command line. The exit status, or -1 to go on.
int lab_command_read(t_lab_command *p_command, int argc, char **argv);

// Prints the usage as what is wrong. The exit status.
int lab_command_misused(const t_lab_command &command);

// Sends the request to the socket, waits for its answer, a line of JSON, and prints it: text of a refusal to
// standard error, all else to standard output. The exit status.
int lab_command_exchange(const t_lab_command &command, const std::string &request);
