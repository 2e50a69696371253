#include "platform/confd/ipc/ipc_bytes.h"

#include "platform/confd/ipc/ipc_frame.h"

#include <utility>

void IpcWriter::raw(const void *p_data, size_t size)
{
    if (_failed || size > IPC_MAX_BODY - _bytes.size()) {
        _failed = true;
        return;
    }
    const uint8_t *p_bytes = static_cast<const uint8_t *>(p_data);
    _bytes.insert(_bytes.end(), p_bytes, p_bytes + size);
}

void IpcWriter::integer(uint64_t value, size_t size)
{
    uint8_t bytes[8];
    for (size_t i = 0; i < size; i++)
        bytes[i] = static_cast<uint8_t>(value >> (8 * (size - 1 - i)));
    raw(bytes, size);
}

void IpcWriter::text(std::string_view value)
{
    if (value.size() > IPC_MAX_BODY)
        _failed = true;
    u32(static_cast<uint32_t>(value.size()));
    raw(value.data(), value.size());
}

std::vector<uint8_t> IpcWriter::take()
{
    if (_failed)
        _bytes.clear();
    return std::move(_bytes);
}

void IpcReader::fail()
{
    _failed = true;
    _rest = {};
}

std::span<const uint8_t> IpcReader::raw(size_t size)
{
    if (size > _rest.size()) {
        fail();
        return {};
    }
    std::span<const uint8_t> bytes = _rest.first(size);
    _rest = _rest.subspan(size);
    return bytes;
}

uint64_t IpcReader::integer(size_t size)
{
    uint64_t value = 0;
    for (uint8_t byte : raw(size))
        value = value << 8 | byte;
    return value;
}

uint32_t IpcReader::count(size_t element_size)
{
    uint32_t count = u32();
    if (count > _rest.size() / element_size) {
        fail();
        return 0;
    }
    return count;
}

std::string IpcReader::text()
{
    std::span<const uint8_t> bytes = raw(u32());
    return {bytes.begin(), bytes.end()};
}
