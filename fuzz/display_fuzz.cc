// Whatever the walker accepts, with records of twelve slots, can be dumped, and its counters and policers can
// be read and cleared. What it refuses never gets that far, as in the tools.
#include "lab/fp/walker.h"
#include "tarnd/compiler/tarn_program.h"

#include <cstdio>
#include <cstdlib>

// Names that the stored inputs use, and the empty one.
static constexpr const char *names[] = {"web", "10.rate", ""};

static void display(const std::byte *p_program)
{
    static FILE *p_silent = freopen("/dev/null", "w", stdout);
    if (p_silent == nullptr)
        abort();
    tarn_display_program(nullptr, 0, p_program, ftm_oct_filter_action_dump);
}

static void read_and_clear(std::byte *p_program)
{
    int64_t pkts;
    int64_t bytes;
    for (const char *name : names) {
        for (int i = 0; i < 2; i++) {
            tarn_program_get_counter(p_program, name, &pkts, &bytes);
            tarn_program_clear_counter(p_program, name);
            tarn_program_get_policer(p_program, name, &pkts, &bytes);
            tarn_program_clear_policer(p_program, name);
        }
        tarn_program_get_counter(p_program, name, &pkts, &bytes);
        if (pkts != 0 || bytes != 0)
            abort();  // two clears reach both elements of every counter
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    std::span<const std::byte> input = std::as_bytes(std::span(p_data, size));
    std::vector<std::byte> program(input.begin(), input.end());  // aligned, of the exact size
    fp_walker_ptr walker = fp_walker_open(program, nullptr);
    if (walker == nullptr ||
        fp_walker_record_size(walker.get()) != sizeof(t_tarn_action) + TARN_ACTION_DATA_SIZE)
        return 0;
    display(program.data());
    read_and_clear(program.data());
    return 0;
}
