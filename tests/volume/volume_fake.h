// The volume tests' world: the fake arrays of the RAID tests, a mount table and volume-group
// status file under the sandbox, and recording mount and umount shims beside the fake mdadm.
#pragma once

#include <string>
#include <vector>

#include "raid/raid_fake.h"
#include "support/sandbox.h"

namespace kova::test {

class VolumeWorld : public SandboxTest {
  protected:
    VolumeWorld();

    void mounts(const std::string &table) { write_file(path("/proc/mounts"), table); }
    void lvm(const std::string &status) { write_file(path("/tmp/lvm.status"), status); }
    // A running RAID1 of two members in sync, /dev/mdN.
    void mirror(int md, const std::string &first, const std::string &second);
    // md0 and md1 over partitions 1 and 2 of the disks.
    void system_arrays(const std::vector<std::string> &disks);
    // The shims' records: "mount [arg] [arg] ...", sandbox root taken out.
    std::vector<std::string> commands() const;
    // Exit status of the next mount or umount runs.
    void set_status(const std::string &program, int status) const;

    FakeStorage storage_;
};

}  // namespace kova::test
