#include "tools/program_file.h"

#include "tools/rule_loader.h"
#include "tools/rule_set.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

static constexpr size_t max_program_size = size_t{1} << 32;

static bool record_is_default(const t_open_program &program, uint32_t offset)
{
    uint32_t flags = 0;
    memcpy(&flags, program.bytes.data() + offset + offsetof(t_tarn_action, a_flags), sizeof(flags));
    return (flags & TARN_ACTION_FLAG_DEFAULT) != 0;
}

std::vector<t_tarn_filter_action> program_record_slots(const t_open_program &program, uint32_t record_offset)
{
    std::vector<t_tarn_filter_action> slots(MAX_ACTIONS_IN_RULE);
    memcpy(slots.data(), program.bytes.data() + record_offset + offsetof(t_tarn_action, a_data),
           TARN_ACTION_DATA_SIZE);
    return slots;
}

static void read_rule_numbers(t_open_program *p_program)
{
    p_program->has_rule_numbers = true;
    p_program->highest_rule = 0;
    uint32_t records = fp_walker_num_records(p_program->walker.get());
    for (uint32_t i = 0; i < records; i++) {
        uint32_t offset = fp_walker_record_offset(p_program->walker.get(), i);
        uint32_t number = 0;
        if (!record_is_default(*p_program, offset)) {
            number = rule_number_of_record(program_record_slots(*p_program, offset));
            p_program->has_rule_numbers &= number != 0;
        }
        p_program->rule_by_record.push_back(number);
        p_program->highest_rule = std::max(p_program->highest_rule, number);
    }
}

static void read_field_types(t_open_program *p_program)
{
    for (uint32_t id = 1; id < TARN_MAX_ECS; id++)
        if (uint32_t type = fp_walker_field_type(p_program->walker.get(), id); type != 0)
            p_program->field_types.push_back(type);
    std::sort(p_program->field_types.begin(), p_program->field_types.end());
}

bool program_open(std::span<const std::byte> bytes, t_open_program *p_program, std::string *p_reason)
{
    *p_program = {};
    p_program->bytes = bytes;
    p_program->walker = fp_walker_open(bytes, p_reason);
    if (p_program->walker == nullptr)
        return false;
    uint32_t record_size = fp_walker_record_size(p_program->walker.get());
    if (record_size != sizeof(t_tarn_action) + TARN_ACTION_DATA_SIZE) {
        *p_reason =
            "action records have " + std::to_string(record_size) + " bytes, not the 3080 of twelve slots";
        return false;
    }
    read_rule_numbers(p_program);
    read_field_types(p_program);
    return true;
}

bool program_load(const std::string &file, std::string *p_bytes, t_open_program *p_program,
                  std::string *p_reason)
{
    t_text_error error;
    if (!file_load(file, max_program_size, p_bytes, &error)) {
        *p_reason = text_error_print(error);
        return false;
    }
    std::string reason;
    if (program_open(std::as_bytes(std::span(*p_bytes)), p_program, &reason))
        return true;
    *p_reason = file + ": not a sound program: " + reason;
    return false;
}

bool file_is_program(const std::string &file)
{
    FILE *p_file = fopen(file.c_str(), "rb");
    if (p_file == nullptr)
        return false;
    int first = fgetc(p_file);
    fclose(p_file);
    return first == 0;
}

uint32_t program_verdict_rule(const t_open_program &program, const t_fp_verdict &verdict)
{
    return verdict.record_offset == FP_NO_RECORD ? 0 : program.rule_by_record[verdict.class_id];
}
