#include "mgmtd/rights/mgmt_users.h"

#include <gtest/gtest.h>

static mgmt_work_tree_ptr config_of(const std::string &user, t_mgmt_error *p_error)
{
    static std::string reason;
    static std::vector<std::string> errors;
    static const schema_context_ptr context = schema_context_new(YANG_MODULE_FOLDER, &reason);
    static const std::unique_ptr<const t_schema_index> index = schema_index_new(context.get(), &errors);
    mgmt_work_tree_ptr tree = mgmt_tree_new(index.get(), context.get());
    bool is_good =
        mgmt_tree_read(tree.get(), R"({"lumora-system:users":{"user":[)" + user + "]}}", p_error) &&
        mgmt_tree_validate(tree.get(), p_error);
    return is_good ? tree : nullptr;
}

// Made by openssl passwd and by perl's crypt.
static const std::string sha512_of_secret =
    "$6$saltsalt$TVLlQcbpFVof5W3Yz4DTP6gRstiNuHwwTt6GLc1E5n0U0aDehy0S5knV8wiOQSpT0Y77vwPZN.Pq.H91p5hVO1";
static const std::string yescrypt_of_secret =
    "$y$j9T$abcdefghijklmnop$3dL1LkYnZM.OVXuVdnnaKVDlLYT92dRwOzDZ5XiVCe.";

TEST(MgmtUsers, PasswordsFitTheirHashesAlone)
{
    std::string made = mgmt_password_hash("secret");
    EXPECT_TRUE(made.starts_with("$y$"));
    EXPECT_NE(made, mgmt_password_hash("secret")) << "salts are fresh";
    static const struct {
        std::string hash;
        std::string password;
        bool fits;
    } rows[] = {
        {made, "secret", true},
        {made, "secret ", false},
        {made, std::string("secret\0x", 8), false},
        {sha512_of_secret, "secret", true},
        {sha512_of_secret, "Secret", false},
        {yescrypt_of_secret, "secret", true},
        {yescrypt_of_secret, "", false},
        {"", "", false},
        {"", "secret", false},
        {"*0", "secret", false},
        {"$0$secret", "secret", false},
        {"secret", "secret", false},
        {made.substr(0, made.size() - 1), "secret", false},
        {made, std::string(10000, 'a'), false},
    };
    for (const auto &row : rows)
        EXPECT_EQ(mgmt_password_fits(row.hash, row.password), row.fits) << row.hash << " " << row.password;
}

TEST(MgmtUsers, AreFoundInTheConfigurationAndWhatCanNotServeIsRefused)
{
    t_mgmt_error error;
    std::string key = std::string(68, 'A');
    mgmt_work_tree_ptr tree =
        config_of(R"({"name":"ann","group":"operator","password":")" + mgmt_password_hash("x") +
                      R"(","authorized-key":[{"name":"laptop","algorithm":"ssh-ed25519",)"
                      R"("key-data":")" +
                      key + R"("}]},{"name":"bob"})",
                  &error);
    ASSERT_NE(tree, nullptr) << mgmt_error_text(error);
    t_mgmt_login login;
    ASSERT_TRUE(mgmt_user_find(*tree, "ann", &login));
    EXPECT_TRUE(mgmt_password_fits(login.password_hash, "x"));
    ASSERT_EQ(login.keys.size(), 1u);
    EXPECT_EQ(login.keys[0], (std::pair<std::string, std::string>("ssh-ed25519", key)));
    ASSERT_TRUE(mgmt_user_find(*tree, "bob", &login));
    EXPECT_TRUE(login.password_hash.empty() && login.keys.empty());
    EXPECT_FALSE(mgmt_user_find(*tree, "ann' or '1'='1", &login));

    static const struct {
        const char *p_user;
        const char *p_reason;
    } rows[] = {
        {R"({"name":"a","password":"$0$secret"})", "given as its hash"},
        {R"({"name":"a","password":"secret"})", "given as its hash"},
        {R"({"name":"a","password":"$1$abcdefgh$abcdefghijklmnopqrstuv"})", "given as its hash"},
        {R"({"name":"a b"})", "letters, digits"},
        {R"({"name":"a","group":"root"})", "enumeration"},
        {R"({"name":"a","authorized-key":[{"name":"k","algorithm":"ssh-dss","key-data":"AAAAAAAAAAAAAAAA"}]})",
         "enumeration"},
        {R"({"name":"a","authorized-key":[{"name":"k","algorithm":"ssh-rsa","key-data":"AAAA AAAA AAAA AAAA"}]})",
         "base64"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(config_of(row.p_user, &error), nullptr) << row.p_user;
        EXPECT_NE(error.reason.find(row.p_reason), std::string::npos) << mgmt_error_text(error);
    }
}
