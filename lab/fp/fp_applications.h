// A small table from ports to applications, for packets whose application nothing else tells.
//
// A file has one row a line, "PROTOCOL PORT[-PORT] app=N [app-family=N]", with protocols and values as in
// fp_fields.h ("tcp 80 app=67 app-family=31", "udp 5060-5061 app=12"). Empty lines and what begins with '#'
// are passed over. The first row that has the packet's protocol and destination port counts, then the first
// with its source port.
#pragma once

#include "lab/fp/walker.h"

#include <cstdint>
#include <string>
#include <vector>

struct t_fp_application {
    uint32_t protocol;
    uint32_t low_port;
    uint32_t high_port;
    uint32_t app;
    uint32_t family;
};

using t_fp_applications = std::vector<t_fp_application>;

// False with the reason, which names file and line; the table is untouched then.
bool fp_applications_read(const std::string &path, t_fp_applications *p_table, std::string *p_error);

// Sets application and family of a header that has neither.
void fp_applications_apply(const t_fp_applications &table, t_fp_header *p_header);
