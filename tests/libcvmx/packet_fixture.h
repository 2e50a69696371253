// Pools 0 and 1 and empty rings in the shared blocks of a machine of the program's own, and ports that are
// sockets: link packet_fixture.cc, which stands in for the port table.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "libcvmx/sim/_cvmx-fpa.h"
#include "libcvmx/sim/_cvmx-pow.h"
#include "tests/libcvmx/fake_system.h"

inline constexpr uint64_t TEST_BUFFER_SIZE = 512;
inline constexpr int TEST_BUFFERS = 600;  // enough to fill a ring
inline constexpr int LOOP_PORT_A = 40;    // partners
inline constexpr int LOOP_PORT_B = 41;

// One machine for all tests of a program, since a process maps the rings once.
FakeSystem &packet_machine();

class PacketFixture : public testing::Test {
protected:
    PacketFixture();
    ~PacketFixture() override;

    // A work entry for the group, without a packet.
    static cvmx_wqe_t *message(uint8_t group, uint32_t tag = 0);

    // A work entry with a packet of these bytes that came in by the port.
    static cvmx_wqe_t *packet(int port, const std::string &bytes);
    static std::string packet_of(const cvmx_wqe_t *p_work);

    // Nothing is held any more.
    static void expect_all_free();

    // The rings as every process of the machine sees them.
    static t_cvmx_grp_ring &ring(int group);

    // What lies in the port's tap, "" if nothing.
    std::string read_tap(int port);

    std::map<int, int> host_ends;  // by port
};
