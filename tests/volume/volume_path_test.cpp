// Volume paths: location and number, the conversions between volumes, groups and arrays, and
// the number of a path inside a volume.
#include <syslog.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "kovasdk/error.h"
#include "kovasdk/volume.h"
#include "support/sandbox.h"

namespace kova::test {
namespace {

constexpr uint32_t kNoVolumeId = 0x9900;  // no message of its own

class VolumePath : public SandboxTest {
  protected:
    // The conversion's result, or "-1 0xCODE" when it failed.
    static std::string convert(const char *path, int option, int size = 64) {
        char buf[64] = "";
        if (VolumePathSwitch(path, option, buf, size) == 0) return buf;
        char failed[32];
        snprintf(failed, sizeof failed, "-1 0x%04X", KLIBErrGet());
        return failed;
    }
};

TEST(VolumePathParse, LocationsAndNumbers) {
    struct Row {
        const char *path;
        int result, num, location;
    };
    const Row rows[] = {
        {"/volume12", 1, 12, VOLUME_LOCATION_INTERNAL},
        {"/volumeX3", 1, 3, VOLUME_LOCATION_EBOX},
        {"/volumeUSB2/usbshare", 1, 2, VOLUME_LOCATION_USB},
        {"/volumeUSBx", 1, 0, VOLUME_LOCATION_USB},  // the rest is not checked
        {"/volumeSATA1", 1, 1, VOLUME_LOCATION_SATA},
        {"/volume1a", 0, 0, 0},
        {"/volumeX3b", 0, 0, 0},
        {"/volume", 0, 0, 0},
        {"/volume1/share", 0, 0, 0},
        {"/volume99999999999", 0, 0, 0},
        {"/mnt/volume1", 0, 0, 0},
    };
    for (const Row &row : rows) {
        VOLUME_INFO info{};
        LogCapture log;
        EXPECT_EQ(row.result, VolumePathParse(row.path, &info)) << row.path;
        EXPECT_EQ(row.num, info.num) << row.path;
        EXPECT_EQ(row.location, info.location) << row.path;
        if (row.result == 0) {
            EXPECT_TRUE(
                log.mentions(LOG_DEBUG, std::string("NOT supported volume path: ") + row.path));
        }
    }
    VOLUME_INFO info{};
    EXPECT_EQ(-1, VolumePathParse(nullptr, &info));
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
}

TEST_F(VolumePath, EveryOptionWithoutGroups) {
    EXPECT_EQ("/dev/vg1", convert("/volume1", VOLUME_SWITCH_VOL_TO_VG));
    EXPECT_EQ("-1 0x0D00", convert("/volumeX1", VOLUME_SWITCH_VOL_TO_VG));
    EXPECT_EQ("/dev/md2", convert("/volume1", VOLUME_SWITCH_VOL_TO_MD));
    EXPECT_EQ("/dev/md103", convert("/volumeX3", VOLUME_SWITCH_VOL_TO_MD));
    EXPECT_EQ("-1 0x0D00", convert("/volumeUSB1/usbshare", VOLUME_SWITCH_VOL_TO_MD));
    EXPECT_EQ("/volume1", convert("/dev/md2", VOLUME_SWITCH_MD_TO_VOL));
    EXPECT_EQ("/volume99", convert("/dev/md100", VOLUME_SWITCH_MD_TO_VOL));
    EXPECT_EQ("/volumeX1", convert("/dev/md101", VOLUME_SWITCH_MD_TO_VOL));
    EXPECT_EQ("-1 0x0D00", convert("/dev/md1", VOLUME_SWITCH_MD_TO_VOL)) << "the swap array";
    EXPECT_EQ("-1 0x0D00", convert("/dev/sda3", VOLUME_SWITCH_MD_TO_VOL));
    EXPECT_EQ("/volume4", convert("/dev/vg4", VOLUME_SWITCH_VG_TO_VOL));
    EXPECT_EQ("-1 0x0D00", convert("/dev/vgx", VOLUME_SWITCH_VG_TO_VOL));
    EXPECT_EQ("/volume1", convert("/volume1/share/dir", VOLUME_SWITCH_VOL_OF_PATH));
    EXPECT_EQ("/volumeX2", convert("/volumeX2", VOLUME_SWITCH_VOL_OF_PATH));
    EXPECT_EQ("/volumeUSB1/usbshare",
              convert("/volumeUSB1/usbshare/photos/a.jpg", VOLUME_SWITCH_VOL_OF_PATH));
    {
        LogCapture log;
        EXPECT_EQ("-1 0x0D00", convert("/volume1x/share", VOLUME_SWITCH_VOL_OF_PATH));
        EXPECT_TRUE(log.mentions(LOG_ERR, "Illegal volume path /volume1x/share"));
    }
    LogCapture log;
    EXPECT_EQ("-1 0x0D00", convert("/volume1", 6));
    EXPECT_TRUE(log.mentions(LOG_ERR, "bad parameter, option=6"));
    EXPECT_EQ("-1 0x0100", convert("/dev/md12", VOLUME_SWITCH_MD_TO_VOL, 9)) << "no room";
    EXPECT_EQ("/volume11", convert("/dev/md12", VOLUME_SWITCH_MD_TO_VOL, 10));
}

TEST_F(VolumePath, ArraysOfAGroupMapToTheGroupsVolume) {
    write_file(path("/tmp/lvm.status"),
               "# group, physical volume, state\n"
               "vg1 /dev/md2 0\n"
               "vg1 /dev/md5 1\n"
               "broken line\n"
               "vg3 /dev/md4 0\n");
    EXPECT_EQ("/volume1", convert("/dev/md2", VOLUME_SWITCH_MD_TO_VOL));
    EXPECT_EQ("/volume1", convert("/dev/md5", VOLUME_SWITCH_MD_TO_VOL)) << "failed, still a PV";
    EXPECT_EQ("/volume3", convert("/dev/md4", VOLUME_SWITCH_MD_TO_VOL));
    EXPECT_EQ("/volume2", convert("/dev/md3", VOLUME_SWITCH_MD_TO_VOL)) << "in no group";
    // The other options do not read the file.
    EXPECT_EQ("/dev/vg1", convert("/volume1", VOLUME_SWITCH_VOL_TO_VG));
    EXPECT_EQ("/dev/md2", convert("/volume1", VOLUME_SWITCH_VOL_TO_MD));

    // A status file that cannot be read (a directory) fails the search.
    std::filesystem::remove(path("/tmp/lvm.status"));
    std::filesystem::create_directory(path("/tmp/lvm.status"));
    LogCapture log;
    EXPECT_EQ("-1 0x0900", convert("/dev/md2", VOLUME_SWITCH_MD_TO_VOL));
    EXPECT_TRUE(log.mentions(LOG_ERR, "Failed to search path [/dev/md2] in VG list "));
}

TEST(VolumeIdParse, NumbersSnapshotsAndLimits) {
    EXPECT_EQ(1, KOVAVolIDParse("/volume1/a"));
    EXPECT_EQ(12, KOVAVolIDParse("/volume12/share/dir"));
    EXPECT_EQ(3, KOVAVolIDParse("/volume3.snap_17/share"));
    struct Bad {
        std::string path;
        uint32_t code;
    };
    const std::string longest = "/volume1/" + std::string(476, 'a');  // 485 characters
    EXPECT_EQ(1, KOVAVolIDParse(longest.c_str()));
    const Bad bad[] = {
        {"/volume", ERR_BAD_PARAMETERS},   // 7 characters
        {"/volume1", kNoVolumeId},         // no path inside
        {"/volume1/", kNoVolumeId},        // nothing after the slash
        {"/volumeX1/share", kNoVolumeId},  // expansion units have no id here
        {"/volume1.snap_x/share", kNoVolumeId},
        {"/mnt/volume1/share", ERR_BAD_PARAMETERS},
        {longest + "b", ERR_BAD_PARAMETERS},
    };
    for (const Bad &b : bad) {
        EXPECT_EQ(-1, KOVAVolIDParse(b.path.c_str())) << b.path;
        EXPECT_TRUE(raised(b.code)) << b.path;
    }
    EXPECT_EQ(-1, KOVAVolIDParse(nullptr));
}

}  // namespace
}  // namespace kova::test
