// The surface: who lives, what fails with which code, and the catalogue that is linked in.
#include "classification/qmdpi.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

static const char daemon_config[] = "injection_mode=packet;nb_workers=0;nb_flows=1";

class Qmdpi : public testing::Test {
protected:
    void SetUp() override
    {
        p_engine = qmdpi_engine_create(daemon_config);
        ASSERT_NE(p_engine, nullptr);
        p_bundle = qmdpi_bundle_create_from_file(p_engine, nullptr);
        ASSERT_NE(p_bundle, nullptr);
    }
    void TearDown() override
    {
        EXPECT_EQ(qmdpi_bundle_destroy(p_bundle), 0);
        EXPECT_EQ(qmdpi_engine_destroy(p_engine), 0);
    }

    qmdpi_engine *p_engine = nullptr;
    qmdpi_bundle *p_bundle = nullptr;
};

static int keep_signature(qmdpi_bundle *, qmdpi_signature *signature, void *arg)
{
    static_cast<std::vector<qmdpi_signature *> *>(arg)->push_back(signature);
    return -1;  // must not end the walk
}

static int keep_attribute(qmdpi_bundle *, const char *name, const qmdpi_attr *attr, void *arg)
{
    static_cast<std::vector<std::string> *>(arg)->push_back(std::string(name) + ' ' +
                                                            qmdpi_attr_name_get(attr));
    return -1;
}

TEST_F(Qmdpi, EveryApplicationOfTheCatalogueIsFoundBothWays)
{
    std::vector<qmdpi_signature *> signatures;
    ASSERT_EQ(qmdpi_bundle_signature_foreach(p_bundle, keep_signature, &signatures), 0);
    EXPECT_GE(signatures.size(), 400u);
    std::set<std::string> families;
    for (qmdpi_signature *p_signature : signatures) {
        int id = qmdpi_signature_id_get(p_signature);
        const char *name = qmdpi_signature_name_get(p_signature);
        EXPECT_TRUE(id >= 2 && id < 4000) << name;
        EXPECT_EQ(qmdpi_bundle_signature_get_byid(p_bundle, id), p_signature) << name;
        EXPECT_EQ(qmdpi_bundle_signature_get_byname(p_bundle, name), p_signature) << name;
        EXPECT_STRNE(qmdpi_signature_longname_get(p_signature), "") << name;
        families.insert(qmdpi_signature_family_get(p_signature));
        std::vector<std::string> attributes;
        EXPECT_EQ(qmdpi_bundle_attr_foreach(p_bundle, name, keep_attribute, &attributes), 0);
        EXPECT_TRUE(attributes.size() == 2 || attributes.size() == 3) << name;
    }
    EXPECT_EQ(families.size(), 31u);
    EXPECT_STREQ(qmdpi_bundle_version_get_string(p_bundle), "Lumora application catalogue 1.0");
}

TEST_F(Qmdpi, LifeOfEnginesAndBundles)
{
    EXPECT_EQ(qmdpi_bundle_signature_enable_all(p_bundle), 0);
    EXPECT_EQ(qmdpi_bundle_activate(p_bundle), 0);
    EXPECT_EQ(qmdpi_bundle_activate(p_bundle), -1) << "already active";
    EXPECT_EQ(qmdpi_engine_destroy(p_engine), -6) << "in use";
    qmdpi_bundle *p_second = qmdpi_bundle_create_from_file(p_engine, nullptr);
    EXPECT_EQ(qmdpi_bundle_activate(p_second), 0) << "takes the place of the other";
    EXPECT_EQ(qmdpi_bundle_activate(p_bundle), 0);
    EXPECT_EQ(qmdpi_bundle_destroy(p_bundle), 0);
    EXPECT_EQ(qmdpi_bundle_activate(p_second), 0);
    p_bundle = p_second;
}

TEST_F(Qmdpi, BadArgumentsAndUnknownNames)
{
    qmdpi_engine *p_gone_engine = qmdpi_engine_create(nullptr);
    qmdpi_bundle *p_gone = qmdpi_bundle_create_from_file(p_gone_engine, nullptr);
    qmdpi_signature *p_gone_signature = qmdpi_bundle_signature_get_byid(p_gone, 2);
    ASSERT_EQ(qmdpi_bundle_destroy(p_gone), 0);
    ASSERT_EQ(qmdpi_engine_destroy(p_gone_engine), 0);
    char inside = 0;
    void *p_foreign = &inside;
    qmdpi_signature *p_signature = qmdpi_bundle_signature_get_byid(p_bundle, 2);
    void *p_crooked = reinterpret_cast<char *>(p_signature) + 1;

    EXPECT_EQ(qmdpi_bundle_signature_get_byid(p_bundle, 1), nullptr);
    EXPECT_EQ(qmdpi_error_get(), -8);
    const auto expect_refused = [&](bool is_refused, const char *what) {
        EXPECT_TRUE(is_refused && qmdpi_error_get() == -1) << what;
        EXPECT_EQ(qmdpi_bundle_signature_get_byname(p_bundle, "no such"), nullptr);
        EXPECT_EQ(qmdpi_error_get(), -8) << "unlike what the next one leaves";
    };
    for (qmdpi_engine *p :
         {static_cast<qmdpi_engine *>(nullptr), p_gone_engine, static_cast<qmdpi_engine *>(p_foreign)}) {
        expect_refused(qmdpi_engine_destroy(p) == -1, "destroy engine");
        expect_refused(qmdpi_bundle_create_from_file(p, nullptr) == nullptr, "create bundle");
    }
    for (qmdpi_bundle *p :
         {static_cast<qmdpi_bundle *>(nullptr), p_gone, static_cast<qmdpi_bundle *>(p_foreign)}) {
        expect_refused(qmdpi_bundle_destroy(p) == -1, "destroy");
        expect_refused(qmdpi_bundle_signature_enable_all(p) == -1, "enable");
        expect_refused(qmdpi_bundle_activate(p) == -1, "activate");
        expect_refused(qmdpi_bundle_version_get_string(p) == nullptr, "version");
        expect_refused(qmdpi_bundle_signature_get_byid(p, 2) == nullptr, "by id");
        expect_refused(qmdpi_bundle_signature_get_byname(p, "http") == nullptr, "by name");
        expect_refused(qmdpi_bundle_signature_foreach(p, keep_signature, nullptr) == -1, "walk");
        expect_refused(qmdpi_bundle_attr_foreach(p, "http", keep_attribute, nullptr) == -1, "attributes");
    }
    for (qmdpi_signature *p : {static_cast<qmdpi_signature *>(nullptr), p_gone_signature,
                               static_cast<qmdpi_signature *>(p_crooked)}) {
        expect_refused(qmdpi_signature_id_get(p) == 0, "id");
        expect_refused(qmdpi_signature_name_get(p) == nullptr, "name");
        expect_refused(qmdpi_signature_longname_get(p) == nullptr, "long name");
        expect_refused(qmdpi_signature_family_get(p) == nullptr, "family");
    }
    expect_refused(qmdpi_attr_name_get(nullptr) == nullptr, "attribute");
    expect_refused(qmdpi_bundle_signature_get_byname(p_bundle, nullptr) == nullptr, "null name");
    expect_refused(qmdpi_bundle_signature_foreach(p_bundle, nullptr, nullptr) == -1, "null callback");
    expect_refused(qmdpi_bundle_attr_foreach(p_bundle, "http", nullptr, nullptr) == -1, "null callback");
    expect_refused(qmdpi_bundle_attr_foreach(p_bundle, nullptr, keep_attribute, nullptr) == -1, "null name");
    EXPECT_EQ(qmdpi_bundle_attr_foreach(p_bundle, "no such", keep_attribute, nullptr), -8);
}

TEST_F(Qmdpi, TheLastErrorIsTheThreads)
{
    EXPECT_EQ(qmdpi_engine_destroy(nullptr), -1);
    int other = 99;
    std::thread([&] { other = qmdpi_error_get(); }).join();
    EXPECT_EQ(other, 0);
    EXPECT_NE(qmdpi_bundle_signature_get_byname(p_bundle, "http"), nullptr);
    EXPECT_EQ(qmdpi_error_get(), -1) << "success leaves it";
}

TEST(QmdpiEngine, ConfigurationStrings)
{
    for (const char *config : {daemon_config, "", "nb_flows=1;", static_cast<const char *>(nullptr)}) {
        qmdpi_engine *p_engine = qmdpi_engine_create(config);
        EXPECT_EQ(qmdpi_engine_destroy(p_engine), 0) << (config != nullptr ? config : "null");
    }
    for (const char *config : {"nb_flows", "nb_flows=", "nb_flows=-1", "flows=1", ";", "injection_mode=x"}) {
        EXPECT_EQ(qmdpi_engine_create(config), nullptr) << config;
        EXPECT_EQ(qmdpi_error_get(), -1) << config;
    }
}

TEST(QmdpiEngine, InstancesAreLimited)
{
    std::vector<qmdpi_engine *> engines(2048);
    for (qmdpi_engine *&p_engine : engines)
        ASSERT_NE(p_engine = qmdpi_engine_create(nullptr), nullptr);
    EXPECT_EQ(qmdpi_engine_create(nullptr), nullptr);
    EXPECT_EQ(qmdpi_error_get(), -27);
    for (qmdpi_engine *p_engine : engines)
        EXPECT_EQ(qmdpi_engine_destroy(p_engine), 0);
}

TEST_F(Qmdpi, BundlesFromFiles)
{
    static const struct {
        const char *behaviour;
        std::string text;
        int want;
    } cases[] = {
        {"a good one", "bundle | 1 | Test\nfamily | home | Home\n9 | lamp | Lamp | Home | state\n", 0},
        {"another format", "bundle | 7 | Test\n", -29},
        {"a bad line", "bundle | 1 | Test\n9 | lamp\n", -19},
        {"too large", std::string((1 << 20) + 1, '\n'), -27},
    };
    std::string path = testing::TempDir() + "bundle" + std::to_string(getpid());
    for (const auto &c : cases) {
        std::ofstream(path) << c.text;
        qmdpi_bundle *p_loaded = qmdpi_bundle_create_from_file(p_engine, path.c_str());
        EXPECT_EQ(p_loaded != nullptr, c.want == 0) << c.behaviour;
        if (p_loaded == nullptr) {
            EXPECT_EQ(qmdpi_error_get(), c.want) << c.behaviour;
            continue;
        }
        EXPECT_STREQ(qmdpi_bundle_version_get_string(p_loaded), "Test");
        EXPECT_EQ(qmdpi_signature_id_get(qmdpi_bundle_signature_get_byname(p_loaded, "lamp")), 9);
        EXPECT_EQ(qmdpi_bundle_signature_get_byname(p_loaded, "http"), nullptr);
        EXPECT_EQ(qmdpi_bundle_destroy(p_loaded), 0);
    }
    unlink(path.c_str());
    EXPECT_EQ(qmdpi_bundle_create_from_file(p_engine, path.c_str()), nullptr);
    EXPECT_EQ(qmdpi_error_get(), -8) << "gone";
    EXPECT_EQ(qmdpi_bundle_create_from_file(p_engine, "/"), nullptr);
    EXPECT_EQ(qmdpi_error_get(), -19) << "a folder";
}

TEST(QmdpiGolden, TextsOfErrorsAndExceptions)
{
    std::ostringstream texts;
    for (int code = 1; code >= -31; code--)
        texts << code << ' ' << qmdpi_error_get_string(nullptr, code) << '\n';
    for (int number = 0; number <= 10; number++)
        texts << "exception " << number << ' ' << qmdpi_exception_get_string(number) << '\n';
    std::ostringstream stored;
    stored << std::ifstream("tests/classification/golden/texts.txt").rdbuf();
    EXPECT_EQ(texts.str(), stored.str());
}
