// The record, the rules and the line forms, without the database.
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "user_test.h"

namespace kova::test {
namespace {

TEST(UserName, Rule) {
    const std::string max(64, 'a');
    const std::string max_utf8 = std::string(63, 'a') + "\xC3\xA9";  // 64 characters, 65 bytes
    struct Case {
        std::string name;
        int valid;
    } cases[] = {
        {"alice", 1},         {"Bob Jones", 1}, {"a.b-c_d", 1}, {"x-", 1},      {"9lives", 1},
        {"J\xC3\xBCrgen", 1}, {max, 1},         {max_utf8, 1},  {max + "a", 0}, {"", 0},
        {"-alice", 0},        {" alice", 0},    {"alice ", 0},  {"a/b", 0},     {"a:b", 0},
        {"a\\b", 0},          {"a'b", 0},       {"a\tb", 0},    {"a@b", 0},
    };
    for (const Case &c : cases)
        EXPECT_EQ(BlKLIBIsUserName(c.name.c_str()), c.valid) << c.name;
    EXPECT_EQ(BlKLIBIsUserName(nullptr), 0);
}

TEST(UserRecord, AllocReusesAndRefusesItsOwnStrings) {
    PKOVAUSER user = nullptr;
    ASSERT_EQ(KOVAUserAlloc(&user, "dom\\carol", nullptr, 1, 2, "d", "/h", "/s", -1, nullptr, 3),
              0);
    EXPECT_EQ(user->type, KOVA_USER_TYPE_DOMAIN);
    EXPECT_STREQ(user->szPassword, "");
    EXPECT_STREQ(user->szMail, "");
    const int32_t first = user->cbAlloc;
    // Smaller: the block is kept.
    ASSERT_EQ(KOVAUserAlloc(&user, "al", "p", 7, 8, nullptr, nullptr, nullptr, 5, "m", 1), 0);
    EXPECT_EQ(user->cbAlloc, first);
    EXPECT_EQ(user->type, KOVA_USER_TYPE_LOCAL);
    EXPECT_STREQ(user->szDescription, "");
    EXPECT_EQ(user->uid, 7u);
    // A string of the block itself could move with it: refused.
    EXPECT_EQ(
        KOVAUserAlloc(&user, user->szName, "p", 0, 0, nullptr, nullptr, nullptr, 0, nullptr, 0),
        -1);
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
    EXPECT_EQ(KOVAUserAlloc(&user, "", "p", 0, 0, nullptr, nullptr, nullptr, 0, nullptr, 0), -1);
    const std::string long_text(5000, 'x');
    ASSERT_EQ(
        KOVAUserAlloc(&user, "al", "p", 0, 0, long_text.c_str(), nullptr, nullptr, 0, nullptr, 0),
        0);
    EXPECT_EQ(user->szDescription, long_text);
    EXPECT_GT(user->cbAlloc, 5000);
    KOVAUserFree(user);
}

TEST(UserLines, UnpackAndPack) {
    alignas(8) char buf[512];
    auto *user = reinterpret_cast<PKOVAUSER>(buf);
    ASSERT_EQ(
        KOVAUserDBPasswdUnpack("bob:x:1027:100:Bob;, Jones;;:/h/bob:/bin/csh", user, sizeof buf),
        0);
    EXPECT_STREQ(user->szName, "bob");
    EXPECT_EQ(user->uid, 1027u);
    EXPECT_EQ(user->gid, 100u);
    EXPECT_STREQ(user->szDescription, "Bob: Jones;");
    EXPECT_STREQ(user->szShell, "/bin/csh");
    char line[128];
    EXPECT_EQ(KOVAUserDBPack(user, line, sizeof line), 43);  // with its NUL; description as given
    EXPECT_STREQ(line, "bob:x:1027:100:Bob: Jones;:/h/bob:/bin/csh");
    EXPECT_EQ(KOVAUserDBPack(user, line, 10), -1);

    EXPECT_EQ(KOVAUserDBPasswdUnpack("bob:x:1:2:d:/h", user, sizeof buf), -1);
    EXPECT_TRUE(raised(ERR_FORMAT_ERROR));
    EXPECT_EQ(KOVAUserDBPasswdUnpack("bob:x:1:2:d:/h:/s:extra", user, sizeof buf), -1);
    EXPECT_TRUE(raised(ERR_FORMAT_ERROR));
    EXPECT_EQ(KOVAUserDBPasswdUnpack(":x:1:2:d:/h:/s", user, sizeof buf), -1);
    EXPECT_TRUE(raised(ERR_INVALID_USERNAME));
    EXPECT_EQ(KOVAUserDBPasswdUnpack("bob:x:1:2:d:/h:/s", user, 40), -1);

    ASSERT_EQ(KOVAUserDBShadowUnpack("bob:$1$ab$xyz:20400:0:99999:7::21550:", user, sizeof buf), 0);
    EXPECT_STREQ(user->szPassword, "$1$ab$xyz");
    EXPECT_EQ(user->expireDay, 21550);
    EXPECT_EQ(KOVAUserDBShadowUnpack("bob:h:1:0:99999:7::", user, sizeof buf), -1);

    user->szName = nullptr;
    EXPECT_EQ(KOVAUserDBPack(user, line, sizeof line), -1);
    EXPECT_TRUE(raised(ERR_INVALID_USERNAME));
}

TEST(UserSalt, MapsNumbersToSaltCharacters) {
    const std::pair<long, char> cases[] = {{0, '0'},  {9, '9'},  {10, 'A'}, {35, 'Z'},
                                           {36, 'a'}, {61, 'z'}, {62, '.'}, {63, '/'},
                                           {64, '0'}, {-1, '1'}, {-74, 'A'}};
    for (const auto &[n, c] : cases)
        EXPECT_EQ(KOVAUserRandomNumMap2Seed(n), c) << n;
}

// From the end of the expiry day in local time: d x 86400 + 86400 + timezone.
TEST(UserExpiry, Boundary) {
    const char *saved = getenv("TZ");
    const std::string old_tz = saved != nullptr ? saved : "";
    setenv("TZ", "EST5", 1);  // timezone = 18000
    tzset();
    // The day whose end passed within the last day is expired; the next one is not yet.
    const long now = static_cast<long>(time(nullptr));
    const auto d = static_cast<int32_t>((now - 86400 - 18000) / 86400);
    EXPECT_EQ(KOVAUserIsExpired(d), 1);
    EXPECT_EQ(KOVAUserIsExpired(d + 1), 0);
    EXPECT_EQ(KOVAUserIsExpired(d - 1000), 1);
    if (saved != nullptr) {
        setenv("TZ", old_tz.c_str(), 1);
    } else {
        unsetenv("TZ");
    }
    tzset();
}

}  // namespace
}  // namespace kova::test
