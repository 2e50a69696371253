#include "lab/fp/fp_applications.h"

#include "lab/fp/fp_fields.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

static constexpr uint32_t max_port = 65535;

static bool ports_read(const std::string &text, t_fp_application *p_row)
{
    size_t dash = text.find('-');
    bool is_range = dash != std::string::npos;
    if (!fp_number_read(text.substr(0, dash), &p_row->low_port))
        return false;
    p_row->high_port = p_row->low_port;
    if (is_range && !fp_number_read(text.substr(dash + 1), &p_row->high_port))
        return false;
    return p_row->low_port <= p_row->high_port && p_row->high_port <= max_port;
}

// The fields behind the ports; only those two may be named.
static bool values_read(std::istringstream *p_words, t_fp_application *p_row, std::string *p_error)
{
    t_fp_header header = {};
    std::string word;
    while (*p_words >> word) {
        if (!word.starts_with("app=") && !word.starts_with("app-family=")) {
            *p_error = '"' + word + "\" is neither app=N nor app-family=N";
            return false;
        }
        if (!fp_field_assign(word, &header, p_error))
            return false;
    }
    p_row->app = header.values[tarn_ip_dpi_app];
    p_row->family = header.values[tarn_ip_dpi_app_family];
    return true;
}

static bool row_read(const std::string &line, t_fp_application *p_row, std::string *p_error)
{
    std::istringstream words(line);
    std::string protocol;
    std::string ports;
    words >> protocol >> ports;
    t_fp_header header = {};
    if (!fp_field_set(tarn_ip_protocol, protocol, &header, p_error))
        return false;
    p_row->protocol = header.values[tarn_ip_protocol];
    if (!ports_read(ports, p_row)) {
        *p_error = '"' + ports + "\" is no port and no range of ports";
        return false;
    }
    return values_read(&words, p_row, p_error);
}

static bool is_row(const std::string &line)
{
    return !line.starts_with('#') && line.find_first_not_of(" \t\r") != std::string::npos;
}

bool fp_applications_read(const std::string &path, t_fp_applications *p_table, std::string *p_error)
{
    std::error_code error;
    std::ifstream stream;
    if (std::filesystem::is_regular_file(path, error))
        stream.open(path);
    if (!stream.is_open()) {
        *p_error = path + ": can't be read";
        return false;
    }
    t_fp_applications table;
    std::string line;
    for (uint64_t number = 1; std::getline(stream, line); number++) {
        t_fp_application row = {};
        std::string reason;
        if (is_row(line) && !row_read(line, &row, &reason)) {
            *p_error = path + ':' + std::to_string(number) + ": " + reason;
            return false;
        }
        if (is_row(line))
            table.push_back(row);
    }
    *p_table = std::move(table);
    return true;
}

static const t_fp_application *row_find(const t_fp_applications &table, uint32_t protocol, uint32_t port)
{
    auto found = std::find_if(table.begin(), table.end(), [protocol, port](const t_fp_application &row) {
        return row.protocol == protocol && row.low_port <= port && port <= row.high_port;
    });
    return found != table.end() ? &*found : nullptr;
}

void fp_applications_apply(const t_fp_applications &table, t_fp_header *p_header)
{
    uint32_t *values = p_header->values;
    if (values[tarn_ip_dpi_app] != 0 || values[tarn_ip_dpi_app_family] != 0)
        return;
    uint32_t protocol = values[tarn_ip_protocol];
    const t_fp_application *p_row = row_find(table, protocol, values[tarn_ip_dst_port]);
    if (p_row == nullptr)
        p_row = row_find(table, protocol, values[tarn_ip_src_port]);
    if (p_row == nullptr)
        return;
    values[tarn_ip_dpi_app] = p_row->app;
    values[tarn_ip_dpi_app_family] = p_row->family;
}
