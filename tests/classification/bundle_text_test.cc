#include "classification/bundle_text.h"

#include <gtest/gtest.h>

#include <string>

static const std::string head = "# comment\n\nbundle | 1 | Small 1.0\nfamily | web | Web\n";

TEST(BundleText, ColumnsOfAnAcceptedText)
{
    t_bundle_content content;
    t_bundle_text_error error = {};
    std::string text = head + "  # more\nfamily|mail|Mail\n7 | a.b-c_1 |  Long name  | Mail | x, y\n"
                              "3|z|Z|Web|only";
    ASSERT_EQ(bundle_text_read(text, &content, &error), BUNDLE_TEXT_OK);
    EXPECT_EQ(content.version, "Small 1.0");
    ASSERT_EQ(content.families.size(), 2u);
    EXPECT_EQ(content.families[1].config_name + '/' + content.families[1].name, "mail/Mail");
    ASSERT_EQ(content.signatures.size(), 2u);
    const qmdpi_signature &signature = content.signatures[0];
    EXPECT_EQ(signature.id, 7);
    EXPECT_EQ(signature.name + '/' + signature.longname + '/' + signature.family, "a.b-c_1/Long name/Mail");
    ASSERT_EQ(signature.attrs.size(), 2u);
    EXPECT_EQ(signature.attrs[1].name, "y");
    EXPECT_EQ(content.signatures[1].id, 3);
}

TEST(BundleText, RefusalsNameTheLineAndLeaveTheOutputAlone)
{
    static const struct {
        const char *behaviour;
        std::string text;
        e_bundle_text_result want;
        uint32_t line;
    } cases[] = {
        {"nothing", "", BUNDLE_TEXT_BAD_VERSION, 0},
        {"comments alone", "# a\n\n", BUNDLE_TEXT_BAD_VERSION, 0},
        {"another first line", "# a\nfamily | web | Web\n", BUNDLE_TEXT_BAD_VERSION, 2},
        {"another format", "bundle | 2 | x\n", BUNDLE_TEXT_BAD_VERSION, 1},
        {"no version text", "bundle | 1 |\n", BUNDLE_TEXT_BAD_VERSION, 1},
        {"a second bundle line", head + "bundle | 1 | x\n", BUNDLE_TEXT_BAD_LINE, 5},
        {"a family twice", head + "family | web2 | Web\n", BUNDLE_TEXT_BAD_LINE, 5},
        {"upper case in configuration", head + "family | Mail | Mail\n", BUNDLE_TEXT_BAD_LINE, 5},
        {"id 1", head + "1 | a | A | Web | x\n", BUNDLE_TEXT_BAD_LINE, 5},
        {"id beyond the tables", head + "4000 | a | A | Web | x\n", BUNDLE_TEXT_BAD_LINE, 5},
        {"id with a tail", head + "12x | a | A | Web | x\n", BUNDLE_TEXT_BAD_LINE, 5},
        {"id beyond a number", head + "99999999999 | a | A | Web | x\n", BUNDLE_TEXT_BAD_LINE, 5},
        {"id twice", head + "2|a|A|Web|x\n2|b|B|Web|x\n", BUNDLE_TEXT_BAD_LINE, 6},
        {"name twice", head + "2|a|A|Web|x\n3|a|B|Web|x\n", BUNDLE_TEXT_BAD_LINE, 6},
        {"family that is not there", head + "2|a|A|Mail|x\n", BUNDLE_TEXT_BAD_LINE, 5},
        {"four columns", head + "2|a|A|Web\n", BUNDLE_TEXT_BAD_LINE, 5},
        {"an empty attribute", head + "2|a|A|Web|x,,y\n", BUNDLE_TEXT_BAD_LINE, 5},
        {"17 attributes", head + "2|a|A|Web|a,b,c,d,e,f,g,h,i,j,k,l,m,n,o,p,q\n", BUNDLE_TEXT_BAD_LINE, 5},
        {"name of 128", head + "2|" + std::string(128, 'a') + "|A|Web|x\n", BUNDLE_TEXT_BAD_LINE, 5},
        {"line too long", head + '#' + std::string(1024, ' ') + '\n', BUNDLE_TEXT_BAD_LINE, 5},
        {"zero byte", head + std::string("#\0\n", 3), BUNDLE_TEXT_BAD_LINE, 5},
        {"text too large", std::string(BUNDLE_TEXT_MAX_SIZE + 1, '\n'), BUNDLE_TEXT_TOO_LARGE, 0},
    };
    for (const auto &c : cases) {
        t_bundle_content content = {"untouched", {}, {}};
        t_bundle_text_error error = {99, nullptr};
        EXPECT_EQ(bundle_text_read(c.text, &content, &error), c.want) << c.behaviour;
        EXPECT_EQ(error.line, c.line) << c.behaviour;
        EXPECT_NE(error.reason, nullptr) << c.behaviour;
        EXPECT_EQ(content.version, "untouched") << c.behaviour;
    }
}
