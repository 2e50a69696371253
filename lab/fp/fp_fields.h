// The packet fields by name, as requests and sidecar files write them.
//
// A value is a number, decimal or with 0x; addresses are dotted quads too, protocols also tcp, udp and icmp,
// and
// "-" stands for 0. Sidecar files hold what no header tells: one line for each frame of the capture,
// "name=value" with blanks between, for the fields app, app-family, dns-app, dns-app-family, dns, class and
// plp; what a line leaves out is 0. A line may also tell where its packet is and where it goes, by the names
// of fp_place.h; what it leaves out is as it was told for all. Empty lines count, lines that begin with '#'
// don't.
#pragma once

#include "lab/fp/fp_bindings.h"
#include "lab/fp/walker.h"

#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>

// Sets one field of "name=value". False with the reason, the header untouched.
bool fp_field_assign(std::string_view text, t_fp_header *p_header, std::string *p_error);

// Sets the field of that type. The same.
bool fp_field_set(uint32_t type, std::string_view value, t_fp_header *p_header, std::string *p_error);

// Reads a whole number of 32 bits.
bool fp_number_read(std::string_view text, uint32_t *p_value);

struct t_fp_sidecar {
    std::ifstream stream;
    std::string name;
    uint64_t line;  // number of the last line read
};

// Where the sidecar of a capture file stands.
std::string fp_sidecar_path(const std::string &capture);

bool fp_sidecar_open(const std::string &path, t_fp_sidecar *p_sidecar, std::string *p_error);

// Sets the fields of the next frame, and its place unless p_place is null: then no line may tell one. False
// with the reason when a line is missing or doesn't hold.
bool fp_sidecar_next(t_fp_sidecar *p_sidecar, t_fp_header *p_header, t_fp_place *p_place,
                     std::string *p_error);
