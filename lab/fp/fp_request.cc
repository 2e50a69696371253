#include "lab/fp/fp_request.h"

#include "lab/fp/fp_fields.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
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

static bool classify_read(t_words words, t_fp_request *p_request, std::string *p_error)
{
    static constexpr uint32_t places[] = {tarn_ip_src_addr, tarn_ip_dst_addr, tarn_ip_src_port,
                                          tarn_ip_dst_port, tarn_ip_protocol};
    if (!filter_read(words, p_request, p_error))
        return false;
    size_t place = 0;
    for (const std::string &word : words.subspan(1)) {
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

static bool replay_read(t_words words, t_fp_request *p_request, std::string *p_error)
{
    if (!filter_read(words, p_request, p_error))
        return false;
    words = words.subspan(1);
    if (words.empty())
        return refuse("the file is missing", p_error);
    p_request->file = words[0];
    p_request->sidecar = words.size() > 1 && words[1] == "--sidecar";
    return nothing_read(words.subspan(p_request->sidecar ? 2 : 1), p_request, p_error);
}

struct t_request_row {
    std::string_view name;
    e_fp_request kind;
    bool (*p_read)(t_words words, t_fp_request *p_request, std::string *p_error);  // words behind the name
};

static constexpr t_request_row requests[] = {
    {"load", FP_REQUEST_LOAD, nothing_read},
    {"classify", FP_REQUEST_CLASSIFY, classify_read},
    {"replay", FP_REQUEST_REPLAY, replay_read},
    {"stats", FP_REQUEST_STATS, nothing_read},
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

// The members that are words of their own, in the words' order.
static bool members_of(const t_json &object, std::vector<std::string> *p_words, std::string *p_error)
{
    for (const char *name : {"request", "filter", "file"}) {
        auto found = object.find(name);
        if (found == object.end())
            continue;
        p_words->emplace_back();
        if (!word_of(*found, &p_words->back()))
            return refuse(std::string("\"") + name + "\" is neither text nor a whole number", p_error);
    }
    return true;
}

static bool json_words(std::string_view line, std::vector<std::string> *p_words, std::string *p_error)
{
    static constexpr std::string_view known[] = {"request", "filter", "file", "fields", "sidecar"};
    t_json object = t_json::parse(line, nullptr, false);
    if (!object.is_object())
        return refuse("the line is no JSON object", p_error);
    for (const auto &[name, value] : object.items()) {
        if (std::find(std::begin(known), std::end(known), name) == std::end(known))
            return refuse("there is no member \"" + name + '"', p_error);
    }
    if (!members_of(object, p_words, p_error))
        return false;
    if (object.contains("sidecar") && !object["sidecar"].is_boolean())
        return refuse("\"sidecar\" is neither true nor false", p_error);
    if (object.value("sidecar", false))
        p_words->push_back("--sidecar");
    return !object.contains("fields") || fields_of(object["fields"], p_words, p_error);
}

bool fp_request_parse(std::string_view line, t_fp_request *p_request, std::string *p_error)
{
    *p_request = {};
    p_request->header = fp_header_blank();
    std::vector<std::string> words;
    p_request->json = line.starts_with('{');
    if (p_request->json)
        return json_words(line, &words, p_error) && words_parse(words, p_request, p_error);
    if (!fp_words_split(line, &words))
        return refuse("a quote is open", p_error);
    p_request->json = std::erase(words, "--json") > 0;
    return words_parse(words, p_request, p_error);
}
