// Reading capture files of Ethernet frames, pcap and pcapng.
//
// Frames come one at a time, in the file's order; a frame's bytes are good until the next read. The files may
// hold anything: what is not a capture file, breaks off or contradicts itself ends in an error that begins
// with the file's name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>

struct t_fp_pcap;

struct t_fp_pcap_deleter {
    void operator()(t_fp_pcap *p_pcap) const;
};
using fp_pcap_ptr = std::unique_ptr<t_fp_pcap, t_fp_pcap_deleter>;

struct t_fp_frame {
    std::span<const std::byte> bytes;  // as captured
    uint32_t wire_length;              // bytes on the wire
    uint64_t time_ns;                  // since 1970, modulo 2^64
};

enum e_fp_pcap_next {
    FP_PCAP_FRAME,
    FP_PCAP_END,
    FP_PCAP_ERROR,
};

// Null with the reason for anything but a regular file with Ethernet frames.
fp_pcap_ptr fp_pcap_open(const std::string &path, std::string *p_error);

// The same for an open stream, which is taken in any case. name stands in errors.
fp_pcap_ptr fp_pcap_open_stream(FILE *p_file, const std::string &name, std::string *p_error);

// The frame is written on FP_PCAP_FRAME, the error on FP_PCAP_ERROR.
e_fp_pcap_next fp_pcap_next(t_fp_pcap *p_pcap, t_fp_frame *p_frame, std::string *p_error);
