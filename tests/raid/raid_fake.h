// A fake storage world for the RAID and partition code, inside the test's sandbox:
// - arrays: a node /dev/mdN answering GET_ARRAY_INFO, BLKGETSIZE64 and the rebuild request
//   from recorded values, with the md driver's sysfs directory of members;
// - disks: nodes answering BLKGETSIZE;
// - shims on PATH for mdadm and at the sandbox's /sbin/sfdisk that write down every command
//   and answer examine and list requests from files the test wrote.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kova::test {

struct FakeMember {
    std::string name;   // "sda3"
    std::string state;  // "in_sync", "faulty", "spare" ...
    std::string slot;   // "0", "none" ...
};

struct FakeArray {
    int md_level = 1;
    int raid_disks = 2;
    uint32_t size_kib = 1000;  // per member
    uint64_t bytes = 1024000;
    int errno_info = 0;  // GET_ARRAY_INFO fails with this when set (ENODEV: not running)
    int rebuild[3] = {0, 0, 0};
    bool rebuild_request = false;  // the kernel knows the appliance's request
    int read_ahead = -1;           // what BLKRASET set
};

class FakeStorage {
  public:
    FakeStorage();
    ~FakeStorage();
    FakeStorage(const FakeStorage &) = delete;
    FakeStorage &operator=(const FakeStorage &) = delete;

    FakeArray &add_array(int number, const std::vector<FakeMember> &members,
                         const FakeArray &array = FakeArray());
    void add_disk(const std::string &name, uint64_t sectors);

    // The commands the shims saw, sandbox root taken out of every path.
    std::vector<std::string> commands() const;
    void clear_commands() const;
    // The exit status of later mdadm or sfdisk runs: one line per run, the last line for every
    // run after it.
    void set_status(const std::string &program, const std::vector<int> &statuses) const;
    // What "mdadm -E -b DEVICE" prints, and "mdadm -E DEVICE".
    void set_examine(const std::string &device, const std::string &brief,
                     const std::string &full = "") const;
    // A partition line of "sfdisk -l -uS -N# DISK": start, sectors and type.
    void set_partition(const std::string &disk, int number, uint64_t start, uint64_t sectors,
                       unsigned type) const;

  private:
    std::string root_;
    std::string shim_;
    std::string old_path_;
    std::map<std::string, FakeArray> arrays_;  // by node path
    std::map<std::string, uint64_t> disks_;    // by node path
};

}  // namespace kova::test
