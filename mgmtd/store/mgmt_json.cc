// Trees as JSON.

#include "mgmtd/store/mgmt_tree_private.h"

#include <array>

struct t_json_writer {
    const t_mgmt_tree &tree;
    unsigned int indent;  // blanks for each level; 0: none, and no new lines
    unsigned int depth;
    std::string *p_text;
};

// ---- Writing ----

static void line_break(const t_json_writer &writer)
{
    if (writer.indent == 0)
        return;
    writer.p_text->push_back('\n');
    writer.p_text->append(size_t{writer.indent} * writer.depth, ' ');
}

static void text_write(std::string *p_text, const char *p_value)
{
    static constexpr char digits[] = "0123456789abcdef";
    p_text->push_back('"');
    const char *p_start = p_value;
    for (; *p_value != '\0'; p_value++) {
        auto byte = static_cast<unsigned char>(*p_value);
        if (byte >= 0x20 && byte != '"' && byte != '\\')
            continue;
        p_text->append(p_start, p_value);
        p_start = p_value + 1;
        if (byte == '"' || byte == '\\')
            p_text->append({'\\', *p_value});
        else
            p_text->append({'\\', 'u', '0', '0', digits[byte >> 4], digits[byte & 15]});
    }
    p_text->append(p_start, p_value);
    p_text->push_back('"');
}

static void term_write(const t_json_writer &writer, const lyd_node *p_node)
{
    const lyd_value *p_value = &reinterpret_cast<const lyd_node_term *>(p_node)->value;
    while (p_value->realtype->basetype == LY_TYPE_UNION)
        p_value = &p_value->subvalue->value;
    switch (p_value->realtype->basetype) {
    case LY_TYPE_EMPTY:
        *writer.p_text += "[null]";
        return;
    case LY_TYPE_BOOL:
    case LY_TYPE_INT8:
    case LY_TYPE_INT16:
    case LY_TYPE_INT32:
    case LY_TYPE_UINT8:
    case LY_TYPE_UINT16:
    case LY_TYPE_UINT32:
        *writer.p_text += lyd_get_value(p_node);
        return;
    default:
        text_write(writer.p_text, lyd_get_value(p_node));
    }
}

// The member's name; with the module's where it differs from the one around.
static void name_write(const t_json_writer &writer, const lyd_node *p_node, bool is_outermost)
{
    const lysc_node *p_schema = p_node->schema;
    bool is_prefixed = is_outermost || lyd_parent(p_node) == nullptr ||
                       lyd_parent(p_node)->schema->module != p_schema->module;
    writer.p_text->push_back('"');
    if (is_prefixed)
        writer.p_text->append(p_schema->module->name).push_back(':');
    writer.p_text->append(p_schema->name).append(writer.indent == 0 ? "\":" : "\": ");
}

static void siblings_write(t_json_writer *p_writer, const lyd_node *p_first);

static void object_write(t_json_writer *p_writer, const lyd_node *p_node)
{
    p_writer->p_text->push_back('{');
    siblings_write(p_writer, lyd_child(p_node));
    p_writer->p_text->push_back('}');
}

static void value_write(t_json_writer *p_writer, const lyd_node *p_node)
{
    if ((p_node->schema->nodetype & (LYS_LEAF | LYS_LEAFLIST)) != 0)
        term_write(*p_writer, p_node);
    else
        object_write(p_writer, p_node);
}

static void array_write(t_json_writer *p_writer, std::span<const lyd_node *const> nodes)
{
    p_writer->p_text->push_back('[');
    p_writer->depth++;
    for (size_t i = 0; i < nodes.size(); i++) {
        if (i > 0)
            p_writer->p_text->push_back(',');
        line_break(*p_writer);
        value_write(p_writer, nodes[i]);
    }
    p_writer->depth--;
    line_break(*p_writer);
    p_writer->p_text->push_back(']');
}

// One member: a node, or all instances of its list. Gives the node behind.
static const lyd_node *member_write(t_json_writer *p_writer, const lyd_node *p_node, bool is_outermost)
{
    name_write(*p_writer, p_node, is_outermost);
    if ((p_node->schema->nodetype & (LYS_LIST | LYS_LEAFLIST)) == 0) {
        value_write(p_writer, p_node);
        return p_node->next;
    }
    array_write(p_writer, mgmt_sorted_instances(p_node, mgmt_node_schema(p_writer->tree, p_node)));
    const lysc_node *p_list = p_node->schema;
    while (p_node != nullptr && p_node->schema == p_list)
        p_node = p_node->next;
    return p_node;
}

static void siblings_write(t_json_writer *p_writer, const lyd_node *p_node)
{
    bool is_first = true;
    p_writer->depth++;
    while (p_node != nullptr) {
        bool is_shown = mgmt_node_schema(p_writer->tree, p_node) != nullptr && !mgmt_node_is_empty(p_node);
        if (!is_shown) {
            p_node = p_node->next;
            continue;
        }
        if (!is_first)
            p_writer->p_text->push_back(',');
        line_break(*p_writer);
        is_first = false;
        p_node = member_write(p_writer, p_node, false);
    }
    p_writer->depth--;
    if (!is_first)
        line_break(*p_writer);
}

void mgmt_tree_print(const t_mgmt_tree &tree, const lyd_node *p_node, unsigned int indent,
                     std::string *p_text)
{
    t_json_writer writer = {tree, indent, 0, p_text};
    p_text->push_back('{');
    if (p_node == nullptr) {
        siblings_write(&writer, tree.p_first);
        p_text->push_back('}');
        return;
    }
    writer.depth = 1;
    line_break(writer);
    if ((p_node->schema->nodetype & (LYS_LIST | LYS_LEAFLIST)) != 0) {
        name_write(writer, p_node, true);
        array_write(&writer, std::array{p_node});
    } else {
        member_write(&writer, p_node, true);
    }
    writer.depth = 0;
    line_break(writer);
    p_text->push_back('}');
}

void mgmt_tree_print_list(const t_mgmt_tree &tree, const lyd_node *p_parent, const t_schema_node *p_list,
                          unsigned int indent, std::string *p_text)
{
    t_json_writer writer = {tree, indent, 1, p_text};
    p_text->push_back('{');
    const lyd_node *p_first = mgmt_tree_child(tree, p_parent, p_list);
    if (p_first != nullptr) {
        line_break(writer);
        member_write(&writer, p_first, true);
        writer.depth = 0;
        line_break(writer);
    }
    p_text->push_back('}');
}

// ---- Reading ----

bool mgmt_tree_read(t_mgmt_tree *p_tree, const std::string &text, t_mgmt_error *p_error)
{
    lyd_node *p_first = nullptr;
    LY_ERR result = lyd_parse_data_mem(p_tree->p_context, text.c_str(), LYD_JSON,
                                       LYD_PARSE_ONLY | LYD_PARSE_STRICT | LYD_PARSE_NO_STATE, 0, &p_first);
    if (result != LY_SUCCESS) {
        lyd_free_all(p_first);
        return mgmt_fail_yang(p_error, p_tree->p_context, MGMT_ERR_BADTYPE, "");
    }
    lyd_free_all(p_tree->p_first);
    p_tree->p_first = p_first;
    mgmt_tree_changed(p_tree);
    return true;
}
