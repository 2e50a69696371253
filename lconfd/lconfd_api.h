// The management adapter's context, as the daemon's dumps and actions see it.
//
// One context stands between a daemon and the management framework. The framework's callbacks find it in the
// daemon context's d_opaque, and through its module data the daemon's own record. The adapter fills it; dumps
// print on its maapi_socket.
#pragma once

// What a daemon tells the adapter about itself.
struct t_lconfd_module_data {
    void *opaque_p;  // the daemon's own record
};

struct t_lconfd_context {
    t_lconfd_module_data module_data;
    int maapi_socket;  // -1 while there is no connection
};
