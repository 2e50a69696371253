// Answers of data callbacks, recorded as "TAG=VALUE ... (NUMBER, NEXT)" with the tags in hexadecimal and
// without the brackets where the call has no next; a null array gives no values.
#include "platform/confd/confd_dp.h"
#include "platform/confd/double/confd_double_private.h"

static std::string text_of(const confd_value_t &value)
{
    switch (value.type) {
    case C_BUF:
        return {reinterpret_cast<const char *>(value.val.buf.ptr), value.val.buf.size};
    case C_UINT32:
        return std::to_string(value.val.u32);
    case C_UINT64:
        return std::to_string(value.val.u64);
    case C_ENUM_VALUE:
        return "enum " + std::to_string(value.val.enumvalue);
    default:
        return "?";
    }
}

static std::string text_of(const confd_tag_value_t *values, int count)
{
    std::string text;
    for (int i = 0; values != nullptr && i < count; i++) {
        char tag[16];
        snprintf(tag, sizeof(tag), "%08x=", values[i].tag.tag);
        text += tag + text_of(values[i].v) + " ";
    }
    return text;
}

static std::string end_of(int count, long next)
{
    return "(" + std::to_string(count) + ", " + std::to_string(next) + ")";
}

static int recorded(const char *function, const confd_trans_ctx *tctx, const std::string &text)
{
    return confd_double_record(function, tctx->fd, text) ? CONFD_ERR : CONFD_OK;
}

int confd_data_reply_not_found(confd_trans_ctx *tctx)
{
    return recorded("confd_data_reply_not_found", tctx, "");
}

int confd_data_reply_tag_value_array(confd_trans_ctx *tctx, const confd_tag_value_t *tvs, int n)
{
    return recorded("confd_data_reply_tag_value_array", tctx, text_of(tvs, n) + std::to_string(n));
}

int confd_data_reply_next_object_tag_value_array(confd_trans_ctx *tctx, const confd_tag_value_t *tvs, int n,
                                                 long next)
{
    return recorded("confd_data_reply_next_object_tag_value_array", tctx, text_of(tvs, n) + end_of(n, next));
}

int confd_data_reply_next_key(confd_trans_ctx *tctx, const confd_value_t *v, int num_vals, long next)
{
    std::string text;
    for (int i = 0; v != nullptr && i < num_vals; i++)
        text += text_of(v[i]) + " ";
    return recorded("confd_data_reply_next_key", tctx, text + end_of(num_vals, next));
}
