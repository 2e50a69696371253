// Integers in big-endian bytes, read and written one after the other.
//
// A reader never reads past its span: a read that would gives 0 and marks the reader, which stays marked. So
// a decoder reads a whole record and asks once.
#pragma once

#include "lab/peers/peer_frame.h"

struct t_peer_reader {
    t_peer_bytes rest;
    bool is_short;  // something was read that was not there
};

uint8_t peer_read_u8(t_peer_reader *p_reader);
uint16_t peer_read_u16(t_peer_reader *p_reader);
uint32_t peer_read_u32(t_peer_reader *p_reader);
uint64_t peer_read_u64(t_peer_reader *p_reader);

// The next bytes as they are; none, and the reader is marked, when there are fewer.
t_peer_bytes peer_read_bytes(t_peer_reader *p_reader, size_t size);

// Whether the next bytes are all 0; passes them.
[[nodiscard]] bool peer_read_zeros(t_peer_reader *p_reader, size_t size);

void peer_write_u8(std::vector<uint8_t> *p_bytes, uint8_t value);
void peer_write_u16(std::vector<uint8_t> *p_bytes, uint16_t value);
void peer_write_u32(std::vector<uint8_t> *p_bytes, uint32_t value);
void peer_write_u64(std::vector<uint8_t> *p_bytes, uint64_t value);
void peer_write_bytes(std::vector<uint8_t> *p_bytes, t_peer_bytes bytes);
void peer_write_zeros(std::vector<uint8_t> *p_bytes, size_t size);
