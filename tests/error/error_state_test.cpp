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
    KLIBErrSetEx(ERR_BAD_PARAMETERS, "x.c", 7);
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
    EXPECT_EQ(kovaerrno, static_cast<uint32_t>(ERR_BAD_PARAMETERS));
    EXPECT_STREQ(KOVAErrorGetFile(), "x.c");
    EXPECT_EQ(KOVAErrorGetLine(), 7);

    KLIBErrSet(ERR_KEY_NOT_FOUND);
    EXPECT_EQ(KLIBErrGet(), ERR_KEY_NOT_FOUND);
    EXPECT_EQ(KOVAErrorGetFile(), nullptr);
    EXPECT_EQ(KOVAErrorGetLine(), 0);
}

TEST(ErrorState, FileIsKeptByPointerNotCopied) {
    static const char kFile[] = "disk_info_get.c";
    KLIBErrSetEx(ERR_OPEN_FAILED, kFile, 12);
    EXPECT_EQ(KOVAErrorGetFile(), kFile);
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

TEST(ErrorTable, SizeAndGlobals) {
    EXPECT_EQ(errNum, 145);
    EXPECT_EQ(codeNum, 96);
    EXPECT_EQ(gDiskErr, 0u);
    EXPECT_EQ(gRaidErr, 0u);
}

// Every named code of the header stands in the table under its own name.
TEST(ErrorTable, NamesMatchTheirCodes) {
#define NAMED(code) \
    { code, #code }
    const struct {
        uint32_t code;
        const char *name;
    } named[] = {
        NAMED(ERR_SUCCESS),
        NAMED(ERR_NOT_ENOUGH_MEMORY),
        NAMED(ERR_OUT_OF_MEMORY),
        NAMED(ERR_ACCESS_DENIED),
        NAMED(ERR_LOCK_FAILED),
        NAMED(ERR_UNLOCK_FAILED),
        NAMED(ERR_PATH_NOT_FOUND),
        NAMED(ERR_FILE_NOT_FOUND),
        NAMED(ERR_FILE_EXISTS),
        NAMED(ERR_OPEN_FAILED),
        NAMED(ERR_READ_FAILED),
        NAMED(ERR_WRITE_FAILED),
        NAMED(ERR_CREATE_FAILED),
        NAMED(ERR_BAD_PARAMETERS),
        NAMED(ERR_INVALID_SERVERNAME),
        NAMED(ERR_INVALID_DOMAINNAME),
        NAMED(ERR_INVALID_NETNAME),
        NAMED(ERR_SERVER_UNREACHABLE),
        NAMED(ERR_INVALID_SHARENAME),
        NAMED(ERR_SHARE_EXISTS),
        NAMED(ERR_NO_SUCH_SHARE),
        NAMED(ERR_TOO_MANY_SHARES),
        NAMED(ERR_INVALID_GROUPNAME),
        NAMED(ERR_GROUP_EXISTS),
        NAMED(ERR_NO_SUCH_GROUP),
        NAMED(ERR_TOO_MANY_GROUPS),
        NAMED(ERR_INVALID_USERNAME),
        NAMED(ERR_INVALID_PASSWORDNAME),
        NAMED(ERR_USER_EXISTS),
        NAMED(ERR_NO_SUCH_USER),
        NAMED(ERR_WRONG_PASSWORD),
        NAMED(ERR_TOO_MANY_USERS),
        NAMED(ERR_KEY_NOT_FOUND),
        NAMED(ERR_KEY_EXISTS),
        NAMED(ERR_SECTION_NOT_FOUND),
        NAMED(ERR_SECTION_EXISTS),
        NAMED(ERR_NOT_ENOUGH_QUOTA),
        NAMED(ERR_NOT_ENOUGH_VOLUME_SPACE),
        NAMED(ERR_SEEK_FAILED),
        NAMED(ERR_STAT_FAILED),
        NAMED(ERR_RENAME_FAILED),
        NAMED(ERR_NOT_ENOUGH_SPACE),
        NAMED(ERR_OP_FAILURE),
        NAMED(ERR_DEV_UNCONFIG),
        NAMED(ERR_DEV_UNMOUNTED),
        NAMED(ERR_OP_UNREGISTERED),
        NAMED(ERR_TIMER_EXPIRED),
        NAMED(ERR_READ_GEO),
        NAMED(ERR_USAGE),
        NAMED(ERR_UPDATE_OFFSET),
        NAMED(ERR_CHECKSUM),
        NAMED(ERR_OPEN_RAWDEVICE),
        NAMED(ERR_OPEN_OPTFILE),
        NAMED(ERR_READ_RAWDEVICE),
        NAMED(ERR_WRITE_RAWDEVICE),
        NAMED(ERR_BADPATCH),
        NAMED(ERR_FORMAT_ERROR),
        NAMED(ERR_NO_VOLUME_ID),
        NAMED(ERR_NO_DISK_ID),
        NAMED(ERR_NOT_ENOUGH_SD),
        NAMED(ERR_SD_SIZE_NOT_ALIGN),
        NAMED(ERR_DEVICE_BUSY),
        NAMED(ERR_INVALID_SD),
        NAMED(ERR_FORMAT_FAIL),
        NAMED(ERR_CANNOT_REBUILD_DISK),
        NAMED(ERR_BROKEN_RAID_CONF),
        NAMED(ERR_DISK_TOO_SMALL),
        NAMED(ERR_CANNOT_GET_MNTINFO),
        NAMED(ERR_BROKEN_DISK_INFO),
        NAMED(ERR_DISK_IO_FAILED),
        NAMED(ERR_BAD_DISKSECTOR),
        NAMED(ERR_UDPD_INVALID_HANDLE),
        NAMED(ERR_UDPD_RUNNING_HANDLE),
        NAMED(ERR_UDPD_INVALID_EVENT),
        NAMED(ERR_UDPD_INVALID_PARAMETER),
        NAMED(ERR_UDPD_EXIT_ABNORMAL),
        NAMED(ERR_UDPD_NOT_ENOUGH_SPACE),
        NAMED(ERR_UDPD_TIMEOUT),
        NAMED(ERR_UDPD_INIT_FAIL),
        NAMED(ERR_UDPD_SEND_FAIL),
        NAMED(ERR_UDPD_RECV_FAIL),
        NAMED(ERR_UNKNOWN),
        NAMED(ERR_SYS_UNKNOWN),
        NAMED(ERR_VOLUME_SIZE_TOO_LARGE),
        NAMED(ERR_YP_BIND),
    };
#undef NAMED
    int non_empty = 0;
    for (int i = 0; i < errNum; ++i)
        non_empty += rgszErrMsg[i][0] != '\0';
    EXPECT_EQ(non_empty, static_cast<int>(std::size(named)));
    for (const auto &n : named) {
        EXPECT_STREQ(rgszErrMsg[n.code >> 8], n.name) << std::hex << n.code;
    }
    // The unnamed codes raised all the same are gaps of the table.
    const uint32_t gaps[] = {
        ERR_REMOVE_TMP_FAILED, ERR_COPY_FAILED,      ERR_WRITE_IO,       0x2F00,
        ERR_BACKUP_CONF_OPEN,  ERR_BACKUP_CONF_ITEM, ERR_SYS_CALL_FAILED};
    for (uint32_t gap : gaps) {
        EXPECT_STREQ(rgszErrMsg[gap >> 8], "") << std::hex << gap;
    }
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
