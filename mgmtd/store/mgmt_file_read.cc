// Stored configurations, read and checked.

#include "mgmtd/store/mgmt_files_private.h"

#include "mgmtd/store/mgmt_checks.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static bool os_fail(const std::string &file, const char *p_what, t_mgmt_error *p_error)
{
    return mgmt_fail(p_error, MGMT_ERR_OS, file, std::string(p_what) + ": " + strerror(errno));
}

static bool content_read(int fd, const std::string &file, size_t limit, std::string *p_text,
                         t_mgmt_error *p_error)
{
    std::array<char, 65536> block;
    while (p_text->size() < limit) {
        ssize_t size = read(fd, block.data(), std::min(block.size(), limit - p_text->size()));
        if (size == 0)
            return true;
        if (size < 0 && errno == EINTR)
            continue;
        if (size < 0)
            return os_fail(file, "can't read", p_error);
        p_text->append(block.data(), static_cast<size_t>(size));
    }
    return true;
}

bool mgmt_file_content(const std::string &file, size_t limit, std::string *p_text, t_mgmt_error *p_error)
{
    int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return os_fail(file, "can't open", p_error);
    p_text->clear();
    bool good = content_read(fd, file, limit, p_text, p_error);
    close(fd);
    return good;
}

// ---- The head ----
//
// The head's members stand in a fixed order in front, one line each, so that the list of commits needs no
// parsing of configurations: {"commit": 7,\n"user": "a",\n"time": "...",\n"comment": "...",\n"config":
// {...}}\n

static bool head_text_read(std::string_view *p_rest, std::string_view lead, std::string *p_value)
{
    if (!p_rest->starts_with(lead))
        return false;
    p_rest->remove_prefix(lead.size());
    while (!p_rest->empty() && p_rest->front() != '"') {
        if (p_rest->front() == '\\' && p_rest->size() > 1)
            p_rest->remove_prefix(1);
        p_value->push_back(p_rest->front());
        p_rest->remove_prefix(1);
    }
    bool closed = p_rest->starts_with("\",\n");
    p_rest->remove_prefix(closed ? 3 : 0);
    return closed;
}

bool mgmt_file_head_read(std::string_view text, t_mgmt_commit_info *p_info, std::string_view *p_config)
{
    static constexpr std::string_view first = "{\"commit\": ";
    static constexpr std::string_view config = "\"config\": ";
    if (!text.starts_with(first))
        return false;
    text.remove_prefix(first.size());
    t_mgmt_commit_info info = {};
    while (!text.empty() && text.front() >= '0' && text.front() <= '9') {
        info.number = info.number * 10 + static_cast<uint64_t>(text.front() - '0');
        text.remove_prefix(1);
    }
    if (!text.starts_with(",\n"))
        return false;
    text.remove_prefix(2);
    bool good = head_text_read(&text, "\"user\": \"", &info.user) &&
                head_text_read(&text, "\"time\": \"", &info.time) &&
                head_text_read(&text, "\"comment\": \"", &info.comment);
    if (!good || !text.starts_with(config))
        return false;
    text.remove_prefix(config.size());
    text.remove_suffix(text.ends_with("}\n") ? 2 : 0);
    *p_info = std::move(info);
    *p_config = text;
    return true;
}

static void head_text_write(const char *p_lead, const std::string &value, std::string *p_text)
{
    *p_text += p_lead;
    for (char character : value) {
        if (character == '"' || character == '\\')
            *p_text += '\\';
        // A head has one member a line.
        *p_text += static_cast<unsigned char>(character) < 0x20 ? ' ' : character;
    }
    *p_text += "\",\n";
}

void mgmt_file_head_write(const t_mgmt_commit_info &info, std::string *p_text)
{
    *p_text += "{\"commit\": " + std::to_string(info.number) + ",\n";
    head_text_write("\"user\": \"", info.user, p_text);
    head_text_write("\"time\": \"", info.time, p_text);
    head_text_write("\"comment\": \"", info.comment, p_text);
    *p_text += "\"config\": ";
}

// ---- Checking ----

bool mgmt_file_check(const t_schema_index *p_schema, const ly_ctx *p_context, const std::string &file,
                     mgmt_work_tree_ptr *p_tree, t_mgmt_error *p_error)
{
    std::string text;
    if (!mgmt_file_content(file, MGMT_FILES_MAX_SIZE, &text, p_error))
        return false;
    t_mgmt_commit_info info;
    std::string_view config = text;
    mgmt_file_head_read(text, &info, &config);
    mgmt_work_tree_ptr tree = mgmt_tree_new(p_schema, p_context);
    bool good =
        mgmt_tree_read(tree.get(), std::string(config), p_error) && mgmt_tree_validate(tree.get(), p_error);
    if (!good)
        return false;
    t_mgmt_diff all = mgmt_diff_new(mgmt_tree_new(p_schema, p_context), tree);
    if (!mgmt_checks_run(all, p_error))
        return false;
    if (p_tree != nullptr)
        *p_tree = std::move(tree);
    return true;
}
