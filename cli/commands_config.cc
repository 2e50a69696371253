// Commands that change the configuration, and its history.

#include "cli/commands.h"
#include "cli/text_model.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <unistd.h>

// ---- Files ----

static constexpr size_t max_file = 64 * 1024 * 1024;  // bytes; what the daemon takes in one request

using file_ptr = std::unique_ptr<FILE, int (*)(FILE *)>;

static int standard_input_keep(FILE *)
{
    return 0;
}

static file_ptr file_open(const std::string &name)
{
    if (name == "-")
        return {stdin, standard_input_keep};
    return {fopen(name.c_str(), "re"), fclose};
}

// The whole text of a file, which must be one JSON object.
static e_cli_status file_read(const std::string &name, std::string *p_text)
{
    file_ptr file = file_open(name);
    if (file == nullptr)
        return cli_fail(CLI_LOCAL, name + ": " + strerror(errno));
    char piece[65536];
    size_t size;
    while ((size = fread(piece, 1, sizeof(piece), file.get())) > 0 && p_text->size() <= max_file)
        p_text->append(piece, size);
    if (ferror(file.get()) != 0)
        return cli_fail(CLI_LOCAL, name + ": " + strerror(errno));
    if (p_text->size() > max_file)
        return cli_fail(CLI_LOCAL, name + ": longer than 64 MiB");
    try {
        if (nlohmann::json::parse(*p_text).is_object())
            return CLI_DONE;
    } catch (const nlohmann::json::parse_error &error) {
        std::string reason = error.what();  // "[json.exception.parse_error.101] parse error at line 1, ..."
        return cli_fail(CLI_LOCAL, name + ": " + reason.substr(reason.find("] ") + 2));
    }
    return cli_fail(CLI_LOCAL, name + ": no JSON object");
}

// ---- Edits ----

static std::string json_text(const std::string &text)
{
    return t_cli_json(text).dump(-1, ' ', false, t_cli_json::error_handler_t::replace);
}

// One edit of the array that a request carries; value is JSON, or empty for none.
static std::string edit_text(const std::string &op, const std::string &path, const std::string &value)
{
    std::string text = R"({"op":")" + op + R"(","path":)" + json_text(path);
    return text + (value.empty() ? "}" : R"(,"value":)" + value + '}');
}

static e_cli_status file_edit(const t_cli_given &given, bool replaces, std::string *p_edit)
{
    std::string content;
    e_cli_status status = file_read(given.values[0], &content);
    if (status == CLI_DONE)
        *p_edit = edit_text(replaces ? "replace" : "merge", "/", content);
    return status;
}

// The edit of one option; empty for an option that is none.
static e_cli_status option_edit(const t_cli_given &given, bool replaces, std::string *p_edit)
{
    std::string_view name = given.p_option->name;
    if (name == "--file")
        return file_edit(given, replaces, p_edit);
    if (name == "--set")
        *p_edit = edit_text("merge", given.values[0], json_text(given.values[1]));
    else if (name == "--add")
        *p_edit = edit_text("merge", given.values[0], "");
    else if (name == "--delete")
        *p_edit = edit_text("delete", given.values[0], "");
    return CLI_DONE;
}

// All options that change something, in their order, as one array: all of them hold or none. With --replace
// the first file replaces, the others are merged into it.
static e_cli_status edits_make(const t_cli_arguments &arguments, std::string *p_edits)
{
    bool replaces = cli_option_is_given(arguments, "--replace");
    if (replaces && !cli_option_is_given(arguments, "--file"))
        return cli_fail(CLI_USAGE, "--replace needs a file");
    for (const t_cli_given &given : arguments.options) {
        std::string edit;
        e_cli_status status = option_edit(given, replaces, &edit);
        if (status != CLI_DONE)
            return status;
        if (!edit.empty())
            *p_edits += (p_edits->empty() ? '[' : ',') + edit;
        replaces = replaces && given.p_option->name != std::string_view("--file");
    }
    if (p_edits->empty())
        return cli_fail(CLI_USAGE, "configure needs something to change");
    *p_edits += ']';
    return CLI_DONE;
}

// ---- Commit ----

static e_cli_status commit_call(t_cli *p_cli, const std::string &comment)
{
    t_cli_listener listener;
    if (isatty(STDERR_FILENO) != 0)
        listener.progress = [](const std::string &line) { fprintf(stderr, "%s\n", line.c_str()); };
    t_cli_answer answer;
    e_cli_status status = cli_call(p_cli, {{"op", "commit"}, {"comment", comment}}, {}, &answer, listener);
    if (status != CLI_DONE)
        return status;
    if (p_cli->json)
        return cli_print_json(answer.result);
    if (answer.result.value("changed", t_cli_json()) != true)
        return cli_print("nothing to commit\n");
    return cli_print("commit " + answer.result.value("commit", t_cli_json()).dump() + " is running\n");
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
        return commit_call(p_cli, *p_comment);
    return status == CLI_DONE && p_cli->json ? cli_print_json(t_cli_json::object()) : status;
}

e_cli_status cli_configure(t_cli *p_cli, const t_cli_arguments &arguments)
{
    std::string edits;
    e_cli_status status = edits_make(arguments, &edits);
    if (status != CLI_DONE)
        return status;
    return change_call(p_cli, cli_head("edit"), edits, cli_option_value(arguments, "--commit"));
}

e_cli_status cli_rollback(t_cli *p_cli, const t_cli_arguments &arguments)
{
    t_cli_json head = {{"op", "rollback"}, {"number", std::stoul(arguments.words[0])}};
    return change_call(p_cli, head, {}, cli_option_value(arguments, "--commit"));
}

e_cli_status cli_commit(t_cli *p_cli, const t_cli_arguments &arguments)
{
    const std::string *p_comment = cli_option_value(arguments, "--comment");
    return commit_call(p_cli, p_comment != nullptr ? *p_comment : "");
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
    if (p_cli->json)
        return cli_print_json(answer.result);
    std::string text;
    for (const t_cli_json &line : answer.result.value("changes", t_cli_json::array()))
        text += (line.is_string() ? line.get<std::string>() : line.dump()) + '\n';
    return cli_print(text);
}

e_cli_status cli_history(t_cli *p_cli, const t_cli_arguments &)
{
    t_cli_answer answer;
    e_cli_status status = cli_call(p_cli, cli_head("commits"), {}, &answer);
    if (status != CLI_DONE)
        return status;
    if (p_cli->json)
        return cli_print_json(answer.result);
    std::string text;
    t_cli_json commits = answer.result.value("commits", t_cli_json::array());
    cli_text_table(commits, {"rollback", "commit", "time", "user", "comment"}, &text);
    return cli_print(text);
}
