#include "tests/support/plain_executor.h"

#include <cstring>

struct t_machine {
    std::span<const std::byte> program;
    t_tarn_program_hdr hdr;
    const t_fp_header *p_header;
    uint32_t registers[TARN_MAX_REGISTERS];
};

static uint32_t read_word(const t_machine &machine, size_t word_offset)
{
    uint32_t word;
    memcpy(&word, &machine.program[word_offset * 4], sizeof word);
    return word;
}

static uint32_t field_value(const t_machine &machine, uint32_t ec_id)
{
    for (uint32_t i = 0; i < machine.hdr.p_pe_map_size; i++) {
        const prot_ecid_entry &item = machine.hdr.p_prot_ecid_map[i];
        if (item.p_ec_id == ec_id)
            return machine.p_header->values[item.p_prot_field_type];
    }
    return 0;
}

// Below an entry's low bound go left, at or above its high bound go right; link 0 leads nowhere.
static bool descend(const t_machine &machine, uint32_t table_id, uint32_t value, uint32_t *p_class)
{
    size_t first = machine.hdr.p_ecid_table_map[table_id];
    size_t entry = first;
    for (;;) {
        uint32_t link;
        if (value < read_word(machine, entry))
            link = read_word(machine, entry + 3);
        else if (value >= read_word(machine, entry + 1))
            link = read_word(machine, entry + 4);
        else
            break;
        if (link == 0)
            return false;
        entry = first + link;
    }
    *p_class = read_word(machine, entry + 2);
    return true;
}

// False when the program ends here by a value in no entry.
static bool step(t_machine *p_machine, tarn_instruction word, t_fp_step *p_step)
{
    uint32_t src = word >> 22 & 31;
    uint32_t dst = word >> 17 & 31;
    uint32_t *p_dst = &p_machine->registers[dst];
    uint32_t input = (word >> 27 & 3) == 1 ? field_value(*p_machine, src) : p_machine->registers[src];
    *p_step = {word, input, FP_NO_RECORD, true};
    switch (word >> 29) {
    case 1:
        p_step->found = descend(*p_machine, word >> 12 & 31, input, &p_step->output);
        break;
    case 2:
        p_step->output = *p_dst + input;
        break;
    case 3:
        p_step->output = input * (word >> 1 & 0xffff);
        break;
    default:
        p_step->output = input;
        break;
    }
    *p_dst = p_step->output;
    return p_step->found;
}

t_fp_verdict plain_execute(std::span<const std::byte> program, const t_fp_header &header,
                           std::vector<t_fp_step> *p_steps)
{
    t_machine machine = {};
    machine.program = program;
    machine.p_header = &header;
    memcpy(&machine.hdr, program.data(), sizeof machine.hdr);
    size_t first = (sizeof machine.hdr + machine.hdr.p_table_dir_len * sizeof(t_table_dir_entry)) / 4;
    t_fp_step last = {};
    for (uint32_t i = 0; i < machine.hdr.p_num_instructions; i++) {
        bool found = step(&machine, read_word(machine, first + i), &last);
        if (p_steps != nullptr)
            p_steps->push_back(last);
        if (!found)
            return {FP_NO_RECORD, FP_NO_RECORD};
    }
    uint32_t offset = machine.hdr.p_action_table_offset * 4;
    for (uint32_t i = 0; i < last.output; i++)
        offset += read_word(machine, offset / 4 + 1);
    return {last.output, offset};
}
