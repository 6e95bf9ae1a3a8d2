// The UTF-8 case helpers the containers and account caches use.
#include <gtest/gtest.h>

#include <string>

#include "kovasdk/error.h"
#include "kovasdk/unicode.h"

namespace {

TEST(UnicodeCaseCmp, FoldsCaseBeyondAscii) {
    EXPECT_EQ(KLIBUnicodeUTF8StrCaseCmp("Ärger", "äRGER"), 0);
    EXPECT_EQ(KLIBUnicodeUTF8StrCaseCmp("straße", "STRASSE"), 0);  // full folding
    EXPECT_EQ(KLIBUnicodeUTF8StrCaseCmp("alice", "Bob"), -1);
    EXPECT_EQ(KLIBUnicodeUTF8StrCaseCmp("Bob", "alice"), 1);
    EXPECT_EQ(KLIBUnicodeUTF8StrCaseCmp("", ""), 0);
    const std::string long_a(1000, 'a'), long_b(1000, 'A');
    EXPECT_EQ(KLIBUnicodeUTF8StrCaseCmp(long_a.c_str(), long_b.c_str()), 0);
}

TEST(UnicodeCaseCmp, UnconvertibleTextGivesMinus2) {
    EXPECT_EQ(KLIBUnicodeUTF8StrCaseCmp("ok", "\xC3"), -2);
    EXPECT_EQ(KLIBUnicodeUTF8StrCaseCmp("\xff", "ok"), -2);
    EXPECT_EQ(KLIBUnicodeUTF8StrCaseCmp(nullptr, "ok"), -2);
}

TEST(UnicodeUpper, UpperCasesIntoTheBufferOrFailsWithoutAPartialResult) {
    char out[16];
    EXPECT_EQ(KLIBUnicodeUTF8StrUpper("émile", out, sizeof out), 6);
    EXPECT_STREQ(out, "ÉMILE");
    char in_place[8] = "abc";
    EXPECT_EQ(KLIBUnicodeUTF8StrUpper(in_place, in_place, sizeof in_place), 3);
    EXPECT_STREQ(in_place, "ABC");

    char tiny[4] = "old";
    EXPECT_EQ(KLIBUnicodeUTF8StrUpper("abcd", tiny, sizeof tiny), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_NOT_ENOUGH_MEMORY);
    EXPECT_STREQ(tiny, "old");
    EXPECT_EQ(KLIBUnicodeUTF8StrUpper("\xC3(", out, sizeof out), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
}

}  // namespace
