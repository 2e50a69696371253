// Inside of the rights: what a configuration is compiled to, and the verdict on one access.
#pragma once

#include "mgmtd/rights/mgmt_rights.h"

#include <atomic>
#include <libyang/libyang.h>
#include <unordered_set>

// Kinds of access, as bits.
enum e_access : unsigned int {
    ACCESS_CREATE = 1 << 0,
    ACCESS_READ = 1 << 1,
    ACCESS_UPDATE = 1 << 2,
    ACCESS_DELETE = 1 << 3,
    ACCESS_EXEC = 1 << 4,
    ACCESS_ALL = (1 << 5) - 1,
};

inline constexpr unsigned int ACCESS_WRITE = ACCESS_CREATE | ACCESS_UPDATE | ACCESS_DELETE;

// One step of a rule's path. The value of a leaf-list's element stands beside the step's own node.
struct t_rule_step {
    const lysc_node *p_node;
    std::vector<std::pair<const lysc_node *, std::string>> keys;  // those that the rule names
};

enum e_rule_kind { RULE_ANY, RULE_RPC, RULE_NOTIFICATION, RULE_PATH, RULE_NEVER };

struct t_rule {
    e_rule_kind kind;                // RULE_NEVER: names what the model does not have
    std::string name;                // of the rpc or notification; "*": any
    std::vector<t_rule_step> steps;  // of a path; none: everything
    bool has_keys;                   // some step names keys
    std::string module;              // "*": any
    unsigned int access;             // e_access
    bool is_permit;
};

struct t_rule_list {
    std::vector<std::string> groups;  // "*": every group
    std::vector<t_rule> rules;
};

struct t_denials {
    std::atomic<uint32_t> operations = 0;
    std::atomic<uint32_t> writes = 0;
    std::atomic<uint32_t> notifications = 0;
};

struct t_mgmt_rights {
    const t_schema_index *p_schema = nullptr;
    bool permits_read = false;  // the three defaults
    bool permits_write = false;
    bool permits_exec = false;
    std::vector<t_rule_list> lists;  // none while rules are switched off
    std::map<std::string, std::vector<std::string>> groups_by_user;
    std::unordered_set<const lysc_node *> denied;        // marked default-deny-all, or below such a node
    std::unordered_set<const lysc_node *> denied_write;  // the same of default-deny-write
    std::shared_ptr<t_denials> denials;                  // handed on from rights to rights
};

// ---- Verdicts ----

enum e_verdict {
    VERDICT_PERMIT,
    VERDICT_DENY_RULE,  // a rule says so: nothing below is given either
    VERDICT_DENY,       // nothing says anything else
    VERDICT_DEPENDS,    // on the instance, and there was none to look at
};

// Who asks, and the rules that are for them, in their order.
struct t_asker {
    const t_mgmt_rights &rights;
    std::vector<const t_rule *> rules;
    bool is_anybody;  // has a group
    bool is_admin;
    bool is_operator;
    bool is_reader;  // has one of the built-in groups
};

t_asker rights_asker(const t_mgmt_rights &rights, const t_mgmt_subject &subject);

// Whether the asker is an administrator whom no rule denies any of the access.
bool rights_all(const t_asker &asker, unsigned int access);

// The verdict on reading or changing a data node. p_node null: on all instances together.
e_verdict rights_data(const t_asker &asker, e_access access, const lysc_node *p_schema,
                      const lyd_node *p_node);

// ---- Paths of rules ----

// Reads an instance identifier into the rule's steps. False if the model has no such node.
bool rule_path_read(const t_mgmt_tree &config, const std::string &text, t_rule *p_rule);

// Whether a rule's path leads to the node or to one around it. p_node null: VERDICT_DEPENDS where keys
// decide. PERMIT stands for yes and DENY for no.
e_verdict rule_path_matches(const t_rule &rule, const lysc_node *p_schema, const lyd_node *p_node);
