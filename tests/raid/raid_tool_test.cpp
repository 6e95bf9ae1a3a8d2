// kovactl raid and part on a sandbox root: the partition layouts made for real by the appliance's
// partition tool on an image file, and array commands through a recording mdadm.
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "raid/raid_fake.h"
#include "support/sandbox.h"

namespace kova::test {
namespace {

std::pair<std::string, int> kovactl(const std::string &root, const std::string &args) {
    return run_tool("kovactl --root " + root + " " + args);
}

using RaidTool = SandboxTest;

TEST_F(RaidTool, PartitionLayoutsOnAnImage) {
    std::filesystem::create_directories(path("/dev"));
    // A sparse disk of 4 GiB in the sandbox's /dev.
    ASSERT_EQ(0, truncate((write_file(path("/dev/sdx"), ""), path("/dev/sdx")).c_str(), 4ll << 30));
    EXPECT_EQ("{\n  \"layout\": 2\n}\n", kovactl(root(), "part layout --json").first);
    ASSERT_EQ(0, kovactl(root(), "part create sdx --layout 1 --system").second);
    ASSERT_EQ(0, kovactl(root(), "part create sdx --layout 1 --data").second);
    const auto [out, status] = kovactl(root(), "part check /dev/sdx --json");
    ASSERT_EQ(0, status) << out;
    const auto check = nlohmann::json::parse(out);
    EXPECT_EQ(1, check["layout"]);
    EXPECT_EQ(true, check["raid"]);
    ASSERT_EQ(3u, check["partitions"].size());
    EXPECT_EQ(2634660, check["partitions"][2]["start"]);
    EXPECT_EQ((4ll << 30) / 512 - 2634660, check["partitions"][2]["sectors"]);
    EXPECT_EQ(0xFD, check["partitions"][2]["type"]);

    ASSERT_EQ(0, kovactl(root(), "part clean sdx --data").second);
    EXPECT_EQ(
        2u,
        nlohmann::json::parse(kovactl(root(), "part check sdx --json").first)["partitions"].size());
    ASSERT_EQ(0, kovactl(root(), "part clean /dev/sdx").second);
    EXPECT_EQ(
        0u,
        nlohmann::json::parse(kovactl(root(), "part check sdx --json").first)["partitions"].size());
}

TEST_F(RaidTool, ArrayCommands) {
    FakeStorage storage;
    EXPECT_EQ("[]\n", kovactl(root(), "raid list --json").first);
    EXPECT_EQ(0, kovactl(root(),
                         "raid create /dev/md2 --level raid5 --disks 3 /dev/sda3 /dev/sdb3 "
                         "/dev/sdc3")
                     .second);
    EXPECT_EQ(1, kovactl(root(),
                         "raid create /dev/md2 --level raid9 --disks 3 /dev/sda3 "
                         "2>/dev/null")
                     .second);
    EXPECT_EQ(0, kovactl(root(), "raid stop /dev/md2").second);
    const auto [refused, status] = kovactl(root(), "raid info /dev/md7 2>&1");
    EXPECT_EQ(1, status);
    EXPECT_EQ("kovactl: /dev/md7: not running\n", refused);
    EXPECT_EQ((std::vector<std::string>{
                  "mdadm -C /dev/md2 -amd -R -l5 -n3 -x0 /dev/sda3 /dev/sdb3 /dev/sdc3",
                  "mdadm -S /dev/md2"}),
              storage.commands());
    EXPECT_EQ(0, kovactl(root(), "raid --help").second);
    EXPECT_EQ(0, kovactl(root(), "part --help").second);
}

}  // namespace
}  // namespace kova::test
