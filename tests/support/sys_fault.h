// Injected failures of the library's kernel calls (core/sys.h): SysFault<&Calls::fsync> f(1, EIO)
// makes the next fsync of the library fail with EIO; the table is restored when f goes away.
#pragma once

#include <cerrno>

#include "core/sys.h"

namespace kova::test {

template <auto Member>
class SysFault;

template <class R, class... A, R (*sys::Calls::*Member)(A...)>
class SysFault<Member> {
  public:
    // Fails the nth call from now (1 = the next one) with err; with every_after, every later
    // call fails too.
    SysFault(long nth, int err, bool every_after = false) {
        countdown_ = nth;
        err_ = err;
        sticky_ = every_after;
        calls_ = 0;
        sys::calls().*Member = &call;
    }
    ~SysFault() { sys::calls().*Member = sys::real_calls().*Member; }
    SysFault(const SysFault &) = delete;
    SysFault &operator=(const SysFault &) = delete;

    // Calls seen since the fault was installed.
    static long calls() { return calls_; }

  private:
    static R call(A... args) {
        ++calls_;
        if (countdown_ > 0 && --countdown_ == 0) {
            if (sticky_) countdown_ = 1;
            errno = err_;
            return static_cast<R>(-1);
        }
        return (sys::real_calls().*Member)(args...);
    }
    static inline long countdown_ = 0;
    static inline long calls_ = 0;
    static inline int err_ = 0;
    static inline bool sticky_ = false;
};

}  // namespace kova::test
