#include "tests/libcvmx/packet_fixture.h"

#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include "libcvmx/sim/_cvmx-bootmem.h"
#include "libcvmx/sim/sim_log.h"

// ---- The port table ----

static std::map<int, int> g_taps;

int wrap_tap_sock(int ipd_port) asm("__wrap__Z20cvmx_helper_tap_socki");
int wrap_tap_sock(int ipd_port)
{
    return g_taps.contains(ipd_port) ? g_taps.at(ipd_port) : -1;
}

int wrap_loop_partner(int ipd_port) asm("__wrap__Z24cvmx_helper_loop_partneri");
int wrap_loop_partner(int ipd_port)
{
    return ipd_port == LOOP_PORT_A ? LOOP_PORT_B : ipd_port == LOOP_PORT_B ? LOOP_PORT_A : -1;
}

// ---- The fixture ----

FakeSystem &packet_machine()
{
    static FakeSystem machine;
    return machine;
}

static void *shared_memory(uint64_t size)
{
    return mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
}

PacketFixture::PacketFixture()
{
    packet_machine();
    g_fp_sim_use_printf = 1;
    uint64_t sizes[] = {TEST_BUFFER_SIZE, sizeof(cvmx_wqe_t)};
    for (uint32_t pool = 0; pool < 2; pool++) {
        void *p_buffers = shared_memory(sizes[pool] * TEST_BUFFERS);
        EXPECT_EQ(cvmx_fpa_setup_pool(pool, "test", p_buffers, sizes[pool], TEST_BUFFERS), 0);
    }
    EXPECT_EQ(cvmx_grp_init(0xffff, true), 0);
    for (int port : {1, LOOP_PORT_B}) {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, ends), 0);
        g_taps[port] = ends[0];
        host_ends[port] = ends[1];
    }
}

PacketFixture::~PacketFixture()
{
    g_fp_sim_use_printf = 0;
    for (const auto &[port, tap] : g_taps)
        close(tap);
    for (const auto &[port, end] : host_ends)
        close(end);
    g_taps.clear();
}

cvmx_wqe_t *PacketFixture::message(uint8_t group, uint32_t tag)
{
    auto *p_work = static_cast<cvmx_wqe_t *>(cvmx_fpa_alloc(CVMX_FPA_WQE_POOL));
    *p_work = {};
    p_work->grp = group;
    p_work->tag = tag;
    return p_work;
}

cvmx_wqe_t *PacketFixture::packet(int port, const std::string &bytes)
{
    return cvmx_oct0_pkt_to_wqe(port, reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
}

std::string PacketFixture::packet_of(const cvmx_wqe_t *p_work)
{
    const uint8_t *p_packet = cvmx_wqe_packet(p_work);
    return p_packet != nullptr ? std::string(reinterpret_cast<const char *>(p_packet), p_work->len)
                               : "(none)";
}

void PacketFixture::expect_all_free()
{
    for (uint32_t pool = 0; pool < 2; pool++)
        EXPECT_EQ(cvmx_fpa_get_num_available_blocks(pool), TEST_BUFFERS) << pool;
}

t_cvmx_grp_ring &PacketFixture::ring(int group)
{
    return static_cast<t_cvmx_grp_rings *>(
               cvmx_bootmem_alloc_named(sizeof(t_cvmx_grp_rings), 128, "cvmx_grp_rings"))
        ->rings[group];
}

std::string PacketFixture::read_tap(int port)
{
    char bytes[2048];
    ssize_t size = read(host_ends.at(port), bytes, sizeof(bytes));
    return size > 0 ? std::string(bytes, static_cast<size_t>(size)) : "";
}
