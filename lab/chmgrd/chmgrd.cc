// chmgrd: tells a lab router's daemons its system address and host name.
#include "lab/chmgrd/shared_region.h"
#include "lab/control/lab_program.h"

namespace {

struct t_options {
    std::string address;
    std::string host_name = "lab";
};

}  // namespace

static constexpr char usage[] =
    "Usage: chmgrd [--system-ip ADDR] [--host-name NAME]\n"
    "Writes a lab router's system address and host name into shared memory, where its daemons read them, and "
    "stays.\n\n"
    "  -i, --system-ip ADDR  IPv4 or IPv6; default: none\n"
    "  -n, --host-name NAME  up to 252 characters; default lab\n"
    "  -h, --help            this text\n";

static int serve(const t_lab_daemon *p_daemon, const t_options &options)
{
    t_shared_region_bytes bytes;
    std::string error;
    if (!shared_region_fill(options.address, options.host_name, &bytes, &error) ||
        !shared_region_publish(bytes, &error))
        return lab_program_fail(error);
    lab_log("ready, host name %s, system address %s", options.host_name.c_str(),
            options.address.empty() ? "none" : options.address.c_str());
    int status = lab_daemon_run(p_daemon);
    lab_log("leaves");
    return status;
}

int main(int argc, char **argv)
{
    t_options options;
    const t_lab_option names[] = {{.name = "system-ip", .letter = 'i', .p_value = &options.address},
                                  {.name = "host-name", .letter = 'n', .p_value = &options.host_name}};
    return lab_program_main({"chmgrd", usage, names}, argc, argv,
                            [&](t_lab_daemon *p_daemon) { return serve(p_daemon, options); });
}
