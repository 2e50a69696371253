#include "lab/fp/fp_request.h"

#include "lab/fp/fp_fields.h"
#include "lab/fp/fp_place.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>
#include <span>

using t_words = std::span<const std::string>;

static bool refuse(const std::string &reason, std::string *p_error)
{
    *p_error = reason;
    return false;
}

// ---- Words ----

// Takes the word that begins at *p_pos, which is no blank.
static bool word_take(std::string_view line, size_t *p_pos, std::string *p_word)
{
    bool is_open = false;
    for (; *p_pos < line.size(); ++*p_pos) {
        char c = line[*p_pos];
        if (c == '"')
            is_open = !is_open;
        else if (is_open && c == '\\' && *p_pos + 1 < line.size())
            p_word->push_back(line[++*p_pos]);
        else if (!is_open && (c == ' ' || c == '\t'))
            break;
        else
            p_word->push_back(c);
    }
    return !is_open;
}

bool fp_words_split(std::string_view line, std::vector<std::string> *p_words)
{
    p_words->clear();
    size_t pos = 0;
    while ((pos = line.find_first_not_of(" \t", pos)) != std::string_view::npos) {
        p_words->emplace_back();
        if (!word_take(line, &pos, &p_words->back()))
            return false;
    }
    return true;
}

std::string fp_word_quote(std::string_view word)
{
    std::string text = "\"";
    for (char c : word) {
        if (c == '"' || c == '\\')
            text += '\\';
        text += c;
    }
    return text + '"';
}

// ---- Each request ----

static bool filter_read(t_words words, t_fp_request *p_request, std::string *p_error)
{
    if (words.empty())
        return refuse("the filter id is missing", p_error);
    if (words[0] == "-1")
        p_request->filter_id = UINT32_MAX;
    else if (!fp_number_read(words[0], &p_request->filter_id))
        return refuse("no filter id: " + fp_word_quote(words[0]), p_error);
    return true;
}

static bool nothing_read(t_words words, t_fp_request *, std::string *p_error)
{
    return words.empty() || refuse("unknown word " + fp_word_quote(words[0]), p_error);
}

static bool fields_read(t_words words, t_fp_request *p_request, std::string *p_error)
{
    static constexpr uint32_t places[] = {tarn_ip_src_addr, tarn_ip_dst_addr, tarn_ip_src_port,
                                          tarn_ip_dst_port, tarn_ip_protocol};
    size_t place = 0;
    for (const std::string &word : words) {
        bool is_named = word.find('=') != std::string::npos;
        if (!is_named && place == std::size(places))
            return refuse("unknown word " + fp_word_quote(word), p_error);
        bool holds = is_named ? fp_field_assign(word, &p_request->header, p_error)
                              : fp_field_set(places[place++], word, &p_request->header, p_error);
        if (!holds)
            return false;
    }
    if (place != 0 && place != std::size(places))
        return refuse("the fields are SRC DST SPORT DPORT PROTO", p_error);
    return true;
}

static bool classify_read(t_words words, t_fp_request *p_request, std::string *p_error)
{
    return filter_read(words, p_request, p_error) && fields_read(words.subspan(1), p_request, p_error);
}

// ---- Places ----

static void place_begin(t_fp_request *p_request)
{
    p_request->by_place = true;
    p_request->place = fp_place_blank();
}

static bool forward_read(t_words words, t_fp_request *p_request, std::string *p_error)
{
    static constexpr size_t num_required = 3;
    place_begin(p_request);
    if (words.size() < num_required)
        return refuse("the place is VPN INTERFACE DIRECTION", p_error);
    std::vector<std::string> fields;
    for (size_t i = 0; i < words.size(); i++) {
        size_t equals = words[i].find('=');
        const t_fp_place_row *p_row = i < num_required ? &fp_place_rows()[i] : nullptr;
        if (i >= num_required && equals != std::string::npos)
            p_row = fp_place_row_find(words[i].substr(0, equals));
        if (p_row == nullptr)
            fields.push_back(words[i]);
        else if (!fp_place_set(*p_row, words[i].substr(i < num_required ? 0 : equals + 1), &p_request->place,
                               p_error))
            return false;
    }
    return fields_read(fields, p_request, p_error);
}

// Files beside the capture, by option and member.
struct t_beside_row {
    std::string_view name;
    std::string t_fp_request::*p_file;
};

static constexpr t_beside_row beside_rows[] = {
    {"applications", &t_fp_request::applications},
    {"mirror", &t_fp_request::mirror},
    {"verdicts", &t_fp_request::verdicts},
};

// Null for a word that is no option of those.
static std::string t_fp_request::*beside_find(std::string_view word)
{
    for (const t_beside_row &row : beside_rows) {
        if (word.starts_with("--") && word.substr(2) == row.name)
            return row.p_file;
    }
    return nullptr;
}

static bool file_read(t_words words, t_fp_request *p_request, std::string *p_error)
{
    if (words.empty())
        return refuse("the file is missing", p_error);
    p_request->file = words[0];
    words = words.subspan(1);
    while (!words.empty()) {
        std::string t_fp_request::*p_file = beside_find(words[0]);
        p_request->sidecar |= words[0] == "--sidecar";
        if (p_file == nullptr && words[0] != "--sidecar")
            return refuse("unknown word " + fp_word_quote(words[0]), p_error);
        if (p_file != nullptr && words.size() == 1)
            return refuse("nothing stands behind " + words[0], p_error);
        if (p_file != nullptr)
            p_request->*p_file = words[1];
        words = words.subspan(p_file != nullptr ? 2 : 1);
    }
    return true;
}

static bool replay_place_read(t_words words, t_fp_request *p_request, std::string *p_error)
{
    place_begin(p_request);
    std::set<std::string_view> seen;
    while (!words.empty() && words[0].starts_with("--")) {
        const t_fp_place_row *p_row = fp_place_row_find(std::string_view(words[0]).substr(2));
        if (p_row == nullptr || p_row->is_of_packet)
            return refuse("unknown word " + fp_word_quote(words[0]), p_error);
        if (words.size() == 1)
            return refuse("nothing stands behind " + words[0], p_error);
        if (!fp_place_set(*p_row, words[1], &p_request->place, p_error))
            return false;
        seen.insert(p_row->name);
        words = words.subspan(2);
    }
    for (const t_fp_place_row &row : fp_place_rows()) {
        if (row.is_required && !seen.contains(row.name))
            return refuse("--" + std::string(row.name) + " is missing", p_error);
    }
    return file_read(words, p_request, p_error);
}

static bool replay_read(t_words words, t_fp_request *p_request, std::string *p_error)
{
    if (!words.empty() && words[0].starts_with("--"))
        return replay_place_read(words, p_request, p_error);
    return filter_read(words, p_request, p_error) && file_read(words.subspan(1), p_request, p_error);
}

// ---- The table of requests ----

struct t_request_row {
    std::string_view name;
    e_fp_request kind;
    bool (*p_read)(t_words words, t_fp_request *p_request, std::string *p_error);  // words behind the name
};

static constexpr t_request_row requests[] = {
    {"load", FP_REQUEST_LOAD, nothing_read},         {"classify", FP_REQUEST_CLASSIFY, classify_read},
    {"replay", FP_REQUEST_REPLAY, replay_read},      {"forward", FP_REQUEST_FORWARD, forward_read},
    {"bindings", FP_REQUEST_BINDINGS, nothing_read}, {"stats", FP_REQUEST_STATS, nothing_read},
    {"zones", FP_REQUEST_ZONES, nothing_read},       {"flows", FP_REQUEST_FLOWS, nothing_read},
    {"live", FP_REQUEST_LIVE, nothing_read},
};

static bool words_parse(t_words words, t_fp_request *p_request, std::string *p_error)
{
    if (words.empty())
        return refuse("the request is empty", p_error);
    auto found = std::find_if(std::begin(requests), std::end(requests),
                              [&words](const t_request_row &row) { return row.name == words[0]; });
    if (found == std::end(requests))
        return refuse("there is no request " + fp_word_quote(words[0]), p_error);
    p_request->kind = found->kind;
    return found->p_read(words.subspan(1), p_request, p_error);
}

// ---- JSON, put into words ----

using t_json = nlohmann::json;

static bool word_of(const t_json &value, std::string *p_word)
{
    if (value.is_string())
        *p_word = value.get<std::string>();
    else if (value.is_number_integer())
        *p_word = value.dump();
    else
        return false;
    return true;
}

static bool fields_of(const t_json &object, std::vector<std::string> *p_words, std::string *p_error)
{
    if (!object.is_object())
        return refuse("\"fields\" is no object", p_error);
    for (const auto &[name, value] : object.items()) {
        std::string word;
        if (!word_of(value, &word))
            return refuse("the value of \"" + name + "\" is neither text nor a whole number", p_error);
        word.insert(0, name + '=');
        p_words->push_back(word);
    }
    return true;
}

static bool member_word(const t_json &object, std::string_view name, std::string *p_word,
                        std::string *p_error)
{
    return word_of(object[name], p_word) ||
           refuse('"' + std::string(name) + "\" is neither text nor a whole number", p_error);
}

// The place's members, as the request writes them in words.
static bool place_of(const t_json &object, std::vector<std::string> *p_words, std::string *p_error)
{
    bool is_forward = p_words->front() == "forward";
    for (const t_fp_place_row &row : fp_place_rows()) {
        std::string word;
        if (!object.contains(row.name))
            continue;
        if (!member_word(object, row.name, &word, p_error))
            return false;
        if (!is_forward)
            p_words->push_back("--" + std::string(row.name));
        else if (!row.is_required)
            word.insert(0, std::string(row.name) + '=');
        p_words->push_back(word);
    }
    return true;
}

// The members that are words of their own, in the words' order.
static bool members_of(const t_json &object, std::vector<std::string> *p_words, std::string *p_error)
{
    for (std::string_view name : {"request", "filter", "place", "file"}) {
        if (name == "place") {
            if (!p_words->empty() && !place_of(object, p_words, p_error))
                return false;
        } else if (object.contains(name)) {
            p_words->emplace_back();
            if (!member_word(object, name, &p_words->back(), p_error))
                return false;
        }
    }
    return true;
}

// The files beside the capture, as options.
static bool besides_of(const t_json &object, std::vector<std::string> *p_words, std::string *p_error)
{
    for (const t_beside_row &row : beside_rows) {
        std::string word;
        if (!object.contains(row.name))
            continue;
        if (!member_word(object, row.name, &word, p_error))
            return false;
        p_words->push_back("--" + std::string(row.name));
        p_words->push_back(word);
    }
    return true;
}

static bool is_known(std::string_view name)
{
    static constexpr std::string_view known[] = {"request", "filter",  "file",      "fields",
                                                 "vpns",    "sidecar", "interfaces"};
    return std::find(std::begin(known), std::end(known), name) != std::end(known) ||
           fp_place_row_find(name) != nullptr || beside_find("--" + std::string(name)) != nullptr;
}

static bool json_words(const t_json &object, std::vector<std::string> *p_words, std::string *p_error)
{
    for (const auto &[name, value] : object.items()) {
        if (!is_known(name))
            return refuse("there is no member \"" + name + '"', p_error);
    }
    if (!members_of(object, p_words, p_error))
        return false;
    if (object.contains("sidecar") && !object["sidecar"].is_boolean())
        return refuse("\"sidecar\" is neither true nor false", p_error);
    if (object.value("sidecar", false))
        p_words->push_back("--sidecar");
    if (!besides_of(object, p_words, p_error))
        return false;
    return !object.contains("fields") || fields_of(object["fields"], p_words, p_error);
}

static bool json_parse(std::string_view line, t_fp_request *p_request, std::string *p_error)
{
    t_json object = t_json::parse(line, nullptr, false);
    if (!object.is_object())
        return refuse("the line is no JSON object", p_error);
    std::vector<std::string> words;
    if (!json_words(object, &words, p_error) || !words_parse(words, p_request, p_error))
        return false;
    p_request->has_bindings = object.contains("vpns") || object.contains("interfaces");
    if (!p_request->has_bindings)
        return true;
    if (p_request->kind != FP_REQUEST_BINDINGS)
        return refuse("only bindings have rows", p_error);
    return fp_bindings_read(object, &p_request->bindings, p_error);
}

bool fp_request_parse(std::string_view line, t_fp_request *p_request, std::string *p_error)
{
    *p_request = {};
    p_request->header = fp_header_blank();
    p_request->json = line.starts_with('{');
    if (p_request->json)
        return json_parse(line, p_request, p_error);
    std::vector<std::string> words;
    if (!fp_words_split(line, &words))
        return refuse("a quote is open", p_error);
    p_request->json = std::erase(words, "--json") > 0;
    return words_parse(words, p_request, p_error);
}
