// Opens arbitrary bytes as a program. What opens is executed on headers made of the program's own words,
// which are the bounds of its intervals: one at a time, in a burst and step by step, all with the same
// verdicts inside the program.
#include "lab/fp/walker.h"

#include <array>
#include <cstdlib>
#include <cstring>

static constexpr size_t num_headers = 70;  // more than the walker takes at once

static void require(bool holds)
{
    if (!holds)
        abort();
}

static std::array<t_fp_header, num_headers> headers_from(std::span<const std::byte> program)
{
    std::array<t_fp_header, num_headers> headers;
    size_t place = 0;
    for (t_fp_header &header : headers) {
        for (uint32_t &value : header.values) {
            memcpy(&value, &program[place], sizeof value);
            value += static_cast<uint32_t>(place % 3) - 1;
            place = (place + sizeof value) % (program.size() - sizeof value);
        }
    }
    return headers;
}

static bool same(const t_fp_verdict &a, const t_fp_verdict &b)
{
    return a.class_id == b.class_id && a.record_offset == b.record_offset;
}

static void check_verdict(const t_fp_walker *p_walker, std::span<const std::byte> program,
                          const t_fp_verdict &verdict)
{
    if (verdict.class_id == FP_NO_RECORD)
        return;
    require(verdict.class_id < fp_walker_num_records(p_walker));
    require(verdict.record_offset + uint64_t{fp_walker_record_size(p_walker)} <= program.size());
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    std::span<const std::byte> program = std::as_bytes(std::span(p_data, size));
    std::string error;
    fp_walker_ptr walker = fp_walker_open(program, &error);
    require((walker == nullptr) == !error.empty());
    if (walker == nullptr)
        return 0;
    std::array<t_fp_header, num_headers> headers = headers_from(program);
    std::array<t_fp_verdict, num_headers> burst;
    fp_walker_classify_burst(walker.get(), headers, burst);
    for (size_t i = 0; i < num_headers; i++) {
        t_fp_verdict verdict = fp_walker_classify(walker.get(), headers[i]);
        std::vector<t_fp_step> steps;
        require(same(verdict, burst[i]));
        require(same(verdict, fp_walker_trace(walker.get(), headers[i], &steps)));
        check_verdict(walker.get(), program, verdict);
    }
    return 0;
}
