// kovactl as scripts and shells use it: every read command's --json output parses and says
// what the text says, every command's subcommands are in its usage (and so in the man page),
// and bash completion offers them.
#include <unistd.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/sandbox.h"

namespace kova::test {
namespace {

using nlohmann::json;

// One read command: its arguments ("@" stands for the sandbox root, for the commands that take
// paths as given), the JSON type of its output, one value in it (pointer and JSON text; no
// pointer: the type alone is checked) and its exit status.
struct ReadCommand {
    const char *args;
    json::value_t type;
    const char *pointer = nullptr;
    const char *expected = nullptr;
    int status = 0;
};

constexpr auto kObject = json::value_t::object;
constexpr auto kArray = json::value_t::array;

// A new read command adds a row here.
const ReadCommand kReadCommands[] = {
    {"conf get /etc/kovainfo.conf modelname --json", kObject, "/value", R"("KS-407")"},
    {"conf get /etc/kovainfo.conf nosuchkey --json", kObject, "/value", "null", 1},
    {"conf get /etc/s.conf --section b y --json", kObject, "/value", R"("2")"},
    {"conf sections /etc/s.conf --json", kArray, "", R"(["a","b"])"},
    {"conf section /etc/s.conf a --json", kObject, "", R"({"x":"1","z":"3"})"},
    {"ps 'zz[q]qzz' --json", kObject, "/pids", "[]"},
    {"ops --json", kObject, "/running", "[]"},
    {"ops list --json", kObject, "/running", "[]"},
    {"ops check restore --json", kObject, "/blocked", R"("no")"},
    {"bdb dump @/tmp/t.db --json", kArray},
    {"bdb info @/tmp/t.db --json", kObject, "/deprecated", "null"},
    {"bdb get @/tmp/t.db alice --json", kObject, "/value", R"("1001:/home\\x01")"},
    {"error 0x0D00 --json", kObject, "/name", R"("ERR_BAD_PARAMETERS")"},
    {"error 0x0D01 --json", kObject, "/in_table", "false"},
    {"error --trace 0x0700 --json", kObject, "/raised_at/file", R"("kovactl")"},
    {"list sort carol,alice,bob --json", kArray, "", R"(["alice","bob","carol"])"},
    {"list sub alice,bob,carol bob --json", kArray, "", R"(["alice","carol"])"},
    {"hash code alice --json", kObject, "/slots", "31"},
    {"hash section s a=1 --json", kObject, "/text", R"("[s]\na=1\n")"},
    {"str hex abc --json", kObject, "/result", R"("616263")"},
    {"str pair 'k=\"v w\"' --json", kObject, "/value", R"("v w")"},
    {"str trim '  x ' --json", kObject, "/bytes", "1"},
    {"str join , a b --json", kObject, "/result", R"("a,b")"},
    {"user list --json", kArray},
    {"user get admin --json", kObject, "/name", R"("admin")"},
    {"group list --json", kArray},
    {"group get administrators --json", kObject, "/name", R"("administrators")"},
    {"group members administrators --json", kArray},
    {"share list --json", kArray},
    {"share get homes --json", kObject, "/path", R"("/volume1/homes")"},
    {"share rights homes --json", kObject},
    {"disk list --json", kArray, "", "[]"},
    {"disk standby --json", kObject, "/standby_minutes", "20"},
    {"raid list --json", kArray, "", "[]"},
    {"part layout --json", kObject, "/layout", "2"},
    {"vol list --json", kArray, "", "[]"},
    {"log show sys --json", kArray, "/0/text", R"("Share media created by admin.")"},
    {"log conn --json", kArray, "", "[]"},
    {"net cards --json", kArray, "/0/device", R"("eth0")"},
    {"backup show @/var/b.kbk --json", kObject, "/category", "1"},
};

// Commands without a row here: a discovery pass sends on the network, so its --json is checked
// by the discovery tests inside their own network namespaces.
const std::set<std::string> kWriteOnly = {"discover"};

std::string first_word(const std::string &text) {
    return text.substr(0, text.find(' '));
}

std::vector<std::string> words(const std::string &line) {
    std::istringstream in(line);
    std::vector<std::string> out;
    for (std::string w; in >> w;)
        out.push_back(w);
    return out;
}

// `kovactl --completion`: the command table, one command and its subcommands a line.
std::vector<std::vector<std::string>> command_table() {
    const auto [out, status] = run_tool("kovactl --completion");
    EXPECT_EQ(0, status);
    std::vector<std::vector<std::string>> table;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);)
        table.push_back(words(line));
    return table;
}

class KovactlJson : public SandboxTest {
  protected:
    void SetUp() override {
        write_file(path("/etc/s.conf"), "[a]\nz=3\nx=1\n[b]\ny=2\n");
        ASSERT_EQ(0,
                  run_tool("kovactl bdb set " + path("/tmp/t.db") + " alice '1001:/home\x01' --dup")
                      .second);
        ASSERT_EQ(
            0,
            run_tool("kovactl --root " + root() + " log add sys info 11100001 media admin").second);
        ASSERT_EQ(0, run_tool("kovactl --root " + root() + " backup export " + path("/var/b.kbk") +
                              " --sections hostname")
                         .second);
    }

    std::string command_line(const char *args) const {
        std::string text = args;
        for (size_t at; (at = text.find('@')) != std::string::npos;)
            text.replace(at, 1, root());
        return "kovactl --root " + root() + " " + text;
    }
};

TEST_F(KovactlJson, EveryReadCommandPrintsJsonThatParses) {
    for (const ReadCommand &row : kReadCommands) {
        SCOPED_TRACE(row.args);
        const auto [out, status] = run_tool(command_line(row.args));
        EXPECT_EQ(row.status, status);
        const json parsed = json::parse(out, nullptr, false);
        ASSERT_FALSE(parsed.is_discarded()) << out;
        EXPECT_EQ(row.type, parsed.type()) << out;
        if (row.pointer == nullptr) continue;
        const json::json_pointer at(row.pointer);
        ASSERT_TRUE(parsed.contains(at)) << out;
        EXPECT_EQ(json::parse(row.expected), parsed[at]) << out;
    }
}

// A command added to the table without a --json row here fails, so none is forgotten.
TEST_F(KovactlJson, EveryCommandHasARow) {
    std::set<std::string> covered;
    for (const ReadCommand &row : kReadCommands)
        covered.insert(first_word(row.args));
    const auto table = command_table();
    ASSERT_FALSE(table.empty());
    for (const auto &line : table) {
        if (kWriteOnly.count(line[0]) == 0) {
            EXPECT_EQ(1u, covered.count(line[0])) << "no --json row for kovactl " << line[0];
        }
    }
}

TEST_F(KovactlJson, JsonTextWithInvalidUtf8IsReplacedNotRefused) {
    write_file(path("/etc/s.conf"), "name=caf\xe9\n");
    const auto [out, status] = run_tool(command_line("conf get /etc/s.conf name --json"));
    EXPECT_EQ(0, status);
    EXPECT_EQ("caf\xef\xbf\xbd", json::parse(out)["value"]);
}

// The man page is made from each command's usage: a subcommand missing there is undocumented.
TEST(KovactlUsage, EverySubcommandIsInItsCommandsUsage) {
    for (const auto &line : command_table()) {
        SCOPED_TRACE(line[0]);
        const auto [usage, status] = run_tool("kovactl " + line[0] + " --help");
        EXPECT_EQ(0, status);
        EXPECT_EQ(0u, usage.rfind("usage: kovactl " + line[0], 0)) << usage;
        for (size_t i = 1; i < line.size(); ++i) {
            const std::regex named("(^|[ |])" + line[i] + "([ |]|$)", std::regex::multiline);
            EXPECT_TRUE(std::regex_search(usage, named)) << line[i] << " in " << usage;
        }
    }
}

// The completion script, as bash runs it: the words it offers for COMP_WORDS typed so far.
std::string complete(const std::string &typed, int cword) {
    std::string file = std::string(KOVA_TEST_SANDBOXES) + "/complete.XXXXXX";
    const int fd = mkstemp(file.data());
    if (fd < 0) return "(no temporary file)";
    close(fd);
    write_file(file, "source '" + std::string(KOVA_SOURCE_DIR) +
                         "/tools/kovactl/completion.bash'\n"
                         "COMP_WORDS=(" +
                         KOVA_TOOLS_DIR + "/kovactl " + typed + ")\n" +
                         "COMP_CWORD=" + std::to_string(cword) + "\n" +
                         "_kovactl\n"
                         "echo \"${COMPREPLY[*]}\"\n");
    FILE *pipe = popen(("bash " + file).c_str(), "r");
    std::string out;
    for (int c; pipe != nullptr && (c = fgetc(pipe)) != EOF;)
        out += static_cast<char>(c);
    if (pipe != nullptr) pclose(pipe);
    unlink(file.c_str());
    return out;
}

TEST(KovactlCompletion, OffersCommandsThenTheirSubcommands) {
    EXPECT_EQ("user\n", complete("us", 1));
    EXPECT_EQ("sections section\n", complete("conf sec", 2));
    EXPECT_EQ("sections section\n", complete("--root /x conf sec", 4));
    EXPECT_EQ("del deprecate\n", complete("bdb de", 2));
    EXPECT_EQ("--json\n", complete("disk list --js", 3));
    EXPECT_EQ("\n", complete("nosuch x", 2));
}

}  // namespace
}  // namespace kova::test
