// Frames and capture files made by hand, byte by byte: an encoder that shares nothing with the decoder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

using t_bytes = std::vector<std::byte>;

// Bytes from hexadecimal text; blanks are passed over.
t_bytes hex(const std::string &text);

t_bytes join(std::initializer_list<t_bytes> parts);

// Two addresses, the tags and types in `types` as hexadecimal text ("8100 0007 0800").
t_bytes ethernet(const std::string &types, const t_bytes &payload);

struct t_v4_shape {
    uint8_t tos = 0;
    uint16_t fragment = 0;  // flags and offset as they lie in the header
    uint8_t protocol = 17;
    uint32_t src = 0x0a000001;
    uint32_t dst = 0x0a000002;
    size_t options = 0;    // bytes, a multiple of 4
    int total_change = 0;  // what the total length is wrong by
};
t_bytes v4(const t_v4_shape &shape, const t_bytes &payload);

struct t_v6_shape {
    uint8_t traffic_class = 0;
    uint8_t next = 17;
    int length_change = 0;
};
t_bytes v6(const t_v6_shape &shape, const t_bytes &payload);

t_bytes udp(uint16_t src, uint16_t dst, size_t payload);
t_bytes tcp(uint16_t src, uint16_t dst, uint8_t flags);

// A UDP packet in an Ethernet frame.
t_bytes udp_frame(uint16_t dst_port, size_t payload);

struct t_capture_frame {
    uint64_t time_ns;
    t_bytes bytes;
};

// A pcap file in this machine's byte order with times in nanoseconds.
t_bytes pcap_file(const std::vector<t_capture_frame> &frames, uint32_t link_type = 1);

// A file with that content in a folder of its own, gone with the object.
struct t_test_file {
    explicit t_test_file(std::span<const std::byte> content);
    ~t_test_file();
    t_test_file(const t_test_file &) = delete;
    t_test_file &operator=(const t_test_file &) = delete;

    std::string folder;
    std::string path;
};
void file_write(const std::string &path, std::span<const std::byte> content);
