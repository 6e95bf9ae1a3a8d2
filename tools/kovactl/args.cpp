#include "args.h"

#include <cstdio>
#include <cstring>

namespace kovactl {

bool has_flag(int argc, char **argv, const char *flag) {
    for (int i = 0; i < argc; ++i)
        if (strcmp(argv[i], flag) == 0) return true;
    return false;
}

const char *option(int argc, char **argv, const char *name) {
    for (int i = 0; i + 1 < argc; ++i)
        if (strcmp(argv[i], name) == 0) return argv[i + 1];
    return nullptr;
}

void print_json(const nlohmann::json &json) {
    puts(json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

}  // namespace kovactl
