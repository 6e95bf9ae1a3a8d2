// Volume records and the enumeration over a fake mount table, volume groups and arrays; the
// volume tool's record; the mount record of /volumeN; mounting through recording shims.
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "kovasdk/error.h"
#include "kovasdk/volume.h"
#include "volume/volume_fake.h"

namespace kova::test {
namespace {

using VolumeRecord = VolumeWorld;

std::vector<std::string> arrays(const VOLUME_INFO &info) {
    std::vector<std::string> out;
    for (const RAID_LIST *n = info.pRaidList; n != nullptr; n = n->pNext)
        out.push_back(n->pRaid->szPath);
    return out;
}

TEST_F(VolumeRecord, MountedArrayAndUnmountedVolumes) {
    system_arrays({"sda", "sdb"});
    mirror(2, "sda3", "sdb3");
    mirror(3, "sdc3", "sdd3");
    mirror(101, "sdaa3", "sdab3");
    mounts("/dev/sda1 / ext4 rw 0 0\n/dev/md2 /volume1 ext4 rw,usrquota,grpquota 0 0\n");
    PVOLUME_INFO info = nullptr;
    ASSERT_EQ(1, VolumeInfoGet("/volume1", &info));
    EXPECT_EQ(1, info->num);
    EXPECT_EQ(VOLUME_LOCATION_INTERNAL, info->location);
    ASSERT_NE(nullptr, info->pFSInfo);
    EXPECT_STREQ("/dev/md2", info->pFSInfo->szDevice);
    EXPECT_STREQ("ext4", info->pFSInfo->szType);
    EXPECT_EQ(FS_STATE_WRITABLE, info->pFSInfo->state);
    EXPECT_EQ(nullptr, info->pVGInfo);
    EXPECT_EQ(std::vector<std::string>{"/dev/md2"}, arrays(*info));
    uint32_t flags = 0;
    EXPECT_EQ(1, VolumeIsWritable(info, &flags));
    EXPECT_EQ(0u, flags);
    VolumeInfoFree(info);

    // Not mounted: the array of the path itself, found through the missing group.
    ASSERT_EQ(1, VolumeInfoGet("/volume2", &info));
    EXPECT_EQ(nullptr, info->pFSInfo);
    EXPECT_EQ(std::vector<std::string>{"/dev/md3"}, arrays(*info));
    EXPECT_EQ(0, VolumeIsWritable(info, &flags));
    EXPECT_EQ(unsigned(VOLUME_NOT_MOUNTED | VOLUME_SYSTEM_PARTITION_ABNORMAL), flags)
        << "sdc and sdd are in no system array";
    VolumeInfoFree(info);
    ASSERT_EQ(1, VolumeInfoGet("/volumeX1", &info));
    EXPECT_EQ(std::vector<std::string>{"/dev/md101"}, arrays(*info));
    VolumeInfoFree(info);

    info = reinterpret_cast<PVOLUME_INFO>(&flags);
    EXPECT_EQ(0, VolumeInfoGet("/volume7", &info)) << "no file system, group or array";
    EXPECT_EQ(nullptr, info);
    EXPECT_EQ(0, VolumeInfoGet("/volumeUSB1/usbshare", &info));

    // A stopped array is not there: nothing exists under the path.
    storage_.add_array(3, {}, FakeArray{.errno_info = ENODEV});
    EXPECT_EQ(0, VolumeInfoGet("/volume2", &info));

    // Mounted read-only, and a later mount over the same point wins.
    mounts("/dev/md3 /volume1 ext4 rw 0 0\n/dev/md2 /volume1 ext4 ro,usrquota 0 0\n");
    ASSERT_EQ(1, VolumeInfoGet("/volume1", &info));
    EXPECT_STREQ("/dev/md2", info->pFSInfo->szDevice);
    EXPECT_EQ(FS_STATE_READONLY, info->pFSInfo->state);
    EXPECT_EQ(0, VolumeIsWritable(info, &flags));
    EXPECT_EQ(unsigned(VOLUME_FS_STATE2), flags);
    VolumeInfoFree(info);
}

TEST_F(VolumeRecord, LogicalVolumes) {
    system_arrays({"sda", "sdb", "sdc", "sdd"});
    mirror(4, "sda3", "sdb3");
    mirror(5, "sdc3", "sdd3");
    lvm("vg3 /dev/md4 0\nvg3 /dev/md5 0\nvg3 /dev/md6 1\nvg9 /dev/md9 0\n");
    mounts("/dev/vg3/lv /volume3 ext4 rw 0 0\n/dev/mapper/vg9-lv /volume9 ext4 rw 0 0\n");
    PVOLUME_INFO info = nullptr;
    ASSERT_EQ(1, VolumeInfoGet("/volume3", &info));
    ASSERT_NE(nullptr, info->pVGInfo);
    EXPECT_STREQ("vg3", info->pVGInfo->szName);
    EXPECT_EQ(3, info->pVGInfo->pvCount);
    EXPECT_EQ(PV_STATE_MISSING, info->pVGInfo->pPVList->pNext->pNext->state);
    // The missing md6 is not read; the others in the RAID family's list order.
    EXPECT_EQ((std::vector<std::string>{"/dev/md4", "/dev/md5"}), arrays(*info));
    uint32_t flags = 0;
    EXPECT_EQ(0, VolumeIsWritable(info, &flags));
    EXPECT_EQ(unsigned(VOLUME_PV_STATE1_INTERNAL), flags);
    VolumeInfoFree(info);

    // The group's only array does not run: the group is dropped, the file system stays.
    ASSERT_EQ(1, VolumeInfoGet("/volume9", &info));
    EXPECT_EQ(nullptr, info->pVGInfo);
    EXPECT_EQ(nullptr, info->pRaidList);
    EXPECT_STREQ("/dev/mapper/vg9-lv", info->pFSInfo->szDevice);
    VolumeInfoFree(info);

    // Unmounted, the internal path is looked up as its group.
    mounts("");
    ASSERT_EQ(1, VolumeInfoGet("/volume3", &info));
    EXPECT_EQ(nullptr, info->pFSInfo);
    EXPECT_NE(nullptr, info->pVGInfo);
    VolumeInfoFree(info);
}

TEST_F(VolumeRecord, Failures) {
    mirror(2, "sda3", "sdb3");
    PVOLUME_INFO info = nullptr;
    {
        LogCapture log;
        EXPECT_EQ(-1, VolumeInfoGet("/volume1x", &info));
        EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
        EXPECT_TRUE(log.mentions(LOG_ERR, "Bad parameters"));
    }
    {
        std::filesystem::create_directories(path("/proc/mounts"));
        LogCapture log;
        EXPECT_EQ(-1, VolumeInfoGet("/volume1", &info));
        EXPECT_TRUE(raised(ERR_UNKNOWN));
        EXPECT_TRUE(log.mentions(LOG_ERR, "Failed to get file system info, path=/volume1"));
        std::filesystem::remove(path("/proc/mounts"));
    }
    {
        mounts("/dev/md2 /volume1 ext4 rw 0 0\n");
        std::filesystem::create_directories(path("/tmp/lvm.status"));
        LogCapture log;
        EXPECT_EQ(-1, VolumeInfoGet("/volume2", &info)) << "unmounted: the group is read";
        EXPECT_TRUE(log.mentions(LOG_ERR, "Failed to get VG info, path=/volume2"));
        std::filesystem::remove(path("/tmp/lvm.status"));
    }
    {
        // An array that fails for another reason than not being there: no arrays at all.
        storage_.add_array(2, {{"sda3", "in_sync", "0"}}, FakeArray{.errno_info = EIO});
        LogCapture log;
        ASSERT_EQ(1, VolumeInfoGet("/volume1", &info));
        EXPECT_EQ(nullptr, info->pRaidList);
        EXPECT_TRUE(log.mentions(LOG_ERR, "Failed to get RAID information /dev/md2"));
        VolumeInfoFree(info);
    }
    for (long nth = 1; nth <= 12; nth++) {
        mirror(2, "sda3", "sdb3");
        AllocationFailure oom(nth);
        const int rc = VolumeInfoGet("/volume1", &info);
        if (rc == 1) VolumeInfoFree(info);
        EXPECT_TRUE(rc == 1 || rc == -1) << nth;
    }
}

TEST_F(VolumeRecord, EnumerationTakesEachVolumeOnce) {
    system_arrays({"sda", "sdb"});
    mirror(2, "sda3", "sdb3");
    mirror(3, "sdc3", "sdd3");
    mirror(4, "sde3", "sdf3");
    mirror(101, "sdaa3", "sdab3");
    lvm("vg3 /dev/md4 0\n");
    mounts(
        "/dev/sda1 / ext4 rw 0 0\n/dev/md2 /volume1 ext4 rw 0 0\n"
        "/dev/sdq1 /volumeUSB1/usbshare vfat rw 0 0\n/dev/sdr1 /volumes ext4 rw 0 0\n");
    PVOLUME_LIST list = nullptr;
    ASSERT_EQ(5, VolumeInfoEnum(&list));
    std::vector<std::string> paths;
    for (PVOLUME_LIST n = list; n != nullptr; n = n->pNext)
        paths.push_back(n->pVolume->szPath);
    // Mounted file systems, then groups, then arrays in the order of /sys/block.
    EXPECT_EQ((std::vector<std::string>{"/volume1", "/volumeUSB1/usbshare", "/volume3", "/volumeX1",
                                        "/volume2"}),
              paths);
    const int ebox = VOLUME_LOCATION_EBOX;
    const int internal = VOLUME_LOCATION_INTERNAL;
    EXPECT_EQ(1, VolumeCount(list, &ebox));
    EXPECT_EQ(3, VolumeCount(list, &internal));
    VolumeInfoListFree(list);

    std::filesystem::remove(path("/proc/mounts"));
    std::filesystem::create_directories(path("/proc/mounts"));
    LogCapture log;
    EXPECT_EQ(-1, VolumeInfoEnum(&list));
    EXPECT_TRUE(log.mentions(LOG_ERR, "Failed to enumerate file system path"));
    EXPECT_TRUE(log.mentions(LOG_ERR, "Failed to enumerate volume info by FILE System"));
}

class VolumeAction : public SandboxTest {
  protected:
    void record(int pid, const char *volume) {
        std::filesystem::create_directories(path("/tmp/webman/modules"));
        write_file(path("/tmp/webman/modules/volume"), "pid = \"" + std::to_string(pid) +
                                                           "\"\naction = \"3\"\nstep=\"2\"\n"
                                                           "vol_path = \"" +
                                                           volume + "\"\n");
    }
};

TEST_F(VolumeAction, LiveToolOnTheVolume) {
    EXPECT_EQ(0, VolumeIsActioning("/volume1", nullptr)) << "no record";
    record(getpid(), "/volume1");
    VOLUME_ACTION action{};
    EXPECT_EQ(1, VolumeIsActioning("/volume1", &action));
    EXPECT_EQ(getpid(), action.pid);
    EXPECT_STREQ("/volume1", action.szVolPath);
    EXPECT_EQ(3, action.action);
    EXPECT_EQ(2, action.step);
    EXPECT_EQ(1, VolumeIsActioning("/volume1", nullptr));
    EXPECT_EQ(0, VolumeIsActioning("/volume2", &action));

    const pid_t gone = fork();
    if (gone == 0) _exit(0);
    waitpid(gone, nullptr, 0);
    record(gone, "/volume1");
    EXPECT_EQ(0, VolumeIsActioning("/volume1", nullptr)) << "the tool is gone";
    record(0, "/volume1");
    EXPECT_EQ(0, VolumeIsActioning("/volume1", nullptr)) << "no pid";

    // A link or a directory at the record's place is refused.
    std::filesystem::remove(path("/tmp/webman/modules/volume"));
    std::filesystem::create_symlink(path("/etc/kovainfo.conf"), path("/tmp/webman/modules/volume"));
    LogCapture log;
    EXPECT_EQ(-1, VolumeIsActioning("/volume1", nullptr));
    EXPECT_TRUE(raised(ERR_OPEN_FAILED));
    EXPECT_TRUE(log.mentions(LOG_ERR, "Failed to open /tmp/webman/modules/volume errno="));
    EXPECT_EQ(-1, VolumeIsActioning(nullptr, nullptr));
}

using VolumeMountInfo = VolumeWorld;

TEST_F(VolumeMountInfo, FirstGrepLineAndStatfs) {
    std::filesystem::create_directories(path("/volume10"));
    std::filesystem::create_directories(path("/volume2"));
    mounts(
        "/dev/md11 /volume10 ext4 rw,usrquota 0 0\n/dev/md2 /volume1 ext4 rw 0 0\n"
        "/dev/md3 /volume2 ext4 ro,noatime 0 0\n");
    VOL_MOUNT_INFO info{};
    // /volume1 finds the line of /volume10 first: kept.
    ASSERT_EQ(0, KOVAVolInfoGet(1, &info));
    EXPECT_EQ(1, info.num);
    EXPECT_EQ(1, info.valid);
    EXPECT_EQ(1, info.mounted);
    EXPECT_STREQ("/dev/md11", info.szDev);
    EXPECT_STREQ("/volume10", info.szMountPoint);
    EXPECT_EQ(1, info.writable);
    struct statfs st {};
    ASSERT_EQ(0, statfs(path("/volume10").c_str(), &st));
    EXPECT_EQ(uint64_t(st.f_blocks) * st.f_bsize, info.ullTotal);
    EXPECT_NEAR(double(uint64_t(st.f_bavail) * st.f_bsize), double(info.ullAvail), 64 << 20);

    ASSERT_EQ(0, KOVAVolInfoGet(2, &info));
    EXPECT_EQ(0, info.writable) << "ro";
    EXPECT_GT(info.ullTotal, 0u);

    ASSERT_EQ(0, KOVAVolInfoGet(4, &info));
    EXPECT_EQ(0, info.mounted);
    EXPECT_EQ(1, info.valid);
    EXPECT_STREQ("", info.szDev);

    // A mount point that statfs cannot reach.
    std::filesystem::remove(path("/volume2"));
    LogCapture log;
    EXPECT_EQ(-1, KOVAVolInfoGet(2, &info));
    EXPECT_TRUE(raised(ERR_READ_FAILED));
    EXPECT_EQ(0u, info.ullTotal);
    EXPECT_TRUE(log.mentions(LOG_ERR, "Failed to statfs mount point : /volume2"));
    EXPECT_EQ(-1, KOVAVolInfoGet(0, &info));
    EXPECT_EQ(-1, KOVAVolInfoGet(1, nullptr));
}

TEST_F(VolumeMountInfo, MountAndUnmountCommands) {
    ASSERT_EQ(0, VolumeMount("/dev/md2", "/volume1"));
    struct stat st {};
    ASSERT_EQ(0, stat(path("/volume1").c_str(), &st));
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    ASSERT_EQ(0, VolumeMount("/dev/md3; touch /tmp/x", "/volume1")) << "an existing point";
    ASSERT_EQ(0, VolumeUnmount("/volume1"));
    EXPECT_EQ((std::vector<std::string>{
                  "mount [-o] [usrquota,grpquota] [/dev/md2] [/volume1]",
                  "mount [-o] [usrquota,grpquota] [/dev/md3; touch /tmp/x] [/volume1]",
                  "umount [-f] [/volume1]"}),
              commands());

    set_status("mount", 32);
    set_status("umount", 16);
    LogCapture log;
    EXPECT_EQ(-1, VolumeMount("/dev/md2", "/volume1"));
    EXPECT_TRUE(log.mentions(LOG_ERR, "Failed to mount '/dev/md2' on '/volume1', errno=32"));
    EXPECT_EQ(-1, VolumeUnmount("/volume1"));
    EXPECT_TRUE(log.mentions(LOG_ERR, "Failed to unmount '/volume1', errno=16"));
    EXPECT_EQ(-1, VolumeMount("/dev/md2", "/etc/kovainfo.conf/volume1"));
    EXPECT_TRUE(log.mentions(LOG_ERR, "/etc/kovainfo.conf/volume1 not found, errno="));
    EXPECT_EQ(-1, VolumeMount("/dev/md2", "/nowhere/volume1"));
    EXPECT_TRUE(log.mentions(LOG_ERR, "mkdir /nowhere/volume1 failed, errno="));
    EXPECT_EQ(-1, VolumeMount(nullptr, "/volume1"));
    EXPECT_TRUE(raised(ERR_BAD_PARAMETERS));
}

}  // namespace
}  // namespace kova::test
