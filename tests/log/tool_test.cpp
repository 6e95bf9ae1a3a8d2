// The kovalogset1 program and kovactl's log commands.
#include <nlohmann/json.hpp>

#include "log/log_support.h"

namespace kova::test {
namespace {

using LogToolTest = LogTest;

TEST_F(LogToolTest, KovalogsetRecordsAnEventByNames) {
    const std::string tool = path("/usr/kova/bin/kovalogset1");
    ASSERT_TRUE(file_exists(tool)) << "the sandbox links the program from the build";
    auto [out, status] = run_tool("kovalogset1 sys err 0x1180050A");
    EXPECT_EQ(status, 0) << out;
    std::tie(out, status) = run_tool("kovalogset1 conn info 11100001 music bob");
    EXPECT_EQ(status, 0) << out;
    const LogImage sys = image(path("/var/log/kovasys.log"));
    ASSERT_EQ(sys.records.size(), 1u);
    EXPECT_EQ(sys.records[0].key, 0x1180050Au);
    EXPECT_EQ(sys.records[0].type, 3);
    EXPECT_EQ(sys.records[0].program, "kovalogset1");
    const LogImage conn = image(path("/var/log/kovaconn.log"));
    ASSERT_EQ(conn.records.size(), 1u);
    EXPECT_EQ(conn.records[0].args[0], "music");
    EXPECT_EQ(conn.records[0].args[1], "bob");
    EXPECT_EQ(conn.records[0].args[2], "");

    for (const char *bad :
         {"kovalogset1 nosuch err 1", "kovalogset1 sys loud 1", "kovalogset1 sys err 0xZZ",
          "kovalogset1 sys err 123456789", "kovalogset1 sys", "kovalogset1 sys err 1 a b c d e"}) {
        std::tie(out, status) = run_tool(std::string(bad) + " 2>&1");
        EXPECT_EQ(status, 1) << bad;
        EXPECT_NE(out.find("usage: kovalogset1"), std::string::npos) << bad;
    }
    std::tie(out, status) = run_tool("kovalogset1 --help");
    EXPECT_EQ(status, 0);
    EXPECT_NE(out.find("CLASS"), std::string::npos);
}

TEST_F(LogToolTest, KovactlShowsAddsAndResizes) {
    const std::string ctl = "kovactl --root " + root() + " log ";
    auto [out, status] = run_tool(ctl + "add sys warn 11100006 sda 57");
    ASSERT_EQ(status, 0) << out;
    std::tie(out, status) = run_tool(ctl + "show sys");
    ASSERT_EQ(status, 0);
    EXPECT_NE(out.find("\tWarning\t"), std::string::npos) << out;
    EXPECT_NE(out.find("Disk sda is at 57 degrees Celsius."), std::string::npos) << out;
    std::tie(out, status) = run_tool(ctl + "show sys --json");
    ASSERT_EQ(status, 0);
    const auto events = nlohmann::json::parse(out);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0]["type"], 2);
    EXPECT_EQ(events[0]["level"], "Warning");
    EXPECT_EQ(events[0]["program"], "kovactl");
    EXPECT_EQ(events[0]["text"], "Disk sda is at 57 degrees Celsius.");

    std::tie(out, status) = run_tool(ctl + "size netbkp 4096 2>&1");
    EXPECT_EQ(status, 1);
    EXPECT_NE(out.find("ERR_BAD_PARAMETERS"), std::string::npos) << out;
    std::tie(out, status) = run_tool(ctl + "size copy 4096");
    EXPECT_EQ(status, 0) << out;
    std::tie(out, status) = run_tool(ctl + "show bkp 2>&1");
    EXPECT_EQ(status, 1);
    EXPECT_NE(out.find("ERR_FILE_NOT_FOUND"), std::string::npos) << out;
    std::tie(out, status) = run_tool(ctl + "conn --json");
    EXPECT_EQ(status, 0) << out;
    EXPECT_EQ(nlohmann::json::parse(out), nlohmann::json::array());
    std::tie(out, status) = run_tool(ctl + "--help");
    EXPECT_EQ(status, 0);
    EXPECT_NE(out.find("kovactl log show"), std::string::npos);
}

}  // namespace
}  // namespace kova::test
