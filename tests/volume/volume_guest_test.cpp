// Volumes against the real md driver, mdadm, mkfs and mount, on the storage test bench's SATA
// disks. Runs only in the guest (make test-vm).
#include <sys/statfs.h>
#include <unistd.h>

#include <string>

#include "kovasdk/raid.h"
#include "kovasdk/volume.h"
#include "support/guest.h"
#include "support/sandbox.h"

namespace kova::test {
namespace {

class GuestVolume : public GuestStorageTest {
  protected:
    static int mirror(const char *md, const char *first, const char *second) {
        PKLIBSZLIST list = PslKLIBSzListAlloc(0);
        KLIBSzListPush(&list, first);
        KLIBSzListPush(&list, second);
        const int rc = RAIDCreate(md, RAID_LEVEL_RAID1, 2, 0, list);
        KLIBSzListFree(list);
        return rc;
    }
    static uint32_t flags_of(const char *volume, int *writable) {
        PVOLUME_INFO info = nullptr;
        EXPECT_EQ(1, VolumeInfoGet(volume, &info));
        if (info == nullptr) return ~0u;
        uint32_t flags = ~0u;
        *writable = VolumeIsWritable(info, &flags);
        VolumeInfoFree(info);
        return flags;
    }
};

TEST_F(GuestVolume, MountedMirrorSoundDegradedStopped) {
    MdSpeedLimit slow(1000);
    ASSERT_EQ(0, mirror("/dev/md2", "/dev/sda", "/dev/sdb"));
    ASSERT_EQ(0, guest_run("mkfs.ext4 -q -F /dev/md2"));
    ASSERT_EQ(0, VolumeMount("/dev/md2", "/volume1"));
    EXPECT_NE(std::string::npos, read_text("/proc/mounts").find("/volume1 ext4 rw"));
    EXPECT_NE(std::string::npos, read_text("/proc/mounts").find("usrquota"));

    PVOLUME_INFO info = nullptr;
    ASSERT_EQ(1, VolumeInfoGet("/volume1", &info));
    ASSERT_NE(nullptr, info->pFSInfo);
    EXPECT_STREQ("/dev/md2", info->pFSInfo->szDevice);
    EXPECT_EQ(FS_STATE_WRITABLE, info->pFSInfo->state);
    ASSERT_NE(nullptr, info->pRaidList);
    EXPECT_STREQ("/dev/md2", info->pRaidList->pRaid->szPath);
    EXPECT_EQ(nullptr, info->pRaidList->pNext);
    VolumeInfoFree(info);
    int writable = -1;
    // No system arrays in the guest: bit 64 stays clear.
    EXPECT_EQ(0u, flags_of("/volume1", &writable));
    EXPECT_EQ(1, writable);

    VOL_MOUNT_INFO mount{};
    ASSERT_EQ(0, KOVAVolInfoGet(1, &mount));
    EXPECT_EQ(1, mount.mounted);
    EXPECT_STREQ("/dev/md2", mount.szDev);
    EXPECT_EQ(1, mount.writable);
    struct statfs st {};
    ASSERT_EQ(0, statfs("/volume1", &st));
    EXPECT_EQ(uint64_t(st.f_blocks) * st.f_bsize, mount.ullTotal);
    EXPECT_EQ(uint64_t(st.f_bavail) * st.f_bsize, mount.ullAvail);

    ASSERT_EQ(0, guest_run("mdadm /dev/md2 -f /dev/sdb"));
    EXPECT_EQ(unsigned(VOLUME_RAID_DEGRADE), flags_of("/volume1", &writable));
    EXPECT_EQ(1, writable) << "degraded stays writable";

    EXPECT_EQ(0, VolumeUnmount("/volume1"));
    EXPECT_EQ(std::string::npos, read_text("/proc/mounts").find("/volume1"));
    ASSERT_EQ(0, guest_run("mdadm -S /dev/md2"));
    EXPECT_EQ(0, VolumeInfoGet("/volume1", &info)) << "a stopped array";
    EXPECT_EQ(0, KOVAVolInfoGet(1, &mount));
    EXPECT_EQ(0, mount.mounted);
}

TEST_F(GuestVolume, EnumerationOfAMountedVolumeAndABareArray) {
    MdSpeedLimit slow(1000);
    ASSERT_EQ(0, mirror("/dev/md2", "/dev/sda", "/dev/sdb"));
    ASSERT_EQ(0, mirror("/dev/md3", "/dev/sdc", "/dev/sdd"));
    ASSERT_EQ(0, guest_run("mkfs.ext4 -q -F /dev/md2"));
    ASSERT_EQ(0, VolumeMount("/dev/md2", "/volume1"));
    PVOLUME_LIST list = nullptr;
    ASSERT_EQ(2, VolumeInfoEnum(&list));
    PVOLUME_INFO found = nullptr;
    ASSERT_EQ(1, VolumeInfoListSearch(list, "/volume1", &found));
    EXPECT_NE(nullptr, found->pFSInfo);
    ASSERT_EQ(1, VolumeInfoListSearch(list, "/volume2", &found));
    EXPECT_EQ(nullptr, found->pFSInfo);
    ASSERT_NE(nullptr, found->pRaidList);
    EXPECT_STREQ("/dev/md3", found->pRaidList->pRaid->szPath);
    uint32_t flags = 0;
    EXPECT_EQ(0, VolumeIsWritable(found, &flags));
    EXPECT_EQ(unsigned(VOLUME_NOT_MOUNTED), flags);
    const int internal = VOLUME_LOCATION_INTERNAL;
    EXPECT_EQ(2, VolumeCount(list, &internal));
    VolumeInfoListFree(list);
    EXPECT_EQ(0, VolumeUnmount("/volume1"));
}

}  // namespace
}  // namespace kova::test
