// A scratch file for fuzz targets that work on files: inside the fuzzing root (the build tree),
// never beside the sources.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace kova::fuzz {

inline std::string scratch_file(const char *prefix) {
    const char *root = getenv("KOVA_ROOT");
    const std::string dir = root != nullptr && root[0] != '\0' ? root : ".";
    mkdir(dir.c_str(), 0755);
    std::string name = dir + "/" + prefix + ".XXXXXX";
    const int fd = mkstemp(name.data());
    if (fd >= 0) close(fd);
    return name;
}

}  // namespace kova::fuzz
