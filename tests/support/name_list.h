// A string list of names for the account tests: freed at the end of its scope, made from a
// comma-separated text, shown joined.
#pragma once

#include <string>

#include "kovasdk/kstring.h"
#include "kovasdk/list.h"

namespace kova::test {

struct NameList {
    PKLIBSZLIST p = PslKLIBSzListAlloc(0);
    NameList() = default;
    explicit NameList(const char *names) { KLIBStrTok(names, ",", &p); }
    ~NameList() { KLIBSzListFree(p); }
    NameList(const NameList &) = delete;
    NameList &operator=(const NameList &) = delete;
    std::string joined(const char *sep = ",") const {
        std::string text;
        for (int i = 0; i < p->nItem; ++i) {
            if (i > 0) text += sep;
            text += SzKLIBSzListGet(p, i);
        }
        return text;
    }
};

}  // namespace kova::test
