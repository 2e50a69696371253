// Commands that change the configuration, and its history.

#include "cli/commands.h"
#include "cli/edit_text.h"
#include "cli/text_escape.h"
#include "cli/text_model.h"

#include <cstdio>
#include <unistd.h>

// ---- Edits ----

static e_cli_status file_edit(const t_cli &cli, const t_cli_given &given, bool replaces, std::string *p_edit)
{
    std::string content;
    e_cli_status status = cli_file_read(cli, given.values[0], &content);
    if (status == CLI_DONE)
        *p_edit = cli_edit_text(replaces ? "replace" : "merge", "/", content);
    return status;
}

// The edit of one option; empty for an option that is none.
static e_cli_status option_edit(const t_cli &cli, const t_cli_given &given, bool replaces,
                                std::string *p_edit)
{
    std::string_view name = given.p_option->name;
    if (name == "--file")
        return file_edit(cli, given, replaces, p_edit);
    if (name == "--set")
        *p_edit = cli_edit_text("merge", given.values[0], cli_json_text(given.values[1]));
    else if (name == "--add")
        *p_edit = cli_edit_text("merge", given.values[0], "");
    else if (name == "--delete")
        *p_edit = cli_edit_text("delete", given.values[0], "");
    return CLI_DONE;
}

// All options that change something, in their order, as one array: all of them hold or none. With --replace
// the first file replaces, the others are merged into it.
static e_cli_status edits_make(const t_cli &cli, const t_cli_arguments &arguments, std::string *p_edits)
{
    bool replaces = cli_option_is_given(arguments, "--replace");
    if (replaces && !cli_option_is_given(arguments, "--file"))
        return cli_fail(cli, CLI_USAGE, "--replace needs a file");
    for (const t_cli_given &given : arguments.options) {
        std::string edit;
        e_cli_status status = option_edit(cli, given, replaces, &edit);
        if (status != CLI_DONE)
            return status;
        if (!edit.empty())
            *p_edits += (p_edits->empty() ? '[' : ',') + edit;
        replaces = replaces && given.p_option->name != std::string_view("--file");
    }
    if (p_edits->empty())
        return cli_fail(cli, CLI_USAGE, "configure needs something to change");
    *p_edits += ']';
    return CLI_DONE;
}

// ---- Commit ----

static e_cli_status commit_result_print(t_cli *p_cli, const t_cli_json &result)
{
    if (p_cli->form == CLI_FORM_JSON)
        return cli_print_json(p_cli, result);
    std::string text;
    if (result.contains("confirmed"))
        text += "commit " + result["confirmed"].dump() + " is confirmed\n";
    if (result.value("changed", t_cli_json()) == true)
        text += "commit " + result.value("commit", t_cli_json()).dump() + " is running\n";
    return cli_print(p_cli, text.empty() ? "nothing to commit\n" : text);
}

static e_cli_status commit_call(t_cli *p_cli, const t_cli_json &head)
{
    t_cli_listener listener;
    if (isatty(STDERR_FILENO) != 0)
        listener.progress = [](const std::string &line) {
            fprintf(stderr, "%s\n", cli_text_printable(line, false).c_str());
        };
    t_cli_answer answer;
    e_cli_status status = cli_call(p_cli, head, {}, &answer, listener);
    return status == CLI_DONE ? commit_result_print(p_cli, answer.result) : status;
}

// Changes the candidate; with a comment all the way to running, under a lock, which takes the changes back
// if anything is refused.
static e_cli_status change_call(t_cli *p_cli, const t_cli_json &head, std::string_view body,
                                const std::string *p_comment)
{
    e_cli_status status = CLI_DONE;
    if (p_comment != nullptr)
        status = cli_call(p_cli, cli_head("lock"));
    if (status == CLI_DONE)
        status = cli_call(p_cli, head, body);
    if (status == CLI_DONE && p_comment != nullptr)
        return commit_call(p_cli, {{"op", "commit"}, {"comment", *p_comment}});
    return status == CLI_DONE ? cli_print_done(p_cli) : status;
}

e_cli_status cli_configure(t_cli *p_cli, const t_cli_arguments &arguments)
{
    std::string edits;
    e_cli_status status = edits_make(*p_cli, arguments, &edits);
    if (status != CLI_DONE)
        return status;
    return change_call(p_cli, cli_head("edit"), edits, cli_option_value(arguments, "--commit"));
}

e_cli_status cli_rollback(t_cli *p_cli, const t_cli_arguments &arguments)
{
    t_cli_json head = {{"op", "rollback"}, {"number", std::stoul(arguments.words[0])}};
    return change_call(p_cli, head, {}, cli_option_value(arguments, "--commit"));
}

// What a confirmed commit is bound to must outlive the command.
static e_cli_status commit_head(const t_cli &cli, const t_cli_arguments &arguments, t_cli_json *p_head)
{
    const std::string *p_comment = cli_option_value(arguments, "--comment");
    const std::string *p_time = cli_option_value(arguments, "--confirmed");
    const std::string *p_persist = cli_option_value(arguments, "--persist");
    const std::string *p_persist_id = cli_option_value(arguments, "--persist-id");
    if (p_persist != nullptr && p_time == nullptr)
        return cli_fail(cli, CLI_USAGE, "persist is for a confirmed commit");
    if (p_time != nullptr && p_persist == nullptr && cli.mode == CLI_MODE_SHELL)
        return cli_fail(cli, CLI_USAGE,
                        "a confirmed commit needs --persist, as the command's end would undo it");
    *p_head = {{"op", "commit"}, {"comment", p_comment != nullptr ? *p_comment : ""}};
    if (p_time != nullptr)
        (*p_head)["confirm"] = cli_seconds_read(*p_time);
    if (p_persist != nullptr)
        (*p_head)["persist"] = *p_persist;
    if (p_persist_id != nullptr)
        (*p_head)["persist-id"] = *p_persist_id;
    return CLI_DONE;
}

e_cli_status cli_commit(t_cli *p_cli, const t_cli_arguments &arguments)
{
    if (cli_option_is_given(arguments, "--check") && arguments.options.size() > 1)
        return cli_fail(*p_cli, CLI_USAGE, "\"commit check\" takes nothing else");
    if (cli_option_is_given(arguments, "--check"))
        return cli_check(p_cli, arguments);
    t_cli_json head;
    e_cli_status status = commit_head(*p_cli, arguments, &head);
    if (status == CLI_DONE)
        status = commit_call(p_cli, head);
    bool waits = status == CLI_DONE && p_cli->is_terminal && head.contains("confirm");
    return waits ? cli_print(p_cli, "it is undone in " + head["confirm"].dump() +
                                        " seconds unless you commit again\n")
                 : status;
}

e_cli_status cli_cancel_commit(t_cli *p_cli, const t_cli_arguments &arguments)
{
    t_cli_json head = cli_head("cancel-commit");
    if (const std::string *p_id = cli_option_value(arguments, "--persist-id"); p_id != nullptr)
        head["persist-id"] = *p_id;
    return change_call(p_cli, head, {}, nullptr);
}

e_cli_status cli_check(t_cli *p_cli, const t_cli_arguments &)
{
    return change_call(p_cli, cli_head("check"), {}, nullptr);
}

e_cli_status cli_discard(t_cli *p_cli, const t_cli_arguments &)
{
    return change_call(p_cli, cli_head("discard"), {}, nullptr);
}

// ---- History ----

e_cli_status cli_compare(t_cli *p_cli, const t_cli_arguments &arguments)
{
    t_cli_json head = cli_head("compare");
    if (!arguments.words.empty())
        head["number"] = std::stoul(arguments.words[0]);
    t_cli_answer answer;
    e_cli_status status = cli_call(p_cli, head, {}, &answer);
    if (status != CLI_DONE)
        return status;
    if (p_cli->form == CLI_FORM_JSON)
        return cli_print_json(p_cli, answer.result);
    std::string text;
    for (const t_cli_json &line : answer.result.value("changes", t_cli_json::array()))
        text += (line.is_string() ? cli_text_printable(line.get<std::string>(), false) : line.dump()) + '\n';
    return cli_print(p_cli, text);
}

e_cli_status cli_history(t_cli *p_cli, const t_cli_arguments &)
{
    t_cli_answer answer;
    e_cli_status status = cli_call(p_cli, cli_head("commits"), {}, &answer);
    if (status != CLI_DONE)
        return status;
    if (p_cli->form == CLI_FORM_JSON)
        return cli_print_json(p_cli, answer.result);
    std::string text;
    t_cli_json commits = answer.result.value("commits", t_cli_json::array());
    cli_text_table(commits, {"rollback", "commit", "time", "user", "comment"}, &text);
    return cli_print(p_cli, text);
}
