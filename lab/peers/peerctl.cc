// peerctl: sends one request to a lab daemon's control socket and prints the answer. See docs/peers.md.
#include "lab/control/lab_command.h"

static constexpr char usage[] = "Usage: peerctl [--json] DAEMON REQUEST...\n"
                                "       peerctl [--json] --socket PATH REQUEST...\n"
                                "Sends a request to ftmd, ttmd, sysmgrd or another daemon with a control "
                                "socket at /var/run/DAEMON.sock.\n"
                                "Exit status: 0 done, 1 refused, 2 usage, 3 no answer.\n\n"
                                "  -s, --socket PATH  the control socket\n"
                                "  -j, --json         print the answer in JSON; may stand anywhere\n"
                                "  -h, --help         this text\n";

int main(int argc, char **argv)
{
    t_lab_command command = {.name = "peerctl", .usage = usage};
    int status = lab_command_read(&command, argc, argv);
    if (status >= 0)
        return status;
    if (command.socket.empty() && !command.words.empty()) {
        command.socket = "/var/run/" + command.words.front() + ".sock";
        command.words.erase(command.words.begin());
    }
    if (command.words.empty())
        return lab_command_misused(command);
    std::string request;
    for (const std::string &word : command.words)
        request += word + ' ';
    return lab_command_exchange(command, request);
}
