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

using Strings = std::vector<std::string>;

// Runs fn with the nth library allocation from now failing.
template <class F>
auto failing(int nth, F fn) {
    kova::test::AllocationFailure fail(nth);
    return fn();
}

Strings items(const KLIBSZLIST *list) {
    Strings out;
    for (int i = 0; i < list->nItem; ++i)
        out.emplace_back(SzKLIBSzListGet(list, i));
    return out;
}

void expect_error(uint32_t code, const char *file, int line) {
    EXPECT_EQ(KLIBErrGet(), code);
    EXPECT_STREQ(KOVAErrorGetFile(), file);
    EXPECT_EQ(KOVAErrorGetLine(), line);
}

// A result and the text it left, as "1:axxcb", for one-line checks.
std::string said(int result, const char *text) {
    return std::to_string(result) + ":" + text;
}

// A buffer pre-filled with '#' so that a refused call can be seen to have written nothing.
struct Buffer {
    char bytes[16];
    Buffer() { memset(bytes, '#', sizeof bytes); }
    bool untouched() const {
        return std::all_of(bytes, bytes + sizeof bytes, [](char c) { return c == '#'; });
    }
};

TEST(StringSplit, SepKeepsEmptyTokensTokSkipsThem) {
    PKLIBSZLIST list = nullptr;
    EXPECT_EQ(KLIBStrSep("a,,b", ",", &list), 3);  // a new list is made
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(KLIBStrTok("a,,b", ",", &list), 2);
    EXPECT_EQ(KLIBStrSep("", ",", &list), 1);  // one empty token
    EXPECT_EQ(KLIBStrTok(" \t ", " \t", &list), 0);
    EXPECT_EQ(KLIBStrTok("sda 8\tx", " \t", &list), 3);
    EXPECT_EQ(items(list), (Strings{"a", "", "b", "a", "b", "", "sda", "8", "x"}));
    KLIBSzListFree(list);

    char text[] = "::a::b:";
    char *cursor = text;
    EXPECT_STREQ(KLIBIStrTok(&cursor, ":"), "a");
    EXPECT_STREQ(KLIBIStrTok(&cursor, ":"), "b");
    EXPECT_EQ(KLIBIStrTok(&cursor, ":"), nullptr);
    EXPECT_EQ(KLIBIStrTok(nullptr, ":"), nullptr);
    EXPECT_EQ(KLIBIStrTok(&cursor, nullptr), nullptr);
}

TEST(StringSplit, BadArgumentsAndFailedAllocationsLeaveTheList) {
    PKLIBSZLIST list = nullptr;
    EXPECT_EQ(KLIBStrSep(nullptr, ",", &list), -1);
    expect_error(ERR_BAD_PARAMETERS, "string_sep.cpp", 54);
    EXPECT_EQ(KLIBStrTok("a", ",", &list), -1);  // the list must exist
    expect_error(ERR_BAD_PARAMETERS, "string_tok.cpp", 101);
    EXPECT_EQ(failing(1, [&] { return KLIBStrSep("a,b", ",", &list); }), -1);
    expect_error(ERR_OUT_OF_MEMORY, "string_sep.cpp", 58);
    EXPECT_EQ(list, nullptr);

    list = PslKLIBSzListAlloc(0);
    KLIBSzListPush(&list, "kept");
    const std::string many(2000, ',');  // the copy succeeds, the list's growth half-way fails
    EXPECT_EQ(failing(2, [&] { return KLIBStrSep(many.c_str(), ",", &list); }), -1);
    expect_error(ERR_OUT_OF_MEMORY, "string_sep.cpp", 58);
    EXPECT_EQ(failing(1, [&] { return KLIBStrTok("a b", " ", &list); }), -1);
    expect_error(ERR_OUT_OF_MEMORY, "string_tok.cpp", 106);
    EXPECT_EQ(items(list), (Strings{"kept"}));
    KLIBSzListFree(list);
}

TEST(StringSepPair, SplitsAtTheFirstEqualsTrimsAndRefusesNonPairs) {
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    for (const char *line :
         {"key = \"a b\" ", "\t\"quoted key\"=\r\n", "a=b=c", "x=\" in \"", "q=\""})
        EXPECT_EQ(KLIBStrSepPair(line, &list), 0) << line;
    EXPECT_EQ(items(list),
              (Strings{"key", "a b", "quoted key", "", "a", "b=c", "x", " in ", "q", "\""}));
    for (const char *line : {"=v", "  \t=v", "\"\"=v", ""}) {
        EXPECT_EQ(KLIBStrSepPair(line, &list), -1) << line;
        expect_error(ERR_BAD_PARAMETERS, "string_sep_pair.cpp", 51);
    }
    EXPECT_EQ(KLIBStrSepPair("no equals here", &list), -1);
    expect_error(ERR_BAD_PARAMETERS, "string_sep_pair.cpp", 59);
    EXPECT_EQ(KLIBStrSepPair(nullptr, &list), -1);
    const std::string pair = "k=" + std::string(600, 'v');  // the second push's growth fails
    EXPECT_EQ(failing(2, [&] { return KLIBStrSepPair(pair.c_str(), &list); }), -1);
    EXPECT_EQ(list->nItem, 10);  // no half pair left behind
    KLIBSzListFree(list);
}

TEST(StringTrim, WhiteSpaceThenOnePairOfQuotesInPlaceOrIntoOutput) {
    const std::pair<const char *, const char *> cases[] = {// input, result:text
                                                           {"  \t\r\nx y \n", "3:x y"},
                                                           {"\"a b\"", "3:a b"},
                                                           {"  \" a \"  ", "3: a "},
                                                           {"\"\"", "0:"},
                                                           {"\"", "1:\""},
                                                           {"\"a", "2:\"a"},
                                                           {"\"\"x\"\"", "3:\"x\""},
                                                           {"\vx\f", "3:\vx\f"},
                                                           {" \t ", "0:"}};
    for (const auto &[in, expected] : cases) {
        std::string in_place = in, kept = in;
        char out[32];
        EXPECT_EQ(said(KLIBStrTrimSpace(in_place.data(), nullptr), in_place.c_str()), expected);
        EXPECT_EQ(said(KLIBStrTrimSpace(kept.data(), out), out), expected);
        EXPECT_EQ(kept, in);  // the input is left alone
    }

    char text[16] = "  abc  ";  // an output inside the input is refused
    EXPECT_EQ(KLIBStrTrimSpace(text, text + 1), -1);
    expect_error(ERR_BAD_PARAMETERS, "string_trim_space.cpp", 112);
    EXPECT_EQ(said(KLIBStrTrimSpace(text, text + 6), text), "-1:  abc  ");
    EXPECT_EQ(said(KLIBStrTrimSpace(text, text + 7), text + 7), "3:abc");  // just past the text
    strcpy(text, "  abc  ");
    EXPECT_EQ(said(KLIBStrTrimSpace(text, text), text), "3:abc");  // the input itself is fine
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
    char upper[] = "MiXeD", out[8];
    EXPECT_EQ(SzKLIBStrCaseLower(upper, 0, out, 0), out);
    EXPECT_STREQ(out, "mixed");
    EXPECT_STREQ(upper, "MiXeD");
    EXPECT_EQ(SzKLIBStrCaseLower(nullptr, 0, out, 8), nullptr);
    expect_error(ERR_BAD_PARAMETERS, "string_case_lower.cpp", 60);
}

// Runs a coder into a '#'-filled buffer: its output when the result is the output's length (a
// NUL byte may be data), "<refused>" when it failed without writing a byte.
std::string code(int (*coder)(const char *, char *, int), const char *in, int size) {
    Buffer out;
    const int n = coder(in, out.bytes, size);
    if (n < 0) return out.untouched() ? "<refused>" : "<refused after writing>";
    if (n >= static_cast<int>(sizeof out.bytes)) return "<overran>";
    return std::string(out.bytes, static_cast<size_t>(n)) + (out.bytes[n] ? "<no NUL>" : "");
}

TEST(StringCoders, ExactFitShortByOneAndTheDecodersStopRules) {
    EXPECT_EQ(code(KLIBStrEncodeColon, "a:b;c", 7), "a;,b;;c");  // the output's length counts
    EXPECT_EQ(code(KLIBStrEncodeColon, "a:b;c", 6), "<refused>");
    expect_error(ERR_NOT_ENOUGH_MEMORY, "string_encode_colon.cpp", 65);
    EXPECT_EQ(code(KLIBStrEncodeColon, "", 0), "");
    EXPECT_EQ(code(KLIBStrDecodeColon, "a;,b;;c", 7), "a:b;c");  // the input's length counts
    EXPECT_EQ(code(KLIBStrDecodeColon, "a;,b;;c", 6), "<refused>");
    expect_error(ERR_NOT_ENOUGH_MEMORY, "string_decode_colon.cpp", 40);
    EXPECT_EQ(code(KLIBStrDecodeColon, "ab;xcd", 16), "ab");  // ";x" escapes nothing: stop
    EXPECT_EQ(code(KLIBStrDecodeColon, "ab;", 16), "ab");
    EXPECT_EQ(code(KLIBStrDecodeColon, ";;;,", 16), ";:");
    EXPECT_EQ(code(KLIBStringToHexCode, "Az", 2), "417A");  // the input's length counts (kept)
    EXPECT_EQ(code(KLIBStringToHexCode, "Az", 1), "<refused>");
    expect_error(ERR_NOT_ENOUGH_MEMORY, "string_to_hex_code.cpp", 45);
    EXPECT_EQ(code(KLIBStringToHexCode, "", 0), "");
    EXPECT_EQ(code(KLIBStrHexCodeToString, "417A", 4), "Az");
    EXPECT_EQ(code(KLIBStrHexCodeToString, "417A", 3), "<refused>");
    expect_error(ERR_NOT_ENOUGH_MEMORY, "string_hex_code_to_string.cpp", 44);
    EXPECT_EQ(code(KLIBStrHexCodeToString, "00FF", 4), std::string("\0\xFF", 2));  // NUL is data
    const std::pair<const char *, const char *> stops[] = {
        {"41g2", "A"}, {"x41x7A", "Az"}, {"41x", "A"}, {"4", ""}, {"41a2", "A"},
        {"0x41", ""},  {"xx41", ""},     {"414", "A"}, {"", ""},  {"41 42", "A"}};
    for (const auto &[in, out] : stops)
        EXPECT_EQ(code(KLIBStrHexCodeToString, in, 16), out) << in;
    char in_place[] = "x4142";
    EXPECT_EQ(said(KLIBStrHexCodeToString(in_place, in_place, 5), in_place), "2:AB");
}

TEST(StringCoders, ColonOverlapIsRefusedAndRandomBytesRoundTrip) {
    char text[32] = "a:b";
    EXPECT_EQ(KLIBStrEncodeColon(text, text, 16), -1);
    expect_error(ERR_BAD_PARAMETERS, "string_encode_colon.cpp", 34);
    EXPECT_EQ(KLIBStrEncodeColon(text, text + 2, 16), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 34);
    EXPECT_EQ(said(KLIBStrEncodeColon(text, text + 4, 16), text + 4), "4:a;,b");  // after its NUL
    EXPECT_EQ(KLIBStrDecodeColon(text + 4, text + 4, 16), -1);
    expect_error(ERR_BAD_PARAMETERS, "string_decode_colon.cpp", 35);
    EXPECT_EQ(KLIBStrEncodeColon(nullptr, text, 16), -1);

    std::mt19937 rng(7);
    for (int i = 0; i < 3000; ++i) {
        std::string in(rng() % 40, '\0');
        for (auto &c : in) {  // mostly the two escaped bytes, so that runs of them are common
            const unsigned pick = rng() % 4;
            c = pick == 0 ? ':' : pick == 1 ? ';' : static_cast<char>(1 + rng() % 255);
        }
        const int len = static_cast<int>(in.size());
        std::vector<char> encoded(2 * in.size() + 1), decoded(in.size() + 1);
        const int n = KLIBStrEncodeColon(in.c_str(), encoded.data(), 2 * len);
        ASSERT_EQ(strchr(encoded.data(), ':'), nullptr);
        ASSERT_EQ(KLIBStrDecodeColon(encoded.data(), decoded.data(), n), len);
        ASSERT_EQ(std::string(decoded.data()), in);
    }
}

TEST(StringCoders, EveryByteRoundTripsThroughHex) {
    std::string all;
    for (int byte = 1; byte < 256; ++byte)
        all += static_cast<char>(byte);
    std::vector<char> hex(2 * all.size() + 1), back(all.size() + 1);
    ASSERT_EQ(KLIBStringToHexCode(all.c_str(), hex.data(), 255), 510);
    ASSERT_EQ(KLIBStrHexCodeToString(hex.data(), back.data(), 510), 255);
    EXPECT_EQ(std::string(back.data()), all);
}

TEST(StringReplace, FirstOccurrenceSizeCheckedFirstOverlapRefused) {
    char text[16] = "abcb", out[8];
    EXPECT_EQ(said(KLIBStrReplace(text, "b", "xx", nullptr, 5), text), "1:axxcb");  // exact fit
    EXPECT_EQ(said(KLIBStrReplace(text, "xxc", "", out, 8), out), "1:ab");
    EXPECT_STREQ(text, "axxcb");
    EXPECT_EQ(said(KLIBStrReplace(text, "zz", "y", out, 8), out), "0:axxcb");  // output: the text
    EXPECT_EQ(said(KLIBStrReplace(text, "", ">", out, 8), out), "1:>axxcb");
    EXPECT_EQ(said(KLIBStrDelete(text, "xx", nullptr, 16), text), "1:acb");

    Buffer refused;
    EXPECT_EQ(KLIBStrReplace(text, "b", "xxx", refused.bytes, 4), -1);  // one byte short
    expect_error(ERR_NOT_ENOUGH_MEMORY, "string_replace.cpp", 70);
    EXPECT_EQ(KLIBStrReplace(text, "zz", "yyyy", nullptr, 4), -1);  // even when nothing matches
    EXPECT_EQ(KOVAErrorGetLine(), 70);
    EXPECT_EQ(KLIBStrReplace(text, "zz", "", refused.bytes, 2), -1);  // nor the unchanged text
    EXPECT_TRUE(refused.untouched());
    // New text that lies inside the bytes an in-place edit moves is refused, as is an overlap.
    EXPECT_EQ(KLIBStrReplace(text, "a", text + 1, nullptr, 16), -1);
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_BAD_PARAMETERS));
    EXPECT_EQ(said(KLIBStrReplace(text, "a", "b", text + 1, 16), text), "-1:acb");
}

TEST(StringInsert, AtAPositionAfterOrBeforeANeedle) {
    char text[16] = "abc", out[16];
    EXPECT_EQ(said(KLIBStrInsert(text, text + 1, "XY", nullptr, 6), text), "1:aXYbc");  // 3 + 2 + 1
    EXPECT_EQ(said(KLIBStrInsert(text, text + 5, "!", nullptr, 6), text), "-1:aXYbc");  // 1 short
    expect_error(ERR_NOT_ENOUGH_MEMORY, "string_insert.cpp", 54);
    EXPECT_EQ(KLIBStrInsert(text, text + 6, "!", nullptr, 16), -1);  // past the text
    EXPECT_EQ(KLIBErrGet(), static_cast<uint32_t>(ERR_BAD_PARAMETERS));
    EXPECT_EQ(said(KLIBStrInsertAfter(text, "XY", "-", out, 16), out), "1:aXY-bc");
    EXPECT_EQ(said(KLIBStrInsertBefore(text, "XY", "-", out, 16), out), "1:a-XYbc");
    EXPECT_EQ(said(KLIBStrInsertBefore(text, "a", "<", nullptr, 16), text), "1:<aXYbc");
    EXPECT_EQ(said(KLIBStrInsertAfter(text, "c", ">", nullptr, 16), text), "1:<aXYbc>");
    EXPECT_EQ(said(KLIBStrInsertAfter(text, "none", "-", out, 16), out), "0:<aXYbc>");
    Buffer refused;
    EXPECT_EQ(KLIBStrInsertAfter(text, "none", "-", refused.bytes, 8), -1);
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
}

TEST(StringJoin, JoinsNonNullStringsGrowsTheBufferLogsFailuresAndKeepsTheBuffer) {
    kova::test::LogCapture log;
    const char *parts[] = {"a", nullptr, "b"}, *two[] = {"x", "y"}, *nothing[] = {nullptr, ""},
               *longer[] = {"alpha", "beta", "gamma"};
    char *buf = nullptr;
    int size = 0, bad_size = 0;
    EXPECT_EQ(KOVAStrJoin(parts, 0, ",", &buf, &size), -1);
    expect_error(ERR_BAD_PARAMETERS, "string_join.cpp", 42);
    EXPECT_TRUE(log.contains(LOG_ERR, "string_join.cpp:42 Bad parameters!!"));
    EXPECT_EQ(KOVAStrJoin(nothing, 2, "", &buf, &size), -1);
    expect_error(ERR_BAD_PARAMETERS, "string_join.cpp", 62);
    EXPECT_TRUE(log.contains(LOG_ERR, "string_join.cpp:62 The input array is empty!!"));
    EXPECT_EQ(failing(1, [&] { return KOVAStrJoin(parts, 3, ",", &buf, &size); }), -1);
    expect_error(ERR_OUT_OF_MEMORY, "string_join.cpp", 69);
    EXPECT_TRUE(log.contains(LOG_ERR, "string_join.cpp:69 Out of memory!!"));
    EXPECT_EQ(buf, nullptr);

    ASSERT_EQ(KOVAStrJoin(two, 2, "", &buf, &size), 0);  // the block has a byte for the NUL
    EXPECT_EQ(said(size, buf), "2:xy");
    ASSERT_EQ(KOVAStrJoin(parts, 3, ", ", &buf, &size), 0);  // grown
    EXPECT_EQ(said(size, buf), "6:a, b");                    // texts and separators
    char *same = buf;
    ASSERT_EQ(KOVAStrJoin(two, 2, "", &buf, &size), 0);
    EXPECT_EQ(buf, same);
    EXPECT_STREQ(buf, "xy");
    EXPECT_EQ(failing(1, [&] { return KOVAStrJoin(longer, 3, "", &buf, &size); }), -1);
    expect_error(ERR_OUT_OF_MEMORY, "string_join.cpp", 76);
    EXPECT_EQ(said(size, buf), "6:xy");  // the old buffer is still the caller's, intact
    ASSERT_EQ(KOVAStrJoin(longer, 3, "", &buf, &size), 0);  // needs the NUL byte too
    EXPECT_EQ(said(size, buf), "14:alphabetagamma");
    EXPECT_EQ(KOVAStrJoin(parts, 3, ",", &buf, &bad_size), -1);  // an existing buffer, size 0
    EXPECT_EQ(KOVAErrorGetLine(), 42);
    free(buf);
}

}  // namespace
