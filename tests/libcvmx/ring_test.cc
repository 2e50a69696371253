#include "libcvmx/sim/cvmx-ring.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <memory>
#include <netinet/in.h>
#include <random>
#include <unistd.h>

#include "libcvmx/sim/_cvmx-helper-if.h"
#include "tests/libcvmx/own_network.h"

using t_ring = std::unique_ptr<cvmx_ring_t, void (*)(cvmx_ring_t *)>;

static t_ring open_ring(const char *ifname)
{
    return {cvmx_ring_create(ifname), cvmx_ring_destroy};
}

// A wire from "left" to "right" with a ring at each end.
class RingPacketPath : public testing::Test {
protected:
    void SetUp() override
    {
        if (!own_network())
            GTEST_SKIP() << "this system allows no namespaces";
        lay_wire();
        left = open_ring("left");
        right = open_ring("right");
        ASSERT_TRUE(cvmx_ring_active(left.get()) && cvmx_ring_active(right.get()));
    }
    void TearDown() override
    {
        if (cvmx_ifname_exists("left"))
            ip_command("link del left");
    }
    static void lay_wire()
    {
        ip_command("link add left type veth peer name right");
    }

    t_ring left = {nullptr, cvmx_ring_destroy};
    t_ring right = {nullptr, cvmx_ring_destroy};
    std::mt19937 random{10};

    // Random bytes behind the addresses; type_and_tags are the 16-bit words that follow these.
    t_frame frame_of(size_t size, const std::vector<uint16_t> &type_and_tags = {0x88b5})
    {
        t_frame frame(size);
        for (uint8_t &byte : frame)
            byte = static_cast<uint8_t>(random());
        frame[0] = 2;  // no group address
        for (size_t i = 0; i < type_and_tags.size(); i++) {
            frame[12 + 2 * i] = static_cast<uint8_t>(type_and_tags[i] >> 8);
            frame[13 + 2 * i] = static_cast<uint8_t>(type_and_tags[i]);
        }
        return frame;
    }
};

TEST_F(RingPacketPath, FramesAndTheirTagsPassByteEqualBothWays)
{
    static const struct {
        std::vector<uint16_t> type_and_tags;
        size_t size;
        uint16_t tpid, tci;
    } rows[] = {
        {{0x88b5}, 14, 0, 0},
        {{0x88b5}, 1514, 0, 0},
        {{0x8100, 0x0064, 0x88b5}, 60, 0x8100, 100},
        {{0x8100, 0xe000, 0x88b5}, 1518, 0x8100, 0xe000},  // VLAN 0: a priority only
        {{0x88a8, 0x1fff, 0x8100, 0x0005, 0x88b5}, 100, 0x88a8, 0x1fff},
    };
    t_ring other = open_ring("left");
    for (const auto &row : rows)
        for (bool rightwards : {true, false}) {
            t_frame sent = frame_of(row.size, row.type_and_tags);
            send_frame(rightwards ? left.get() : right.get(), sent);
            cvmx_ring_pkt_t last = {};
            auto got = pull_frames(rightwards ? right.get() : left.get(), 1, &last);
            ASSERT_EQ(got.size(), 1u) << row.size;
            EXPECT_EQ(got[0], sent) << row.size;
            EXPECT_EQ(last.flags, row.tpid != 0 ? CVMX_RING_PKT_VLAN : 0) << row.size;
            EXPECT_EQ(last.vlan_tpid, row.tpid);
            EXPECT_EQ(last.vlan_tci, row.tci);
        }
    // What left by the interface is no arrival, even for another ring there.
    EXPECT_EQ(pull_frames(other.get(), std::size(rows)).size(), std::size(rows));
    EXPECT_FALSE(wait_readable(cvmx_ring_sock(other.get()), 0));
}

TEST_F(RingPacketPath, BurstOfRandomFramesComesWholeAndInOrder)
{
    t_frames sent;
    for (int i = 0; i < 2000; i++) {
        sent.push_back(frame_of(14 + random() % 1501));
        ASSERT_EQ(
            cvmx_ring_tx_push(left.get(), sent.back().data(), static_cast<uint32_t>(sent.back().size())), 0);
    }
    cvmx_ring_tx_flush(left.get());
    EXPECT_TRUE(pull_frames(right.get(), sent.size()) == sent);
    EXPECT_EQ(cvmx_ring_rx_lost(right.get()), 0u);
    EXPECT_EQ(cvmx_ring_stats(left.get()).tx_frames, sent.size());
    EXPECT_EQ(cvmx_ring_stats(left.get()).tx_bytes, cvmx_ring_stats(right.get()).rx_bytes);
}

TEST_F(RingPacketPath, FramesThatDoNotFitAreDroppedAlone)
{
    // 1600 bytes are above the MTU, 3000 of a jumbo wire above the buffer.
    ASSERT_EQ(if_mtu_change("right", 9000), 0);
    for (auto [bad_size, mtu] : {std::pair{1600, 1500}, std::pair{3000, 9000}}) {
        ASSERT_EQ(if_mtu_change("left", mtu), 0);
        t_frames good = {frame_of(900), frame_of(1000)};
        for (const t_frame &frame : {good[0], frame_of(static_cast<size_t>(bad_size)), good[1]})
            EXPECT_EQ(cvmx_ring_tx_push(left.get(), frame.data(), static_cast<uint32_t>(frame.size())), 0);
        EXPECT_EQ(cvmx_ring_tx_flush(left.get()), mtu == 1500 ? 2 : 3);
        EXPECT_TRUE(pull_frames(right.get(), 2) == good) << bad_size;
    }
    EXPECT_EQ(cvmx_ring_stats(left.get()).tx_drops, 1u);
    EXPECT_EQ(cvmx_ring_stats(right.get()).rx_too_long, 1u);
    EXPECT_EQ(cvmx_ring_tx_push(left.get(), frame_of(14).data(), 13), -1);
    EXPECT_EQ(cvmx_ring_tx_push(left.get(), frame_of(14).data(), CVMX_RING_FRAME_MAX + 1), -1);
}

TEST_F(RingPacketPath, InterfaceThatGoesStopsTheRingUntilItIsReopened)
{
    t_frame frame = frame_of(100);
    for (bool receiver_finds_out : {true, false})
        for (const char *going : {"link set left down", "link del left"}) {
            SCOPED_TRACE(going);
            ip_command(going);
            if (receiver_finds_out) {
                EXPECT_TRUE(pull_frames(left.get(), 1).empty());
            } else {
                EXPECT_EQ(cvmx_ring_tx_push(left.get(), frame.data(), 100), 0);
                EXPECT_EQ(cvmx_ring_tx_flush(left.get()), -1);
            }
            EXPECT_FALSE(cvmx_ring_active(left.get()));
            EXPECT_EQ(cvmx_ring_tx_push(left.get(), frame.data(), 100), -1);
            if (!cvmx_ifname_exists("left")) {
                EXPECT_EQ(cvmx_ring_reopen(left.get(), "left"), -1);
                EXPECT_EQ(cvmx_ring_sock(left.get()), -1);
                lay_wire();
            }
            ASSERT_EQ(cvmx_ring_reopen(left.get(), "left"), 0);
            ASSERT_EQ(cvmx_ring_reopen(right.get(), "right"), 0);
            send_frame(right.get(), frame);
            EXPECT_EQ(pull_frames(left.get(), 1), t_frames{frame});
        }
    EXPECT_EQ(cvmx_ring_stats(left.get()).tx_drops, 6u);
}

// ---- Checksums that the host's stack left to its device ----

// The one's complement sum of pseudo header and UDP segment, 0xffff when the checksum is right; by bytes.
static uint32_t udp_sum(const t_frame &frame)
{
    uint32_t sum = IPPROTO_UDP + static_cast<uint32_t>(frame.size() - 34);
    for (size_t i = 26; i < frame.size(); i++)
        sum += i % 2 == 0 ? frame[i] << 8u : frame[i];
    while (sum > 0xffff)
        sum = (sum & 0xffff) + (sum >> 16);
    return sum;
}

TEST_F(RingPacketPath, UnfinishedChecksumOfAHostIsToldAndFinished)
{
    ip_command("addr add 10.9.0.1/24 dev right");
    ip_command("neigh add 10.9.0.2 lladdr 02:00:00:00:00:02 dev right");
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to = {
        .sin_family = AF_INET, .sin_port = htons(9), .sin_addr = {htonl(0x0a090002)}, .sin_zero = {}};
    for (bool offload : {true, false}) {
        if (!offload) {
            ASSERT_EQ(if_offload_off("right"), 0);
        }
        ASSERT_EQ(sendto(fd, "odd", 3, 0, reinterpret_cast<sockaddr *>(&to), sizeof(to)), 3);
        cvmx_ring_pkt_t last = {};
        auto got = pull_frames(left.get(), 1, &last);
        ASSERT_EQ(got.size(), 1u);
        t_frame &frame = got[0];
        EXPECT_EQ(last.flags, offload ? CVMX_RING_PKT_CSUM_UNFINISHED : 0);
        EXPECT_EQ(udp_sum(frame) == 0xffff, !offload);
        if (!offload)
            break;
        t_frame whole = frame;
        ASSERT_TRUE(cvmx_ring_csum_finish(whole.data(), static_cast<uint32_t>(whole.size())));
        EXPECT_EQ(udp_sum(whole), 0xffffu);
        whole = frame;
        whole.insert(whole.begin() + 12, {0x88, 0xa8, 0, 5, 0x81, 0, 0, 6});
        whole.resize(80);  // padding after the packet
        ASSERT_TRUE(cvmx_ring_csum_finish(whole.data(), static_cast<uint32_t>(whole.size())));
        whole.resize(frame.size() + 8);
        whole.erase(whole.begin() + 12, whole.begin() + 20);
        EXPECT_EQ(udp_sum(whole), 0xffffu);
        for (size_t size = 0; size < frame.size(); size++) {
            t_frame cut(frame.begin(), frame.begin() + static_cast<ptrdiff_t>(size));
            EXPECT_FALSE(cvmx_ring_csum_finish(cut.data(), static_cast<uint32_t>(size))) << size;
        }
    }
    close(fd);
}

// TCP over IPv6: addresses 2001:db8::1 and ::2, ports 1 and 2, a SYN; the field holds the pseudo header's
// sum.
TEST(RingGolden, ChecksumOfTcpOverIpv6)
{
    t_frame frame(14 + 40 + 20);
    frame[12] = 0x86, frame[13] = 0xdd, frame[14] = 0x60, frame[19] = 20, frame[20] = IPPROTO_TCP;
    for (size_t at : {22u, 38u})
        frame[at] = 0x20, frame[at + 1] = 0x01, frame[at + 2] = 0x0d, frame[at + 3] = 0xb8;
    frame[37] = 1, frame[53] = 2, frame[55] = 1, frame[57] = 2, frame[66] = 0x50, frame[67] = 2;
    frame[70] = 0x5b, frame[71] = 0x8f;  // 2 * 0x2db9 + 3 + 6 + 20
    ASSERT_TRUE(cvmx_ring_csum_finish(frame.data(), static_cast<uint32_t>(frame.size())));
    EXPECT_EQ(frame[70] << 8 | frame[71], 0x546b);
}

TEST_F(RingPacketPath, RenamedInterfaceStaysUp)
{
    ip_command("link add taken type veth peer name taken2");
    EXPECT_EQ(if_rename("left", "taken"), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(if_rename("left", "a-name-too-long."), -1);
    EXPECT_EQ(if_rename("nowhere", "free"), -1);
    ip_command("link del taken");
    int ifindex = if_find("left");
    EXPECT_EQ(if_rename("left", "new"), 0);
    EXPECT_EQ(if_find("new"), ifindex);
    send_frame(right.get(), frame_of(60));  // not without the other end's carrier
    EXPECT_EQ(if_rename("new", "left"), 0);
}
