#include "mgmtd/rpc/rpc_filter.h"

#include "mgmtd/rpc/mgmt_rpc_private.h"
#include "mgmtd/rpc/rpc_filter_private.h"

#include <algorithm>

static constexpr const char *base_namespace = "urn:ietf:params:xml:ns:netconf:base:1.0";
static constexpr size_t max_xpath_size = 4096;  // bytes

// ---- Elements ----

bool rpc_is_content_match(const t_rpc_element &element)
{
    return element.children.empty() && !element.text.empty();
}

bool rpc_is_in_module(const t_rpc_element &element, const lys_module *p_module)
{
    return element.ns.empty() || element.ns == base_namespace || element.ns == p_module->ns ||
           element.ns == p_module->name;
}

bool rpc_element_is(const t_rpc_element &element, const lysc_node *p_node)
{
    return element.name == p_node->name && rpc_is_in_module(element, p_node->module);
}

// ---- Reading ----

static size_t element_count(const std::vector<t_rpc_element> &elements)
{
    size_t count = elements.size();
    for (const t_rpc_element &element : elements)
        count += element_count(element.children);
    return count;
}

static const char *meta_find(const lyd_node *p_node, const char *name)
{
    for (const lyd_meta *p_meta = p_node->meta; p_meta != nullptr; p_meta = p_meta->next)
        if (strcmp(p_meta->name, name) == 0)
            return lyd_get_meta_value(p_meta);
    return nullptr;
}

static bool xpath_read(const lyd_node *p_node, t_rpc_filter *p_filter, t_mgmt_rpc_error *p_error)
{
    const char *p_select = meta_find(p_node, "select");
    p_filter->kind = RPC_FILTER_XPATH;
    p_filter->xpath = p_select != nullptr ? p_select : "";
    if (p_filter->xpath.empty()) {
        *p_error = rpc_error("protocol", "missing-attribute", "a filter of type xpath needs select");
        p_error->info = {{"bad-attribute", "select"}, {"bad-element", "filter"}};
        return false;
    }
    if (p_filter->xpath.size() <= max_xpath_size)
        return true;
    *p_error = rpc_error("protocol", "too-big", "the XPath of the filter is too long");
    return false;
}

bool rpc_filter_read(const lyd_node *p_operation, t_rpc_filter *p_filter, t_mgmt_rpc_error *p_error)
{
    const lyd_node *p_node = rpc_child(p_operation, "filter");
    if (p_node == nullptr)
        return true;
    const char *p_type = meta_find(p_node, "type");
    if (p_type != nullptr && strcmp(p_type, "xpath") == 0)
        return xpath_read(p_node, p_filter, p_error);
    p_filter->kind = RPC_FILTER_SUBTREE;
    if (!rpc_elements_read(p_node, &p_filter->tops, p_error))
        return false;
    if (element_count(p_filter->tops) <= RPC_MAX_FILTER_ELEMENTS)
        return true;
    *p_error = rpc_error("protocol", "too-big", "the filter has too many elements");
    return false;
}

// ---- Marks ----

void rpc_mark(const lyd_node *p_node, t_rpc_marks *p_marks)
{
    (*p_marks)[p_node] = RPC_MARK_WHOLE;
    for (p_node = lyd_parent(p_node); p_node != nullptr; p_node = lyd_parent(p_node))
        if (!p_marks->try_emplace(p_node, RPC_MARK_PART).second)
            return;
}

static bool value_is(const lyd_node *p_node, const std::string &text)
{
    if ((p_node->schema->nodetype & LYD_NODE_TERM) == 0)
        return false;
    auto p_term = reinterpret_cast<const lyd_node_term *>(p_node);
    const char *p_value = lyd_get_value(p_node);
    if (text == p_value || lyd_value_compare(p_term, text.data(), text.size()) == LY_SUCCESS)
        return true;
    // An identity's prefix is the request's own; its name is enough.
    if (reinterpret_cast<const lysc_node_leaf *>(p_node->schema)->type->basetype != LY_TYPE_IDENT)
        return false;
    auto name_of = [](std::string_view value) { return value.substr(value.find(':') + 1); };
    return name_of(text) == name_of(p_value);
}

static void siblings_mark(const std::vector<t_rpc_element> &elements, const lyd_node *p_first,
                          const lyd_node *p_parent, t_rpc_marks *p_marks);

static void element_mark(const t_rpc_element &element, const lyd_node *p_node, t_rpc_marks *p_marks)
{
    if (element.children.empty())
        rpc_mark(p_node, p_marks);
    else
        siblings_mark(element.children, lyd_child(p_node), p_node, p_marks);
}

// Whether all content matches among the elements hold; marks their leaves.
static bool content_matches(const std::vector<t_rpc_element> &elements, const lyd_node *p_first,
                            std::vector<const lyd_node *> *p_found)
{
    for (const t_rpc_element &element : elements) {
        if (!rpc_is_content_match(element))
            continue;
        const lyd_node *p_node = p_first;
        while (p_node != nullptr && !(element.attributes.empty() && rpc_element_is(element, p_node->schema) &&
                                      value_is(p_node, element.text)))
            p_node = p_node->next;
        if (p_node == nullptr)
            return false;
        p_found->push_back(p_node);
    }
    return true;
}

// Marks what a set of sibling elements selects among the children of one parent. Data has no attributes, so
// an element with one selects nothing.
static void siblings_mark(const std::vector<t_rpc_element> &elements, const lyd_node *p_first,
                          const lyd_node *p_parent, t_rpc_marks *p_marks)
{
    std::vector<const lyd_node *> found;
    if (!content_matches(elements, p_first, &found))
        return;
    if (found.size() == elements.size() && p_parent != nullptr) {
        rpc_mark(p_parent, p_marks);
        return;
    }
    for (const lyd_node *p_node : found)
        rpc_mark(p_node, p_marks);
    for (const t_rpc_element &element : elements) {
        if (rpc_is_content_match(element) || !element.attributes.empty())
            continue;
        for (const lyd_node *p_node = p_first; p_node != nullptr; p_node = p_node->next)
            if (rpc_element_is(element, p_node->schema))
                element_mark(element, p_node, p_marks);
    }
}

static bool xpath_mark(const std::string &xpath, const lyd_node *p_tree, t_rpc_marks *p_marks)
{
    ly_set *p_set = nullptr;
    if (lyd_find_xpath3(nullptr, p_tree, xpath.c_str(), nullptr, &p_set) != LY_SUCCESS)
        return false;
    for (uint32_t i = 0; i < p_set->count; i++)
        rpc_mark(p_set->dnodes[i], p_marks);
    ly_set_free(p_set, nullptr);
    return true;
}

static bool filter_mark(const t_rpc_filter &filter, const lyd_node *p_tree, t_rpc_marks *p_marks)
{
    if (filter.kind == RPC_FILTER_XPATH)
        return xpath_mark(filter.xpath, p_tree, p_marks);
    siblings_mark(filter.tops, p_tree, nullptr, p_marks);
    return true;
}

// ---- Applying ----

// Frees the siblings that are not marked; gives the first that remains.
static lyd_node *prune(lyd_node *p_first, const t_rpc_marks &marks)
{
    lyd_node *p_kept = nullptr;
    for (lyd_node *p_node = p_first; p_node != nullptr;) {
        lyd_node *p_next = p_node->next;
        auto mark = marks.find(p_node);
        if (mark == marks.end() && !lysc_is_key(p_node->schema)) {
            lyd_free_tree(p_node);
        } else {
            p_kept = p_kept == nullptr ? p_node : p_kept;
            if (mark != marks.end() && mark->second == RPC_MARK_PART)
                prune(lyd_child(p_node), marks);
        }
        p_node = p_next;
    }
    return p_kept;
}

bool rpc_filter_apply(const t_rpc_filter &filter, const ly_ctx *p_context, lyd_ptr *p_tree,
                      t_mgmt_rpc_error *p_error)
{
    if (filter.kind == RPC_FILTER_NONE || *p_tree == nullptr)
        return true;
    t_rpc_marks marks;
    if (!filter_mark(filter, p_tree->get(), &marks)) {
        const char *p_reason = ly_errmsg(p_context);
        *p_error = rpc_error("protocol", "bad-attribute",
                             std::string("the XPath of the filter can't be evaluated: ") +
                                 (p_reason != nullptr ? p_reason : filter.xpath.c_str()));
        p_error->info = {{"bad-attribute", "select"}, {"bad-element", "filter"}};
        return false;
    }
    p_tree->reset(prune(p_tree->release(), marks));
    return true;
}

bool rpc_filter_matches(const t_rpc_filter &filter, const lyd_node *p_notification)
{
    t_rpc_marks marks;
    return filter.kind == RPC_FILTER_NONE || (filter_mark(filter, p_notification, &marks) && !marks.empty());
}
