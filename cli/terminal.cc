#include "cli/terminal.h"

#include "cli/completion.h"
#include "cli/interrupt.h"
#include "cli/line_words.h"
#include "cli/text_escape.h"
#include "cli/text_layout.h"

#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <histedit.h>
#include <poll.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

static constexpr int history_lines = 500;
static constexpr off_t max_history_file = 1024 * 1024;  // bytes; a larger one is not read
static constexpr size_t max_history_line = 4096;        // bytes; a longer one is not kept
static constexpr size_t max_candidates = 100;           // lines of a list

struct t_cli_terminal {
    t_cli *p_cli;
    EditLine *p_edit = nullptr;
    History *p_history = nullptr;
    std::string history_file;  // "" for none
    std::string prompt;
    bool interrupted = false;
    mbstate_t shift = {};  // of a character that came in part
};

static t_cli_terminal *terminal_of(EditLine *p_edit)
{
    void *p_data = nullptr;
    el_get(p_edit, EL_CLIENTDATA, &p_data);
    return static_cast<t_cli_terminal *>(p_data);
}

// ---- What the line editor calls ----

static char *on_prompt(EditLine *p_edit)
{
    return terminal_of(p_edit)->prompt.data();
}

// One character. 1, 0 at the end, -1 on Ctrl-C.
static int on_read(EditLine *p_edit, wchar_t *p_character)
{
    t_cli_terminal *p_terminal = terminal_of(p_edit);
    while (true) {
        char byte;
        if (!cli_wait(STDIN_FILENO, POLLIN)) {
            p_terminal->interrupted = true;
            return -1;
        }
        if (read(STDIN_FILENO, &byte, 1) != 1)
            return 0;
        size_t used = mbrtowc(p_character, &byte, 1, &p_terminal->shift);
        if (used <= 1)
            return 1;
        if (used == static_cast<size_t>(-1))
            p_terminal->shift = {};  // no character: passed over
    }
}

static std::string line_before_cursor(EditLine *p_edit)
{
    const LineInfo *p_info = el_line(p_edit);
    return {p_info->buffer, static_cast<size_t>(p_info->cursor - p_info->buffer)};
}

static void candidates_list(const t_cli_completion &completion)
{
    t_cli_entries entries;
    for (const t_cli_candidate &candidate : completion.candidates) {
        if (entries.size() == max_candidates)
            break;
        std::string help = candidate.help.substr(0, candidate.help.find(". "));  // the first sentence
        entries.emplace_back(cli_text_printable(candidate.text, false), cli_text_printable(help, false));
    }
    std::string text = "\n";
    cli_text_entries(entries, &text);
    if (completion.candidates.size() > entries.size())
        text += "  and " + std::to_string(completion.candidates.size() - entries.size()) + " more\n";
    if (entries.empty())
        text += "  " +
                (completion.note.empty() ? "nothing is known to follow"
                                         : cli_text_printable(completion.note, false)) +
                "\n";
    fputs(text.c_str(), stdout);
    fflush(stdout);
}

static unsigned char on_help(EditLine *p_edit, int)
{
    std::string line = line_before_cursor(p_edit);
    std::vector<t_cli_token> tokens;
    if (cli_line_split(line, &tokens) == CLI_LINE_OPEN_QUOTE) {
        el_insertstr(p_edit, "?");
        return CC_REFRESH;
    }
    candidates_list(cli_complete(terminal_of(p_edit)->p_cli, line));
    return CC_REDISPLAY;
}

// What all candidates begin with.
static std::string common_beginning(const std::vector<std::string> &texts)
{
    std::string common = texts.empty() ? "" : texts[0];
    for (const std::string &text : texts) {
        auto [at, other] = std::ranges::mismatch(common, text);
        common.resize(static_cast<size_t>(at - common.begin()));
    }
    while (!common.empty() && (static_cast<unsigned char>(common.back()) & 0x80) != 0)
        common.pop_back();  // no part of a character
    return common;
}

static int characters_of(std::string_view text)
{
    return static_cast<int>(std::ranges::count_if(
        text, [](char byte) { return (static_cast<unsigned char>(byte) & 0xc0) != 0x80; }));
}

static unsigned char on_complete(EditLine *p_edit, int)
{
    std::string line = line_before_cursor(p_edit);
    t_cli_completion completion = cli_complete(terminal_of(p_edit)->p_cli, line);
    std::vector<std::string> texts;
    bool goes_on = false;
    for (const t_cli_candidate &candidate : completion.candidates) {
        if (candidate.is_hint)
            continue;
        texts.push_back(candidate.text);
        goes_on = candidate.goes_on;
    }
    if (texts.size() == 1) {
        el_deletestr(p_edit, characters_of(std::string_view(line).substr(completion.begin)));
        el_insertstr(p_edit,
                     ((goes_on ? texts[0] : cli_line_quote(texts[0])) + (goes_on ? "" : " ")).c_str());
        return CC_REFRESH;
    }
    std::string common = common_beginning(texts);
    bool is_typed = std::string_view(line).substr(completion.begin) == completion.typed;
    bool extends = is_typed && common.size() > completion.typed.size() && cli_line_quote(common) == common;
    if (extends) {
        el_insertstr(p_edit, common.c_str() + completion.typed.size());
        return CC_REFRESH;
    }
    candidates_list(completion);
    return CC_REDISPLAY;
}

// ---- History ----

static bool history_is_sane(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) != 0 ||
           (S_ISREG(status.st_mode) && status.st_size <= max_history_file);
}

static void history_begin(t_cli_terminal *p_terminal)
{
    HistEvent event;
    const char *p_home = getenv("HOME");
    p_terminal->p_history = history_init();
    if (p_terminal->p_history == nullptr)
        return;
    history(p_terminal->p_history, &event, H_SETSIZE, history_lines);
    history(p_terminal->p_history, &event, H_SETUNIQUE, 1);
    el_set(p_terminal->p_edit, EL_HIST, history, p_terminal->p_history);
    if (p_home == nullptr || *p_home != '/')
        return;
    p_terminal->history_file = std::string(p_home) + "/.lumora_cli_history";
    if (history_is_sane(p_terminal->history_file))
        history(p_terminal->p_history, &event, H_LOAD, p_terminal->history_file.c_str());
    else
        p_terminal->history_file.clear();
}

// ---- The terminal ----

static termios g_cli_terminal_kept;  // as it was before, for a signal that ends the program

static void on_end_signal(int signal_number)
{
    tcsetattr(STDIN_FILENO, TCSANOW, &g_cli_terminal_kept);
    signal(signal_number, SIG_DFL);
    raise(signal_number);
}

static bool terminal_keep()
{
    if (tcgetattr(STDIN_FILENO, &g_cli_terminal_kept) != 0)
        return false;
    signal(SIGTSTP, SIG_IGN);  // a suspended line editor would leave the terminal raw
    for (int end_signal : {SIGTERM, SIGHUP, SIGQUIT})
        signal(end_signal, on_end_signal);
    return true;
}

static void editor_set_up(t_cli_terminal *p_terminal)
{
    EditLine *p_edit = p_terminal->p_edit;
    el_set(p_edit, EL_CLIENTDATA, p_terminal);
    el_set(p_edit, EL_PROMPT, on_prompt);
    el_set(p_edit, EL_EDITOR, "emacs");
    el_set(p_edit, EL_SIGNAL, 0);
    el_set(p_edit, EL_GETCFN, on_read);
    // The wide form keeps these texts as they are; the narrow one makes copies that nobody frees.
    el_wset(p_edit, EL_ADDFN, L"cli-complete", L"Complete a word", on_complete);
    el_wset(p_edit, EL_ADDFN, L"cli-help", L"Tell what can follow", on_help);
    el_set(p_edit, EL_BIND, "^I", "cli-complete", nullptr);
    el_set(p_edit, EL_BIND, "?", "cli-help", nullptr);
    el_set(p_edit, EL_BIND, "^R", "em-inc-search-prev", nullptr);
}

cli_terminal_ptr cli_terminal_open(t_cli *p_cli)
{
    setlocale(LC_CTYPE, "");
    if (MB_CUR_MAX == 1)
        setlocale(LC_CTYPE, "C.UTF-8");
    cli_terminal_ptr terminal(new t_cli_terminal{.p_cli = p_cli, .history_file = {}, .prompt = {}});
    if (!terminal_keep())
        return nullptr;
    terminal->p_edit = el_init("lumora-cli", stdin, stdout, stderr);
    if (terminal->p_edit == nullptr)
        return nullptr;
    editor_set_up(terminal.get());
    history_begin(terminal.get());
    return terminal;
}

void t_cli_terminal_deleter::operator()(t_cli_terminal *p_terminal) const
{
    HistEvent event;
    if (p_terminal->p_history != nullptr && !p_terminal->history_file.empty())
        history(p_terminal->p_history, &event, H_SAVE, p_terminal->history_file.c_str());
    if (p_terminal->p_edit != nullptr)
        el_end(p_terminal->p_edit);
    if (p_terminal->p_history != nullptr)
        history_end(p_terminal->p_history);
    delete p_terminal;
}

static void history_add(t_cli_terminal *p_terminal, const std::string &line)
{
    HistEvent event;
    bool is_kept = line.find_first_not_of(" \t") != std::string::npos && line.size() <= max_history_line;
    if (is_kept && p_terminal->p_history != nullptr)
        history(p_terminal->p_history, &event, H_ENTER, line.c_str());
}

e_cli_terminal_line cli_terminal_line(t_cli_terminal *p_terminal, const std::string &prompt,
                                      std::string *p_line)
{
    p_terminal->prompt = prompt;
    p_terminal->interrupted = false;
    int count = 0;
    el_resize(p_terminal->p_edit);
    // Before the prompt is shown: an end-of-file key that follows it at once would be the terminal's own
    // else.
    el_set(p_terminal->p_edit, EL_PREP_TERM, 1);
    const char *p_text = el_gets(p_terminal->p_edit, &count);
    if (p_text == nullptr || count <= 0) {
        fputs(p_terminal->interrupted ? "^C\n" : "\n", stdout);
        return p_terminal->interrupted ? CLI_TERMINAL_INTERRUPTED : CLI_TERMINAL_END;
    }
    p_line->assign(p_text, static_cast<size_t>(count));
    while (p_line->ends_with('\n') || p_line->ends_with('\r'))
        p_line->pop_back();
    history_add(p_terminal, *p_line);
    return CLI_TERMINAL_LINE;
}
