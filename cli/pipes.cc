#include "cli/pipes.h"

#include <algorithm>

static bool fail(std::string *p_reason, std::string reason)
{
    *p_reason = std::move(reason);
    return false;
}

static bool filter_add(t_cli *p_cli, const std::string &text, bool passes, std::string *p_reason)
{
    cli_regex_ptr regex = cli_regex_new(text, p_reason);
    if (regex == nullptr)
        return false;
    p_cli->output.filters.push_back({.regex = std::move(regex), .passes = passes});
    return true;
}

static bool match_apply(t_cli *p_cli, const std::string &text, std::string *p_reason)
{
    return filter_add(p_cli, text, true, p_reason);
}

static bool except_apply(t_cli *p_cli, const std::string &text, std::string *p_reason)
{
    return filter_add(p_cli, text, false, p_reason);
}

static bool count_apply(t_cli *p_cli, const std::string &, std::string *)
{
    p_cli->output.filters.push_back({.regex = nullptr, .passes = false});
    return true;
}

static bool json_apply(t_cli *p_cli, const std::string &, std::string *)
{
    p_cli->form = CLI_FORM_JSON;
    return true;
}

static bool display_apply(t_cli *p_cli, const std::string &text, std::string *p_reason)
{
    if (text != "set" && text != "json")
        return fail(p_reason, "display is set or json, what is \"" + text + "\"?");
    p_cli->form = text == "set" ? CLI_FORM_SET : CLI_FORM_JSON;
    return true;
}

static bool compare_apply(t_cli *p_cli, const std::string &, std::string *)
{
    p_cli->form = CLI_FORM_COMPARE;
    return true;
}

static bool no_more_apply(t_cli *p_cli, const std::string &, std::string *)
{
    p_cli->output.pages = false;
    return true;
}

static constexpr t_cli_pipe pipes[] = {
    {"compare", nullptr, "show what the candidate changes here", compare_apply},
    {"count", nullptr, "count the lines", count_apply},
    {"display", "set|json", "show as set commands, or as JSON", display_apply},
    {"except", "REGEX", "leave out lines that match", except_apply},
    {"json", nullptr, "show as JSON", json_apply},
    {"match", "REGEX", "show lines that match", match_apply},
    {"no-more", nullptr, "do not stop at a full screen", no_more_apply},
};

const std::span<const t_cli_pipe> g_cli_pipes = pipes;

static bool pipe_apply(t_cli *p_cli, std::span<const t_cli_token> tokens, std::string *p_reason)
{
    if (tokens.empty())
        return fail(p_reason, "nothing follows the bar");
    const t_cli_pipe *p_pipe =
        std::ranges::find_if(pipes, [&](const t_cli_pipe &pipe) { return tokens[0].text == pipe.name; });
    if (p_pipe == std::end(pipes))
        return fail(p_reason, "there is no filter " + tokens[0].text);
    std::string name = p_pipe->name;
    size_t wanted = p_pipe->argument != nullptr ? 2 : 1;
    if (tokens.size() < wanted)
        return fail(p_reason, name + " needs " + p_pipe->argument);
    if (tokens.size() > wanted)
        return fail(p_reason, name + ": what is \"" + tokens[wanted].text + "\"?");
    return p_pipe->apply(p_cli, wanted == 2 ? tokens[1].text : "", p_reason);
}

bool cli_pipes_apply(t_cli *p_cli, std::span<const t_cli_token> tokens, std::string *p_reason)
{
    while (!tokens.empty()) {
        tokens = tokens.subspan(1);  // the bar
        auto end = std::ranges::find_if(tokens, [](const t_cli_token &token) { return token.is_pipe; });
        size_t size = static_cast<size_t>(end - tokens.begin());
        if (!pipe_apply(p_cli, tokens.first(size), p_reason))
            return false;
        tokens = tokens.subspan(size);
    }
    return true;
}
