// Numbers of forwarding classes and SLA classes.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "tarnd/config/tarn_bit_string.h"
#include "tarnd/config/tarn_class.h"
#include "tests/support/tarn_store.h"

static int add_class(TarnStore *p_store, const std::string &name)
{
    t_tarn_class_params params = {name.c_str(), 1};
    return tarn_class_add(&p_store->tarn, &params);
}

static int class_number(TarnStore *p_store, const std::string &name)
{
    const t_tarn_class *p_class = tarn_class_lookup(&p_store->tarn, name.c_str());
    return p_class != nullptr ? p_class->_class : -1;
}

TEST(BitString, TheLowestBitOfAValueButNeverInAFullByte)
{
    static const struct {
        bitstr_t bits[3];
        int size;
        int clear;
        int set;
    } cases[] = {
        {{0x00, 0x00, 0x00}, 24, 0, -1},  {{0x01, 0x00, 0x00}, 24, 1, 0},   {{0xff, 0x00, 0x00}, 24, 8, -1},
        {{0xff, 0xff, 0x7f}, 24, 23, 16}, {{0xff, 0xff, 0xff}, 24, -1, -1}, {{0x7f, 0xff, 0xff}, 7, -1, 0},
        {{0xff, 0xfe, 0x00}, 16, 8, 9},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(&c - cases);
        EXPECT_EQ(bit_check(c.bits, c.size, 0), c.clear);
        EXPECT_EQ(bit_check(c.bits, c.size, 1), c.set);
    }
}

TEST(Class, SeventyTwoNumbersLowestFirst)
{
    TarnStore store;
    EXPECT_EQ(class_number(&store, TARN_CONTROL_CLASS), 0);
    for (int i = 1; i < TARN_NUM_CLASSES; i++) {
        EXPECT_EQ(add_class(&store, "class" + std::to_string(i)), 0);
        EXPECT_EQ(class_number(&store, "class" + std::to_string(i)), i);
    }
    tarn_class_config(&store.tarn);  // its table is shorter than the numbers
    EXPECT_EQ(add_class(&store, "more"), ENOMEM);
    EXPECT_EQ(class_number(&store, "more"), -1);
    for (const char *name : {"class44", "class5"}) {
        t_tarn_class_params params = {name, 0};
        EXPECT_EQ(tarn_class_delete(&store.tarn, &params), 0);
    }
    EXPECT_EQ(add_class(&store, "more"), 0);
    EXPECT_EQ(class_number(&store, "more"), 5);
}

TEST(Class, NamesAreCutToThirtyTwoCharacters)
{
    TarnStore store;
    std::string longest(32, 'x');
    EXPECT_EQ(add_class(&store, longest + "y"), 0);
    EXPECT_EQ(add_class(&store, longest), EEXIST);
    EXPECT_EQ(add_class(&store, longest + "z"), EEXIST);
    EXPECT_EQ(class_number(&store, longest + "other"), 1);
    EXPECT_EQ(add_class(&store, longest.substr(1)), 0);
}

TEST(SlaClass, EightIdsLowestFirst)
{
    TarnStore store;
    t_tarn_sla_class *p_found = nullptr;
    EXPECT_EQ(tarn_sla_class_lookup(&store.tarn, TARN_ALL_TUNNELS, &p_found), 0);
    EXPECT_EQ(p_found->id, 0);
    for (int i = 1; i < TARN_NUM_SLA_CLASSES; i++)
        EXPECT_EQ(tarn_sla_class_add(&store.tarn, ("sla" + std::to_string(i)).c_str()), 0);
    EXPECT_EQ(tarn_sla_class_add(&store.tarn, "more"), ENOMEM);
    EXPECT_EQ(tarn_sla_class_add(&store.tarn, "sla3"), EEXIST);
    EXPECT_EQ(tarn_sla_class_delete(&store.tarn, "sla3"), 0);
    EXPECT_EQ(tarn_sla_class_delete(&store.tarn, "sla3"), ENOENT);
    EXPECT_EQ(tarn_sla_class_add(&store.tarn, "more"), 0);
    EXPECT_EQ(tarn_sla_class_lookup(&store.tarn, "more", &p_found), 0);
    EXPECT_EQ(p_found->id, 3);
    EXPECT_EQ(tarn_sla_class_lookup(&store.tarn, "more", nullptr), EBADMSG);
    EXPECT_EQ(tarn_sla_class_lookup(&store.tarn, "sla3", &p_found), ENOENT);
    EXPECT_EQ(p_found->id, 3) << "an output stays on failure";
}
