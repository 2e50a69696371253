#include "cli/session.h"

#include "cli/commands.h"
#include "cli/interrupt.h"
#include "cli/path_words.h"
#include "cli/pipes.h"
#include "cli/terminal.h"
#include "cli/text_escape.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <poll.h>
#include <pwd.h>
#include <unistd.h>

// ---- A line ----

static bool forms_fit(const t_cli &cli, const t_cli_command &command, std::string *p_reason)
{
    bool is_for_show = cli.form == CLI_FORM_SET || cli.form == CLI_FORM_COMPARE;
    if (is_for_show && command.name != std::string_view("show"))
        *p_reason =
            cli.form == CLI_FORM_SET ? "\"display set\" goes with show" : "\"compare\" goes with show";
    return p_reason->empty();
}

static e_cli_status command_run(t_cli *p_cli, std::span<const t_cli_token> tokens)
{
    auto bar = std::ranges::find_if(tokens, [](const t_cli_token &token) { return token.is_pipe; });
    size_t size = static_cast<size_t>(bar - tokens.begin());
    if (size == 0)
        return cli_fail(*p_cli, CLI_USAGE, "the command is missing");
    std::string reason;
    const t_cli_command *p_command = cli_command_find(p_cli->mode, tokens[0].text, &reason);
    if (p_command == nullptr)
        return cli_fail(*p_cli, CLI_USAGE, reason);
    std::vector<t_cli_argument> texts;
    for (const t_cli_token &token : tokens.subspan(1, size - 1))
        texts.push_back({.text = token.text, .is_quoted = token.is_quoted});
    t_cli_arguments arguments;
    if (!cli_command_read(*p_command, texts, p_cli, &arguments, &reason))
        return cli_fail(*p_cli, CLI_USAGE, std::string(p_command->name) + ": " + reason);
    if (!cli_pipes_apply(p_cli, tokens.subspan(size), &reason) || !forms_fit(*p_cli, *p_command, &reason))
        return cli_fail(*p_cli, CLI_USAGE, reason);
    if (p_cli->wants_help)
        return cli_print(p_cli, cli_command_help(p_cli->mode, *p_command));
    return p_command->run(p_cli, arguments);
}

e_cli_status cli_session_line(t_cli *p_cli, const std::string &line)
{
    std::vector<t_cli_token> tokens;
    e_cli_line result = cli_line_split(line, &tokens);
    if (result != CLI_LINE_WHOLE)
        return cli_fail(*p_cli, CLI_USAGE, cli_line_fault(result));
    if (tokens.empty())
        return CLI_DONE;
    e_cli_form form = p_cli->form;
    std::string socket = p_cli->socket;
    p_cli->output = {};
    p_cli->output.pages = p_cli->is_terminal && isatty(STDOUT_FILENO) != 0;
    e_cli_status status = cli_output_finish(p_cli, command_run(p_cli, tokens));
    p_cli->form = form;
    p_cli->socket = socket;
    p_cli->wants_help = false;
    return status;
}

// ---- Leaving ----

static bool answer_is_yes(const std::string &question)
{
    char answer[64] = "";
    printf("%s [yes/no] ", question.c_str());
    fflush(stdout);
    cli_interrupt_forget();
    if (!cli_wait(STDIN_FILENO, POLLIN)) {
        printf("\n");
        return false;
    }
    ssize_t size = read(STDIN_FILENO, answer, sizeof(answer) - 1);
    if (size <= 0)
        printf("\n");
    return size <= 0 || answer[0] == 'y' || answer[0] == 'Y';  // the terminal's end is a yes
}

bool cli_session_may_leave(t_cli *p_cli, bool ends)
{
    t_cli_json status = p_cli->is_terminal ? cli_status_ask(p_cli) : t_cli_json();
    if (!status.is_object())
        return true;
    t_cli_json pending = status.value("pending-confirm", t_cli_json::object());
    bool is_mine = p_cli->session != 0 && pending.value("session", 0u) == p_cli->session;
    if (ends && is_mine &&
        !answer_is_yes("Commit " + pending["commit"].dump() + " is not confirmed, it is undone. Leave?"))
        return false;
    if (status.value("candidate-changed", t_cli_json()) != true)
        return true;
    if (p_cli->holds_lock)
        return answer_is_yes("Uncommitted changes are dropped. Leave?");
    return !ends || answer_is_yes("There are uncommitted changes, they stay in the candidate. Leave?");
}

// ---- At a terminal ----

static std::string host_and_user()
{
    char host[256] = "";
    gethostname(host, sizeof(host) - 1);
    host[strcspn(host, ".")] = '\0';
    const passwd *p_user = getpwuid(geteuid());
    std::string user = p_user != nullptr ? p_user->pw_name : std::to_string(geteuid());
    return cli_text_printable(user + '@' + host, false);
}

static std::string prompt_text(t_cli *p_cli, const std::string &who)
{
    t_cli_json status = cli_status_ask(p_cli);
    bool is_changed = status.is_object() && status.value("candidate-changed", t_cli_json()) == true;
    bool configures = p_cli->mode == CLI_MODE_CONFIGURATION;
    if (configures) {
        std::vector<t_cli_step> steps;
        bool is_path = cli_path_split(p_cli->position, &steps);
        std::string place = is_path ? cli_path_words(steps) : "";
        printf("[edit%s%s]%s\n", place.empty() ? "" : " ", cli_text_printable(place, false).c_str(),
               p_cli->holds_lock ? " exclusive" : "");
    }
    return who + (is_changed ? "*" : "") + (configures ? "# " : "> ");
}

// Connects, and learns the number by which the daemon knows this session.
static e_cli_status session_begin(t_cli *p_cli)
{
    std::string reason;
    if (!cli_client_connect(&p_cli->client, p_cli->socket, &reason))
        return cli_fail(*p_cli, CLI_NO_CONNECTION, p_cli->socket + ": " + reason);
    t_cli_answer answer = cli_client_call(&p_cli->client, cli_head("status"));
    if (answer.outcome != CLI_ANSWER_DONE)
        return cli_fail(*p_cli, cli_answer_status(answer), p_cli->socket + ": " + answer.reason);
    p_cli->session = answer.result.value("session", 0u);
    return CLI_DONE;
}

static e_cli_status terminal_run(t_cli *p_cli)
{
    p_cli->is_terminal = true;
    cli_terminal_ptr terminal = cli_terminal_open(p_cli);
    if (terminal == nullptr || !cli_interrupt_install())
        return cli_fail(*p_cli, CLI_LOCAL, std::string("the terminal can't be used: ") + strerror(errno));
    std::string who = host_and_user();
    while (!p_cli->is_over) {
        cli_interrupt_forget();
        std::string line;
        e_cli_terminal_line read = cli_terminal_line(terminal.get(), prompt_text(p_cli, who), &line);
        if (read == CLI_TERMINAL_END)
            p_cli->is_over = cli_session_may_leave(p_cli, true);
        else if (read == CLI_TERMINAL_LINE)
            cli_session_line(p_cli, line);
        fflush(stdout);
    }
    return CLI_DONE;
}

// ---- Scripts ----

static e_cli_status script_run(t_cli *p_cli, std::istream *p_input)
{
    p_cli->p_input = p_input;
    std::string line;
    e_cli_status status = CLI_DONE;
    while (status == CLI_DONE && !p_cli->is_over && std::getline(*p_input, line)) {
        p_cli->line++;
        status = cli_session_line(p_cli, line);
    }
    return status;
}

e_cli_status cli_session_run(t_cli *p_cli)
{
    std::ifstream file;
    bool is_file = !p_cli->script.empty() && p_cli->script != "-";
    if (is_file) {
        file.open(p_cli->script);
        if (!file)
            return cli_fail(*p_cli, CLI_LOCAL, p_cli->script + ": " + strerror(errno));
    }
    e_cli_status status = session_begin(p_cli);
    if (status != CLI_DONE)
        return status;
    p_cli->mode = CLI_MODE_OPERATION;
    if (!is_file && isatty(STDIN_FILENO) != 0)
        return terminal_run(p_cli);
    return script_run(p_cli, is_file ? static_cast<std::istream *>(&file) : &std::cin);
}
