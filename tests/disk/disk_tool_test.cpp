// kovactl disk on a sandbox root: the settings it reads and writes, its JSON, its refusals.

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "support/sandbox.h"

namespace kova::test {
namespace {

std::pair<std::string, int> kovactl(const std::string &root, const std::string &args) {
    return run_tool("kovactl --root " + root + " " + args);
}

using DiskTool = SandboxTest;

TEST_F(DiskTool, StandbyAndCacheSettings) {
    auto json = [&](const std::string &args) {
        auto [out, status] = kovactl(root(), args);
        EXPECT_EQ(0, status) << args;
        return nlohmann::json::parse(out);
    };
    EXPECT_EQ(20, json("disk standby --json")["standby_minutes"]);
    EXPECT_EQ(0, kovactl(root(), "disk standby 90").second);
    EXPECT_EQ(90, json("disk standby --json")["standby_minutes"]);
    const auto [refused, status] = kovactl(root(), "disk standby 45 2>&1");
    EXPECT_EQ(1, status);
    EXPECT_NE(std::string::npos, refused.find("ERR_BAD_PARAMETERS")) << refused;
    EXPECT_EQ(90, json("disk standby --json")["standby_minutes"]);
    EXPECT_EQ(0, kovactl(root(), "disk standby --usb 15").second);
    EXPECT_EQ(15, json("disk standby --json")["usb_standby_minutes"]);

    EXPECT_EQ(std::make_pair(std::string("on\n"), 0), kovactl(root(), "disk cache --stored"));
    EXPECT_EQ(0, kovactl(root(), "disk cache --stored off").second);
    EXPECT_EQ("off\n", kovactl(root(), "disk cache --stored").first);
    EXPECT_EQ(1, kovactl(root(), "disk cache --stored maybe 2>/dev/null").second);

    // No disks in the sandbox: an empty list, not a failure.
    EXPECT_EQ(nlohmann::json::array(), json("disk list --json"));
    EXPECT_EQ(1, kovactl(root(), "disk info sdc 2>/dev/null").second);
    EXPECT_EQ(0, kovactl(root(), "disk --help").second);
}

}  // namespace
}  // namespace kova::test
