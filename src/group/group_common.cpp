// Helpers the group family's operations share.
#include <cstdio>
#include <cstring>

#include "group/group_internal.h"

namespace kova::group {

bool split_line(char *line, Fields *fields) {
    char *field[4];
    if (user::split_fields(line, field, 4) < 4) return false;
    *fields = {field[0], field[1], field[2], field[3]};
    return true;
}

}  // namespace kova::group
