#include "platform/confd/ipc/ipc_value.h"

#include <algorithm>
#include <arpa/inet.h>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

// Lists stand in no list, but a path may stand in a list and hold values of its own.
static constexpr int max_depth = 3;

// ---- Memory ----

static void *allocated(size_t size)
{
    void *p_memory = calloc(1, size);
    if (p_memory == nullptr)
        throw std::bad_alloc();
    return p_memory;
}

// One byte more than the text and zero there, for callers who print it.
static confd_buf_t buf_of(const void *p_bytes, size_t size)
{
    unsigned char *p_copy = static_cast<unsigned char *>(allocated(size + 1));
    if (size > 0)
        memcpy(p_copy, p_bytes, size);
    return {static_cast<unsigned>(size), p_copy};
}

static bool is_list_end(const confd_value_t *p_value, int index)
{
    return index == MAXKEYLEN || p_value->type == C_NOEXISTS;
}

static void free_path(confd_hkeypath_t *p_path)
{
    for (int i = 0; i < p_path->len; i++)
        for (int j = 0; !is_list_end(&p_path->v[i][j], j); j++)
            ipc_value_free(&p_path->v[i][j]);
    free(p_path);
}

void ipc_value_free(confd_value_t *p_value)
{
    switch (p_value->type) {
    case C_BUF:
    case C_BINARY:
        free(p_value->val.buf.ptr);
        break;
    case C_QNAME:
        free(p_value->val.qname.prefix.ptr);
        free(p_value->val.qname.name.ptr);
        break;
    case C_LIST:
        for (unsigned i = 0; i < p_value->val.list.size; i++)
            ipc_value_free(&p_value->val.list.ptr[i]);
        free(p_value->val.list.ptr);
        break;
    case C_OBJECTREF:
        free_path(p_value->val.hkp);
        break;
    case C_OID:
        free(p_value->val.oidp);
        break;
    default:
        return;
    }
    *p_value = {C_NOEXISTS, {}};
}

static confd_hkeypath_t *path_copy(const confd_hkeypath_t &path)
{
    confd_hkeypath_t *p_copy = static_cast<confd_hkeypath_t *>(allocated(sizeof(confd_hkeypath_t)));
    p_copy->len = path.len;
    for (int i = 0; i < path.len; i++)
        for (int j = 0; j < MAXKEYLEN; j++) {
            p_copy->v[i][j] = ipc_value_copy(path.v[i][j]);
            if (is_list_end(&path.v[i][j], j))
                break;
        }
    return p_copy;
}

static confd_list list_copy(const confd_list &list)
{
    confd_list copy = {list.size,
                       static_cast<confd_value_t *>(allocated((list.size + 1) * sizeof(confd_value_t)))};
    for (unsigned i = 0; i < list.size; i++)
        copy.ptr[i] = ipc_value_copy(list.ptr[i]);
    return copy;
}

confd_value_t ipc_value_copy(const confd_value_t &value)
{
    confd_value_t copy = value;
    switch (value.type) {
    case C_STR:
        copy.type = C_BUF;
        copy.val.buf = buf_of(value.val.c_s, strlen(value.val.c_s));
        break;
    case C_BUF:
    case C_BINARY:
        copy.val.buf = buf_of(value.val.buf.ptr, value.val.buf.size);
        break;
    case C_QNAME:
        copy.val.qname.prefix = buf_of(value.val.qname.prefix.ptr, value.val.qname.prefix.size);
        copy.val.qname.name = buf_of(value.val.qname.name.ptr, value.val.qname.name.size);
        break;
    case C_LIST:
        copy.val.list = list_copy(value.val.list);
        break;
    case C_OBJECTREF:
        copy.val.hkp = path_copy(*value.val.hkp);
        break;
    case C_OID:
        copy.val.oidp = static_cast<confd_snmp_oid *>(allocated(sizeof(confd_snmp_oid)));
        *copy.val.oidp = *value.val.oidp;
        break;
    default:
        break;
    }
    return copy;
}

// Two values are alike when their bytes on the wire are: there is one form for each.
bool ipc_value_equal(const confd_value_t &left, const confd_value_t &right)
{
    IpcWriter left_writer;
    IpcWriter right_writer;
    ipc_value_write(&left_writer, left);
    ipc_value_write(&right_writer, right);
    return !left_writer.failed() && !right_writer.failed() && left_writer.take() == right_writer.take();
}

// ---- Owning records ----

IpcValue &IpcValue::operator=(IpcValue other) noexcept
{
    std::swap(v, other.v);
    return *this;
}

IpcValue IpcValue::text(std::string_view text)
{
    IpcValue value;
    value.v.type = C_BUF;
    value.v.val.buf = buf_of(text.data(), text.size());
    return value;
}

IpcValue IpcValue::tag(confd_vtype type, uint32_t tag, uint32_t ns)
{
    IpcValue value;
    value.v.type = type;
    value.v.val.xmltag = {tag, ns};
    return value;
}

confd_value_t IpcValue::release() noexcept
{
    return std::exchange(v, {C_NOEXISTS, {}});
}

bool IpcTagValue::operator==(const IpcTagValue &other) const
{
    return tag.tag == other.tag.tag && tag.ns == other.tag.ns && value == other.value;
}

bool ipc_keypath_view(const IpcKeypath &keypath, confd_hkeypath_t *p_view)
{
    if (keypath.steps.size() > MAXDEPTH)
        return false;
    p_view->len = static_cast<int>(keypath.steps.size());
    for (size_t i = 0; i < keypath.steps.size(); i++) {
        size_t count = keypath.steps[i].size();
        if (count == 0 || count >= MAXKEYLEN)
            return false;
        for (size_t j = 0; j < count; j++)
            p_view->v[i][j] = keypath.steps[i][j].v;
        p_view->v[i][count] = {C_NOEXISTS, {}};
    }
    return true;
}

IpcKeypath ipc_keypath_copy(const confd_hkeypath_t &keypath)
{
    IpcKeypath copy;
    for (int i = 0; i < std::min(keypath.len, MAXDEPTH); i++) {
        std::vector<IpcValue> &step = copy.steps.emplace_back();
        for (int j = 0; j < MAXKEYLEN && keypath.v[i][j].type != C_NOEXISTS; j++)
            step.emplace_back(keypath.v[i][j]);
    }
    return copy;
}

confd_tag_value_t *ipc_tag_values_release(std::vector<IpcTagValue> *p_values)
{
    size_t size = std::max<size_t>(p_values->size(), 1) * sizeof(confd_tag_value_t);
    confd_tag_value_t *p_array = static_cast<confd_tag_value_t *>(allocated(size));
    for (size_t i = 0; i < p_values->size(); i++)
        p_array[i] = {(*p_values)[i].tag, (*p_values)[i].value.release()};
    p_values->clear();
    return p_array;
}

std::vector<IpcTagValue> ipc_tag_values_copy(const confd_tag_value_t *p_values, size_t count)
{
    std::vector<IpcTagValue> copies(count);
    for (size_t i = 0; i < count; i++) {
        copies[i].tag = p_values[i].tag;
        copies[i].value = IpcValue(p_values[i].v);
    }
    return copies;
}

// ---- Bytes ----

static std::string_view view_of(const confd_buf_t &buf)
{
    return {reinterpret_cast<const char *>(buf.ptr), buf.size};
}

static void write_xmltag(IpcWriter *p_writer, const xml_tag &tag)
{
    p_writer->u32(tag.tag);
    p_writer->u32(tag.ns);
}

static void write_datetime(IpcWriter *p_writer, const confd_datetime &time)
{
    p_writer->integer(static_cast<uint16_t>(time.year), 2);
    for (uint8_t part : {time.month, time.day, time.hour, time.min, time.sec})
        p_writer->u8(part);
    p_writer->u32(time.micro);
    p_writer->u8(static_cast<uint8_t>(time.timezone));
    p_writer->u8(static_cast<uint8_t>(time.timezone_minutes));
}

static void write_list(IpcWriter *p_writer, const confd_list &list)
{
    p_writer->u32(list.size);
    for (unsigned i = 0; i < list.size; i++) {
        if (list.ptr[i].type == C_LIST || list.ptr[i].type == C_NOEXISTS)
            p_writer->fail();
        ipc_value_write(p_writer, list.ptr[i]);
    }
}

static void write_oid(IpcWriter *p_writer, const confd_snmp_oid &oid)
{
    if (oid.len < 0 || static_cast<size_t>(oid.len) > std::size(oid.oid)) {
        p_writer->fail();
        return;
    }
    p_writer->u8(static_cast<uint8_t>(oid.len));
    for (int i = 0; i < oid.len; i++)
        p_writer->u32(oid.oid[i]);
}

// Types that own memory or have parts.
static void write_compound(IpcWriter *p_writer, const confd_value_t &value)
{
    switch (value.type) {
    case C_QNAME:
        p_writer->text(view_of(value.val.qname.prefix));
        p_writer->text(view_of(value.val.qname.name));
        break;
    case C_DATETIME:
        write_datetime(p_writer, value.val.datetime);
        break;
    case C_LIST:
        write_list(p_writer, value.val.list);
        break;
    case C_OBJECTREF:
        ipc_keypath_write(p_writer, ipc_keypath_copy(*value.val.hkp));
        break;
    case C_OID:
        write_oid(p_writer, *value.val.oidp);
        break;
    case C_IPV4:
        p_writer->raw(&value.val.ip, 4);
        break;
    case C_IPV6:
        p_writer->raw(&value.val.ip6, 16);
        break;
    case C_IPV4PREFIX:
        p_writer->raw(&value.val.ipv4prefix.ip, 4);
        p_writer->u8(value.val.ipv4prefix.len);
        break;
    case C_IPV6PREFIX:
        p_writer->raw(&value.val.ipv6prefix.ip6, 16);
        p_writer->u8(value.val.ipv6prefix.len);
        break;
    default:
        p_writer->fail();
    }
}

void ipc_value_write(IpcWriter *p_writer, const confd_value_t &value)
{
    p_writer->u8(static_cast<uint8_t>(value.type == C_STR ? C_BUF : value.type));
    switch (value.type) {
    case C_NOEXISTS:
        return;
    case C_XMLTAG:
    case C_XMLBEGIN:
    case C_XMLEND:
        return write_xmltag(p_writer, value.val.xmltag);
    case C_STR:
        return p_writer->text(value.val.c_s);
    case C_BUF:
    case C_BINARY:
        return p_writer->text(view_of(value.val.buf));
    case C_BOOL:
        return p_writer->u8(value.val.boolean != 0);
    case C_INT8:
    case C_UINT8:
        return p_writer->u8(value.val.u8);
    case C_INT16:
    case C_UINT16:
        return p_writer->integer(value.val.u16, 2);
    case C_SYMBOL:
    case C_INT32:
    case C_UINT32:
    case C_ENUM_VALUE:
    case C_BIT32:
        return p_writer->u32(value.val.u32);
    case C_INT64:
    case C_UINT64:
    case C_BIT64:
        return p_writer->integer(value.val.u64, 8);
    case C_DOUBLE:
        return p_writer->integer(std::bit_cast<uint64_t>(value.val.d), 8);
    default:
        return write_compound(p_writer, value);
    }
}

void ipc_keypath_write(IpcWriter *p_writer, const IpcKeypath &keypath)
{
    if (keypath.steps.size() > MAXDEPTH)
        p_writer->fail();
    p_writer->u8(static_cast<uint8_t>(keypath.steps.size()));
    for (const std::vector<IpcValue> &step : keypath.steps) {
        if (step.empty() || step.size() >= MAXKEYLEN)
            p_writer->fail();
        p_writer->u8(static_cast<uint8_t>(step.size()));
        for (const IpcValue &value : step)
            ipc_value_write(p_writer, value.v);
    }
}

static IpcValue read_value(IpcReader *p_reader, int depth);
static IpcKeypath read_keypath(IpcReader *p_reader, int depth);

static xml_tag read_xmltag(IpcReader *p_reader)
{
    xml_tag tag = {};
    tag.tag = p_reader->u32();
    tag.ns = p_reader->u32();
    return tag;
}

static confd_buf_t read_buf(IpcReader *p_reader)
{
    std::span<const uint8_t> bytes = p_reader->raw(p_reader->u32());
    return buf_of(bytes.data(), bytes.size());
}

static confd_datetime read_datetime(IpcReader *p_reader)
{
    confd_datetime time = {};
    time.year = static_cast<int16_t>(p_reader->integer(2));
    for (uint8_t *p_part : {&time.month, &time.day, &time.hour, &time.min, &time.sec})
        *p_part = p_reader->u8();
    time.micro = p_reader->u32();
    time.timezone = static_cast<int8_t>(p_reader->u8());
    time.timezone_minutes = static_cast<int8_t>(p_reader->u8());
    return time;
}

// Grows with what has been read, not with what was announced.
static confd_list read_list(IpcReader *p_reader, int depth)
{
    static constexpr size_t min_element = 2;
    uint32_t count = p_reader->count(min_element);
    std::vector<IpcValue> values;
    for (uint32_t i = 0; i < count && !p_reader->failed(); i++) {
        values.push_back(read_value(p_reader, depth));
        if (values.back().v.type == C_LIST || values.back().v.type == C_NOEXISTS)
            p_reader->fail();
    }
    size_t size = (values.size() + 1) * sizeof(confd_value_t);
    confd_list list = {static_cast<unsigned>(values.size()), static_cast<confd_value_t *>(allocated(size))};
    for (size_t i = 0; i < values.size(); i++)
        list.ptr[i] = values[i].release();
    return list;
}

static confd_snmp_oid *read_oid(IpcReader *p_reader)
{
    confd_snmp_oid *p_oid = static_cast<confd_snmp_oid *>(allocated(sizeof(confd_snmp_oid)));
    uint8_t count = p_reader->u8();
    if (count > std::size(p_oid->oid))
        p_reader->fail();
    for (int i = 0; i < count && !p_reader->failed(); i++)
        p_oid->oid[p_oid->len++] = p_reader->u32();
    return p_oid;
}

static confd_hkeypath_t *read_objectref(IpcReader *p_reader, int depth)
{
    IpcKeypath path = read_keypath(p_reader, depth);
    confd_hkeypath_t *p_path = static_cast<confd_hkeypath_t *>(allocated(sizeof(confd_hkeypath_t)));
    p_path->len = static_cast<int>(path.steps.size());
    for (size_t i = 0; i < path.steps.size(); i++) {
        for (size_t j = 0; j < path.steps[i].size(); j++)
            p_path->v[i][j] = path.steps[i][j].release();
        p_path->v[i][path.steps[i].size()] = {C_NOEXISTS, {}};
    }
    return p_path;
}

static void read_bytes(IpcReader *p_reader, void *p_target, size_t size)
{
    std::span<const uint8_t> bytes = p_reader->raw(size);
    std::copy(bytes.begin(), bytes.end(), static_cast<uint8_t *>(p_target));
}

static uint8_t read_prefix_length(IpcReader *p_reader, uint8_t max)
{
    uint8_t length = p_reader->u8();
    if (length > max)
        p_reader->fail();
    return length;
}

static void read_compound(IpcReader *p_reader, confd_value_t *p_value, int depth)
{
    switch (p_value->type) {
    case C_QNAME:
        p_value->val.qname.prefix = read_buf(p_reader);
        p_value->val.qname.name = read_buf(p_reader);
        break;
    case C_DATETIME:
        p_value->val.datetime = read_datetime(p_reader);
        break;
    case C_LIST:
        p_value->val.list = read_list(p_reader, depth + 1);
        break;
    case C_OBJECTREF:
        p_value->val.hkp = read_objectref(p_reader, depth + 1);
        break;
    case C_OID:
        p_value->val.oidp = read_oid(p_reader);
        break;
    case C_IPV4:
        read_bytes(p_reader, &p_value->val.ip, 4);
        break;
    case C_IPV6:
        read_bytes(p_reader, &p_value->val.ip6, 16);
        break;
    case C_IPV4PREFIX:
        read_bytes(p_reader, &p_value->val.ipv4prefix.ip, 4);
        p_value->val.ipv4prefix.len = read_prefix_length(p_reader, 32);
        break;
    case C_IPV6PREFIX:
        read_bytes(p_reader, &p_value->val.ipv6prefix.ip6, 16);
        p_value->val.ipv6prefix.len = read_prefix_length(p_reader, 128);
        break;
    default:
        p_value->type = C_NOEXISTS;
        p_reader->fail();
    }
}

static void read_content(IpcReader *p_reader, confd_value_t *p_value, int depth)
{
    switch (p_value->type) {
    case C_NOEXISTS:
        return;
    case C_XMLTAG:
    case C_XMLBEGIN:
    case C_XMLEND:
        p_value->val.xmltag = read_xmltag(p_reader);
        return;
    case C_BUF:
    case C_BINARY:
        p_value->val.buf = read_buf(p_reader);
        return;
    case C_BOOL:
        p_value->val.boolean = p_reader->u8();
        if (p_value->val.boolean > 1)
            p_reader->fail();
        return;
    case C_INT8:
    case C_UINT8:
        p_value->val.u8 = p_reader->u8();
        return;
    case C_INT16:
    case C_UINT16:
        p_value->val.u16 = static_cast<uint16_t>(p_reader->integer(2));
        return;
    case C_SYMBOL:
    case C_INT32:
    case C_UINT32:
    case C_ENUM_VALUE:
    case C_BIT32:
        p_value->val.u32 = p_reader->u32();
        return;
    case C_INT64:
    case C_UINT64:
    case C_BIT64:
        p_value->val.u64 = p_reader->integer(8);
        return;
    case C_DOUBLE:
        p_value->val.d = std::bit_cast<double>(p_reader->integer(8));
        return;
    default:
        return read_compound(p_reader, p_value, depth);
    }
}

static IpcValue read_value(IpcReader *p_reader, int depth)
{
    IpcValue value;
    if (depth > max_depth)
        p_reader->fail();
    uint8_t type = p_reader->u8();
    if (type > C_IPV6PREFIX)
        p_reader->fail();
    if (p_reader->failed())
        return value;
    confd_value_t content = {static_cast<confd_vtype>(type), {}};
    read_content(p_reader, &content, depth);
    value.v = content;
    return value;
}

static IpcKeypath read_keypath(IpcReader *p_reader, int depth)
{
    IpcKeypath keypath;
    uint8_t count = p_reader->u8();
    if (count > MAXDEPTH)
        p_reader->fail();
    for (int i = 0; i < count && !p_reader->failed(); i++) {
        uint8_t values = p_reader->u8();
        if (values == 0 || values >= MAXKEYLEN)
            p_reader->fail();
        std::vector<IpcValue> &step = keypath.steps.emplace_back();
        for (int j = 0; j < values && !p_reader->failed(); j++) {
            step.push_back(read_value(p_reader, depth));
            if (step.back().v.type == C_NOEXISTS)
                p_reader->fail();
        }
    }
    if (p_reader->failed())
        keypath.steps.clear();
    return keypath;
}

IpcValue ipc_value_read(IpcReader *p_reader)
{
    return read_value(p_reader, 0);
}

IpcKeypath ipc_keypath_read(IpcReader *p_reader)
{
    return read_keypath(p_reader, 0);
}
