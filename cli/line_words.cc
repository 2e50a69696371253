#include "cli/line_words.h"

static bool is_blank(char character)
{
    return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

struct t_scanner {
    std::string_view line;
    size_t at = 0;
    e_cli_line result = CLI_LINE_WHOLE;
};

// Takes what stands in quotes. raw keeps the quotes and backslashes, for paths.
static void quoted_take(t_scanner *p_scanner, bool raw, std::string *p_text)
{
    std::string_view line = p_scanner->line;
    size_t at = p_scanner->at + 1;
    p_text->append(raw ? 1 : 0, '"');
    for (; at < line.size() && line[at] != '"'; at++) {
        bool escapes =
            line[at] == '\\' && at + 1 < line.size() && (line[at + 1] == '"' || line[at + 1] == '\\');
        if (escapes) {
            p_text->append(raw ? 1 : 0, '\\');
            at++;
        }
        p_text->push_back(line[at]);
    }
    if (at >= line.size())
        p_scanner->result = CLI_LINE_OPEN_QUOTE;
    else
        p_text->append(raw ? 1 : 0, '"');
    p_scanner->at = at < line.size() ? at + 1 : at;
}

static void braces_take(t_scanner *p_scanner, std::string *p_text)
{
    while (p_scanner->at < p_scanner->line.size() && p_scanner->line[p_scanner->at] != '}') {
        if (p_scanner->line[p_scanner->at] == '"')
            quoted_take(p_scanner, true, p_text);
        else
            p_text->push_back(p_scanner->line[p_scanner->at++]);
    }
    if (p_scanner->result != CLI_LINE_WHOLE)
        return;
    if (p_scanner->at >= p_scanner->line.size())
        p_scanner->result = CLI_LINE_OPEN_BRACE;
    else
        p_text->push_back(p_scanner->line[p_scanner->at++]);
}

static t_cli_token token_take(t_scanner *p_scanner)
{
    t_cli_token token = {.text = "", .begin = p_scanner->at, .is_pipe = false, .is_quoted = false};
    std::string_view line = p_scanner->line;
    if (line[p_scanner->at] == '|') {
        p_scanner->at++;
        token.text = "|";
        token.is_pipe = true;
        return token;
    }
    while (p_scanner->at < line.size() && !is_blank(line[p_scanner->at]) && line[p_scanner->at] != '|') {
        if (line[p_scanner->at] == '"') {
            token.is_quoted = true;
            quoted_take(p_scanner, false, &token.text);
        } else if (line[p_scanner->at] == '{') {
            braces_take(p_scanner, &token.text);
        } else {
            token.text.push_back(line[p_scanner->at++]);
        }
    }
    return token;
}

e_cli_line cli_line_split(std::string_view line, std::vector<t_cli_token> *p_tokens)
{
    if (line.size() > CLI_LINE_MAX)
        return CLI_LINE_TOO_LONG;
    t_scanner scanner = {.line = line};
    while (true) {
        while (scanner.at < line.size() && is_blank(line[scanner.at]))
            scanner.at++;
        bool is_comment = p_tokens->empty() && scanner.at < line.size() && line[scanner.at] == '#';
        if (scanner.at >= line.size() || is_comment)
            return scanner.result;
        p_tokens->push_back(token_take(&scanner));
    }
}

const char *cli_line_fault(e_cli_line result)
{
    switch (result) {
    case CLI_LINE_WHOLE:
        break;
    case CLI_LINE_OPEN_QUOTE:
        return "a quote is not closed";
    case CLI_LINE_OPEN_BRACE:
        return "a brace is not closed";
    case CLI_LINE_TOO_LONG:
        return "the line is too long";
    }
    return "";
}

std::string cli_line_quote(std::string_view word)
{
    bool is_plain = !word.empty() && word.find_first_of(" \t\r\n\"|{}?") == std::string_view::npos &&
                    word[0] != '-' && word[0] != '#';
    if (is_plain)
        return std::string(word);
    std::string quoted = "\"";
    for (char character : word) {
        if (character == '"' || character == '\\')
            quoted += '\\';
        quoted += character;
    }
    return quoted + '"';
}
