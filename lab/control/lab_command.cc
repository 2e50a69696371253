#include "lab/control/lab_command.h"

#include "common/unix_socket.h"
#include "lab/control/lab_answer.h"
#include "lab/control/lab_program.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

static int fail(const t_lab_command &command, const std::string &reason, e_lab_status status)
{
    fprintf(stderr, "%s: %s\n", command.name, reason.c_str());
    return status;
}

int lab_command_read(t_lab_command *p_command, int argc, char **argv)
{
    const t_lab_option options[] = {{.name = "socket", .letter = 's', .p_value = &p_command->socket},
                                    {.name = "json", .letter = 'j', .p_switch = &p_command->json}};
    int status =
        lab_options_read({p_command->name, p_command->usage, options}, argc, argv, &p_command->words);
    p_command->json |= std::erase(p_command->words, "--json") > 0;
    return status;
}

int lab_command_misused(const t_lab_command &command)
{
    fputs(command.usage, stderr);
    return LAB_STATUS_USAGE;
}

static bool line_send(int fd, std::string_view line)
{
    while (!line.empty()) {
        ssize_t sent = send(fd, line.data(), line.size(), MSG_NOSIGNAL);
        if (sent < 0)
            return false;
        line.remove_prefix(static_cast<size_t>(sent));
    }
    return true;
}

// The answer's line with its end; empty when the connection broke first.
static std::string line_receive(int fd)
{
    std::string text;
    char piece[4096];
    ssize_t size;
    while ((size = recv(fd, piece, sizeof(piece), 0)) > 0) {
        text.append(piece, static_cast<size_t>(size));
        if (text.ends_with('\n'))
            return text;
    }
    return "";
}

static int answer_print(const t_lab_command &command, const std::string &line)
{
    nlohmann::ordered_json answer = nlohmann::ordered_json::parse(line, nullptr, false);
    if (!answer.is_object())
        return fail(command, command.socket + ": no answer", LAB_STATUS_NO_ANSWER);
    bool is_done = answer.value("ok", false);
    fputs((command.json ? line : lab_answer_text(answer)).c_str(), is_done || command.json ? stdout : stderr);
    if (fflush(stdout) != 0)
        return LAB_STATUS_NO_ANSWER;
    return is_done ? LAB_STATUS_DONE : LAB_STATUS_REFUSED;
}

int lab_command_exchange(const t_lab_command &command, const std::string &request)
{
    if (request.find('\n') != std::string::npos)
        return fail(command, "a request is one line", LAB_STATUS_USAGE);
    int fd = unix_socket_connect(command.socket, true);
    if (fd < 0)
        return fail(command, command.socket + ": " + strerror(errno), LAB_STATUS_NO_ANSWER);
    std::string answer = line_send(fd, request + '\n') ? line_receive(fd) : "";
    close(fd);
    return answer_print(command, answer);
}
