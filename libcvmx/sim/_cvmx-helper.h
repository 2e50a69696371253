// The simulated port table: which Linux interfaces are the box's ports.
//
// The chassis manager's block names the ports. Behind a port "ge0/1" stand two interfaces. The wire's own is
// renamed "sim0_1" (slot, port) and belongs to the forwarding plane alone, which works it by a ring. The host
// sees a tap device of the kernel's name, "ge0_1", that has the port's Ethernet address: the block's, else
// the one that the wire's interface had. What the host sends comes out of the tap's descriptor, and what is
// written there reaches the host. So that the host's stack doesn't also answer on the wire, that interface
// gets another address (the local bit flipped), takes frames for all addresses, has no ARP and no IPv6. Its
// offloads are switched off; those of the wire's other end are for whoever owns it.
//
// Beside them are four loop ports without a wire, in two pairs (0 and 1, 2 and 3): what goes out of one comes
// in at its partner. Each has a tap device, "loop0" to "loop3", once it has been made.
//
// The table belongs to the process. It is filled on one thread, before others look; lookups are plain reads.
// Ports are known by their input number (IPD port) and are sent to by their output number (PKO port), both
// from the chassis manager. Rings and descriptors are the table's: nobody else closes them. Tap devices
// vanish with the process; the renamed interfaces stay, and the next process finds them by that name.
#pragma once

#include "libcvmx/sim/cvmx-ring.h"

#include <cstdint>

inline constexpr int CVMX_HELPER_MAX_PORTS = 256;      // input and output numbers are below
inline constexpr int CVMX_HELPER_NUM_INTERFACES = 10;  // groups of ports in the chassis block
inline constexpr int CVMX_HELPER_LOOP_INTERFACE = 10;  // the loop ports' group, behind those
inline constexpr int CVMX_HELPER_NUM_LOOP_PORTS = 4;
inline constexpr int CVMX_HELPER_LOOP_BASE_PORT = 240;  // number of loop port 0, input and output alike

// One port. Names are empty where there is none.
struct cvmx_helper_port_t {
    int ipd_port;
    int pko_port;
    int interface;  // group and position within
    int index;
    uint32_t port_id;    // t_portid's value in the chassis block; 0 for loop ports
    uint8_t mac[6];      // the tap's address; zero while it isn't known, and for loop ports
    char ifname[16];     // the wire's interface, "sim0_1"
    char tap_name[16];   // the host's interface, "ge0_1"
    char orig_name[16];  // what the wire's interface is called before its renaming, if the block says so
    cvmx_ring_t *p_ring;
    int tap_sock;  // -1: none
};

// ---- Setting up ----

// Fills the table from the chassis block and adds the loop ports; touches no interface. A second call drops
// everything first. The number of ports, loop ports among them; -1 when there is no block. A port whose
// number is too high or taken is left out, with a log line.
[[nodiscard]] int cvmx_helper_ports_init();

// Gives up rings, taps and the table.
void cvmx_helper_ports_close();

// Makes the group's ports ready: finds and renames each wire's interface, by its "sim" name, else its
// original name, else the kernel's; sets it up, makes ring and tap. A port without an interface, or with one
// that fails, is reported and left for cvmx_ring_restart. The loop ports' group gets its tap devices. The
// number of ports that are ready; -1: no such group.
int cvmx_helper_interface_probe(int interface);

// Makes the port's tap device, with the port's Ethernet address and the wire's MTU, non-blocking, up. The
// descriptor, also when there is one already. Otherwise, by the step that failed, each reported with perror:
enum e_cvmx_tap_failure {
    CVMX_TAP_NO_PORT = -2,  // the table has no such port
    CVMX_TAP_OPEN = -3,     // /dev/net/tun
    CVMX_TAP_NO_WIRE = -4,  // the wire's interface doesn't tell address or MTU
    CVMX_TAP_ATTACH = -5,   // a device of the name: no right, or there is one
    CVMX_TAP_NON_BLOCKING = -6,
    CVMX_TAP_ADDRESS = -7,
    CVMX_TAP_MTU = -8,
    CVMX_TAP_UP = -9,
};
[[nodiscard]] int cvmx_helper_tap_create(int ipd_port);

// Makes the tap device of loop port 0 to 3, without ARP. The result is that of cvmx_helper_tap_create.
[[nodiscard]] int cvmx_helper_loop_port_create(int index);

// Makes loop port 0 ready for use: it and its partner. 0, or the failed one's result.
[[nodiscard]] int cvmx_helper_loop0_cfg();

// Makes one port ready as the probe does, for the first time or again: looks for the wire's interface and
// opens the ring on it. The ring's record and statistics and the tap stay, the ring's descriptor may change,
// and what was queued is lost. 0; -1: no such port, no interface yet, or a step failed. Loop ports have no
// ring: -1.
[[nodiscard]] int cvmx_ring_restart(int ipd_port);

// ---- Looking up ----

// The port's record, by its input or output number. Null: no such port.
const cvmx_helper_port_t *cvmx_helper_port(int ipd_port);
const cvmx_helper_port_t *cvmx_helper_port_by_pko(int pko_port);

// The input number that follows in the table, in ascending order; -1 starts and ends the walk.
int cvmx_helper_next_port(int ipd_port);

// The ring to receive from, by input number, and to send to, by output number; both are one ring. Null: none.
cvmx_ring_t *cvmx_helper_rx_ring(int ipd_port);
cvmx_ring_t *cvmx_helper_tx_ring(int pko_port);

// The tap's descriptor; -1: none. Reads and writes are whole Ethernet frames, at most MTU and 18 bytes.
int cvmx_helper_tap_sock(int ipd_port);

// The partner of a loop port; -1: this is no loop port.
int cvmx_helper_loop_partner(int ipd_port);

// Whether frames can go through the port: its ring is active; a loop port has its tap.
bool cvmx_port_active(int ipd_port);
