// The product's model together with store-test.yang, and short ways to trees, edits and commits.
#pragma once

#include "mgmtd/store/mgmt_txn.h"

#include <functional>
#include <gtest/gtest.h>

// Made once for the process.
const ly_ctx *world_context();
const t_schema_index &world_index();

const t_schema_node *world_node(const std::string &path);
t_mgmt_path world_path(const std::string &text);

// Edits from JSON that must be right.
std::vector<t_mgmt_edit> world_edits(const std::string &json);

// A tree with edits applied to an empty one, or to a copy of another.
mgmt_work_tree_ptr world_tree(const std::string &edits, const t_mgmt_tree *p_base = nullptr);

// "[{"op": op, "path": path, "value": value}]"; no value when it is empty.
std::string world_edit(const std::string &op, const std::string &path, const std::string &value = "");

// The tree as lines "+ /path value".
std::string world_lines(const mgmt_tree_ptr &tree);

// The tree as JSON without blanks.
std::string world_json(const t_mgmt_tree &tree);

// One value as text: "u32:7", "buf:abc", "[u8:1 u8:2]", "none"; of tag values "name=u32:7", "begin(action)".
std::string world_value(const confd_value_t &value);
std::string world_values(const t_mgmt_values &values);

// A store in a folder of its own that goes with it, and the outcome of its transactions.
struct t_world_store {
    std::string folder;
    t_mgmt_store store;
    t_mgmt_error error;  // of the last completion
    int completions = 0;
    std::shared_ptr<const t_mgmt_diff> diff;  // of the last swap
    std::vector<std::string> events;
    // What the callbacks do; null: yes.
    std::function<e_mgmt_answer(t_mgmt_txn *, const t_mgmt_hook_call &, t_mgmt_error *)> on_hook;
    std::function<e_mgmt_answer(const t_mgmt_validation_call &, t_mgmt_error *)> on_validate;
    std::function<e_mgmt_answer(t_mgmt_error *)> on_prepare;

    t_world_store();
    ~t_world_store();
    t_world_store(const t_world_store &) = delete;
    t_world_store &operator=(const t_world_store &) = delete;

    // Opens the store in the folder again, as a new process would.
    [[nodiscard]] bool open();

    // Edits and commits in one private transaction: the outcome's text, empty for success.
    std::string commit(const std::string &edits, std::optional<uint64_t> fallback = std::nullopt);
};

extern const t_mgmt_txn_ops g_world_ops;  // for a t_world_store
