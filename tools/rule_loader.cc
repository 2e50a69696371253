#include "tools/rule_loader.h"

#include "tools/classbench_reader.h"
#include "tools/rule_file_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <sys/stat.h>

bool rule_format_read(std::string_view name, e_rule_format *p_format)
{
    if (name == "auto")
        *p_format = e_rule_format::detect;
    else if (name == "classbench")
        *p_format = e_rule_format::classbench;
    else if (name == "rules")
        *p_format = e_rule_format::rules;
    else
        return false;
    return true;
}

static bool read_all(FILE *p_file, size_t max_size, std::string *p_text, std::string *p_reason)
{
    struct stat status = {};
    if (fstat(fileno(p_file), &status) == 0 && S_ISDIR(status.st_mode)) {
        *p_reason = "is a folder";
        return false;
    }
    size_t expected = status.st_size > 0 ? static_cast<size_t>(status.st_size) : 0;
    static constexpr size_t step = 1 << 20;
    for (size_t size = 0; expected <= max_size && size <= max_size;) {
        p_text->resize(size + std::max(step, expected + 1 - std::min(size, expected)));
        size_t got = fread(p_text->data() + size, 1, p_text->size() - size, p_file);
        size += got;
        p_text->resize(size);
        if (ferror(p_file)) {
            *p_reason = strerror(errno);
            return false;
        }
        if (got == 0)
            return true;
    }
    *p_reason = "is larger than " + std::to_string(max_size >> 20) + " MiB";
    return false;
}

bool file_load(const std::string &file, size_t max_size, std::string *p_text, t_text_error *p_error)
{
    *p_error = {.file = file, .line = 0, .reason = {}};
    std::unique_ptr<FILE, int (*)(FILE *)> handle(fopen(file.c_str(), "rb"), fclose);
    if (handle == nullptr) {
        p_error->reason = strerror(errno);
        return false;
    }
    try {
        return read_all(handle.get(), max_size, p_text, &p_error->reason);
    } catch (const std::bad_alloc &) {
        p_error->reason = "no memory for the file";
        return false;
    }
}

static bool looks_like_classbench(std::string_view text)
{
    size_t start = text.find_first_not_of(" \t\r\n");
    return start != std::string_view::npos && text[start] == '@';
}

bool rule_set_read(std::string_view text, std::string_view file, e_rule_format format, t_rule_set *p_set,
                   t_text_error *p_error)
{
    bool is_classbench = format == e_rule_format::classbench ||
                         (format == e_rule_format::detect && looks_like_classbench(text));
    return is_classbench ? classbench_read(text, file, p_set, p_error)
                         : rule_file_read(text, file, p_set, p_error);
}

bool rule_set_load(const std::string &file, e_rule_format format, t_rule_set *p_set, t_text_error *p_error)
{
    std::string text;
    return file_load(file, RULE_FILE_MAX_SIZE, &text, p_error) &&
           rule_set_read(text, file, format, p_set, p_error);
}
