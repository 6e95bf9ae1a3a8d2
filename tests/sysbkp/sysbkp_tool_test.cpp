// kovactl backup: export with chosen sections, show, import with a line per section, errors.
#include <tuple>

#include "sysbkp/sysbkp_fixture.h"

namespace kova::test {
namespace {

using SysbkpToolTest = SysbkpTest;

TEST_F(SysbkpToolTest, ExportShowImport) {
    const std::string kovactl = "kovactl --root " + root() + " ";
    auto [out, rc] = run_tool(kovactl + "backup export " + backup() + " --sections hostname,MTU");
    EXPECT_EQ(rc, 0) << out;
    std::tie(out, rc) = run_tool(kovactl + "backup show " + backup());
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(out,
              "category 1, content mask 0x00020002\n"
              "hostname     id 0x00000002  version 2  20 bytes\n"
              "MTU          id 0x00020000  version 2  42 bytes\n");
    std::tie(out, rc) = run_tool(kovactl + "backup show " + backup() + " --json");
    EXPECT_NE(out.find("\"section\": \"MTU\""), std::string::npos) << out;
    std::tie(out, rc) = run_tool(kovactl + "backup import " + backup() + " --sections MTU");
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(out, "hostname     skipped\nMTU          restored (1)\n");
    std::tie(out, rc) = run_tool(kovactl + "backup export " + backup() + " --sections bogus 2>&1");
    EXPECT_EQ(rc, 2);
    EXPECT_EQ(out, "kovactl: backup: unknown section 'bogus'\n");
    write_file(backup(), "KOVA" + word(7) + word(0));
    std::tie(out, rc) = run_tool(kovactl + "backup import " + backup() + " 2>&1");
    EXPECT_EQ(rc, 1);
    EXPECT_EQ(out.rfind("kovactl: " + backup() + ": ERR_FORMAT_ERROR", 0), 0u) << out;
    std::tie(out, rc) = run_tool(kovactl + "backup --help");
    EXPECT_EQ(rc, 0);
    EXPECT_NE(out.find("kovactl backup import FILE"), std::string::npos);
}

}  // namespace
}  // namespace kova::test
