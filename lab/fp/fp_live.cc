#include "lab/fp/fp_live.h"

#include "chmgr_api/chmgr_api.h"
#include "lab/control/lab_program.h"
#include "lab/fp/fp_live_plane.h"
#include "libcvmx/sim/_cvmx-helper-if.h"
#include "libcvmx/sim/_cvmx-helper.h"
#include "libcvmx/sim/sim_log.h"

#include <algorithm>
#include <ctime>
#include <fcntl.h>
#include <nlohmann/json.hpp>

static constexpr uint32_t buffer_size = CVMX_RING_FRAME_MAX;  // bytes; a peer may send with offloads
static constexpr timeval turn_time = {1, 0};

// A port of the plane and what stands behind it.
struct t_live_link {
    t_fp_live *p_live;
    size_t index;
    int ipd_port;
    int pko_port;
    lab_event_ptr event;  // null while the port is down
};

struct t_fp_live {
    event_base *p_base;
    t_fp_live_plane plane;
    std::vector<t_live_link> links;  // by the plane's ports
    lab_event_ptr turn;
    std::vector<uint8_t> memory;  // for a batch
    std::array<cvmx_ring_pkt_t, CVMX_RING_BATCH> batch;
};

void t_fp_live_deleter::operator()(t_fp_live *p_live) const
{
    p_live->plane.p_service->live = nullptr;
    delete p_live;  // events before rings
    cvmx_helper_ports_close();
}

static uint64_t now_ms()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

// ---- Frames ----

static void rings_flush(t_fp_live *p_live)
{
    for (const t_live_link &link : p_live->links)
        cvmx_ring_tx_flush(cvmx_helper_tx_ring(link.pko_port));
}

static void frame_serve(t_fp_live *p_live, size_t port, const cvmx_ring_pkt_t &pkt, uint64_t time_ms)
{
    if (pkt.flags & CVMX_RING_PKT_CSUM_UNFINISHED)
        cvmx_ring_csum_finish(pkt.data, pkt.length);
    fp_live_frame(&p_live->plane, port, {pkt.data, pkt.length}, time_ms);
}

static void link_take_down(t_live_link *p_link)
{
    cvmx_sim_log("fpd: %s is down\n", p_link->p_live->plane.config.ports[p_link->index].interface.c_str());
    p_link->event = nullptr;
}

static void on_readable(evutil_socket_t, short, void *p_user)
{
    auto *p_link = static_cast<t_live_link *>(p_user);
    t_fp_live *p_live = p_link->p_live;
    int count =
        cvmx_ring_rx_pull(cvmx_helper_rx_ring(p_link->ipd_port), p_live->batch.data(), CVMX_RING_BATCH);
    if (count < 0) {
        link_take_down(p_link);
        return;
    }
    uint64_t time_ms = now_ms();
    try {
        for (int i = 0; i < count; i++)
            frame_serve(p_live, p_link->index, p_live->batch[static_cast<size_t>(i)], time_ms);
    } catch (const std::exception &error) {  // out of memory; no exception goes through the loop
        cvmx_sim_log("fpd: frames are lost: %s\n", error.what());
    }
    rings_flush(p_live);
}

// ---- Ports ----

// Whether bringing the port up has any prospect; without this each try would be a line in the log.
static bool has_interface(const cvmx_helper_port_t &port)
{
    bool is_wire = port.tap_sock < 0;  // else that name is the tap's
    return cvmx_ifname_exists(port.ifname) || (is_wire && cvmx_ifname_exists(port.tap_name)) ||
           (port.orig_name[0] != '\0' && cvmx_ifname_exists(port.orig_name));
}

// What the plane has to know of the port, which may be another interface than before.
static bool port_learn(t_fp_live_port *p_port, const cvmx_helper_port_t &port)
{
    int mtu = if_mtu_get(port.ifname);
    std::copy(std::begin(port.mac), std::end(port.mac), p_port->mac.begin());
    p_port->mtu = static_cast<uint32_t>(std::max(mtu, 0));
    return mtu > 0;
}

static void link_bring_up(t_live_link *p_link)
{
    t_fp_live *p_live = p_link->p_live;
    const cvmx_helper_port_t *p_port = cvmx_helper_port(p_link->ipd_port);
    if (!has_interface(*p_port) || cvmx_ring_restart(p_link->ipd_port) != 0 ||
        !port_learn(&p_live->plane.ports[p_link->index], *p_port))
        return;
    p_link->event.reset(
        event_new(p_live->p_base, cvmx_ring_sock(p_port->p_ring), EV_READ | EV_PERSIST, on_readable, p_link));
    if (p_link->event == nullptr || event_add(p_link->event.get(), nullptr) != 0) {
        p_link->event = nullptr;
        return;
    }
    cvmx_sim_log("fpd: %s is up\n", p_live->plane.config.ports[p_link->index].interface.c_str());
}

static void on_turn(evutil_socket_t, short, void *p_user)
{
    auto *p_live = static_cast<t_fp_live *>(p_user);
    for (t_live_link &link : p_live->links) {
        // The send that meets the socket's error takes it away: then no event tells that the port is down.
        if (link.event != nullptr && !cvmx_port_active(link.ipd_port))
            link_take_down(&link);
        if (link.event == nullptr)
            link_bring_up(&link);
    }
    fp_live_turn(&p_live->plane, now_ms());
    rings_flush(p_live);
}

// Loop ports have no number in the block, and it numbers a port with 0, too.
static bool is_port(const cvmx_helper_port_t &port, const t_port_info &info)
{
    return port.interface != CVMX_HELPER_LOOP_INTERFACE && port.port_id == info.port_id.value;
}

// The port of the box that the operator calls so; -1: there is none.
static int port_find(const std::string &interface)
{
    char kernel_name[CHMGR_IFNAME_SIZE];
    t_port_info *p_info = nullptr;
    if (chmgr_user_to_kernel_ifname(interface.c_str(), kernel_name, sizeof(kernel_name), &p_info) ==
            nullptr ||
        p_info == nullptr)
        return -1;
    int port = cvmx_helper_next_port(-1);
    while (port != -1 && !is_port(*cvmx_helper_port(port), *p_info))
        port = cvmx_helper_next_port(port);
    return port;
}

static bool links_make(t_fp_live *p_live, std::string *p_error)
{
    const std::vector<t_fp_live_port_config> &ports = p_live->plane.config.ports;
    p_live->links.reserve(ports.size());  // events hold their addresses
    for (size_t i = 0; i < ports.size(); i++) {
        const cvmx_helper_port_t *p_port = cvmx_helper_port(port_find(ports[i].interface));
        if (p_port == nullptr) {
            *p_error = "the box has no port " + ports[i].interface;
            return false;
        }
        p_live->plane.ports.push_back({});
        p_live->links.push_back({p_live, i, p_port->ipd_port, p_port->pko_port, nullptr});
    }
    return true;
}

// ---- Opening ----

static void batch_prepare(t_fp_live *p_live)
{
    p_live->memory.resize(size_t{buffer_size} * CVMX_RING_BATCH);
    for (size_t i = 0; i < CVMX_RING_BATCH; i++) {
        p_live->batch[i].buf = &p_live->memory[i * buffer_size];
        p_live->batch[i].size = buffer_size;
    }
}

static fp_json live_answer(const t_fp_live *p_live)
{
    fp_json answer = {{"ok", true}, {"request", "live"}};
    answer.update(fp_live_json(p_live->plane));
    for (const t_live_link &link : p_live->links) {
        fp_json &row = answer["ports"][link.index];
        row["up"] = cvmx_port_active(link.ipd_port);
        const cvmx_ring_t *p_ring = cvmx_helper_rx_ring(link.ipd_port);
        if (p_ring == nullptr)
            continue;
        cvmx_ring_stats_t stats = cvmx_ring_stats(p_ring);
        row["rx-too-long"] = stats.rx_too_long;
        row["tx-drops"] = stats.tx_drops;
    }
    return answer;
}

fp_live_ptr fp_live_open(event_base *p_base, t_fp_service *p_service, const t_fp_live_config &config,
                         std::string *p_error)
{
    if (chmgr_info_get(O_RDWR) != 0 || cvmx_helper_ports_init() < 0) {
        *p_error = "there is no chassis block";
        return nullptr;
    }
    fp_live_ptr live(new t_fp_live{});
    t_fp_live *p_live = live.get();
    p_live->p_base = p_base;
    p_live->plane.p_service = p_service;
    p_live->plane.config = config;
    p_live->plane.send = [p_live](size_t port, std::span<const uint8_t> frame) {
        cvmx_ring_tx_push(cvmx_helper_tx_ring(p_live->links[port].pko_port), frame.data(),
                          static_cast<uint32_t>(frame.size()));
    };
    if (!links_make(p_live, p_error))
        return nullptr;
    batch_prepare(p_live);
    p_live->turn.reset(event_new(p_base, -1, EV_PERSIST, on_turn, p_live));
    if (p_live->turn == nullptr || event_add(p_live->turn.get(), &turn_time) != 0) {
        *p_error = "no event for live mode";
        return nullptr;
    }
    on_turn(-1, 0, p_live);
    p_service->live = [p_live] { return live_answer(p_live); };
    return live;
}
