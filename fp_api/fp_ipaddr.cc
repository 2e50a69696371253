#include "fp_api/fp_ipaddr.h"

#include <cstdio>

int FP_IPADDR_CMP(const t_fp_ipaddr *p_a, const t_fp_ipaddr *p_b)
{
    if (p_a->addr_type != p_b->addr_type)
        return p_a->addr_type < p_b->addr_type ? -1 : 1;
    if (FP_IPADDR_IS_V4(p_a)) {
        uint32_t a = fp_ipaddr_v4(p_a);
        uint32_t b = fp_ipaddr_v4(p_b);
        return (a > b) - (a < b);
    }
    LUM_ASSERT_TRAP(FP_IPADDR_IS_V6(p_a), "FP_IPADDR_IS_V6(p_a)");
    int order = memcmp(p_a->addr, p_b->addr, sizeof(p_a->addr));
    return (order > 0) - (order < 0);
}

struct t_zero_run {
    int first;
    int count;
};

static t_zero_run longest_zero_run(const uint16_t groups[8])
{
    t_zero_run best = {-1, 0};
    for (int i = 0; i < 8; i++) {
        int count = 0;
        while (i + count < 8 && groups[i + count] == 0)
            count++;
        if (count > best.count)
            best = {i, count};
        i += count;
    }
    return best;
}

static void print_v6(const t_fp_ipaddr *p_addr, char *buf, size_t size)
{
    uint16_t groups[8];
    for (int i = 0; i < 8; i++)
        groups[i] = static_cast<uint16_t>(p_addr->addr[2 * i] << 8 | p_addr->addr[2 * i + 1]);
    t_zero_run run = longest_zero_run(groups);
    size_t used = 0;
    for (int i = 0; i < 8 && used < size; i++) {
        if (i == run.first) {
            used += static_cast<size_t>(snprintf(buf + used, size - used, "::"));
            i += run.count - 1;
            continue;
        }
        bool needs_colon = i > 0 && i != run.first + run.count;
        used += static_cast<size_t>(
            snprintf(buf + used, size - used, needs_colon ? ":%x" : "%x", unsigned{groups[i]}));
    }
}

void fp_ipaddr_print_to_buf(const t_fp_ipaddr *p_addr, char *buf, size_t size)
{
    buf[0] = '\0';
    if (p_addr->addr_type == FP_AF_INET) {
        uint32_t word = fp_ipaddr_v4(p_addr);
        snprintf(buf, size, "%u.%u.%u.%u", word >> 24, word >> 16 & 255, word >> 8 & 255, word & 255);
    } else if (p_addr->addr_type == FP_AF_INET6) {
        print_v6(p_addr, buf, size);
    }
}
