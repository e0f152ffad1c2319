// The extended protocol's text arguments, title options and option queries.
#include "protocol/session_text.h"

#include <gtest/gtest.h>

#include <string>

#include "protocol/option_query.h"

namespace {

std::string Free(const char* arg, size_t width, bool keepControl = false) {
    char out[104];
    vx::CopyFreeText(out, sizeof out, width, arg, keepControl);
    return out;
}

TEST(SessionText, FreeTextSkipsLeadingControlBlanksControlsAndCutsAtItsWidth) {
    EXPECT_EQ(Free("  \t\x01Hans Meier  \n", 12), "Hans Meier");
    EXPECT_EQ(Free("a\tb\rc\n", 12), "a b c");
    EXPECT_EQ(Free("a\tb\rc\n", 12, true), "a\tb\rc");
    EXPECT_EQ(Free("M\xfcller", 12), "M\xfcller");           // non-ASCII letters stay
    EXPECT_EQ(Free("abcdefghijk    x", 12), "abcdefghijk");  // cut, then trailing blanks go
    // The copy never passes the buffer, whatever the width says.
    char small[4];
    vx::CopyFreeText(small, sizeof small, 100, "abcdef", false);
    EXPECT_STREQ(small, "abc");
}

TEST(SessionText, NameTextTrimsBothEndsAndFailsWhenEmpty) {
    char out[9];
    EXPECT_TRUE(vx::CopyNameText(out, sizeof out, 8, "  ZELWIN  \r\n"));
    EXPECT_STREQ(out, "ZELWIN");
    EXPECT_TRUE(vx::CopyNameText(out, sizeof out, 8, "ZZELWIN-2025"));
    EXPECT_STREQ(out, "ZZELWIN-");
    EXPECT_FALSE(vx::CopyNameText(out, sizeof out, 8, "   \r\n"));
    EXPECT_FALSE(vx::CopyNameText(out, sizeof out, 8, ""));
}

TEST(SessionText, TitleOptionsComeEachAfterTheirOwnPrefixAndLeaveTheRest) {
    char title[104] = "OPT:NO_PAPER, OPT:FILE:out.pdf OPT:BOGUS OPT:SUM Monthly report";
    vx::TitleOptions options;
    vx::TakeTitleOptions(title, &options);
    EXPECT_TRUE(options.noPaper);
    EXPECT_TRUE(options.sum);
    EXPECT_TRUE(options.file);
    EXPECT_STREQ(options.fileName, "out.pdf");
    EXPECT_STREQ(title, "Monthly report");

    char plain[104] = "Report OPT:SUM";
    vx::TitleOptions none;
    vx::TakeTitleOptions(plain, &none);
    EXPECT_FALSE(none.sum);
    EXPECT_STREQ(plain, "Report OPT:SUM");
}

TEST(OptionQuery, AnswersFollowTheSettingsAndTheSecurityState) {
    vx::OptionOffer offer;
    offer.crypt1 = false;
    std::string answers;
    for (const char* code : {"C1", "C2", "K1", "K2", "RH", "EQ", "XX", "KA", "K9", "QQ", "C"})
        answers += vx::AnswerOptionQuery(code, &offer);
    EXPECT_EQ(answers, "YYNNNYYNNNN");
    EXPECT_TRUE(offer.securityAsked);

    offer.securityState = 1;
    offer.extensionsOff = true;
    EXPECT_EQ(vx::AnswerOptionQuery("KS", &offer), 'Y');
    EXPECT_EQ(vx::AnswerOptionQuery("K9", &offer), 'Y');
    EXPECT_EQ(vx::AnswerOptionQuery("C1", &offer), 'N');
}

TEST(OptionQuery, AListGetsOneAnswerPerCodeAndMalformedRunsAreRefused) {
    vx::OptionOffer offer;
    char answers[128];
    ASSERT_EQ(vx::AnswerMultiOptionQuery(" C1,K1\nK2,EQ\n", &offer, answers, sizeof answers), 0);
    EXPECT_STREQ(answers, "YYNY");

    std::string many;
    for (int i = 0; i < 150; ++i) many += "C1,";
    ASSERT_EQ(vx::AnswerMultiOptionQuery(many.c_str(), &offer, answers, sizeof answers), 0);
    EXPECT_EQ(std::string(answers), std::string(100, 'Y'));

    EXPECT_EQ(vx::AnswerMultiOptionQuery("C1,K", &offer, answers, sizeof answers), -1);
    EXPECT_EQ(
        vx::AnswerMultiOptionQuery(std::string(50, 'C').c_str(), &offer, answers, sizeof answers),
        -1);
}

}  // namespace
