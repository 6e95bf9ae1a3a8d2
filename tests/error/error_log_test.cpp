// The two functions that keep a caller-named log file.
#include <gtest/gtest.h>

#include <string>

#include "kovasdk/error.h"
#include "support/sandbox.h"

using kova::test::read_file;
using kova::test::write_file;

namespace {

class ErrorLog : public kova::test::SandboxTest {
  protected:
    std::string log_ = path("/var/log/op.log");
    void SetUp() override { write_file(log_, "old line\n"); }
};

TEST_F(ErrorLog, AppendsLinesAndInitialEmpties) {
    ASSERT_EQ(KLIBErrLogSet(log_.c_str(), "a"), 0);
    ASSERT_EQ(KLIBErrLogSet(log_.c_str(), "a"), 0);
    EXPECT_EQ(read_file(log_), "old line\na\na\n");

    KLIBErrLogInitial(log_.c_str());
    EXPECT_EQ(read_file(log_), "");
    ASSERT_EQ(KLIBErrLogSet(log_.c_str(), "b"), 0);
    EXPECT_EQ(read_file(log_), "b\n");
}

TEST_F(ErrorLog, InitialCreatesAMissingFileAndIgnoresNull) {
    const std::string fresh = path("/var/log/new.log");
    KLIBErrLogInitial(fresh.c_str());
    EXPECT_TRUE(kova::test::file_exists(fresh));
    KLIBErrLogInitial(nullptr);
    KLIBErrLogInitial(path("/no/such/dir/x.log").c_str());  // silent
}

// The text is the format: "%%" is one percent sign (kept as it is).
TEST_F(ErrorLog, TextIsUsedAsTheFormat) {
    ASSERT_EQ(KLIBErrLogSet(log_.c_str(), "copied 100%% of share"), 0);
    EXPECT_EQ(read_file(log_), "old line\ncopied 100% of share\n");
}

TEST_F(ErrorLog, FailuresRaiseTheirDefinedLines) {
    EXPECT_EQ(KLIBErrLogSet(nullptr, "a"), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
    EXPECT_STREQ(KOVAErrorGetFile(), "error_log_set.cpp");
    EXPECT_EQ(KOVAErrorGetLine(), 33);

    EXPECT_EQ(KLIBErrLogSet(log_.c_str(), nullptr), -1);
    EXPECT_EQ(KOVAErrorGetLine(), 33);

    EXPECT_EQ(KLIBErrLogSet(path("/var/log").c_str(), "a"), -1);  // a directory
    EXPECT_EQ(KLIBErrGet(), ERR_OPEN_FAILED);
    EXPECT_EQ(KOVAErrorGetLine(), 38);
}

TEST_F(ErrorLog, AWriteThatFailsIsReported) {
    // A text longer than the stream's buffer reaches the device during fprintf.
    const std::string text(64 * 1024, 'x');
    EXPECT_EQ(KLIBErrLogSet("/dev/full", text.c_str()), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_WRITE_FAILED);
    EXPECT_EQ(KOVAErrorGetLine(), 52);
}

}  // namespace
