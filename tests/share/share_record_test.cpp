// The share record, its packed form (the same bytes on every host), the rules of names,
// sections and default access, and the access lists.
#include <string>
#include <vector>

#include "kovasdk/error.h"
#include "kovasdk/file.h"
#include "kovasdk/kstring.h"
#include "kovasdk/share.h"
#include "support/name_list.h"
#include "support/sandbox.h"

namespace kova::test {
namespace {

KOVASHARE public_share() {
    KOVASHARE share{};
    share.szName = const_cast<char *>("public");
    share.szComment = const_cast<char *>("Everyone");
    share.szPath = const_cast<char *>("/volume1/public");
    share.szRWList = const_cast<char *>("alice,@sales");
    share.fType = KOVA_SHARE_READ_WRITE;
    share.browseable = 1;
    return share;
}

std::vector<unsigned char> packed(const KOVASHARE &share) {
    void *data = nullptr;
    int32_t cap = 0;
    const int len = KOVAShareDBPack(&share, &data, &cap);
    std::vector<unsigned char> bytes;
    if (len > 0)
        bytes.assign(static_cast<unsigned char *>(data), static_cast<unsigned char *>(data) + len);
    free(data);
    return bytes;
}

void put32(std::vector<unsigned char> &bytes, uint32_t n) {
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<unsigned char>(n >> shift));
}

TEST(ShareRecord, PackedBytesAreTheAppliancesOnEveryHost) {
    std::vector<unsigned char> expected;
    put32(expected, 0);
    // Offsets from byte 4: the strings from 44 on; the empty ones at the record's last byte.
    for (uint32_t offset : {44u, 51u, 60u, 89u, 76u, 89u})
        put32(expected, offset);
    for (uint32_t n : {2u, 1u, 0u, 94u, 90u})
        put32(expected, n);
    for (const char *text : {"public", "Everyone", "/volume1/public", "alice,@sales", ""}) {
        for (const char *c = text;; ++c) {
            expected.push_back(static_cast<unsigned char>(*c));
            if (*c == '\0') break;
        }
    }
    EXPECT_EQ(packed(public_share()), expected);
}

TEST(ShareRecord, UnpackRoundTripAndMalformedRecords) {
    const std::vector<unsigned char> bytes = packed(public_share());
    PKOVASHARE share = nullptr;
    ASSERT_EQ(KOVAShareDBUnpack(bytes.data(), static_cast<int32_t>(bytes.size()), &share), 0);
    EXPECT_STREQ(share->szName, "public");
    EXPECT_STREQ(share->szPath, "/volume1/public");
    EXPECT_STREQ(share->szRWList, "alice,@sales");
    EXPECT_STREQ(share->szDenyList, "");
    EXPECT_EQ(share->szDenyList, share->szROList);  // both at the block's last byte
    EXPECT_EQ(share->fType, KOVA_SHARE_READ_WRITE);
    EXPECT_EQ(share->browseable, 1);
    EXPECT_EQ(packed(*share), bytes);

    auto broken = [&](size_t at, unsigned char value, size_t size) {
        std::string copy(reinterpret_cast<const char *>(bytes.data()), size);
        if (at < copy.size()) copy[at] = static_cast<char>(value);
        return KOVAShareDBUnpack(copy.data(), static_cast<int32_t>(copy.size()), &share) == -1 &&
               KLIBErrGet() == ERR_FORMAT_ERROR;
    };
    EXPECT_TRUE(broken(0, 1, bytes.size()));                   // the leading word is not zero
    EXPECT_TRUE(broken(7, 200, bytes.size()));                 // an offset beyond the record
    EXPECT_TRUE(broken(43, 95, bytes.size()));                 // packed length not the size + 4
    EXPECT_TRUE(broken(bytes.size(), 0, 60));                  // cut short
    EXPECT_TRUE(broken(bytes.size() - 1, 'x', bytes.size()));  // no closing zero
    EXPECT_TRUE(broken(52, '/', bytes.size()));                // the name no longer a share name
    KOVAShareFree(share);
}

TEST(ShareRecord, AllocRefusalsAndReuse) {
    PKOVASHARE share = nullptr;
    KOVASHARE tmpl = public_share();
    tmpl.szName = const_cast<char *>("a-name-of-thirty-three-characters");
    EXPECT_EQ(KOVAShareAlloc(&share, &tmpl), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_INVALID_SHARENAME);
    tmpl.szName = const_cast<char *>("-dash");
    EXPECT_EQ(KOVAShareAlloc(&share, &tmpl), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_INVALID_SHARENAME);
    tmpl = public_share();
    tmpl.szPath = const_cast<char *>("volume1/public");
    EXPECT_EQ(KOVAShareAlloc(&share, &tmpl), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_SHARE_PATH_NOT_ABSOLUTE);
    tmpl = public_share();
    tmpl.ftpWriteOnly = -1;
    EXPECT_EQ(KOVAShareAlloc(&share, &tmpl), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);

    tmpl = public_share();
    ASSERT_EQ(KOVAShareAlloc(&share, &tmpl), 0);
    // The record rebuilt from itself, with a longer comment.
    KOVASHARE again = *share;
    again.szComment = const_cast<char *>("Everyone on the appliance, read and write");
    ASSERT_EQ(KOVAShareAlloc(&share, &again), 0);
    EXPECT_STREQ(share->szComment, "Everyone on the appliance, read and write");
    EXPECT_STREQ(share->szRWList, "alice,@sales");
    EXPECT_GE(share->cbAlloc, share->cbSize);
    KOVAShareFree(share);
}

TEST(ShareRules, NamesSectionsAndDefaultAccess) {
    EXPECT_EQ(BlKLIBIsShareName("a-name-of-thirty-two-characters!"), 0);  // "!" is no name byte
    EXPECT_EQ(BlKLIBIsShareName("a-name-of-thirty-two-characters_"), 1);
    EXPECT_EQ(BlKLIBIsShareName("Photos 2026"), 1);
    EXPECT_EQ(BlKLIBIsShareName("trailing "), 0);

    EXPECT_EQ(ShareSectionTypeGet("GLOBAL"), KOVA_SHARE_SECTION_RESERVED);
    EXPECT_EQ(ShareSectionTypeGet("Home"), KOVA_SHARE_SECTION_RESERVED);
    EXPECT_EQ(ShareSectionTypeGet("pRiNtErS"), KOVA_SHARE_SECTION_RESERVED);
    EXPECT_EQ(ShareSectionTypeGet("homes"), KOVA_SHARE_SECTION_SHARE);
    char name[16];
    EXPECT_EQ(ShareParseSectionName("[a]b] ; note", name, sizeof name), 4);
    EXPECT_STREQ(name, "a]b");
    EXPECT_EQ(ShareParseSectionName("path = /x", name, sizeof name), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_FORMAT_ERROR);
    EXPECT_EQ(ShareParseSectionName("[a-longer-name-than-fits]", name, sizeof name), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_NOT_ENOUGH_MEMORY);

    EXPECT_EQ(ShareFTypeGetFormConf("yes", "yes"), KOVA_SHARE_READ_WRITE);
    EXPECT_EQ(ShareFTypeGetFormConf("yes", "no"), KOVA_SHARE_READ_ONLY);
    EXPECT_EQ(ShareFTypeGetFormConf("no", "no"), KOVA_SHARE_NO_ACCESS);
    EXPECT_EQ(ShareFTypeGetFormConf("no", "yes"), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_UNKNOWN);
    EXPECT_EQ(ShareFTypeGetFormConf(nullptr, "no"), -1);
    const char *guest_ok = nullptr, *writeable = nullptr;
    ASSERT_EQ(ShareFTypeSetToConf(KOVA_SHARE_NO_ACCESS, &guest_ok, &writeable), 0);
    EXPECT_STREQ(guest_ok, "no");
    EXPECT_STREQ(writeable, "no");
    EXPECT_EQ(ShareFTypeSetToConf(3, &guest_ok, &writeable), -1);

    char list[] = "alice,Bob,ALICE,,bob,carol";
    EXPECT_EQ(RemoveSameUsers(list), 3);
    EXPECT_STREQ(list, "alice,Bob,carol");
}

class ShareLists : public SandboxTest {
  protected:
    void TearDown() override { ErrKLIBFileCloseLock(); }
};

// The skeleton's sales group holds alice and bob.
TEST_F(ShareLists, RightsAcrossListsAndGroups) {
    EXPECT_EQ(UserCheckRights(NameList("alice").p, NameList("carol").p, NameList("@sales").p), 2);
    EXPECT_EQ(UserCheckRights(NameList("").p, NameList("bob,BOB").p, NameList("alice").p), 1);
    EXPECT_EQ(
        UserCheckRights(NameList("guest").p, NameList("@sales").p, NameList("@nothing,carol").p),
        0);
    EXPECT_EQ(UserCheckRights(NameList("bob,bob").p, NameList("@sales").p, NameList("").p),
              2);  // 2 wins

    NameList rights;
    EXPECT_EQ(ParseRights("alice,@sales", "bob,nobody", "carol,ALICE", &rights.p), 4);
    EXPECT_EQ(rights.joined(";"), "@sales - NA;alice - NA;bob - RW;carol - RO");

    PKOVAUSERDB users = KOVAUserDBOpen();
    PKOVAGROUPDB groups = KOVAGroupDBOpen();
    ASSERT_NE(users, nullptr);
    ASSERT_NE(groups, nullptr);
    NameList valid;
    EXPECT_EQ(KOVAUserGetValidUserList2(users, groups, "ALICE,zed,@SALES,@none,guest,nobody,alice",
                                        &valid.p),
              3);
    EXPECT_EQ(valid.joined(), "alice,@sales,guest");
    KOVAGroupDBClose(groups);
    KOVAUserDBClose(users);
}

}  // namespace
}  // namespace kova::test
