#include "cli/text_node.h"

#include "cli/model_walk.h"

std::string cli_node_kind(const t_cli_json &node)
{
    std::string text = cli_model_text(node, "kind");
    for (const char *p_name : {"type", "range", "units"}) {
        std::string word = cli_model_text(node, p_name);
        text += word.empty() ? "" : (std::string_view(p_name) == "type" ? ", " : " ") + word;
    }
    for (const char *p_name : {"key", "mandatory", "state"})
        text += cli_model_flag(node, p_name) ? std::string(", ") + p_name : "";
    return text;
}

std::string cli_node_values(const t_cli_json &node)
{
    static constexpr size_t max_values = 32;
    t_cli_json values = node.value("values", t_cli_json::array());
    std::string text;
    for (size_t i = 0; i < std::min(values.size(), max_values); i++)
        text += (i == 0 ? " One of: " : ", ") + values[i].get<std::string>();
    return text + (values.size() > max_values ? "..." : text.empty() ? "" : ".");
}

std::string cli_node_description(const t_cli_json &node)
{
    std::string text;
    for (char character : cli_model_text(node, "description")) {
        bool is_blank = character == ' ' || character == '\n' || character == '\t';
        if (!is_blank || !text.ends_with(' '))
            text += is_blank ? ' ' : character;
    }
    return text;
}
