#include "cli/text_set.h"

#include "cli/commands.h"
#include "cli/line_words.h"
#include "cli/model_walk.h"

struct t_set_writer {
    t_cli *p_cli;
    std::string *p_text;
    e_cli_status status = CLI_DONE;
};

static void members_write(t_set_writer *p_writer, const std::string &schema, const std::string &words,
                          const t_cli_json &object);

static std::string value_word(const t_cli_json &value)
{
    return cli_line_quote(value.is_string() ? value.get<std::string>() : value.dump());
}

static void line_write(t_set_writer *p_writer, const std::string &words)
{
    p_writer->p_text->append("set ").append(words).push_back('\n');
}

static void entry_write(t_set_writer *p_writer, const std::string &schema, std::string words,
                        const t_cli_json &keys, t_cli_json entry)
{
    for (const t_cli_json &key : keys) {
        std::string name = key.get<std::string>();
        if (!entry.contains(name))
            continue;
        words += ' ' + value_word(entry[name]);
        entry.erase(name);
    }
    if (entry.empty())
        line_write(p_writer, words);
    members_write(p_writer, schema, words, entry);
}

static void list_write(t_set_writer *p_writer, const std::string &schema, const std::string &words,
                       const t_cli_json &entries)
{
    std::string reason;
    const t_cli_json *p_node = cli_model_node(p_writer->p_cli, schema, &reason, &p_writer->status);
    if (p_node == nullptr) {
        cli_fail(*p_writer->p_cli, p_writer->status, reason);
        return;
    }
    t_cli_json keys = p_node->value("keys", t_cli_json::array());
    for (const t_cli_json &entry : entries)
        entry_write(p_writer, schema, words, keys, entry);
}

static void member_write(t_set_writer *p_writer, const std::string &schema, const std::string &words,
                         const t_cli_json &value)
{
    bool is_array = value.is_array() && !value.empty();
    if (value.is_object())
        members_write(p_writer, schema, words, value);
    else if (is_array && value[0].is_object())
        list_write(p_writer, schema, words, value);
    else if (is_array && value[0].is_null())
        line_write(p_writer, words);  // an empty leaf
    else if (!value.is_array())
        line_write(p_writer, words + ' ' + value_word(value));
    else
        for (const t_cli_json &element : value)
            line_write(p_writer, words + ' ' + value_word(element));
}

static void members_write(t_set_writer *p_writer, const std::string &schema, const std::string &words,
                          const t_cli_json &object)
{
    for (const auto &[long_name, value] : object.items()) {
        std::string name = long_name.substr(long_name.find(':') + 1);
        if (p_writer->status == CLI_DONE)
            member_write(p_writer, schema + '/' + name, words + (words.empty() ? "" : " ") + name, value);
    }
}

e_cli_status cli_text_set(t_cli *p_cli, const std::string &path, const t_cli_json &data, std::string *p_text)
{
    std::vector<t_cli_step> steps;
    if (!cli_path_split(path, &steps))
        return cli_fail(*p_cli, CLI_USAGE, path + ": this is no path");
    if (!steps.empty())
        steps.pop_back();  // the data has its name
    t_set_writer writer = {.p_cli = p_cli, .p_text = p_text};
    members_write(&writer, cli_path_schema(steps), cli_path_words(steps), data);
    return writer.status;
}
