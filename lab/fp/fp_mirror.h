// The capture file that collects the copies of mirrored packets.
//
// Copies are appended as the frames came, before any rewriting and without a tunnel's headers; which mirror a
// copy is for is told by the verdict. The file is a pcap of Ethernet frames with times in nanoseconds, in
// this machine's byte order; an empty or new one gets its header when it is opened, any other must begin with
// the same header. Each copy is one write, so a reader sees whole records.
#pragma once

#include "lab/fp/fp_pcap.h"

#include <cstdint>
#include <memory>
#include <string>

struct t_fp_mirror;

struct t_fp_mirror_deleter {
    void operator()(t_fp_mirror *p_mirror) const;
};
using fp_mirror_ptr = std::unique_ptr<t_fp_mirror, t_fp_mirror_deleter>;

// Null with the reason.
fp_mirror_ptr fp_mirror_open(const std::string &path, std::string *p_error);

// Appends `copies` copies. False with the reason.
bool fp_mirror_write(t_fp_mirror *p_mirror, const t_fp_frame &frame, uint32_t copies, std::string *p_error);
