#include "platform/confd/double/confd_double.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ostream>

#include "platform/confd/confd_cdb.h"
#include "platform/confd/confd_maapi.h"

static bool operator==(const t_confd_call &a, const t_confd_call &b)
{
    return a.function == b.function && a.sock == b.sock && a.text == b.text;
}

static std::ostream &operator<<(std::ostream &out, const t_confd_call &call)
{
    return out << call.function << '(' << call.sock << ", \"" << call.text << "\")";
}

namespace {

class ConfdDouble : public testing::Test {
protected:
    void SetUp() override
    {
        confd_double_reset();
    }
};

}  // namespace

TEST_F(ConfdDouble, RecordsEveryCallWithItsFormattedText)
{
    int16_t value = 0;
    cdb_start_session2(5, CDB_RUNNING, CDB_LOCK_SESSION | CDB_LOCK_WAIT);
    cdb_get_int16(5, &value, "/policy/data-policy{%s}/seq{%d}", "branch", 10);
    cdb_end_session(5);
    maapi_cli_printf(6, 1, "%-5s\n", "text");
    static const t_confd_call calls[] = {
        {"cdb_start_session2", 5, ""},
        {"cdb_get_int16", 5, "/policy/data-policy{branch}/seq{10}"},
        {"cdb_end_session", 5, ""},
        {"maapi_cli_printf", 6, "text \n"},
    };
    EXPECT_EQ(confd_double_calls(), std::vector<t_confd_call>(std::begin(calls), std::end(calls)));
    confd_double_reset();
    EXPECT_EQ(confd_double_calls().size(), 0u);
    EXPECT_EQ(confd_double_cli_text(1), "");
}

TEST_F(ConfdDouble, KeepsWhatEachSessionWasToldAtAnyLength)
{
    std::string longer(5000, 'x');
    EXPECT_EQ(maapi_cli_printf(6, 1, "one, "), CONFD_OK);
    EXPECT_EQ(maapi_cli_printf(6, 2, "%s", longer.c_str()), CONFD_OK);
    EXPECT_EQ(maapi_cli_printf(6, 1, "two"), CONFD_OK);
    EXPECT_EQ(confd_double_cli_text(1), "one, two");
    EXPECT_EQ(confd_double_cli_text(2), longer);
    EXPECT_EQ(confd_double_cli_text(3), "");
}

TEST_F(ConfdDouble, ReadingsComeFromTheScriptAndLeaveTheOutputAloneWithoutOne)
{
    confd_double_set_int16("/a/b", -7);
    int16_t value = 3;
    EXPECT_EQ(cdb_get_int16(1, &value, "/a/%s", "c"), CONFD_ERR);
    EXPECT_EQ(value, 3);
    EXPECT_EQ(cdb_get_int16(1, &value, "/a/%s", "b"), CONFD_OK);
    EXPECT_EQ(value, -7);
}

TEST_F(ConfdDouble, FailsAsOftenAsTheTestSays)
{
    int16_t value = 3;
    confd_double_set_int16("/a", 1);
    confd_double_fail("cdb_start_session2", 2);
    confd_double_fail("cdb_get_int16", 1);
    confd_double_fail("maapi_cli_printf", 1);
    confd_double_fail("cdb_end_session", 1);
    EXPECT_EQ(cdb_start_session2(1, CDB_RUNNING, 0), CONFD_ERR);
    EXPECT_EQ(cdb_start_session2(1, CDB_RUNNING, 0), CONFD_ERR);
    EXPECT_EQ(cdb_start_session2(1, CDB_RUNNING, 0), CONFD_OK);
    EXPECT_EQ(cdb_get_int16(1, &value, "/a"), CONFD_ERR);
    EXPECT_EQ(value, 3);
    EXPECT_EQ(cdb_get_int16(1, &value, "/a"), CONFD_OK);
    EXPECT_EQ(maapi_cli_printf(1, 1, "lost"), CONFD_ERR);
    EXPECT_EQ(confd_double_cli_text(1), "");
    EXPECT_EQ(cdb_end_session(1), CONFD_ERR);
    EXPECT_EQ(confd_double_calls().size(), 7u) << "failed calls are recorded, too";
}

TEST_F(ConfdDouble, KnowsTheTextsOfScriptedTypes)
{
    confd_double_add_type(0x1234, "color", {"default", "mpls"});
    EXPECT_EQ(confd_find_ns_type(0x1234, "encap"), nullptr);
    EXPECT_EQ(confd_find_ns_type(0x1235, "color"), nullptr);
    confd_type *p_type = confd_find_ns_type(0x1234, "color");
    ASSERT_NE(p_type, nullptr);

    char text[16] = "untouched";
    confd_value_t value = {.type = C_ENUM_VALUE, .val = {.enumvalue = 1}};
    EXPECT_EQ(confd_val2str(p_type, &value, text, sizeof(text)), 4);
    EXPECT_STREQ(text, "mpls");
    EXPECT_EQ(confd_val2str(p_type, &value, text, 3), 4) << "the whole length, whatever fits";
    EXPECT_STREQ(text, "mp");
    for (int32_t unknown : {2, -1}) {
        value.val.enumvalue = unknown;
        EXPECT_EQ(confd_val2str(p_type, &value, text, sizeof(text)), CONFD_ERR);
    }
    EXPECT_EQ(confd_val2str(nullptr, &value, text, sizeof(text)), CONFD_ERR);
    confd_double_fail("confd_find_ns_type", 1);
    EXPECT_EQ(confd_find_ns_type(0x1234, "color"), nullptr);
}
