// Back traces captured at each raise, and their two printers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <algorithm>
#include <string>

#include "kovasdk/error.h"
#include "support/sandbox.h"

using kova::test::capture_stdout;
using kova::test::LogCapture;
using kova::test::read_file;
using ::testing::HasSubstr;

namespace {

__attribute__((noinline)) void raise_from_deep_helper(int depth) {
    if (depth == 0) {
        KLIBErrSetEx(ERR_UNKNOWN, "deep.c", 1);
        return;
    }
    raise_from_deep_helper(depth - 1);
    asm volatile("");  // keep the frames: no tail call
}

int count_lines(const std::string &text) {
    return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

TEST(ErrorTrace, PrintShowsTheLastRaiseInnermostFirst) {
    KLIBErrSetEx(ERR_OPEN_FAILED, "t.c", 3);
    const std::string out = capture_stdout([] { KOVAErrorBackTracePrint(); });
    ASSERT_FALSE(out.empty());
    // The innermost frames are the error functions themselves (a sanitizer may add its own
    // interceptor frame in front, an unoptimised build an internal helper).
    size_t end = 0;
    for (int line = 0; line < 4 && end != std::string::npos; ++line)
        end = out.find('\n', end + 1);
    EXPECT_THAT(out.substr(0, end), HasSubstr("KLIBErrSetEx"));
}

TEST(ErrorTrace, DepthIsCappedAt64Frames) {
    raise_from_deep_helper(100);
    const std::string out = capture_stdout([] { KOVAErrorBackTracePrint(); });
    EXPECT_EQ(count_lines(out), 64);
    raise_from_deep_helper(2);
    const std::string shallow = capture_stdout([] { KOVAErrorBackTracePrint(); });
    EXPECT_LT(count_lines(shallow), 64);
}

class ErrorPanic : public kova::test::SandboxTest {};

TEST_F(ErrorPanic, WritesTheTraceToTheConsoleAndToSyslog) {
    kova::test::write_file(path("/dev/console"), "");
    KLIBErrSetEx(ERR_OPEN_FAILED, "t.c", 3);
    const std::string printed = capture_stdout([] { KOVAErrorBackTracePrint(); });
    LogCapture log;
    KOVAErrorBackTracePanic();

    EXPECT_EQ(read_file(path("/dev/console")), printed);
    ASSERT_EQ(log.lines().size(), static_cast<size_t>(count_lines(printed)));
    const std::string first = printed.substr(0, printed.find('\n') + 1);
    EXPECT_EQ(log.lines()[0].priority, LOG_ERR);
    EXPECT_EQ(log.lines()[0].text, first);  // "%s\n"
}

TEST_F(ErrorPanic, StillLogsWhenTheConsoleCannotBeOpened) {
    // No /dev directory in the sandbox: the console cannot be opened.
    KLIBErrSetEx(ERR_OPEN_FAILED, "t.c", 3);
    LogCapture log;
    KOVAErrorBackTracePanic();
    EXPECT_FALSE(log.lines().empty());
    EXPECT_FALSE(kova::test::file_exists(path("/dev/console")));
}

}  // namespace
