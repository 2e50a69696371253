// Lines of the interactive command line from anywhere: words, commands by the table, paths and regular
// expressions. Words that were read can be written so that they are read again.

#include "cli/line_words.h"
#include "cli/path_words.h"
#include "cli/pipes.h"
#include "cli/text_escape.h"

#include <algorithm>
#include <cstdlib>

static void require(bool holds)
{
    if (!holds)
        abort();
}

static void word_check(const std::string &word)
{
    std::vector<t_cli_token> again;
    require(cli_line_split(cli_line_quote(word), &again) == CLI_LINE_WHOLE && again.size() == 1);
    require(again[0].text == word && !again[0].is_pipe);
    std::vector<t_cli_step> steps;
    if (!cli_path_split(word, &steps))
        return;
    std::vector<t_cli_step> steps_again;
    require(cli_path_split(cli_path_text(steps), &steps_again) && steps.size() == steps_again.size());
    for (size_t i = 0; i < steps.size(); i++)
        require(steps[i].name == steps_again[i].name && steps[i].keys == steps_again[i].keys);
}

static void command_check(e_cli_mode mode, std::span<const t_cli_token> tokens)
{
    std::string reason;
    const t_cli_command *p_command = cli_command_find(mode, tokens[0].text, &reason);
    require(p_command != nullptr || !reason.empty());
    if (p_command == nullptr)
        return;
    t_cli cli;
    cli.mode = mode;
    t_cli_arguments arguments;
    auto bar = std::ranges::find_if(tokens, [](const t_cli_token &token) { return token.is_pipe; });
    size_t size = std::max<size_t>(static_cast<size_t>(bar - tokens.begin()), 1);
    std::vector<t_cli_argument> texts;
    for (const t_cli_token &token : tokens.subspan(1, size - 1))
        texts.push_back({.text = token.text, .is_quoted = token.is_quoted});
    require(cli_command_read(*p_command, texts, &cli, &arguments, &reason) || !reason.empty());
    reason.clear();
    require(cli_pipes_apply(&cli, tokens.subspan(size), &reason) || !reason.empty());
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    std::string_view line(reinterpret_cast<const char *>(p_data), std::min<size_t>(size, 4096));
    std::vector<t_cli_token> tokens;
    e_cli_line result = cli_line_split(line, &tokens);
    require((result == CLI_LINE_WHOLE) == (*cli_line_fault(result) == '\0'));
    std::string shown = cli_text_printable(line, false);
    require(shown == cli_text_printable(shown, false) && shown.find('\x1b') == std::string::npos);
    for (const t_cli_token &token : tokens)
        word_check(token.text);
    for (e_cli_mode mode : {CLI_MODE_SHELL, CLI_MODE_OPERATION, CLI_MODE_CONFIGURATION}) {
        if (!tokens.empty())
            command_check(mode, tokens);
    }
    return 0;
}
