#include "tools/tarnc_common.h"

#include "tools/rule_actions.h"
#include "tools/rule_fields.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

int tarnc_fail(const std::string &message)
{
    fprintf(stderr, "tarnc: %s\n", message.c_str());
    return 1;
}

// A number with K, M or G behind it, each 1024 times the one before. False for anything else and beyond 2^63.
static bool read_size(std::string_view text, uint64_t *p_size)
{
    static constexpr std::string_view units = "KMG";
    unsigned shift = 0;
    if (size_t unit = text.empty() ? std::string_view::npos : units.find(text.back());
        unit != std::string_view::npos) {
        shift = 10 * static_cast<unsigned>(unit + 1);
        text.remove_suffix(1);
    }
    if (!text_number(text, p_size) || *p_size > (uint64_t{1} << 63) >> shift)
        return false;
    *p_size <<= shift;
    return true;
}

static std::string check_size(const std::string &text)
{
    uint64_t size = 0;
    return read_size(text, &size) && size > 0 ? "" : "no size: " + text_quote(text);
}

static std::string check_order(const std::string &text)
{
    std::vector<uint32_t> order;
    std::string reason;
    return rule_field_order_read(text, &order, &reason) ? "" : reason;
}

void tarnc_add_format(CLI::App *p_command, t_rules_options *p_options)
{
    p_command->add_option("--format", p_options->format, "Format of the rules: classbench, rules or auto")
        ->check(CLI::IsMember({"auto", "classbench", "rules"}))
        ->capture_default_str();
}

void tarnc_add_order(CLI::App *p_command, t_rules_options *p_options)
{
    p_command->add_option("--order", p_options->order, "Order of the fields, e.g. src,dst,sport,dport,proto")
        ->check(CLI::Validator(check_order, ""));
}

void tarnc_add_limit(CLI::App *p_command, t_rules_options *p_options)
{
    p_command
        ->add_option("--limit", p_options->limit,
                     "Largest program in bytes; K, M and G may follow the number")
        ->check(CLI::Validator(check_size, ""));
}

std::vector<uint32_t> tarnc_order(const t_rules_options &options)
{
    std::vector<uint32_t> order;
    std::string reason;
    rule_field_order_read(options.order, &order, &reason);
    return order;
}

uint64_t tarnc_limit(const t_rules_options &options)
{
    uint64_t size = 0;
    return read_size(options.limit, &size) ? size : 0;
}

bool tarnc_load_rules(const std::string &file, const t_rules_options &options, t_rule_set *p_set)
{
    e_rule_format format = e_rule_format::detect;
    rule_format_read(options.format, &format);
    t_text_error error;
    if (rule_set_load(file, format, p_set, &error))
        return true;
    tarnc_fail(text_error_print(error));
    return false;
}

nlohmann::json tarnc_stage_json(const t_stage_report &stage)
{
    nlohmann::json json = {{"id", stage.id}, {"classes", stage.classes}};
    if (stage.left == 0)
        json["field"] = rule_field_name(stage.field_type);
    else
        json["inputs"] = {stage.left, stage.right};
    if (stage.entries != 0) {
        json["entries"] = stage.entries;
        json["table_bytes"] = stage.table_bytes;
    }
    return json;
}

std::vector<std::string> tarnc_actions(std::span<const t_tarn_filter_action> slots)
{
    std::vector<std::string> actions;
    for (const t_tarn_filter_action &slot : slots) {
        bool tells_rule = slot.fwding_action == TARN_FILTER_ACTION_COUNT && slot.counter.name[0] == '#';
        std::string text = tells_rule ? "" : rule_action_print(slot);
        if (!text.empty())
            actions.push_back(text);
    }
    return actions;
}

void tarnc_print_json(const nlohmann::json &value)
{
    // File names may hold any bytes; what is no UTF-8 is replaced.
    std::string text = value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
    printf("%s\n", text.c_str());
}

bool tarnc_finish_output()
{
    if (fflush(stdout) == 0 && !ferror(stdout))
        return true;
    tarnc_fail(std::string("standard output: ") + strerror(errno));
    return false;
}
