// JSON edits from anywhere: the reader, and the application of what it accepts to a tree. What was applied
// must come back from its own JSON and from its difference to the tree before.

#include "mgmtd/store/mgmt_diff.h"

#include <cstdint>
#include <cstdlib>

static void demand(bool holds)
{
    if (!holds)
        abort();
}

namespace {

struct t_world {
    schema_context_ptr context;
    std::unique_ptr<const t_schema_index> index;
    mgmt_tree_ptr base;
};

}  // namespace

static const char *const g_base =
    R"([{"path":"/policy","value":{"zone":[{"name":"a","vpn":[{"vpn-id":1}]}],"lists":{"app-list":[{"name":"l","app":[{"name":"x"}]}]}}}])";

static t_world world_make()
{
    t_world world;
    std::string reason;
    std::vector<std::string> reasons;
    t_mgmt_error error;
    std::vector<t_mgmt_edit> edits;
    world.context = schema_context_new(YANG_MODULE_FOLDER, &reason);
    demand(world.context != nullptr);
    world.index = schema_index_new(world.context.get(), &reasons);
    demand(world.index != nullptr && mgmt_edit_read_json(*world.index, g_base, &edits, &error));
    mgmt_work_tree_ptr tree = mgmt_tree_new(world.index.get(), world.context.get());
    demand(mgmt_edit_apply(tree, std::move(edits), &error));
    world.base = tree;
    return world;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    static const t_world world = world_make();
    std::string_view text(reinterpret_cast<const char *>(p_data), size);
    std::vector<t_mgmt_edit> edits;
    t_mgmt_error error;
    if (!mgmt_edit_read_json(*world.index, text, &edits, &error)) {
        demand(error.code != MGMT_OK && !error.reason.empty());
        return 0;
    }
    mgmt_work_tree_ptr tree = mgmt_tree_copy(*world.base);
    if (!mgmt_edit_apply(tree, std::move(edits), &error)) {
        demand(error.code != MGMT_OK && !error.reason.empty() && !error.path.empty());
        return 0;
    }
    std::string json;
    mgmt_tree_print(*tree, nullptr, 0, &json);
    mgmt_work_tree_ptr read = mgmt_tree_new(world.index.get(), world.context.get());
    demand(mgmt_tree_read(read.get(), json, &error) && mgmt_tree_equal(*read, *tree));
    mgmt_work_tree_ptr replayed = mgmt_tree_copy(*world.base);
    demand(mgmt_edit_apply(replayed, mgmt_diff_edits(mgmt_diff_new(world.base, tree)), &error));
    demand(mgmt_tree_equal(*replayed, *tree));
    return 0;
}
