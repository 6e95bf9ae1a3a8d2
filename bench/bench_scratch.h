// A scratch directory for the benchmarks that write files: under $TMPDIR when the runner sets
// it, else beside the benchmark program (inside the build tree). Removed at exit.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace kova::bench {

class ScratchDir {
  public:
    ScratchDir() {
        const char *tmpdir = getenv("TMPDIR");
        const std::filesystem::path base =
            tmpdir != nullptr && tmpdir[0] != '\0'
                ? std::filesystem::path(tmpdir)
                : std::filesystem::read_symlink("/proc/self/exe").parent_path();
        std::string name = (base / "bench-scratch.XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            perror(name.c_str());
            abort();
        }
        path_ = name;
    }
    ~ScratchDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchDir(const ScratchDir &) = delete;
    ScratchDir &operator=(const ScratchDir &) = delete;

    // A path inside the directory ("etc/kovainfo.conf").
    std::string operator/(const char *relative) const { return path_ + "/" + relative; }
    const std::string &path() const { return path_; }

  private:
    std::string path_;
};

}  // namespace kova::bench
