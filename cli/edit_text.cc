#include "cli/edit_text.h"

#include "cli/commands.h"
#include "cli/interrupt.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <istream>
#include <poll.h>
#include <unistd.h>

static constexpr size_t max_file = 64 * 1024 * 1024;  // bytes; what the daemon takes in one request

std::string cli_json_text(const std::string &text)
{
    return t_cli_json(text).dump(-1, ' ', false, t_cli_json::error_handler_t::replace);
}

std::string cli_edit_text(const std::string &op, const std::string &path, const std::string &value)
{
    std::string text = R"({"op":")" + op + R"(","path":)" + cli_json_text(path);
    return text + (value.empty() ? "}" : R"(,"value":)" + value + '}');
}

// ---- Files ----

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

static e_cli_status configuration_check(const t_cli &cli, const std::string &name, const std::string &text)
{
    if (text.size() > max_file)
        return cli_fail(cli, CLI_LOCAL, name + ": longer than 64 MiB");
    try {
        if (nlohmann::json::parse(text).is_object())
            return CLI_DONE;
    } catch (const nlohmann::json::parse_error &error) {
        std::string reason = error.what();  // "[json.exception.parse_error.101] parse error at line 1, ..."
        return cli_fail(cli, CLI_LOCAL, name + ": " + reason.substr(reason.find("] ") + 2));
    }
    return cli_fail(cli, CLI_LOCAL, name + ": no JSON object");
}

e_cli_status cli_file_read(const t_cli &cli, const std::string &name, std::string *p_text)
{
    file_ptr file = file_open(name);
    if (file == nullptr)
        return cli_fail(cli, CLI_LOCAL, name + ": " + strerror(errno));
    char piece[65536];
    size_t size;
    while ((size = fread(piece, 1, sizeof(piece), file.get())) > 0 && p_text->size() <= max_file)
        p_text->append(piece, size);
    if (ferror(file.get()) != 0)
        return cli_fail(cli, CLI_LOCAL, name + ": " + strerror(errno));
    return configuration_check(cli, name, *p_text);
}

// ---- Lines that follow ----

static e_cli_status terminal_read(std::string *p_text)
{
    char piece[4096];
    fputs("(JSON; a line with a single dot ends it)\n", stderr);
    while (p_text->size() <= max_file) {
        if (!cli_wait(STDIN_FILENO, POLLIN))
            return CLI_STOPPED;
        ssize_t size = read(STDIN_FILENO, piece, sizeof(piece));
        if (size <= 0)
            break;
        p_text->append(piece, static_cast<size_t>(size));
        if (*p_text == ".\n" || p_text->ends_with("\n.\n")) {
            p_text->resize(p_text->size() - 2);
            break;
        }
    }
    return CLI_DONE;
}

static void script_read(t_cli *p_cli, std::string *p_text)
{
    std::string line;
    while (p_text->size() <= max_file && std::getline(*p_cli->p_input, line)) {
        p_cli->line++;
        if (line == ".")
            break;
        p_text->append(line).push_back('\n');
    }
}

e_cli_status cli_lines_read(t_cli *p_cli, std::string *p_text)
{
    e_cli_status status = CLI_DONE;
    if (p_cli->p_input != nullptr)
        script_read(p_cli, p_text);
    else
        status = terminal_read(p_text);
    return status == CLI_DONE ? configuration_check(*p_cli, "terminal", *p_text) : status;
}
