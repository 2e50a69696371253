#include "lab/ftmd/ftm_service.h"

#include <charconv>

using t_json = nlohmann::ordered_json;

void ftm_service_up(t_ftm_service *p_service)
{
    p_service->is_connected = true;
    p_service->stats.connections++;
    p_service->table = {};
}

void ftm_service_down(t_ftm_service *p_service)
{
    p_service->is_connected = false;
}

void ftm_service_bad_frame(t_ftm_service *p_service)
{
    p_service->stats.bad_frames++;
}

// ---- Messages ----

static void log_add(t_ftm_service *p_service, const t_json &json)
{
    p_service->log.push_back({p_service->stats.messages, p_service->stats.connections, json});
    if (p_service->log.size() > FTM_LOG_SIZE)
        p_service->log.pop_front();
}

// Of a malformed message the fixed fields before the name, of any other as much as the log can afford.
static constexpr size_t malformed_bytes = 16;
static constexpr size_t shown_bytes = 512;

static std::string hex_of(std::span<const uint8_t> bytes, size_t max_bytes)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (uint8_t byte : bytes.first(std::min(bytes.size(), max_bytes))) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

bool ftm_service_message(t_ftm_service *p_service, std::span<const uint8_t> bytes, std::string *p_error)
{
    p_service->stats.messages++;
    t_ftm_message message = {};
    if (!ftm_decode(bytes, &message, p_error)) {
        p_service->stats.malformed++;
        log_add(p_service, {{"message", "malformed"},
                            {"reason", *p_error},
                            {"size", bytes.size()},
                            {"begins", hex_of(bytes, malformed_bytes)}});
        return false;
    }
    p_service->stats.by_type[message.type]++;
    p_service->stats.missed_deletes += ftm_table_apply(&p_service->table, message);
    t_json json = ftm_message_json(message);
    json["bytes"] = hex_of(bytes, shown_bytes);
    log_add(p_service, json);
    return true;
}

// ---- Answers ----

static t_json refusal(const std::string &reason)
{
    return {{"ok", false}, {"error", reason}};
}

static t_json bindings_answer(const t_ftm_service *p_service)
{
    t_json answer = {{"ok", true}, {"request", "bindings"}};
    answer.update(fp_bindings_json(ftm_table_bindings(p_service->table)));
    return answer;
}

static t_json stats_answer(const t_ftm_service *p_service)
{
    const t_ftm_stats &stats = p_service->stats;
    t_json answer = {{"ok", true},
                     {"request", "stats"},
                     {"connected", p_service->is_connected},
                     {"connections", stats.connections},
                     {"messages", stats.messages},
                     {"malformed", stats.malformed},
                     {"bad-frames", stats.bad_frames},
                     {"missed-deletes", stats.missed_deletes}};
    for (size_t type = FTM_MESSAGE_VPN_ADD; type < FTM_MESSAGES; type++)
        answer[ftm_message_name(static_cast<e_ftm_message>(type))] = stats.by_type[type];
    return answer;
}

static t_json log_answer(const t_ftm_service *p_service, size_t count)
{
    const std::deque<t_ftm_log_row> &log = p_service->log;
    t_json rows = t_json::array();
    for (size_t i = log.size() - std::min(log.size(), count); i < log.size(); i++) {
        t_json row = {{"sequence", log[i].sequence}, {"connection", log[i].connection}};
        row.update(log[i].json);
        rows.push_back(row);
    }
    return {{"ok", true}, {"request", "log"}, {"messages", rows}};
}

static bool count_read(const std::string &word, size_t *p_count)
{
    const char *p_end = word.data() + word.size();
    std::from_chars_result result = std::from_chars(word.data(), p_end, *p_count);
    return result.ec == std::errc() && result.ptr == p_end;
}

nlohmann::ordered_json ftm_service_answer(const t_ftm_service *p_service,
                                          const std::vector<std::string> &words)
{
    if (words.size() == 1 && words[0] == "bindings")
        return bindings_answer(p_service);
    if (words.size() == 1 && words[0] == "stats")
        return stats_answer(p_service);
    size_t count = FTM_LOG_SIZE;
    if (words[0] == "log" && (words.size() == 1 || (words.size() == 2 && count_read(words[1], &count))))
        return log_answer(p_service, count);
    return refusal("requests are: bindings, stats, log [N]");
}
