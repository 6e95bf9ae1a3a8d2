// The process-wide error state: codes, where they were raised, the message table, printing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "core/raise.h"
#include "kovasdk/error.h"
#include "kovasdk/list.h"
#include "support/sandbox.h"

using kova::test::capture_stdout;
using ::testing::HasSubstr;

namespace {

TEST(ErrorState, SetExRecordsCodeFileAndLineAndSetClearsThem) {
    static const char kFile[] = "x.c";
    KLIBErrSetEx(ERR_BAD_PARAMETERS, kFile, 7);
    EXPECT_EQ(KOVAErrorGetFile(), kFile);  // kept by pointer, not copied
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
    EXPECT_EQ(kovaerrno, static_cast<uint32_t>(ERR_BAD_PARAMETERS));
    EXPECT_EQ(KOVAErrorGetLine(), 7);

    KLIBErrSet(ERR_KEY_NOT_FOUND);
    EXPECT_EQ(KLIBErrGet(), ERR_KEY_NOT_FOUND);
    EXPECT_EQ(KOVAErrorGetFile(), nullptr);
    EXPECT_EQ(KOVAErrorGetLine(), 0);
}

TEST(ErrorState, SuccessfulCallsLeaveTheLastCode) {
    KLIBErrSetEx(ERR_OPEN_FAILED, "a.c", 1);
    PKLIBSZLIST list = PslKLIBSzListAlloc(0);
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(KLIBSzListPush(&list, "x"), 0);
    KLIBSzListFree(list);
    EXPECT_EQ(KLIBErrGet(), ERR_OPEN_FAILED);
}

TEST(ErrorState, RaiseHelperRecordsThisFilesBaseNameAndTheGivenOrCallingLine) {
    kova::raise(ERR_WRITE_FAILED, 157);
    EXPECT_STREQ(KOVAErrorGetFile(), "error_state_test.cpp");
    EXPECT_EQ(KOVAErrorGetLine(), 157);
    const int line = __LINE__ + 1;
    kova::raise(ERR_READ_FAILED);
    EXPECT_EQ(KOVAErrorGetLine(), line);
}

TEST(ErrorState, VolumeSlotIsSeparate) {
    KOVAVolISetErr(ERR_NO_VOLUME_ID);
    KLIBErrSet(ERR_UNKNOWN);
    EXPECT_EQ(KOVAVolGetErr(), static_cast<uint32_t>(ERR_NO_VOLUME_ID));
    KOVAVolISetErr(0);
    EXPECT_EQ(KLIBErrGet(), ERR_UNKNOWN);
}

// The table: 85 names, each at its code's index (a shifted entry moves every later one), and
// the unnamed codes raised all the same are gaps.
TEST(ErrorTable, NamesStandAtTheirCodes) {
#define NAMED(code) \
    { code, #code }
    const struct {
        uint32_t code;
        const char *name;
    } named[] = {
        NAMED(ERR_SUCCESS),        NAMED(ERR_NOT_ENOUGH_MEMORY), NAMED(ERR_BAD_PARAMETERS),
        NAMED(ERR_TOO_MANY_USERS), NAMED(ERR_KEY_NOT_FOUND),     NAMED(ERR_TIMER_EXPIRED),
        NAMED(ERR_READ_GEO),       NAMED(ERR_BADPATCH),          NAMED(ERR_FORMAT_ERROR),
        NAMED(ERR_NO_VOLUME_ID),   NAMED(ERR_BAD_DISKSECTOR),    NAMED(ERR_UDPD_INVALID_HANDLE),
        NAMED(ERR_UDPD_RECV_FAIL), NAMED(ERR_UNKNOWN),           NAMED(ERR_VOLUME_SIZE_TOO_LARGE),
        NAMED(ERR_YP_BIND),
    };
#undef NAMED
    int non_empty = 0;
    for (int i = 0; i < errNum; ++i)
        non_empty += rgszErrMsg[i][0] != '\0';
    EXPECT_EQ(non_empty, 85);
    for (const auto &n : named)
        EXPECT_STREQ(rgszErrMsg[n.code >> 8], n.name);
    const uint32_t gaps[] = {
        ERR_REMOVE_TMP_FAILED, ERR_COPY_FAILED,      ERR_WRITE_IO,       0x2F00,
        ERR_BACKUP_CONF_OPEN,  ERR_BACKUP_CONF_ITEM, ERR_SYS_CALL_FAILED};
    for (uint32_t gap : gaps)
        EXPECT_STREQ(rgszErrMsg[gap >> 8], "") << std::hex << gap;
}

// KLIBErrPrint reads errno, not the SDK's code.
TEST(ErrorPrint, PrintsTheNameOfErrnoWhenItHasTheShapeOfACode) {
    const struct {
        int value;
        const char *printed;
    } cases[] = {
        {0x0D00, "ERR_BAD_PARAMETERS\n"},
        {0x0000, "ERR_SUCCESS\n"},
        {0x9000, "ERR_YP_BIND\n"},
        {0x2F00, "\n"},  // a gap: an empty line
        {0x0D01, ""},    // low byte set
        {0x9100, ""},    // beyond the table
        {-0x0D00, ""},
        {ENOENT, ""},
    };
    KLIBErrSet(ERR_KEY_NOT_FOUND);
    for (const auto &c : cases) {
        const std::string out = capture_stdout([&] {
            errno = c.value;
            KLIBErrPrint();
        });
        EXPECT_EQ(out, c.printed) << std::hex << c.value;
    }
}

}  // namespace
