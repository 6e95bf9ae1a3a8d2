// The helper programs get_key_value and set_key_value, as the library and scripts run them.
#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "support/sandbox.h"

namespace {

class FileTools : public kova::test::SandboxTest {
  protected:
    // Runs a command line; its standard output and exit status.
    std::pair<std::string, int> run(const std::string &command) {
        FILE *pipe = popen(command.c_str(), "r");
        std::string out;
        char buf[256];
        size_t n = 0;
        while (pipe != nullptr && (n = fread(buf, 1, sizeof buf, pipe)) > 0)
            out.append(buf, n);
        const int status = pipe != nullptr ? pclose(pipe) : -1;
        return {out, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
    }
    std::string tool(const char *name) { return std::string(KOVA_TOOLS_DIR) + "/" + name; }
    std::string info_ = path("/etc/kovainfo.conf");
};

TEST_F(FileTools, GetAndSetKeyValue) {
    EXPECT_EQ(run(tool("get_key_value") + " " + info_ + " hostname"),
              std::make_pair(std::string("kovastation\n"), 0));
    EXPECT_EQ(run(tool("get_key_value") + " " + info_ + " nosuchkey").second, 1);
    EXPECT_EQ(run(tool("get_key_value") + " " + path("/etc/none") + " hostname").second, 1);
    EXPECT_EQ(run(tool("get_key_value") + " " + info_ + " 2>/dev/null").second, 2);
    EXPECT_EQ(run(tool("set_key_value") + " " + info_ + " hostname 'nas two'").second, 0);
    EXPECT_EQ(run(tool("get_key_value") + " " + info_ + " hostname").first, "nas two\n");
    EXPECT_NE(kova::test::read_file(info_).find("hostname=\"nas two\"\n"), std::string::npos);
    // The system information file is changed under its lock, which is made on first use.
    EXPECT_TRUE(kova::test::file_exists(path("/tmp/lock/lock_kovainfo")));
    EXPECT_EQ(run(tool("set_key_value") + " " + path("/etc") + " a b 2>/dev/null").second, 1);
}

TEST_F(FileTools, KovactlConfUnderRoot) {
    const std::string kovactl = tool("kovactl") + " --root " + root() + " conf ";
    EXPECT_EQ(run(kovactl + "get /etc.defaults/kovainfo.conf maxdisks").first, "4\n");
    EXPECT_EQ(run(kovactl + "set /etc/kovainfo.conf workgroup OFFICE").second, 0);
    EXPECT_EQ(run(kovactl + "get /etc/kovainfo.conf workgroup").first, "OFFICE\n");
    EXPECT_EQ(run(kovactl + "rm /etc/kovainfo.conf workgroup").second, 0);
    EXPECT_EQ(run(kovactl + "get /etc/kovainfo.conf workgroup").second, 1);
    kova::test::write_file(path("/etc/s.conf"), "[a]\nx=1\n");
    EXPECT_EQ(run(kovactl + "set /etc/s.conf --section b y 2").second, 0);
    EXPECT_EQ(run(kovactl + "sections /etc/s.conf").first, "a\nb\n");
    EXPECT_EQ(run(kovactl + "section /etc/s.conf b").first, "y=2\n");
    EXPECT_EQ(run(kovactl + "rm /etc/s.conf --section a").second, 0);
    EXPECT_EQ(kova::test::read_file(path("/etc/s.conf")), "[b]\ny=2\n");
}

}  // namespace
