// peerctl: sends one request to a lab daemon's control socket and prints the answer. See docs/peers.md.
#include "lab/fp/fp_service.h"
#include "lab/peers/peer_socket.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <getopt.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <vector>

enum e_status {
    STATUS_DONE = 0,
    STATUS_REFUSED = 1,
    STATUS_USAGE = 2,
    STATUS_NO_ANSWER = 3,
};

static constexpr char usage[] = "Usage: peerctl [--json] DAEMON REQUEST...\n"
                                "       peerctl [--json] --socket PATH REQUEST...\n"
                                "Sends a request to ftmd, ttmd, sysmgrd or another daemon with a control "
                                "socket at /var/run/DAEMON.sock.\n"
                                "Exit status: 0 done, 1 refused, 2 usage, 3 no answer.\n\n"
                                "  -s, --socket PATH  the control socket\n"
                                "  -j, --json         print the answer in JSON; may stand anywhere\n"
                                "  -h, --help         this text\n";

struct t_options {
    std::string socket;
    bool json = false;
    std::vector<std::string> words;  // of the request
};

static int fail(const std::string &what, const std::string &reason)
{
    fprintf(stderr, "peerctl: %s: %s\n", what.c_str(), reason.c_str());
    return STATUS_NO_ANSWER;
}

static int usage_fail()
{
    fputs(usage, stderr);
    return STATUS_USAGE;
}

// Returns the exit status, or -1 to go on.
static int options_read(int argc, char **argv, t_options *p_options)
{
    static const option names[] = {{"socket", required_argument, nullptr, 's'},
                                   {"json", no_argument, nullptr, 'j'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
    int letter;
    while ((letter = getopt_long(argc, argv, "+s:jh", names, nullptr)) != -1) {
        if (letter == 's')
            p_options->socket = optarg;
        else if (letter == 'j')
            p_options->json = true;
        else if (letter == 'h')
            return fputs(usage, stdout) < 0 ? STATUS_NO_ANSWER : STATUS_DONE;
        else
            return STATUS_USAGE;
    }
    p_options->words.assign(argv + optind, argv + argc);
    p_options->json |= std::erase(p_options->words, "--json") > 0;
    if (p_options->socket.empty() && !p_options->words.empty()) {
        p_options->socket = "/var/run/" + p_options->words.front() + ".sock";
        p_options->words.erase(p_options->words.begin());
    }
    return p_options->words.empty() ? usage_fail() : -1;
}

using file_ptr = std::unique_ptr<FILE, int (*)(FILE *)>;

// Null with errno.
static file_ptr daemon_open(const std::string &path)
{
    int fd = peer_socket_connect(path);
    if (fd >= 0)
        fcntl(fd, F_SETFL, 0);  // from here on calls wait
    return {fd >= 0 ? fdopen(fd, "r") : nullptr, fclose};
}

// The answer's line, or nothing.
static std::string line_exchange(FILE *p_daemon, const std::string &request)
{
    std::string line = request + '\n';
    if (send(fileno(p_daemon), line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size()))
        return "";
    char *p_text = nullptr;
    size_t room = 0;
    ssize_t size = getline(&p_text, &room, p_daemon);
    std::string answer(p_text != nullptr && size > 0 ? p_text : "");
    free(p_text);
    return answer;
}

static int answer_print(const std::string &line, const t_options &options)
{
    fp_json answer = fp_json::parse(line, nullptr, false);
    if (!answer.is_object())
        return fail(options.socket, "no answer");
    bool is_done = answer.value("ok", false);
    fputs((options.json ? line : fp_answer_text(answer)).c_str(), is_done || options.json ? stdout : stderr);
    if (fflush(stdout) != 0)
        return STATUS_NO_ANSWER;
    return is_done ? STATUS_DONE : STATUS_REFUSED;
}

int main(int argc, char **argv)
{
    t_options options;
    int status = options_read(argc, argv, &options);
    if (status >= 0)
        return status;
    std::string request;
    for (const std::string &word : options.words)
        request += word + ' ';
    if (request.find('\n') != std::string::npos)
        return usage_fail();
    file_ptr daemon = daemon_open(options.socket);
    if (daemon == nullptr)
        return fail(options.socket, strerror(errno));
    return answer_print(line_exchange(daemon.get(), request), options);
}
