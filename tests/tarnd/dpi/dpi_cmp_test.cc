#include "tarnd/acl/tarn_access_list.h"
#include "tarnd/dpi/tarn_dpi_app_list.h"

#include <gtest/gtest.h>

#include <cstdio>

// Every earlier object before every later one, each equal to itself.
template <typename t_object>
static void expect_order(const std::vector<t_object> &objects, f_avl_compare compare)
{
    for (size_t i = 0; i < objects.size(); i++)
        for (size_t j = 0; j < objects.size(); j++) {
            int order = compare(&objects[i], &objects[j]);
            EXPECT_EQ((order > 0) - (order < 0), (i > j) - (i < j)) << i << ' ' << j;
        }
}

static t_tarn_dpi_app app(uint32_t id)
{
    t_tarn_dpi_app object = {};
    object.id = id;
    return object;
}

static t_tarn_dpi_app_list list(const char *name, uint32_t location)
{
    t_tarn_dpi_app_list object = {};
    snprintf(object.key.name, sizeof(object.key.name), "%s", name);
    object.key.location = static_cast<e_tarn_dpi_app_list_loc_type>(location);
    return object;
}

static t_tarn_dpi_policy_vpn_list_ctx context(uint32_t type, const char *policy, const char *name)
{
    t_tarn_dpi_policy_vpn_list_ctx object = {};
    object.key.pol_type = static_cast<e_tarn_policy_type>(type);
    snprintf(object.key.pol_name, sizeof(object.key.pol_name), "%s", policy);
    snprintf(object.key.name, sizeof(object.key.name), "%s", name);
    return object;
}

static t_tarn_access_list access_list(const char *name, e_tarn_af_type af_type)
{
    t_tarn_access_list object = {};
    snprintf(object.key.name, sizeof(object.key.name), "%s", name);
    object.key.af_type = af_type;
    return object;
}

TEST(DpiOrder, OfAllTrees)
{
    expect_order<t_tarn_dpi_app>({app(0), app(1), app(0x7fffffff), app(0x80000000)}, tarn_dpi_app_cmp);

    std::vector<t_tarn_dpi_app_list> lists = {list("", 2), list("z", 0), list("z", 1), list("z", 0x80000000),
                                              list("aa", 0)};
    expect_order(lists, tarn_dpi_app_list_cmp);
    std::vector<t_tarn_dpi_app_ctx> users;
    for (t_tarn_dpi_app_list &object : lists)
        users.push_back({{}, &object, 0});
    expect_order(users, tarn_dpi_app_list_ctx_cmp);

    expect_order<t_tarn_dpi_policy_vpn_list_ctx>({context(1, "zz", "zz"), context(2, "z", "zz"),
                                                  context(2, "aa", "z"), context(2, "aa", "aa"),
                                                  context(2, "ab", ""), context(0x80000000, "", "")},
                                                 tarn_dpi_vpn_list_ctx_cmp);

    std::vector<t_tarn_access_list> access_lists = {access_list("z", TARN_AF_TYPE_IPV4),
                                                    access_list("z", TARN_AF_TYPE_IPV6),
                                                    access_list("aa", TARN_AF_TYPE_IPV4)};
    std::vector<t_tarn_dpi_access_list_ctx> contexts;
    for (t_tarn_access_list &object : access_lists)
        contexts.push_back({{}, &object, 0});
    expect_order(contexts, tarn_dpi_access_list_ctx_cmp);
}
