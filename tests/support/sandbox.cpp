#include "support/sandbox.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "core/alloc.h"
#include "core/log.h"
#include "core/run.h"
#include "kovasdk/error.h"

namespace fs = std::filesystem;

namespace kova::test {

namespace {

// The appliance's own programs that the library runs by absolute path, linked from the build
// into every sandbox root (a program not built yet is simply not there).
struct ToolLink {
    const char *path;  // inside the root
    const char *tool;  // in KOVA_TOOLS_DIR
};
constexpr ToolLink kToolLinks[] = {
    {"/sbin/sfdisk", "sfdisk"},
    {"/bin/get_key_value", "get_key_value"},
    {"/usr/kova/bin/kovalogset1", "kovalogset1"},
};

void link_tools(const std::string &root) {
    for (const ToolLink &link : kToolLinks) {
        const std::string tool = std::string(KOVA_TOOLS_DIR) + "/" + link.tool;
        if (!file_exists(tool)) continue;
        const fs::path at = root + link.path;
        std::error_code ec;
        fs::create_directories(at.parent_path(), ec);
        fs::create_symlink(tool, at, ec);
        if (ec) ADD_FAILURE() << "cannot link " << at << " to " << tool << ": " << ec.message();
    }
}

}  // namespace

Sandbox::Sandbox() {
    std::string tmpl = std::string(KOVA_TEST_SANDBOXES) + "/root.XXXXXX";
    if (mkdtemp(tmpl.data()) == nullptr) {
        ADD_FAILURE() << "cannot create a sandbox under " << KOVA_TEST_SANDBOXES;
        return;
    }
    root_ = tmpl;
    fs::copy(KOVA_SKELETON_DIR, root_, fs::copy_options::recursive);
    link_tools(root_);
    if (const char *old = getenv("KOVA_ROOT")) {
        had_root_ = true;
        saved_root_ = old;
    }
    setenv("KOVA_ROOT", root_.c_str(), 1);
}

Sandbox::~Sandbox() {
    if (had_root_) {
        setenv("KOVA_ROOT", saved_root_.c_str(), 1);
    } else {
        unsetenv("KOVA_ROOT");
    }
    if (root_.empty()) return;
    std::error_code ec;
    // Tests may leave read-only directories behind; make them removable first.
    for (auto it = fs::recursive_directory_iterator(root_, ec);
         it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (it->is_directory(ec) && !it->is_symlink(ec)) {
            fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
        }
    }
    fs::remove_all(root_, ec);
}

namespace {
void collect(int priority, const char *line, void *context) {
    static_cast<std::vector<LogLine> *>(context)->push_back({priority, line});
}
}  // namespace

LogCapture::LogCapture() {
    kova::testing::set_log_sink(collect, &lines_);
}
LogCapture::~LogCapture() {
    kova::testing::set_log_sink(nullptr, nullptr);
}

bool LogCapture::contains(int priority, const std::string &text) const {
    return std::any_of(lines_.begin(), lines_.end(),
                       [&](const LogLine &l) { return l.priority == priority && l.text == text; });
}

bool LogCapture::mentions(int priority, const std::string &text) const {
    return std::any_of(lines_.begin(), lines_.end(), [&](const LogLine &l) {
        return l.priority == priority && l.text.find(text) != std::string::npos;
    });
}

namespace {
void record_run(const kova::testing::RunRecord &run, void *context) {
    std::string text = run.command != nullptr ? run.command : run.path;
    for (int i = 1; run.argv != nullptr && run.argv[i] != nullptr; ++i) {
        text += ' ';
        text += run.argv[i];
    }
    static_cast<std::vector<std::string> *>(context)->push_back(text);
}
}  // namespace

RunCapture::RunCapture() {
    kova::testing::set_run_observer(record_run, &runs_);
}
RunCapture::~RunCapture() {
    kova::testing::set_run_observer(nullptr, nullptr);
}

AllocationFailure::AllocationFailure(long nth) {
    kova::testing::fail_allocation(nth);
}
AllocationFailure::~AllocationFailure() {
    kova::testing::fail_allocation(0);
}

::testing::AssertionResult raised(uint32_t code, int line) {
    if (KLIBErrGet() == code && (line == 0 || KOVAErrorGetLine() == line)) {
        return ::testing::AssertionSuccess();
    }
    // One stream: AssertionResult formats each << on its own, which would drop std::hex.
    std::ostringstream what;
    what << "raised 0x" << std::hex << KLIBErrGet() << std::dec << " at line "
         << KOVAErrorGetLine();
    return ::testing::AssertionFailure() << what.str();
}

long allocation_count() {
    return kova::testing::allocation_count();
}

std::pair<std::string, int> run_tool(const std::string &command_line) {
    FILE *pipe = popen((std::string(KOVA_TOOLS_DIR) + "/" + command_line).c_str(), "r");
    std::string out;
    for (int c; pipe != nullptr && (c = fgetc(pipe)) != EOF;)
        out += static_cast<char>(c);
    const int status = pipe != nullptr ? pclose(pipe) : -1;
    return {out, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

void write_file(const std::string &path, const std::string &content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

bool file_exists(const std::string &path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0;
}

std::vector<std::string> list_dir(const std::string &dir) {
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(dir)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> SandboxTest::new_entries(const std::string &absolute) const {
    std::vector<std::string> names = list_dir(path(absolute));
    std::error_code missing;
    if (fs::is_directory(KOVA_SKELETON_DIR + absolute, missing)) {
        for (const std::string &name : list_dir(KOVA_SKELETON_DIR + absolute))
            std::erase(names, name);
    }
    return names;
}

}  // namespace kova::test
