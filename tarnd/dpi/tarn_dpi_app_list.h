// Application lists: records and orders.
#pragma once

#include "platform/avl/avl.h"
#include "tarnd/config/tarn_policy.h"

#include <cstdint>

struct t_tarn_access_list;

enum e_tarn_dpi_app_list_loc_type : uint32_t {
    TARN_DPI_KEY_LOC_INVALID = 0,
    TARN_DPI_KEY_LOC_LOCAL = 1,
    TARN_DPI_KEY_LOC_KEELSON = 2,
    TARN_DPI_KEY_LOC_MAX = 3,
};

enum e_tarn_dpi_app_list_type : uint32_t {
    TARN_DPI_TYPE_INVALID = 0,
    TARN_DPI_TYPE_APP = 1,
    TARN_DPI_TYPE_APP_FAMILY = 2,
    TARN_DPI_TYPE_MAX = 3,
};

struct t_tarn_dpi_app {
    avl_node_t avl_node;
    uint32_t id;  // of the application, or the family's enumerator
    char name[TARN_NAME_SIZE];
};

struct t_tarn_dpi_app_list_key {
    char name[TARN_NAME_SIZE];
    e_tarn_dpi_app_list_loc_type location;
};

struct t_tarn_dpi_app_list {
    avl_node_t avl_node;
    t_tarn_dpi_app_list_key key;
    e_tarn_dpi_app_list_type type;
    avl_tree_t app_db;          // t_tarn_dpi_app
    avl_tree_t vpn_list_db;     // t_tarn_dpi_policy_vpn_list_ctx
    avl_tree_t access_list_db;  // t_tarn_dpi_access_list_ctx
};

// In a context or an access list: a list that it uses.
struct t_tarn_dpi_app_ctx {
    avl_node_t avl_node;
    t_tarn_dpi_app_list *p_app_list;
    uint16_t ref_count;
};

// In a list: an access list that uses it.
struct t_tarn_dpi_access_list_ctx {
    avl_node_t avl_node;
    t_tarn_access_list *p_access_list;
    uint16_t ref_count;
};

// In a list: a context that uses it.
struct t_tarn_dpi_policy_vpn_list_ctx {
    avl_node_t avl_node;
    t_tarn_vpn_list_key2 key;
    uint16_t ref_count;
};

int tarn_dpi_app_cmp(const void *p_key, const void *p_object);              // id
int tarn_dpi_app_list_cmp(const void *p_key, const void *p_object);         // name length, name, location
int tarn_dpi_app_list_ctx_cmp(const void *p_key, const void *p_object);     // the same on p_app_list
int tarn_dpi_vpn_list_ctx_cmp(const void *p_key, const void *p_object);     // type, policy, list
int tarn_dpi_access_list_ctx_cmp(const void *p_key, const void *p_object);  // the access lists' keys
