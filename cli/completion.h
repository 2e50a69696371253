// What can follow in a command line, for Tab, "?" and the shell's completion: from the table of commands, and
// from what the daemon says about its model and its data.
#pragma once

#include "cli/command.h"

struct t_cli_candidate {
    std::string text;
    std::string help;
    bool is_hint = false;  // stands for what can't be listed: "<uint32 1..max>"
    bool goes_on = false;  // is only the beginning of a word
};

struct t_cli_completion {
    size_t begin = 0;   // where the word at the line's end begins
    std::string typed;  // that word, without quotes
    std::vector<t_cli_candidate> candidates;
    std::string note;  // why there are none
};

// line is what stands before the cursor.
t_cli_completion cli_complete(t_cli *p_cli, std::string_view line);
