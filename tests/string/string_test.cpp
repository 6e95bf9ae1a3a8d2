// The string utilities at their boundaries: sizes, in-place and separate output, overlap,
// empty input, and the encoders' round trips.
#include <syslog.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "kovasdk/kovasdk.h"
#include "support/sandbox.h"

namespace {

using kova::test::AllocationFailure;

struct ListDeleter {
    void operator()(KLIBSZLIST *l) const { KLIBSzListFree(l); }
};

std::vector<std::string> items(const KLIBSZLIST *list) {
    std::vector<std::string> out;
    for (int i = 0; i < list->nItem; ++i)
        out.emplace_back(SzKLIBSzListGet(list, i));
    return out;
}

using Strings = std::vector<std::string>;

void expect_error(uint32_t code, const char *file, int line) {
    EXPECT_EQ(KLIBErrGet(), code);
    EXPECT_STREQ(KOVAErrorGetFile(), file);
    EXPECT_EQ(KOVAErrorGetLine(), line);
}

// A buffer pre-filled with '#' so that a refused call can be seen to have written nothing.
struct Buffer {
    explicit Buffer(size_t n) : bytes(n, '#') {}
    char *data() { return bytes.data(); }
    bool untouched() const {
        return std::all_of(bytes.begin(), bytes.end(), [](char c) { return c == '#'; });
    }
    std::vector<char> bytes;
};

TEST(StringSplit, SepKeepsEmptyTokensTokSkipsThem) {
    PKLIBSZLIST list = nullptr;
    EXPECT_EQ(KLIBStrSep("a,,b", ",", &list), 3);  // a new list is made
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(items(list), (Strings{"a", "", "b"}));
    EXPECT_EQ(KLIBStrTok("a,,b", ",", &list), 2);
    EXPECT_EQ(items(list), (Strings{"a", "", "b", "a", "b"}));
    EXPECT_EQ(KLIBStrSep("", ",", &list), 1);  // one empty token
    EXPECT_EQ(KLIBStrTok(" \t ", " \t", &list), 0);
    EXPECT_EQ(KLIBStrTok("sda 8 0\tx", " \t", &list), 4);
    KLIBSzListFree(list);
}

TEST(StringSplit, BadArgumentsAndFailedAllocations) {
    PKLIBSZLIST list = nullptr;
    EXPECT_EQ(KLIBStrSep(nullptr, ",", &list), -1);
    expect_error(ERR_BAD_PARAMETERS, "string_sep.cpp", 54);
    EXPECT_EQ(KLIBStrTok("a", ",", &list), -1);  // the list must exist
    expect_error(ERR_BAD_PARAMETERS, "string_tok.cpp", 101);
    {
        AllocationFailure fail(1);
        EXPECT_EQ(KLIBStrSep("a,b", ",", &list), -1);
    }
    expect_error(ERR_OUT_OF_MEMORY, "string_sep.cpp", 58);
    EXPECT_EQ(list, nullptr);

    // A push that fails half-way leaves the caller's list as it was.
    list = PslKLIBSzListAlloc(0);
    KLIBSzListPush(&list, "kept");
    const std::string many(2000, ',');
    {
        AllocationFailure fail(2);  // the copy succeeds, the list's growth fails
        EXPECT_EQ(KLIBStrSep(many.c_str(), ",", &list), -1);
    }
    expect_error(ERR_OUT_OF_MEMORY, "string_sep.cpp", 58);
    EXPECT_EQ(items(list), (Strings{"kept"}));
    {
        AllocationFailure fail(1);
        EXPECT_EQ(KLIBStrTok("a b", " ", &list), -1);
    }
    expect_error(ERR_OUT_OF_MEMORY, "string_tok.cpp", 106);
    KLIBSzListFree(list);
}

TEST(StringSplit, InternalTokenizerSkipsEmptyTokens) {
    char text[] = "::a::b:";
    char *cursor = text;
    EXPECT_STREQ(KLIBIStrTok(&cursor, ":"), "a");
    EXPECT_STREQ(KLIBIStrTok(&cursor, ":"), "b");
    EXPECT_EQ(KLIBIStrTok(&cursor, ":"), nullptr);
    EXPECT_EQ(KLIBIStrTok(&cursor, ":"), nullptr);
    EXPECT_EQ(KLIBIStrTok(nullptr, ":"), nullptr);
    EXPECT_EQ(KLIBIStrTok(&cursor, nullptr), nullptr);
}

TEST(StringSepPair, SplitsAtTheFirstEqualsAndTrimsBothSides) {
    std::unique_ptr<KLIBSZLIST, ListDeleter> owner(PslKLIBSzListAlloc(0));
    PKLIBSZLIST list = owner.release();
    EXPECT_EQ(KLIBStrSepPair("key = \"a b\" ", &list), 0);
    EXPECT_EQ(KLIBStrSepPair("\t\"quoted key\"=\r\n", &list), 0);
    EXPECT_EQ(KLIBStrSepPair("a=b=c", &list), 0);
    EXPECT_EQ(KLIBStrSepPair("x=\" in \"", &list), 0);
    EXPECT_EQ(KLIBStrSepPair("q=\"", &list), 0);
    EXPECT_EQ(items(list),
              (Strings{"key", "a b", "quoted key", "", "a", "b=c", "x", " in ", "q", "\""}));
    KLIBSzListFree(list);
}

TEST(StringSepPair, EmptyKeyOrNoEqualsIsNotAPair) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    KLIBSzListPush(&list, "kept");
    for (const char *line : {"=v", "  \t=v", "\"\"=v", ""}) {
        EXPECT_EQ(KLIBStrSepPair(line, &list), -1) << line;
        expect_error(ERR_BAD_PARAMETERS, "string_sep_pair.cpp", 51);
    }
    EXPECT_EQ(KLIBStrSepPair("no equals here", &list), -1);
    expect_error(ERR_BAD_PARAMETERS, "string_sep_pair.cpp", 59);
    {
        AllocationFailure fail(2);  // the work buffer succeeds, the second push's growth fails
        const std::string long_value = "k=" + std::string(600, 'v');
        EXPECT_EQ(KLIBStrSepPair(long_value.c_str(), &list), -1);
    }
    EXPECT_EQ(items(list), (Strings{"kept"}));
    EXPECT_EQ(KLIBStrSepPair(nullptr, &list), -1);
    KLIBSzListFree(list);
}

TEST(StringTrim, WhiteSpaceThenOnePairOfQuotes) {
    struct Case {
        const char *in, *out;
    } cases[] = {
        {"  \t\r\nx y \n", "x y"},
        {"\"a b\"", "a b"},
        {"  \" a \"  ", " a "},
        {"\"\"", ""},
        {"\"", "\""},
        {"\"a", "\"a"},
        {"\"\"x\"\"", "\"x\""},
        {"\vx\f", "\vx\f"},
        {"", ""},
        {" \t ", ""},
    };
    for (const auto &c : cases) {
        std::string buf = c.in;
        EXPECT_EQ(KLIBStrTrimSpace(buf.data(), nullptr), static_cast<int>(strlen(c.out)));
        EXPECT_STREQ(buf.c_str(), c.out) << "in place: " << c.in;
        std::string in = c.in;
        char out[32];
        EXPECT_EQ(KLIBStrTrimSpace(in.data(), out), static_cast<int>(strlen(c.out)));
        EXPECT_STREQ(out, c.out);
        EXPECT_EQ(in, c.in);  // the input is left alone
    }
}

TEST(StringTrim, OutputInsideTheInputIsRefused) {
    char text[16] = "  abc  ";
    EXPECT_EQ(KLIBStrTrimSpace(text, text + 1), -1);
    expect_error(ERR_BAD_PARAMETERS, "string_trim_space.cpp", 112);
    EXPECT_EQ(KLIBStrTrimSpace(text, text + 6), -1);
    EXPECT_STREQ(text, "  abc  ");
    EXPECT_EQ(KLIBStrTrimSpace(text, text + 7), 3);  // just past the text is outside it
    EXPECT_STREQ(text + 7, "abc");
    strcpy(text, "  abc  ");
    EXPECT_EQ(KLIBStrTrimSpace(text, text), 3);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(KLIBStrTrimSpace(nullptr, nullptr), -1);
    expect_error(ERR_BAD_PARAMETERS, "string_trim_space.cpp", 104);
}

TEST(StringCaseLower, InPlaceChecksTheSizeSeparateOutputDoesNot) {
    char text[] = "AbC\xC3\x89Z";  // the bytes of a UTF-8 capital stay as they are
    EXPECT_EQ(SzKLIBStrCaseLower(text, 0, nullptr, 5), nullptr);
    expect_error(ERR_NOT_ENOUGH_MEMORY, "string_case_lower.cpp", 65);
    EXPECT_STREQ(text, "AbC\xC3\x89Z");
    EXPECT_EQ(SzKLIBStrCaseLower(text, 0, nullptr, 6), text);
    EXPECT_STREQ(text, "abc\xC3\x89z");
    char upper[] = "MiXeD";
    char out[8];
    EXPECT_EQ(SzKLIBStrCaseLower(upper, 0, out, 0), out);
    EXPECT_STREQ(out, "mixed");
    EXPECT_STREQ(upper, "MiXeD");
    EXPECT_EQ(SzKLIBStrCaseLower(nullptr, 0, out, 8), nullptr);
    expect_error(ERR_BAD_PARAMETERS, "string_case_lower.cpp", 60);
}

TEST(StringColon, EncodeAndDecodeWithExactAndShortSizes) {
    Buffer exact(8);
    EXPECT_EQ(KLIBStrEncodeColon("a:b;c", exact.data(), 7), 7);
    EXPECT_STREQ(exact.data(), "a;,b;;c");
    Buffer short_one(8);
    EXPECT_EQ(KLIBStrEncodeColon("a:b;c", short_one.data(), 6), -1);
    expect_error(ERR_NOT_ENOUGH_MEMORY, "string_encode_colon.cpp", 65);
    EXPECT_TRUE(short_one.untouched());

    Buffer decoded(8);
    EXPECT_EQ(KLIBStrDecodeColon("a;,b;;c", decoded.data(), 7), 5);
    EXPECT_STREQ(decoded.data(), "a:b;c");
    Buffer refused(8);
    EXPECT_EQ(KLIBStrDecodeColon("a;,b;;c", refused.data(), 6), -1);
    expect_error(ERR_NOT_ENOUGH_MEMORY, "string_decode_colon.cpp", 40);
    EXPECT_TRUE(refused.untouched());

    char out[16];
    EXPECT_EQ(KLIBStrEncodeColon("", out, 0), 0);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(KLIBStrDecodeColon("ab;xcd", out, 16), 2);  // ";x" escapes nothing: stop
    EXPECT_STREQ(out, "ab");
    EXPECT_EQ(KLIBStrDecodeColon("ab;", out, 16), 2);
    EXPECT_EQ(KLIBStrDecodeColon(";;;,", out, 16), 2);
    EXPECT_STREQ(out, ";:");
}

TEST(StringColon, OverlappingOutputIsRefused) {
    char text[32] = "a:b";
    EXPECT_EQ(KLIBStrEncodeColon(text, text, 16), -1);
    expect_error(ERR_BAD_PARAMETERS, "string_encode_colon.cpp", 34);
    EXPECT_EQ(KLIBStrEncodeColon(text, text + 2, 16), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 34);
    EXPECT_EQ(KLIBStrEncodeColon(text, text + 4, 16), 4);  // right after the input's NUL
    EXPECT_STREQ(text + 4, "a;,b");
    EXPECT_EQ(KLIBStrDecodeColon(text + 4, text + 4, 16), -1);
    expect_error(ERR_BAD_PARAMETERS, "string_decode_colon.cpp", 35);
    EXPECT_EQ(KLIBStrEncodeColon(nullptr, text, 16), -1);
}

TEST(StringColon, RoundTripOverRandomBytes) {
    std::mt19937 rng(7);
    for (int i = 0; i < 3000; ++i) {
        std::string in(rng() % 40, '\0');
        for (auto &c : in) {
            // Mostly the two escaped bytes, so that runs of them are common.
            const unsigned pick = rng() % 4;
            c = pick == 0 ? ':' : pick == 1 ? ';' : static_cast<char>(1 + rng() % 255);
        }
        std::vector<char> encoded(2 * in.size() + 1), decoded(in.size() + 1);
        const int n =
            KLIBStrEncodeColon(in.c_str(), encoded.data(), 2 * static_cast<int>(in.size()));
        ASSERT_GE(n, static_cast<int>(in.size()));
        ASSERT_EQ(strchr(encoded.data(), ':'), nullptr);
        ASSERT_EQ(KLIBStrDecodeColon(encoded.data(), decoded.data(), n),
                  static_cast<int>(in.size()));
        ASSERT_EQ(std::string(decoded.data()), in);
    }
}

TEST(StringHex, EncodeChecksTheInputLengthOnly) {
    char out[8];
    EXPECT_EQ(KLIBStringToHexCode("Az", out, 2), 4);  // 2 characters in, 4 out (kept)
    EXPECT_STREQ(out, "417A");
    Buffer refused(8);
    EXPECT_EQ(KLIBStringToHexCode("Az", refused.data(), 1), -1);
    expect_error(ERR_NOT_ENOUGH_MEMORY, "string_to_hex_code.cpp", 45);
    EXPECT_TRUE(refused.untouched());
    EXPECT_EQ(KLIBStringToHexCode("\x01\xFF", out, 8), 4);
    EXPECT_STREQ(out, "01FF");
    EXPECT_EQ(KLIBStringToHexCode("", out, 0), 0);
    EXPECT_STREQ(out, "");
}

TEST(StringHex, DecodeStopsAtTheFirstByteOutsideAPair) {
    struct Case {
        const char *in;
        const char *out;
    } cases[] = {
        {"417A", "Az"}, {"41g2", "A"}, {"x41x7A", "Az"}, {"41x", "A"},
        {"4", ""},      {"41a2", "A"}, {"0x41", ""},     {"xx41", ""},
        {"414", "A"},   {"", ""},      {"41 42", "A"},
    };
    for (const auto &c : cases) {
        char out[16];
        EXPECT_EQ(KLIBStrHexCodeToString(c.in, out, 16), static_cast<int>(strlen(c.out))) << c.in;
        EXPECT_STREQ(out, c.out) << c.in;
    }
    char out[8];
    EXPECT_EQ(KLIBStrHexCodeToString("00FF", out, 4), 2);  // a NUL byte is data
    EXPECT_EQ(out[0], '\0');
    EXPECT_EQ(out[1], '\xFF');
    Buffer refused(8);
    EXPECT_EQ(KLIBStrHexCodeToString("417A", refused.data(), 3), -1);
    expect_error(ERR_NOT_ENOUGH_MEMORY, "string_hex_code_to_string.cpp", 44);
    EXPECT_TRUE(refused.untouched());
    char in_place[] = "x4142";
    EXPECT_EQ(KLIBStrHexCodeToString(in_place, in_place, 5), 2);
    EXPECT_STREQ(in_place, "AB");
}

TEST(StringHex, RoundTripOverRandomBytes) {
    std::mt19937 rng(11);
    for (int i = 0; i < 2000; ++i) {
        std::string in(rng() % 40, '\0');
        for (auto &c : in)
            c = static_cast<char>(1 + rng() % 255);
        std::vector<char> hex(2 * in.size() + 1), back(2 * in.size() + 1);
        ASSERT_EQ(KLIBStringToHexCode(in.c_str(), hex.data(), static_cast<int>(in.size())),
                  2 * static_cast<int>(in.size()));
        ASSERT_EQ(KLIBStrHexCodeToString(hex.data(), back.data(), 2 * static_cast<int>(in.size())),
                  static_cast<int>(in.size()));
        ASSERT_EQ(std::string(back.data()), in);
    }
}

TEST(StringReplace, FirstOccurrenceInPlaceOrIntoOutput) {
    char text[16] = "abcb";
    EXPECT_EQ(KLIBStrReplace(text, "b", "xx", nullptr, 5), 1);
    EXPECT_STREQ(text, "axxcb");
    char out[8];
    EXPECT_EQ(KLIBStrReplace(text, "xxc", "", out, 8), 1);
    EXPECT_STREQ(out, "ab");
    EXPECT_STREQ(text, "axxcb");
    EXPECT_EQ(KLIBStrReplace(text, "zz", "y", out, 8), 0);
    EXPECT_STREQ(out, "axxcb");  // not found: the output holds the text
    EXPECT_EQ(KLIBStrReplace(text, "", ">", out, 8), 1);
    EXPECT_STREQ(out, ">axxcb");
    EXPECT_EQ(KLIBStrDelete(text, "xx", nullptr, 16), 1);
    EXPECT_STREQ(text, "acb");
}

TEST(StringReplace, SizeIsCheckedFirstEvenWhenNothingMatches) {
    char text[16] = "abcb";
    Buffer refused(8);
    EXPECT_EQ(KLIBStrReplace(text, "b", "xx", refused.data(), 4), -1);
    expect_error(ERR_NOT_ENOUGH_MEMORY, "string_replace.cpp", 70);
    EXPECT_TRUE(refused.untouched());
    EXPECT_EQ(KLIBStrReplace(text, "zz", "yyyy", nullptr, 5), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 70);
    EXPECT_STREQ(text, "abcb");
    // A separate output too small for the unchanged text is refused as well.
    EXPECT_EQ(KLIBStrReplace(text, "zzz", "", refused.data(), 2), -1);
    EXPECT_TRUE(refused.untouched());
    // New text that lies inside the bytes an in-place edit moves is refused.
    EXPECT_EQ(KLIBStrReplace(text, "a", text + 2, nullptr, 16), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_BAD_PARAMETERS));
    EXPECT_EQ(KLIBStrReplace(text, "a", "b", text + 1, 16), -1);
    EXPECT_STREQ(text, "abcb");
}

TEST(StringInsert, AtAPositionAfterOrBeforeANeedle) {
    char text[16] = "abc";
    EXPECT_EQ(KLIBStrInsert(text, text + 1, "XY", nullptr, 6), 1);  // exact fit: 3 + 2 + 1
    EXPECT_STREQ(text, "aXYbc");
    EXPECT_EQ(KLIBStrInsert(text, text + 5, "!", nullptr, 6), -1);  // one byte short
    expect_error(ERR_NOT_ENOUGH_MEMORY, "string_insert.cpp", 54);
    EXPECT_STREQ(text, "aXYbc");
    EXPECT_EQ(KLIBStrInsert(text, text + 6, "!", nullptr, 16), -1);  // past the text
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_BAD_PARAMETERS));

    char out[16];
    EXPECT_EQ(KLIBStrInsertAfter(text, "XY", "-", out, 16), 1);
    EXPECT_STREQ(out, "aXY-bc");
    EXPECT_EQ(KLIBStrInsertBefore(text, "XY", "-", out, 16), 1);
    EXPECT_STREQ(out, "a-XYbc");
    EXPECT_EQ(KLIBStrInsertBefore(text, "a", "<", nullptr, 16), 1);
    EXPECT_STREQ(text, "<aXYbc");
    EXPECT_EQ(KLIBStrInsertAfter(text, "c", ">", nullptr, 16), 1);
    EXPECT_STREQ(text, "<aXYbc>");
    EXPECT_EQ(KLIBStrInsertAfter(text, "none", "-", out, 16), 0);
    EXPECT_STREQ(out, "<aXYbc>");
    Buffer refused(8);
    EXPECT_EQ(KLIBStrInsertAfter(text, "none", "-", refused.data(), 8), -1);
    EXPECT_TRUE(refused.untouched());
}

TEST(StringNobody, FiltersNobodyAndKeepsEmptyNames) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    KLIBSzListPush(&list, "old");
    EXPECT_EQ(KOVAStrNobodyFilter("", &list), 0);
    EXPECT_EQ(items(list), (Strings{"old"}));  // untouched
    EXPECT_EQ(KOVAStrNobodyFilter("nobody,alice,,nobody,bob,nobodyx", &list), 4);
    EXPECT_EQ(items(list), (Strings{"alice", "", "bob", "nobodyx"}));
    EXPECT_EQ(KOVAStrNobodyFilter("nobody", &list), 0);
    EXPECT_EQ(list->nItem, 0);
    KLIBSzListFree(list);
    PKLIBSZLIST made = nullptr;
    EXPECT_EQ(KOVAStrNobodyFilter("a,nobody", &made), 1);
    KLIBSzListFree(made);
}

TEST(StringJoin, JoinsTheNonNullStrings) {
    const char *parts[] = {"a", nullptr, "b"};
    char *buf = nullptr;
    int size = 0;
    ASSERT_EQ(KOVAStrJoin(parts, 3, ", ", &buf, &size), 0);
    EXPECT_STREQ(buf, "a, b");
    EXPECT_EQ(size, 6);  // texts and separators; the block has one byte more
    char *same = buf;
    const char *shorter[] = {"x", "y"};
    ASSERT_EQ(KOVAStrJoin(shorter, 2, "", &buf, &size), 0);
    EXPECT_EQ(buf, same);
    EXPECT_STREQ(buf, "xy");
    const char *longer[] = {"alpha", "beta", "gamma"};
    ASSERT_EQ(KOVAStrJoin(longer, 3, "", &buf, &size), 0);  // needs the NUL byte too
    EXPECT_STREQ(buf, "alphabetagamma");
    EXPECT_EQ(size, 14);
    free(buf);
}

TEST(StringJoin, FailuresAreLoggedAndKeepTheBuffer) {
    kova::test::LogCapture log;
    const char *parts[] = {"a", "b"};
    char *buf = nullptr;
    int size = 0;
    EXPECT_EQ(KOVAStrJoin(parts, 0, ",", &buf, &size), -1);
    expect_error(ERR_BAD_PARAMETERS, "string_join.cpp", 42);
    EXPECT_TRUE(log.contains(LOG_ERR, "string_join.cpp:42 Bad parameters!!"));
    const char *nothing[] = {nullptr, ""};
    EXPECT_EQ(KOVAStrJoin(nothing, 2, "", &buf, &size), -1);
    expect_error(ERR_BAD_PARAMETERS, "string_join.cpp", 62);
    EXPECT_TRUE(log.contains(LOG_ERR, "string_join.cpp:62 The input array is empty!!"));
    {
        AllocationFailure fail(1);
        EXPECT_EQ(KOVAStrJoin(parts, 2, ",", &buf, &size), -1);
    }
    expect_error(ERR_OUT_OF_MEMORY, "string_join.cpp", 69);
    EXPECT_TRUE(log.contains(LOG_ERR, "string_join.cpp:69 Out of memory!!"));
    EXPECT_EQ(buf, nullptr);

    ASSERT_EQ(KOVAStrJoin(parts, 2, ",", &buf, &size), 0);
    const char *more[] = {"a much longer first part", "b"};
    {
        AllocationFailure fail(1);
        EXPECT_EQ(KOVAStrJoin(more, 2, ",", &buf, &size), -1);
    }
    expect_error(ERR_OUT_OF_MEMORY, "string_join.cpp", 76);
    EXPECT_STREQ(buf, "a,b");  // the old buffer is still the caller's, intact
    EXPECT_EQ(size, 4);
    int bad_size = 0;
    EXPECT_EQ(KOVAStrJoin(parts, 2, ",", &buf, &bad_size), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 42);
    free(buf);
}

}  // namespace
