// Port numbers of the simulated board: a port's group and position, and its input and output number.
//
// A group ("interface") and a position within it ("index") name a connector of the board. The chassis block
// says which port it is and which numbers that port has. The loop ports' numbers are fixed.
#pragma once

// The input (IPD) and output (PKO) number of the port at this place; -1: the table has no port there.
int cvmx_helper_get_ipd_port(int interface, int index);
int cvmx_helper_get_pko_port(int interface, int index);

// The place of a port in the table, by input number; -1: no such port.
int cvmx_helper_get_interface_num(int ipd_port);
int cvmx_helper_get_interface_index_num(int ipd_port);

// The input number of the port that one of its interfaces ("sim0_1", "ge0_1", "loop0") belongs to; -1: none.
int cvmx_helper_ipd_port_of_ifname(const char *ifname);

// The groups of ports, the loop ports' among them, and the positions of a group that the table has filled.
int cvmx_helper_get_number_of_interfaces();
int cvmx_helper_ports_on_interface(int interface);
