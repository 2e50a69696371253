// fpctl: sends one request to fpd and prints the answer. See docs/fpd.md.
#include "lab/control/lab_command.h"
#include "lab/fp/fp_control.h"

#include <filesystem>

static constexpr char usage[] =
    "Usage: fpctl [--socket PATH] [--json] REQUEST\n"
    "Sends a request to fpd. Exit status: 0 done, 1 refused, 2 usage, 3 no answer.\n\n"
    "  load                                                         open all programs, list them\n"
    "  classify FILTER [SRC DST SPORT DPORT PROTO] [NAME=VALUE]...  one packet by its fields\n"
    "  replay FILTER FILE [FILES]                                   the packets of a capture file\n"
    "  forward VPN INTERFACE in|out [from=service|tunnel] [out-vpn=VPN] [out-interface=INTERFACE]\n"
    "          [family=ipv4|ipv6] [src6=ADDRESS] [dst6=ADDRESS] [SRC DST SPORT DPORT PROTO]\n"
    "          [NAME=VALUE]...                                      one packet through what is bound there\n"
    "  replay --vpn VPN --interface INTERFACE --direction in|out [--from service|tunnel]\n"
    "          [--out-vpn VPN] [--out-interface INTERFACE] FILE [FILES]\n"
    "                                                               a capture file through what is bound "
    "there\n"
    "  bindings                                                     which filters are bound where\n"
    "  zones                                                        zones of VPNs, filters of zone pairs\n"
    "  flows                                                        inspected flows\n"
    "  live                                                         ports of live mode\n"
    "  stats                                                        what was counted since fpd began\n\n"
    "FILES: --sidecar            FILE.fields tells what no header does\n"
    "       --applications FILE  ports and their applications\n"
    "       --mirror FILE        gets the copies of mirrored packets\n"
    "       --verdicts FILE      gets a line of JSON for each frame\n\n"
    "  -s, --socket PATH  default /var/run/fpd.sock\n"
    "  -j, --json         print the answer in JSON; may stand anywhere\n"
    "  -h, --help         this text\n";

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

// The words behind the request's name are fpd's to judge.
int main(int argc, char **argv)
{
    t_lab_command command = {.name = "fpctl", .usage = usage, .socket = FP_CONTROL_SOCKET};
    int status = lab_command_read(&command, argc, argv);
    if (status >= 0)
        return status;
    if (command.words.empty())
        return lab_command_misused(command);
    files_make_absolute(&command.words);
    std::string request = "--json";
    for (const std::string &word : command.words)
        request += ' ' + fp_word_quote(word);
    return lab_command_exchange(command, request);
}
