#include "lab/control/lab_answer.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

TEST(LabAnswerShortTest, TextHasALineForEachMemberAndATableForWhatRepeats)
{
    nlohmann::ordered_json answer = {
        {"ok", true},
        {"request", "load"},
        {"name", "a\nb"},
        {"empty", nlohmann::ordered_json::array()},
        {"filters", {{{"filter", 3}, {"valid", true}}, {{"filter", 12}, {"error", "x y"}}}},
        {"actions", {{{"slot", 0}, {"action", "count"}, {"name", "web"}, {"packets", 2}}}}};
    EXPECT_EQ(lab_answer_text(answer), "name: a?b\n"
                                       "empty: none\n"
                                       "filters:\n"
                                       "  filter  valid  error\n"
                                       "  3       yes    -\n"
                                       "  12      -      x y\n"
                                       "actions:\n"
                                       "  0: count name=web packets=2\n");
    EXPECT_EQ(lab_answer_text(lab_answer_refusal("no")), "error: no\n");
    EXPECT_EQ(lab_answer_line({{"name", "\xff"}}), "{\"name\":\"\xef\xbf\xbd\"}");
}
