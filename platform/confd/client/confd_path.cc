// Paths from formats. Inside braces the text between blanks of the format is one key, whatever blanks or
// braces its arguments hold: it is quoted as a whole when it is complete.
#include "platform/confd/client/client_private.h"

#include "platform/confd/ipc/ipc_path.h"

#include <cstring>
#include <string_view>

namespace {

class PathWriter {
public:
    void literal(char c);
    void argument(std::string_view text)
    {
        (_in_key ? _key : _path) += text;
    }
    std::string take()
    {
        return _path;
    }
    bool is_complete() const
    {
        return !_in_key;
    }

private:
    std::string _path;
    std::string _key;
    bool _in_key = false;     // between braces
    bool _is_quoted = false;  // this key stands in quotes in the format
};

}  // namespace

void PathWriter::literal(char c)
{
    if (!_in_key) {
        _in_key = c == '{';
        _path += c;
        return;
    }
    if (c == '"') {
        _is_quoted = !_is_quoted;
        return;
    }
    if (_is_quoted || (c != ' ' && c != '}')) {
        _key += c;
        return;
    }
    _path += ipc_path_quote_key(_key);
    _path += c;
    _key.clear();
    _in_key = c != '}';
}

// The whole of a list's key: count values, then the array.
static void write_keys(PathWriter *p_writer, int count, const confd_value_t *p_values)
{
    for (int i = 0; i < count; i++) {
        if (i > 0)
            p_writer->literal(' ');
        p_writer->argument(client_value_text(p_values[i]));
    }
}

// The arguments of a format, in a record so that functions can take them one by one.
struct t_path_args {
    va_list list;
};

// One conversion, behind its percent sign. The number of its characters, or 0 if it is unknown.
static size_t write_conversion(PathWriter *p_writer, const char *p_conversion, t_path_args *p_args)
{
    std::string_view conversion = p_conversion;
    if (conversion.starts_with("s")) {
        const char *p_text = va_arg(p_args->list, const char *);
        if (p_text == nullptr)
            return 0;
        p_writer->argument(p_text);
    } else if (conversion.starts_with("d")) {
        p_writer->argument(std::to_string(va_arg(p_args->list, int)));
    } else if (conversion.starts_with("u")) {
        p_writer->argument(std::to_string(va_arg(p_args->list, unsigned)));
    } else if (conversion.starts_with("x")) {
        p_writer->argument(client_value_text(*va_arg(p_args->list, const confd_value_t *)));
    } else if (conversion.starts_with("%")) {
        p_writer->literal('%');
    } else if (conversion.starts_with("ld")) {
        p_writer->argument(std::to_string(va_arg(p_args->list, long)));
        return 2;
    } else if (conversion.starts_with("lu")) {
        p_writer->argument(std::to_string(va_arg(p_args->list, unsigned long)));
        return 2;
    } else if (conversion.starts_with("*x")) {
        int count = va_arg(p_args->list, int);
        write_keys(p_writer, count, va_arg(p_args->list, const confd_value_t *));
        return 2;
    } else {
        return 0;
    }
    return 1;
}

static bool write_path(PathWriter *p_writer, const char *fmt, t_path_args *p_args)
{
    while (*fmt != '\0') {
        if (*fmt != '%') {
            p_writer->literal(*fmt++);
            continue;
        }
        size_t size = write_conversion(p_writer, fmt + 1, p_args);
        if (size == 0)
            return false;
        fmt += 1 + size;
    }
    return p_writer->is_complete();
}

int client_path(std::string *p_path, const char *fmt, va_list args)
{
    if (fmt == nullptr)
        return CONFD_OK;
    PathWriter writer;
    t_path_args copy;
    va_copy(copy.list, args);
    bool is_good = write_path(&writer, fmt, &copy);
    va_end(copy.list);
    if (!is_good)
        return client_fail(CONFD_ERR_BADPATH, "Bad path format %s", fmt);
    *p_path = writer.take();
    return CONFD_OK;
}
