// Paths from anywhere: what the reader accepts has a text that reads back as the same, and leads somewhere or
// nowhere.

#include "mgmtd/store/mgmt_path.h"

#include <cstdint>
#include <cstdlib>

// libyang's dictionary loses a text now and then when its table changes size.
extern "C" const char *__lsan_default_suppressions();
extern "C" const char *__lsan_default_suppressions()
{
    return "leak:libyang";
}

static void demand(bool holds)
{
    if (!holds)
        abort();
}

namespace {

struct t_world {
    schema_context_ptr context;
    std::unique_ptr<const t_schema_index> index;
    mgmt_work_tree_ptr tree;

    t_world()
    {
        std::string reason;
        std::vector<std::string> reasons;
        t_mgmt_error error;
        context = schema_context_new(YANG_MODULE_FOLDER, &reason);
        demand(context != nullptr);
        index = schema_index_new(context.get(), &reasons);
        demand(index != nullptr);
        tree = mgmt_tree_new(index.get(), context.get());
        demand(mgmt_tree_read(
            tree.get(),
            R"({"lumora-policy:policy":{"zone":[{"name":"a b","vpn":[{"vpn-id":1},{"vpn-id":2}]}]}})",
            &error));
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size)
{
    static const t_world world;
    std::string_view text(reinterpret_cast<const char *>(p_data), size);
    t_mgmt_path base;
    t_mgmt_path path;
    t_mgmt_error error;
    demand(mgmt_path_read(*world.index, nullptr, "/policy/zone[0]", &base, &error));
    if (!mgmt_path_read(*world.index, &base, text, &path, &error)) {
        demand(error.code == MGMT_ERR_BADPATH && !error.reason.empty());
        return 0;
    }
    std::string canonical = mgmt_path_text(path);
    t_mgmt_path again;
    // Quoting may make a text too long to be read again.
    if (canonical.size() <= MGMT_PATH_MAX_SIZE) {
        demand(mgmt_path_read(*world.index, nullptr, canonical, &again, &error));
        demand(mgmt_path_text(again) == canonical);
    }
    const lyd_node *p_node = mgmt_path_node(*world.tree, path, &error);
    demand(p_node != nullptr || error.code == MGMT_ERR_BADPATH || error.code == MGMT_ERR_NOEXISTS);
    mgmt_path_count(*world.tree, path, &error);
    return 0;
}
