#include "tests/lab/fp/frames.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

t_bytes hex(const std::string &text)
{
    t_bytes bytes;
    std::string digits;
    for (char c : text) {
        if (c != ' ')
            digits += c;
    }
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes.push_back(std::byte(std::stoi(digits.substr(i, 2), nullptr, 16)));
    return bytes;
}

t_bytes join(std::initializer_list<t_bytes> parts)
{
    t_bytes all;
    for (const t_bytes &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

static t_bytes big(uint32_t value, size_t size)
{
    t_bytes bytes;
    for (size_t i = size; i-- > 0;)
        bytes.push_back(std::byte(value >> (8 * i) & 0xff));
    return bytes;
}

t_bytes ethernet(const std::string &types, const t_bytes &payload)
{
    return join({hex("02 00 00 00 00 01  02 00 00 00 00 02"), hex(types), payload});
}

t_bytes v4(const t_v4_shape &shape, const t_bytes &payload)
{
    size_t header = 20 + shape.options;
    uint32_t total =
        static_cast<uint32_t>(header + payload.size()) + static_cast<uint32_t>(shape.total_change);
    return join({big(0x40 | static_cast<uint32_t>(header / 4), 1), big(shape.tos, 1), big(total, 2),
                 hex("1234"), big(shape.fragment, 2), hex("40"), big(shape.protocol, 1), hex("0000"),
                 big(shape.src, 4), big(shape.dst, 4), t_bytes(shape.options, std::byte{1}), payload});
}

t_bytes v6(const t_v6_shape &shape, const t_bytes &payload)
{
    uint32_t first = 0x60000000u | uint32_t{shape.traffic_class} << 20 | 0x12345;
    uint32_t length = static_cast<uint32_t>(payload.size()) + static_cast<uint32_t>(shape.length_change);
    return join({big(first, 4), big(length, 2), big(shape.next, 1), hex("40"), t_bytes(32, std::byte{0xfd}),
                 payload});
}

t_bytes udp(uint16_t src, uint16_t dst, size_t payload)
{
    return join({big(src, 2), big(dst, 2), big(static_cast<uint32_t>(8 + payload), 2), hex("0000"),
                 t_bytes(payload, std::byte{0xaa})});
}

t_bytes tcp(uint16_t src, uint16_t dst, uint8_t flags)
{
    return join(
        {big(src, 2), big(dst, 2), hex("00000001 00000002 50"), big(flags, 1), hex("ffff 0000 0000")});
}

t_bytes udp_frame(uint16_t dst_port, size_t payload)
{
    return ethernet("0800", v4({}, udp(1000, dst_port, payload)));
}

static t_bytes word(uint32_t value)
{
    t_bytes bytes(sizeof(value));
    memcpy(bytes.data(), &value, sizeof(value));
    return bytes;
}

t_bytes pcap_file(const std::vector<t_capture_frame> &frames, uint32_t link_type)
{
    t_bytes file =
        join({word(0xa1b23c4d), word(0x00040002), word(0), word(0), word(262144), word(link_type)});
    for (const t_capture_frame &frame : frames) {
        uint32_t size = static_cast<uint32_t>(frame.bytes.size());
        t_bytes record = join({word(static_cast<uint32_t>(frame.time_ns / 1000000000)),
                               word(static_cast<uint32_t>(frame.time_ns % 1000000000)), word(size),
                               word(size), frame.bytes});
        file.insert(file.end(), record.begin(), record.end());
    }
    return file;
}

void file_write(const std::string &path, std::span<const std::byte> content)
{
    std::ofstream stream(path, std::ios::binary);
    for (std::byte byte : content)
        stream.put(std::to_integer<char>(byte));
}

t_test_file::t_test_file(std::span<const std::byte> content)
{
    char name[] = "/tmp/fpd-test-XXXXXX";
    folder = mkdtemp(name);
    path = folder + "/capture.pcap";
    file_write(path, content);
}

t_test_file::~t_test_file()
{
    std::filesystem::remove_all(folder);
}
