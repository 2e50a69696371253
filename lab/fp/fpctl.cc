// fpctl: sends one request to fpd and prints the answer. See docs/fpd.md.
#include "lab/fp/fp_control.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <getopt.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

enum e_status {
    STATUS_DONE = 0,
    STATUS_REFUSED = 1,
    STATUS_USAGE = 2,
    STATUS_NO_ANSWER = 3,
};

static constexpr char usage[] =
    "Usage: fpctl [--socket PATH] [--json] REQUEST\n"
    "Sends a request to fpd. Exit status: 0 done, 1 refused, 2 usage, 3 no answer.\n\n"
    "  load                                                         open all programs, list them\n"
    "  classify FILTER [SRC DST SPORT DPORT PROTO] [NAME=VALUE]...  one packet by its fields\n"
    "  replay FILTER FILE [FILES]                                   the packets of a capture file\n"
    "  forward VPN INTERFACE in|out [from=service|tunnel] [family=ipv4|ipv6]\n"
    "          [SRC DST SPORT DPORT PROTO] [NAME=VALUE]...          one packet through what is bound there\n"
    "  replay --vpn VPN --interface INTERFACE --direction in|out [--from service|tunnel]\n"
    "          FILE [FILES]                                         a capture file through what is bound "
    "there\n"
    "  bindings                                                     which filters are bound where\n"
    "  stats                                                        what was counted since fpd began\n\n"
    "FILES: --sidecar            FILE.fields tells what no header does\n"
    "       --applications FILE  ports and their applications\n"
    "       --mirror FILE        gets the copies of mirrored packets\n"
    "       --verdicts FILE      gets a line of JSON for each frame\n\n"
    "  -s, --socket PATH  default /var/run/fpd.sock\n"
    "  -j, --json         print the answer in JSON; may stand anywhere\n"
    "  -h, --help         this text\n";

struct t_options {
    std::string socket = FP_CONTROL_SOCKET;
    bool json = false;
    std::vector<std::string> words;
};

// Returns the exit status, or -1 to go on. The words behind the request's name are fpd's to judge.
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
            return fputs(usage, stdout) < 0 ? STATUS_REFUSED : STATUS_DONE;
        else
            return STATUS_USAGE;
    }
    p_options->words.assign(argv + optind, argv + argc);
    p_options->json |= std::erase(p_options->words, "--json") > 0;
    if (!p_options->words.empty())
        return -1;
    fputs(usage, stderr);
    return STATUS_USAGE;
}

// Where a replay's file stands among the words: behind the filter id, or behind the options of a place.
static size_t file_place(const std::vector<std::string> &words)
{
    size_t place = 1;
    while (place < words.size() && words[place].starts_with("--"))
        place += 2;
    return place == 1 ? 2 : place;
}

// fpd has a working folder of its own. The capture comes first, then options, whose files stand behind them.
static void files_make_absolute(std::vector<std::string> *p_words)
{
    if ((*p_words)[0] != "replay")
        return;
    for (size_t i = file_place(*p_words); i < p_words->size(); i++) {
        if (!(*p_words)[i].starts_with("--"))
            (*p_words)[i] = std::filesystem::absolute((*p_words)[i]).string();
    }
}

static int fail(const std::string &what, int reason)
{
    fprintf(stderr, "fpctl: %s%s%s\n", what.c_str(), reason != 0 ? ": " : "",
            reason != 0 ? strerror(reason) : "");
    return -1;
}

// A connected socket, or -1.
static int service_connect(const std::string &path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path))
        return fail(path, ENAMETOOLONG);
    memcpy(address.sun_path, path.data(), path.size());
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const void *p_address = &address;
    if (connect(fd, static_cast<const sockaddr *>(p_address), sizeof(address)) == 0)
        return fd;
    int reason = errno;
    close(fd);
    return fail(path, reason);
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

// The answer's line, without its end; empty when the connection broke first.
static std::string line_receive(int fd)
{
    std::string text;
    char piece[4096];
    ssize_t size;
    while ((size = recv(fd, piece, sizeof(piece), 0)) > 0) {
        text.append(piece, static_cast<size_t>(size));
        if (text.ends_with('\n')) {
            text.pop_back();
            return text;
        }
    }
    return "";
}

static int answer_print(const std::string &line, bool json)
{
    fp_json answer = fp_json::parse(line, nullptr, false);
    if (!answer.is_object()) {
        fail("fpd gave no answer", 0);
        return STATUS_NO_ANSWER;
    }
    bool is_done = answer.value("ok", false);
    std::string text = json ? line + '\n' : fp_answer_text(answer);
    fputs(text.c_str(), is_done || json ? stdout : stderr);
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
    files_make_absolute(&options.words);
    std::string line = "--json";
    for (const std::string &word : options.words)
        line += ' ' + fp_word_quote(word);
    if (line.find('\n') != std::string::npos) {
        fail("a request is one line", 0);
        return STATUS_USAGE;
    }
    int fd = service_connect(options.socket);
    if (fd < 0)
        return STATUS_NO_ANSWER;
    std::string answer = line_send(fd, line + '\n') ? line_receive(fd) : "";
    close(fd);
    return answer_print(answer, options.json);
}
