#include "lab/fp/fp_pcap.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <pcap/pcap.h>
#include <sys/stat.h>
#include <unistd.h>

struct t_fp_pcap {
    pcap_t *p_handle;
    std::string name;
};

void t_fp_pcap_deleter::operator()(t_fp_pcap *p_pcap) const
{
    pcap_close(p_pcap->p_handle);
    delete p_pcap;
}

static fp_pcap_ptr refuse(const std::string &name, const std::string &reason, std::string *p_error)
{
    *p_error = name + ": " + reason;
    return nullptr;
}

fp_pcap_ptr fp_pcap_open_stream(FILE *p_file, const std::string &name, std::string *p_error)
{
    char reason[PCAP_ERRBUF_SIZE] = "";
    pcap_t *p_handle = pcap_fopen_offline_with_tstamp_precision(p_file, PCAP_TSTAMP_PRECISION_NANO, reason);
    if (p_handle == nullptr) {
        fclose(p_file);
        return refuse(name, reason, p_error);
    }
    fp_pcap_ptr pcap(new t_fp_pcap{p_handle, name});
    int link = pcap_datalink(p_handle);
    if (link == DLT_EN10MB)
        return pcap;
    const char *p_link = pcap_datalink_val_to_name(link);
    return refuse(name,
                  "the frames are of link type " + (p_link != nullptr ? p_link : std::to_string(link)) +
                      ", not Ethernet",
                  p_error);
}

// Doesn't wait for the other end of a pipe.
fp_pcap_ptr fp_pcap_open(const std::string &path, std::string *p_error)
{
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return refuse(path, strerror(errno), p_error);
    struct stat status;
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(fd);
        return refuse(path, "not a regular file", p_error);
    }
    FILE *p_file = fdopen(fd, "rb");
    if (p_file == nullptr) {
        close(fd);
        return refuse(path, strerror(errno), p_error);
    }
    return fp_pcap_open_stream(p_file, path, p_error);
}

e_fp_pcap_next fp_pcap_next(t_fp_pcap *p_pcap, t_fp_frame *p_frame, std::string *p_error)
{
    pcap_pkthdr *p_hdr = nullptr;
    const u_char *p_bytes = nullptr;
    int result = pcap_next_ex(p_pcap->p_handle, &p_hdr, &p_bytes);
    if (result == PCAP_ERROR_BREAK)
        return FP_PCAP_END;
    if (result != 1) {
        *p_error = p_pcap->name + ": " + pcap_geterr(p_pcap->p_handle);
        return FP_PCAP_ERROR;
    }
    p_frame->bytes = std::as_bytes(std::span(p_bytes, p_hdr->caplen));
    p_frame->wire_length = p_hdr->len;
    // Nanoseconds stand in the field for microseconds, as asked for when the file was opened.
    p_frame->time_ns =
        static_cast<uint64_t>(p_hdr->ts.tv_sec) * 1000000000 + static_cast<uint64_t>(p_hdr->ts.tv_usec);
    return FP_PCAP_FRAME;
}
