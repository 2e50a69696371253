#include "libcvmx/sim/cvmx-ring.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <memory>
#include <net/if.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utility>

#include "common/lum_assert.h"
#include "libcvmx/sim/_cvmx-helper-if.h"

static constexpr uint32_t MAC_PAIR_SIZE = 2 * ETH_ALEN;
static constexpr int SOCKET_BUFFER_SIZE = 16 << 20;  // the kernel's bound on frames in wait, bytes each way
static constexpr uint32_t TX_BUFFER_SIZE = 4 * CVMX_RING_FRAME_MAX;

namespace {
// Where the kernel puts what belongs to one received frame.
struct t_rx_place {
    iovec vec;
    sockaddr_ll from;
    alignas(cmsghdr) uint8_t control[CMSG_SPACE(sizeof(tpacket_auxdata))];
};
}  // namespace

struct cvmx_ring_t {
    int fd = -1;
    std::atomic<bool> active = false;
    cvmx_ring_stats_t stats = {};
    mmsghdr rx_msgs[CVMX_RING_BATCH] = {};
    t_rx_place rx_places[CVMX_RING_BATCH] = {};
    mmsghdr tx_msgs[CVMX_RING_BATCH] = {};
    iovec tx_vecs[CVMX_RING_BATCH] = {};
    uint32_t tx_count = 0;  // frames queued
    uint32_t tx_used = 0;   // bytes of the buffer
    uint8_t tx_buffer[TX_BUFFER_SIZE];
};

// ---- Setting up ----

static void set_option(int fd, int level, int option, int value, const char *word)
{
    if (setsockopt(fd, level, option, &value, sizeof(value)) != 0)
        perror(word);
}

// Room for bursts. The forced form is not bound by the system's limit but needs the right.
static void set_buffer_size(int fd, int forced_option, int option)
{
    int size = SOCKET_BUFFER_SIZE;
    if (setsockopt(fd, SOL_SOCKET, forced_option, &size, sizeof(size)) != 0)
        set_option(fd, SOL_SOCKET, option, size, "setsockopt");
}

static int bind_to(int fd, const char *ifname)
{
    int ifindex = if_find(ifname);
    if (ifindex < 0 || if_flags_change(ifname, IFF_UP | IFF_RUNNING, 0) != 0)
        return -1;
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = ifindex;
    return bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address));
}

// The socket takes no protocol before it is bound, or it would hear all interfaces until then.
static int open_socket(const char *ifname)
{
    int fd = socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        perror("socket");
        return -1;
    }
    set_option(fd, SOL_PACKET, PACKET_AUXDATA, 1, "PACKET_AUXDATA");
    set_option(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, 1, "PACKET_IGNORE_OUTGOING");
    // The kernel's queue would swallow frames without a word: all of them while the carrier comes up.
    set_option(fd, SOL_PACKET, PACKET_QDISC_BYPASS, 1, "PACKET_QDISC_BYPASS");
    set_buffer_size(fd, SO_RCVBUFFORCE, SO_RCVBUF);
    set_buffer_size(fd, SO_SNDBUFFORCE, SO_SNDBUF);
    if (bind_to(fd, ifname) != 0) {
        perror(ifname);
        close(fd);
        return -1;
    }
    return fd;
}

// Message headers that point to their places once and for all.
static void connect_places(cvmx_ring_t *p_ring)
{
    for (uint32_t i = 0; i < CVMX_RING_BATCH; i++) {
        t_rx_place &place = p_ring->rx_places[i];
        msghdr &rx = p_ring->rx_msgs[i].msg_hdr;
        rx.msg_name = &place.from;
        rx.msg_iov = &place.vec;
        rx.msg_iovlen = 1;
        rx.msg_control = place.control;
        msghdr &tx = p_ring->tx_msgs[i].msg_hdr;
        tx.msg_iov = &p_ring->tx_vecs[i];
        tx.msg_iovlen = 1;
    }
}

cvmx_ring_t *cvmx_ring_create(const char *ifname)
{
    auto ring = std::make_unique<cvmx_ring_t>();
    connect_places(ring.get());
    return cvmx_ring_reopen(ring.get(), ifname) == 0 ? ring.release() : nullptr;
}

void cvmx_ring_destroy(cvmx_ring_t *p_ring)
{
    if (p_ring != nullptr && p_ring->fd >= 0)
        close(p_ring->fd);
    delete p_ring;
}

int cvmx_ring_reopen(cvmx_ring_t *p_ring, const char *ifname)
{
    if (p_ring->fd >= 0)
        close(p_ring->fd);
    p_ring->tx_count = 0;
    p_ring->tx_used = 0;
    p_ring->fd = open_socket(ifname);
    p_ring->active = p_ring->fd >= 0;
    return p_ring->active ? 0 : -1;
}

int cvmx_ring_sock(const cvmx_ring_t *p_ring)
{
    return p_ring != nullptr ? p_ring->fd : -1;
}

bool cvmx_ring_active(const cvmx_ring_t *p_ring)
{
    return p_ring != nullptr && p_ring->active;
}

cvmx_ring_stats_t cvmx_ring_stats(const cvmx_ring_t *p_ring)
{
    return p_ring->stats;
}

uint32_t cvmx_ring_rx_lost(const cvmx_ring_t *p_ring)
{
    tpacket_stats counts = {};
    socklen_t size = sizeof(counts);
    if (getsockopt(p_ring->fd, SOL_PACKET, PACKET_STATISTICS, &counts, &size) != 0)
        return 0;
    return counts.tp_drops;
}

static bool is_gone(int error)
{
    return error == ENETDOWN || error == ENXIO || error == ENODEV;
}

// ---- Receiving ----

void cvmx_ring_pkt_parse_auxdata(const msghdr *p_msg, cvmx_ring_pkt_t *p_pkt)
{
    p_pkt->flags = 0;
    p_pkt->vlan_tci = 0;
    p_pkt->vlan_tpid = 0;
    // CMSG_NXTHDR only reads, but its parameter isn't const.
    auto *p_walk = const_cast<msghdr *>(p_msg);
    for (cmsghdr *p_cmsg = CMSG_FIRSTHDR(p_msg); p_cmsg != nullptr; p_cmsg = CMSG_NXTHDR(p_walk, p_cmsg)) {
        if (p_cmsg->cmsg_level != SOL_PACKET || p_cmsg->cmsg_type != PACKET_AUXDATA ||
            p_cmsg->cmsg_len < CMSG_LEN(sizeof(tpacket_auxdata)))
            continue;
        tpacket_auxdata aux;
        memcpy(&aux, CMSG_DATA(p_cmsg), sizeof(aux));
        if (aux.tp_status & TP_STATUS_CSUMNOTREADY)
            p_pkt->flags |= CVMX_RING_PKT_CSUM_UNFINISHED;
        if (!(aux.tp_status & TP_STATUS_VLAN_VALID))
            continue;
        p_pkt->flags |= CVMX_RING_PKT_VLAN;
        p_pkt->vlan_tci = aux.tp_vlan_tci;
        p_pkt->vlan_tpid = aux.tp_status & TP_STATUS_VLAN_TPID_VALID ? aux.tp_vlan_tpid : ETH_P_8021Q;
    }
}

// Moves the addresses into the reserve before them and writes the tag into the gap.
static void put_tag_back(cvmx_ring_pkt_t *p_pkt)
{
    p_pkt->data -= CVMX_RING_VLAN_SIZE;
    p_pkt->length += CVMX_RING_VLAN_SIZE;
    memmove(p_pkt->data, p_pkt->data + CVMX_RING_VLAN_SIZE, MAC_PAIR_SIZE);
    uint16_t tag[] = {htons(p_pkt->vlan_tpid), htons(p_pkt->vlan_tci)};
    memcpy(p_pkt->data + MAC_PAIR_SIZE, tag, sizeof(tag));
}

static void prepare_place(cvmx_ring_t *p_ring, uint32_t index, const cvmx_ring_pkt_t &pkt)
{
    LUM_ASSERT_TRAP(pkt.size >= CVMX_RING_VLAN_SIZE + ETH_HLEN, "a frame's head fits the buffer");
    p_ring->rx_places[index].vec = {pkt.buf + CVMX_RING_VLAN_SIZE, pkt.size - CVMX_RING_VLAN_SIZE};
    msghdr &msg = p_ring->rx_msgs[index].msg_hdr;
    msg.msg_namelen = sizeof(sockaddr_ll);
    msg.msg_controllen = sizeof(p_ring->rx_places[index].control);
}

// Fills the record from its message. False: the frame is none for the caller.
static bool accept_frame(cvmx_ring_t *p_ring, uint32_t index, cvmx_ring_pkt_t *p_pkt)
{
    const mmsghdr &msg = p_ring->rx_msgs[index];
    if (p_ring->rx_places[index].from.sll_pkttype == PACKET_OUTGOING || msg.msg_len < ETH_HLEN)
        return false;
    if (msg.msg_hdr.msg_flags & MSG_TRUNC) {
        p_ring->stats.rx_too_long++;
        return false;
    }
    p_pkt->data = p_pkt->buf + CVMX_RING_VLAN_SIZE;
    p_pkt->length = msg.msg_len;
    cvmx_ring_pkt_parse_auxdata(&msg.msg_hdr, p_pkt);
    if (p_pkt->flags & CVMX_RING_PKT_VLAN)
        put_tag_back(p_pkt);
    p_ring->stats.rx_frames++;
    p_ring->stats.rx_bytes += p_pkt->length;
    return true;
}

int cvmx_ring_rx_pull(cvmx_ring_t *p_ring, cvmx_ring_pkt_t *p_pkts, uint32_t count)
{
    if (!cvmx_ring_active(p_ring))
        return -1;
    count = std::min(count, CVMX_RING_BATCH);
    for (uint32_t i = 0; i < count; i++)
        prepare_place(p_ring, i, p_pkts[i]);
    int received = recvmmsg(p_ring->fd, p_ring->rx_msgs, count, MSG_DONTWAIT, nullptr);
    if (received < 0) {
        if (is_gone(errno))
            p_ring->active = false;
        return p_ring->active ? 0 : -1;
    }
    uint32_t taken = 0;
    for (uint32_t i = 0; i < static_cast<uint32_t>(received); i++)
        if (accept_frame(p_ring, i, &p_pkts[i]))
            std::swap(p_pkts[taken++], p_pkts[i]);
    return static_cast<int>(taken);
}

// ---- Sending ----

int cvmx_ring_tx_push(cvmx_ring_t *p_ring, const uint8_t *p_frame, uint32_t length)
{
    if (p_ring == nullptr)
        return -1;
    if (!p_ring->active || length < ETH_HLEN || length > CVMX_RING_FRAME_MAX) {
        p_ring->stats.tx_drops++;
        return -1;
    }
    if (p_ring->tx_count == CVMX_RING_BATCH || length > TX_BUFFER_SIZE - p_ring->tx_used)
        cvmx_ring_tx_flush(p_ring);
    uint8_t *p_copy = p_ring->tx_buffer + p_ring->tx_used;
    memcpy(p_copy, p_frame, length);
    p_ring->tx_vecs[p_ring->tx_count++] = {p_copy, length};
    p_ring->tx_used += length;
    return 0;
}

// After an error on the frame at `index`: the frame to go on with. Frames in between are drops.
static uint32_t next_after_error(cvmx_ring_t *p_ring, uint32_t index, int error)
{
    if (error == EINTR)
        return index;
    if (is_gone(error))
        p_ring->active = false;
    // Without room in the socket the rest would fail likewise; other errors are of this one frame.
    return is_gone(error) || error == EAGAIN ? p_ring->tx_count : index + 1;
}

int cvmx_ring_tx_flush(cvmx_ring_t *p_ring)
{
    if (p_ring == nullptr)
        return -1;
    uint32_t index = 0;
    uint32_t sent = 0;
    while (index < p_ring->tx_count) {
        int result = sendmmsg(p_ring->fd, p_ring->tx_msgs + index, p_ring->tx_count - index, MSG_DONTWAIT);
        if (result <= 0) {
            index = next_after_error(p_ring, index, errno);
            continue;
        }
        for (int i = 0; i < result; i++)
            p_ring->stats.tx_bytes += p_ring->tx_vecs[index++].iov_len;
        sent += static_cast<uint32_t>(result);
    }
    p_ring->stats.tx_frames += sent;
    p_ring->stats.tx_drops += p_ring->tx_count - sent;
    p_ring->tx_count = 0;
    p_ring->tx_used = 0;
    return p_ring->active ? static_cast<int>(sent) : -1;
}
