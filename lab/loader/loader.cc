#include "lab/loader/loader.h"

#include "lab/loader/loader_private.h"
#include "tarnd/config/tarn_flow.h"
#include "tarnd/config/tarn_mirror.h"
#include "tarnd/config/tarn_policer.h"
#include "tarnd/config/tarn_process.h"
#include "tarnd/core/tarn.h"
#include "tarnd/dpi/tarn_dpi.h"

#include <cstddef>
#include <fstream>

void loader_init(t_tarn *p_tarn)
{
    avl_create(&p_tarn->mirror_db, tarn_mirror_key_cmp, sizeof(t_tarn_mirror_config),
               offsetof(t_tarn_mirror_config, avl_node));
    avl_create(&p_tarn->policer_db, tarn_policer_key_cmp, sizeof(t_tarn_policer_config),
               offsetof(t_tarn_policer_config, avl_node));
}

// What follows a notification.
static void run_pass(t_tarn *p_tarn)
{
    tarn_process_config(p_tarn);
    tarn_dpi_update_knob(p_tarn);
    tarn_config_flow_update_knob(p_tarn);
}

static std::string run_all(t_tarn *p_tarn, const loader_json &operations)
{
    size_t number = 0;
    for (const loader_json &operation : operations) {
        number++;
        try {
            loader_run(p_tarn, operation);
        } catch (const std::exception &e) {
            return "operation " + std::to_string(number) + " " + operation.dump() + ": " + e.what();
        }
    }
    return {};
}

std::string loader_apply(t_tarn *p_tarn, const loader_json &operations)
{
    if (!operations.is_array())
        return "a description is an array of operations";
    std::string refusal = run_all(p_tarn, operations);
    run_pass(p_tarn);
    return refusal;
}

std::string loader_apply_file(t_tarn *p_tarn, const std::string &path)
{
    std::ifstream file(path);
    if (!file)
        return path + ": can't be read";
    loader_json operations = loader_json::parse(file, nullptr, false);
    if (operations.is_discarded())
        return path + ": no JSON";
    std::string refusal = loader_apply(p_tarn, operations);
    return refusal.empty() ? refusal : path + ": " + refusal;
}
