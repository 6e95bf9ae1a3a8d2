// The helper programs get_key_value and set_key_value, as the library and scripts run them, and
// kovactl conf on a sandbox root.
#include <cstdio>
#include <string>

#include "support/sandbox.h"

namespace kova::test {
namespace {

std::pair<std::string, int> run(const std::string &command) {
    return run_tool(command);
}

using FileTools = SandboxTest;

TEST_F(FileTools, GetAndSetKeyValue) {
    const std::string info = " " + path("/etc/kovainfo.conf") + " ";
    EXPECT_EQ(run("get_key_value" + info + "hostname"),
              std::make_pair(std::string("kovastation\n"), 0));
    EXPECT_EQ(run("get_key_value" + info + "nosuchkey").second, 1);
    EXPECT_EQ(run("get_key_value " + path("/etc/none") + " hostname").second, 1);
    EXPECT_EQ(run("get_key_value" + info + "2>/dev/null").second, 2);
    EXPECT_EQ(run("set_key_value" + info + "hostname 'nas two'").second, 0);
    EXPECT_EQ(run("get_key_value" + info + "hostname").first, "nas two\n");
    EXPECT_NE(read_file(path("/etc/kovainfo.conf")).find("hostname=\"nas two\"\n"),
              std::string::npos);
    // The system information file is changed under its lock, which is made on first use.
    EXPECT_TRUE(file_exists(path("/tmp/lock/lock_kovainfo")));
    EXPECT_EQ(run("set_key_value " + path("/etc") + " a b 2>/dev/null").second, 1);
}

TEST_F(FileTools, KovactlConfUnderRoot) {
    const std::string conf = "kovactl --root " + root() + " conf ";
    EXPECT_EQ(run(conf + "get /etc.defaults/kovainfo.conf maxdisks").first, "4\n");
    EXPECT_EQ(run(conf + "set /etc/kovainfo.conf workgroup OFFICE").second, 0);
    EXPECT_EQ(run(conf + "get /etc/kovainfo.conf workgroup").first, "OFFICE\n");
    EXPECT_EQ(run(conf + "rm /etc/kovainfo.conf workgroup").second, 0);
    EXPECT_EQ(run(conf + "get /etc/kovainfo.conf workgroup").second, 1);
    write_file(path("/etc/s.conf"), "[a]\nx=1\n");
    EXPECT_EQ(run(conf + "set /etc/s.conf --section b y 2").second, 0);
    EXPECT_EQ(run(conf + "sections /etc/s.conf").first, "a\nb\n");
    EXPECT_EQ(run(conf + "section /etc/s.conf b").first, "y=2\n");
    EXPECT_EQ(run(conf + "rm /etc/s.conf --section a").second, 0);
    EXPECT_EQ(read_file(path("/etc/s.conf")), "[b]\ny=2\n");
}

}  // namespace
}  // namespace kova::test
