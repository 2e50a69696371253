#include "tests/mgmtd/store/store_world.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <filesystem>
#include <libyang/libyang.h>

// ---- The model ----

namespace {

struct t_model {
    schema_context_ptr context;
    std::unique_ptr<const t_schema_index> index;

    t_model()
    {
        // libyang keeps times in the zone of the machine.
        setenv("TZ", "UTC", 1);
        std::string error;
        std::vector<std::string> errors;
        context = schema_context_new(YANG_MODULE_FOLDER, &error);
        if (context == nullptr)
            abort();
        ly_ctx_set_searchdir(context.get(), STORE_TEST_FOLDER);
        if (ly_ctx_load_module(context.get(), "store-test", nullptr, nullptr) != nullptr)
            index = schema_index_new(context.get(), &errors);
        for (const std::string &line : errors)
            fprintf(stderr, "%s\n", line.c_str());
        if (index == nullptr)
            abort();
    }
};

}  // namespace

static const t_model &model()
{
    static const t_model made;
    return made;
}

const ly_ctx *world_context()
{
    return model().context.get();
}

const t_schema_index &world_index()
{
    return *model().index;
}

const t_schema_node *world_node(const std::string &path)
{
    const t_schema_node *p_node = schema_find(world_index(), path);
    EXPECT_NE(p_node, nullptr) << path;
    return p_node;
}

t_mgmt_path world_path(const std::string &text)
{
    t_mgmt_path path;
    t_mgmt_error error;
    EXPECT_TRUE(mgmt_path_read(world_index(), nullptr, text, &path, &error)) << mgmt_error_text(error);
    return path;
}

// ---- Trees and edits ----

std::vector<t_mgmt_edit> world_edits(const std::string &json)
{
    std::vector<t_mgmt_edit> edits;
    t_mgmt_error error;
    EXPECT_TRUE(mgmt_edit_read_json(world_index(), json, &edits, &error)) << mgmt_error_text(error) << "\n"
                                                                          << json;
    return edits;
}

mgmt_work_tree_ptr world_tree(const std::string &edits, const t_mgmt_tree *p_base)
{
    mgmt_work_tree_ptr tree =
        p_base != nullptr ? mgmt_tree_copy(*p_base) : mgmt_tree_new(&world_index(), world_context());
    t_mgmt_error error;
    EXPECT_TRUE(mgmt_edit_apply(tree, world_edits(edits), &error)) << mgmt_error_text(error);
    return tree;
}

std::string world_edit(const std::string &op, const std::string &path, const std::string &value)
{
    return R"([{"op":")" + op + R"(","path":")" + path + "\"" + (value.empty() ? "" : ",\"value\":" + value) +
           "}]";
}

std::string world_lines(const mgmt_tree_ptr &tree)
{
    std::string lines;
    mgmt_diff_print(mgmt_diff_new(mgmt_tree_new(tree->p_schema, tree->p_context), tree), &lines);
    return lines;
}

std::string world_json(const t_mgmt_tree &tree)
{
    std::string text;
    mgmt_tree_print(tree, nullptr, 0, &text);
    return text;
}

// ---- Values ----

static std::string list_value(const confd_list &list)
{
    std::string text = "[";
    for (unsigned int i = 0; i < list.size; i++)
        text += (i > 0 ? " " : "") + world_value(list.ptr[i]);
    return text + "]";
}

static std::string address_value(const char *p_kind, int family, const void *p_address)
{
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(family, p_address, text, sizeof(text));
    return std::string(p_kind) + ":" + text;
}

std::string world_value(const confd_value_t &value)
{
    const auto &v = value.val;
    switch (value.type) {
    case C_NOEXISTS:
        return "none";
    case C_XMLTAG:
        return "empty";
    case C_BUF:
        return "buf:" + std::string(reinterpret_cast<const char *>(v.buf.ptr), v.buf.size);
    case C_INT8:
        return "i8:" + std::to_string(v.i8);
    case C_INT16:
        return "i16:" + std::to_string(v.i16);
    case C_INT32:
        return "i32:" + std::to_string(v.i32);
    case C_INT64:
        return "i64:" + std::to_string(v.i64);
    case C_UINT8:
        return "u8:" + std::to_string(v.u8);
    case C_UINT16:
        return "u16:" + std::to_string(v.u16);
    case C_UINT32:
        return "u32:" + std::to_string(v.u32);
    case C_UINT64:
        return "u64:" + std::to_string(v.u64);
    case C_BOOL:
        return v.boolean ? "true" : "false";
    case C_ENUM_VALUE:
        return "enum:" + std::to_string(v.enumvalue);
    case C_BIT32:
        return "b32:" + std::to_string(v.b32);
    case C_BIT64:
        return "b64:" + std::to_string(v.b64);
    case C_IPV4:
        return address_value("ip4", AF_INET, &v.ip);
    case C_IPV6:
        return address_value("ip6", AF_INET6, &v.ip6);
    case C_IPV4PREFIX:
        return address_value("ip4", AF_INET, &v.ipv4prefix.ip) + "/" + std::to_string(v.ipv4prefix.len);
    case C_IPV6PREFIX:
        return address_value("ip6", AF_INET6, &v.ipv6prefix.ip6) + "/" + std::to_string(v.ipv6prefix.len);
    case C_DATETIME:
        return "time:" + std::to_string(v.datetime.year) + " " + std::to_string(v.datetime.sec) + "." +
               std::to_string(v.datetime.micro) + " " + std::to_string(v.datetime.timezone) + ":" +
               std::to_string(v.datetime.timezone_minutes);
    case C_LIST:
        return list_value(v.list);
    default:
        return "type " + std::to_string(value.type);
    }
}

std::string world_values(const t_mgmt_values &values)
{
    std::string text;
    for (const confd_tag_value_t &item : values.items) {
        std::string name(schema_hash_name(world_index(), item.tag.tag));
        text += text.empty() ? "" : " ";
        if (item.v.type == C_XMLBEGIN || item.v.type == C_XMLEND)
            text += (item.v.type == C_XMLBEGIN ? "begin(" : "end(") + name + ")";
        else
            text += name + "=" + world_value(item.v);
    }
    return text;
}

// ---- Stores ----

static t_world_store *world_of(void *p_ctx)
{
    return static_cast<t_world_store *>(p_ctx);
}

const t_mgmt_txn_ops g_world_ops = {
    .create_hook =
        [](void *p_ctx, t_mgmt_txn *p_txn, const t_mgmt_hook_call &call, t_mgmt_error *p_error) {
            t_world_store *p_world = world_of(p_ctx);
            p_world->events.push_back("hook " + std::string(call.callpoint) + " " +
                                      mgmt_node_path(mgmt_txn_tree(*p_txn), call.p_node));
            return p_world->on_hook ? p_world->on_hook(p_txn, call, p_error) : MGMT_ANSWER_YES;
        },
    .validate =
        [](void *p_ctx, t_mgmt_txn *, const t_mgmt_validation_call &call, t_mgmt_error *p_error) {
            t_world_store *p_world = world_of(p_ctx);
            p_world->events.push_back("validate " + std::string(call.point));
            return p_world->on_validate ? p_world->on_validate(call, p_error) : MGMT_ANSWER_YES;
        },
    .prepare =
        [](void *p_ctx, t_mgmt_txn *, const t_mgmt_diff &, t_mgmt_error *p_error) {
            world_of(p_ctx)->events.push_back("prepare");
            return world_of(p_ctx)->on_prepare ? world_of(p_ctx)->on_prepare(p_error) : MGMT_ANSWER_YES;
        },
    .abort = [](void *p_ctx, t_mgmt_txn *,
                const t_mgmt_diff &) { world_of(p_ctx)->events.push_back("abort"); },
    .swapped =
        [](void *p_ctx, t_mgmt_txn *, const std::shared_ptr<const t_mgmt_diff> &diff) {
            world_of(p_ctx)->events.push_back("swapped");
            world_of(p_ctx)->diff = diff;
        },
    .complete =
        [](void *p_ctx, t_mgmt_txn *, const t_mgmt_error &error) {
            world_of(p_ctx)->completions++;
            world_of(p_ctx)->error = error;
        },
};

t_world_store::t_world_store()
{
    char name[] = "/tmp/mgmt-store-test-XXXXXX";
    folder = mkdtemp(name) != nullptr ? name : "";
    EXPECT_TRUE(open());
}

t_world_store::~t_world_store()
{
    std::filesystem::remove_all(folder);
}

bool t_world_store::open()
{
    store = {};
    return mgmt_store_open(&store, &world_index(), world_context(), folder, &error);
}

std::string t_world_store::commit(const std::string &edits, std::optional<uint64_t> fallback)
{
    mgmt_txn_ptr txn = mgmt_txn_new(&store, MGMT_TXN_PRIVATE, &g_world_ops, this);
    mgmt_txn_edit(txn.get(), world_edits(edits));
    if (error.code == MGMT_OK)
        mgmt_txn_commit(txn.get(), {0, "tester", "", "a \"test\"", fallback});
    store.pre_commit = nullptr;
    return mgmt_error_text(error);
}
