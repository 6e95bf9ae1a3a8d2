// The group family over the skeleton's groups: the files written, the line forms, the id
// search, the reads, a user's rename and deletion reaching its groups, hand edits, refusals
// and a writer killed between the two renames.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "core/sys.h"
#include "kovasdk/error.h"
#include "kovasdk/file.h"
#include "kovasdk/group.h"
#include "support/name_list.h"
#include "support/sandbox.h"

namespace kova::test {
namespace {

// A record freed at the end of its scope.
struct Group {
    PKOVAGROUP p = nullptr;
    Group() = default;
    Group(const char *name, const char *members) {
        EXPECT_EQ(KOVAGroupAlloc(&p, name, 0, members), 0);
    }
    ~Group() { KOVAGroupFree(p); }
    Group(const Group &) = delete;
    Group &operator=(const Group &) = delete;
    PKOVAGROUP operator->() const { return p; }
};

class GroupTest : public SandboxTest {
  protected:
    void TearDown() override { ErrKLIBFileCloseLock(); }
    std::string text(const char *file) const { return read_file(path(file)); }
    bool no_tmp_files() const {
        return !file_exists(path("/etc/group_tmp")) && !file_exists(path("/etc/group_desc.tmp"));
    }
    std::string members(const char *group) const {
        NameList list;
        EXPECT_GE(KOVAGroupListMember(group, &list.p), 0);
        return list.joined();
    }
};

TEST_F(GroupTest, FilesAfterCreatesRenamesDescriptionsAndDeletes) {
    Group marketing("Marketing", "alice,Bob,zed,nobody");  // zed is no user
    ASSERT_EQ(KOVAGroupSet(nullptr, marketing.p), 0);
    EXPECT_EQ(marketing->gid, 65538u);  // written back: after the marker's 65537
    ASSERT_EQ(KOVAGroupDescSet("marketing", "Marketing: events and print"), 0);
    Group eng("eng", "");
    ASSERT_EQ(KOVAGroupSet("ENGINEERING", eng.p), 0);
    EXPECT_EQ(eng->gid, 65537u);  // a renamed group keeps its id
    Group staff("staff", nullptr);
    ASSERT_EQ(KOVAGroupAlloc(&staff.p, "staff", 0, "guest"), 0);
    ASSERT_EQ(KOVAGroupSet("users", staff.p), 0);  // below 65536: no framing
    ASSERT_EQ(KOVAGroupDelete("Sales"), 0);

    EXPECT_EQ(text("/etc/group"),
              "#$_@GID__INDEX@_$65538$\n"
              "root:x:0:\n"
              "daemon:x:1:\n"
              "bin:x:2:\n"
              "ftp:x:21:\n"
              "staff:x:100:guest\n"
              "administrators:x:101:admin\n"
              "nogroup:x:65534:\n"
              "eng:x:65537:nobody,nobody\n"
              "Marketing:x:65538:nobody,alice,bob,nobody\n");
    EXPECT_EQ(text("/etc/group_desc"),
              "staff:Every local user\n"
              "administrators:Administrators of the appliance\n"
              "eng:Engineering\n"
              "Marketing:Marketing: events and print\n");
    EXPECT_TRUE(no_tmp_files());
}

TEST_F(GroupTest, LineForms) {
    PKOVAGROUP group = nullptr;
    ASSERT_EQ(KOVAGroupDBUnpack("g:x:65536:nobody,nobody", &group), 0);
    EXPECT_STREQ(group->szMembers, "");
    ASSERT_EQ(KOVAGroupDBUnpack("g:x:70000:nobody,a,b,nobody", &group), 0);
    EXPECT_STREQ(group->szMembers, "a,b");
    EXPECT_EQ(group->gid, 70000u);
    ASSERT_EQ(KOVAGroupDBUnpack("g:x:100:nobody,a", &group), 0);  // no framing at or below 65535
    EXPECT_STREQ(group->szMembers, "nobody,a");
    EXPECT_EQ(KOVAGroupDBUnpack("g:x:1", &group), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_FORMAT_ERROR);
    EXPECT_EQ(KOVAGroupDBUnpack(":x:1:", &group), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_INVALID_USERNAME);

    char line[64];
    const struct {
        uint32_t gid;
        const char *members, *line;
    } cases[] = {
        {65536, "", "g:x:65536:nobody,nobody"},
        {100, "", "g:x:100:"},
        {70000, "a,b", "g:x:70000:nobody,a,b,nobody"},
        {65535, "a", "g:x:65535:a"},
    };
    for (const auto &c : cases) {
        ASSERT_EQ(KOVAGroupAlloc(&group, "g", c.gid, c.members), 0);
        EXPECT_EQ(KOVAGroupDBPackFromUnix(nullptr, group, line, sizeof line),
                  static_cast<int>(strlen(c.line)) + 1);
        EXPECT_STREQ(line, c.line);
    }
    EXPECT_EQ(KOVAGroupDBPackFromUnix(nullptr, group, line, 5), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_NOT_ENOUGH_MEMORY);
    KOVAGroupFree(group);
    group = nullptr;

    NameList members;
    ASSERT_GE(KLIBSzListPush(&members.p, "a"), 0);
    ASSERT_GE(KLIBSzListPush(&members.p, "b"), 0);
    ASSERT_EQ(KOVAGroupAlloc2(&group, "g", 7, members.p), 0);
    EXPECT_STREQ(group->szMembers, "a,b");
    EXPECT_STREQ(group->szPassword, "x");
    KOVAGroupFree(group);
}

TEST_F(GroupTest, NameRuleAndIdSearch) {
    EXPECT_EQ(BlKLIBIsGroupName("fifteen-chars-x"), 1);
    EXPECT_EQ(BlKLIBIsGroupName("sixteen-chars-xx"), 0);
    EXPECT_EQ(BlKLIBIsGroupName("\xc3\xa9quipe-\xc3\xa9t\xc3\xa9-2026"), 1);  // 15 characters
    EXPECT_EQ(BlKLIBIsGroupName("a\\b"), 0);
    Group long_name("sixteen-chars-xx", "");
    EXPECT_EQ(KOVAGroupSet(nullptr, long_name.p), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_INVALID_USERNAME);

    // At the top of the range the search starts again at its bottom, past the ids taken.
    std::string group = text("/etc/group");
    group.replace(0, group.find('\n'), "#$_@GID__INDEX@_$196607$");
    write_file(path("/etc/group"), group);
    Group wrapped("wrapped", "");
    ASSERT_EQ(KOVAGroupSet(nullptr, wrapped.p), 0);
    EXPECT_EQ(wrapped->gid, 65538u);
    Group next("next", "");
    ASSERT_EQ(KOVAGroupSet(nullptr, next.p), 0);
    EXPECT_EQ(next->gid, 65539u);
    EXPECT_EQ(text("/etc/group").substr(0, 24), "#$_@GID__INDEX@_$65539$\n");
}

TEST_F(GroupTest, Reads) {
    Group group;
    ASSERT_EQ(KOVAGroupGet("SALES", &group.p), 0);
    EXPECT_STREQ(group->szName, "sales");
    EXPECT_STREQ(group->szMembers, "alice,bob");
    ASSERT_EQ(KOVAGroupGetByGID(101, &group.p), 0);
    EXPECT_STREQ(group->szName, "administrators");
    EXPECT_EQ(KOVAGroupGet("nobody-here", &group.p), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_NO_SUCH_GROUP);
    EXPECT_EQ(KOVAGroupGetByGID(4242, &group.p), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_NO_SUCH_GROUP);

    NameList all, prefixed;
    EXPECT_EQ(KOVAGroupEnum(&all.p), 9);
    EXPECT_EQ(all.joined(), "administrators,bin,daemon,engineering,ftp,nogroup,root,sales,users");
    EXPECT_EQ(KOVAGroupEnumByPrefix(&prefixed.p, "S"), 1);
    EXPECT_EQ(prefixed.joined(), "sales");
    EXPECT_EQ(KOVAGroupTotalNum(), 9);
    EXPECT_EQ(members("sales"), "alice,bob");
    EXPECT_EQ(members("engineering"), "");

    char desc[32];
    EXPECT_EQ(KOVAGroupDescGet("Sales", desc, sizeof desc), 11);
    EXPECT_STREQ(desc, "Sales team");
    EXPECT_EQ(KOVAGroupDescGet("root", desc, sizeof desc), 1);
    EXPECT_STREQ(desc, "");
    EXPECT_EQ(KOVAGroupDescGet("Sales", desc, 5), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_NOT_ENOUGH_MEMORY);
}

// A user renamed or deleted through the user operations is renamed in, or leaves, its groups.
TEST_F(GroupTest, GroupsFollowTheirUsers) {
    PKOVAUSER alice = nullptr, alicia = nullptr;
    ASSERT_EQ(KOVAUserGet("alice", &alice), 0);
    ASSERT_EQ(KOVAUserAlloc(&alicia, "alicia", alice->szPassword, alice->uid, alice->gid,
                            alice->szDescription, "/var/services/homes/alicia", alice->szShell, 0,
                            alice->szMail, alice->privilege),
              0);
    ASSERT_EQ(KOVAUserSetOne("alice", alicia), 0);
    EXPECT_EQ(members("sales"), "alicia,bob");
    ASSERT_EQ(KOVAUserDelete("BOB"), 0);
    EXPECT_EQ(members("sales"), "alicia");
    EXPECT_NE(text("/etc/group").find("sales:x:65536:nobody,alicia,nobody\n"), std::string::npos);
    KOVAUserFree(alice);
    KOVAUserFree(alicia);
}

// An administrator's edit of the files beside the library is seen by the next call.
TEST_F(GroupTest, HandEditsAreSeen) {
    Group group;
    ASSERT_EQ(KOVAGroupGet("sales", &group.p), 0);
    write_file(path("/etc/group"), text("/etc/group") + "qa:x:65600:guest\n");
    ASSERT_EQ(KOVAGroupGet("QA", &group.p), 0);
    EXPECT_EQ(group->gid, 65600u);
    write_file(path("/etc/group_desc"), text("/etc/group_desc") + "qa:Quality\n");
    char desc[16];
    EXPECT_EQ(KOVAGroupDescGet("qa", desc, sizeof desc), 8);
}

TEST_F(GroupTest, RefusalsChangeNothing) {
    const std::string before = text("/etc/group") + text("/etc/group_desc");
    Group sales("SALES", "");
    EXPECT_EQ(KOVAGroupSet(nullptr, sales.p), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_GROUP_EXISTS);
    EXPECT_EQ(KOVAGroupSet("engineering", sales.p), -1);  // renamed onto an existing name
    EXPECT_EQ(KLIBErrGet(), ERR_GROUP_EXISTS);
    Group nobody_here("zz", "");
    EXPECT_EQ(KOVAGroupSet("nobody-here", nobody_here.p), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_NO_SUCH_GROUP);
    EXPECT_EQ(KOVAGroupDelete("nobody-here"), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_NO_SUCH_GROUP);
    EXPECT_EQ(KOVAGroupDescSet("sales", "two\nlines"), -1);
    EXPECT_EQ(KLIBErrGet(), ERR_BAD_PARAMETERS);
    EXPECT_EQ(KOVAGroupDescSet("nobody-here", "x"), -1);
    EXPECT_EQ(text("/etc/group") + text("/etc/group_desc"), before);
    EXPECT_TRUE(no_tmp_files());
}

// Every allocation of a group rename failing in turn: a clean -1 with both files as they were,
// or the rename done whole.
TEST_F(GroupTest, AllocationFailuresChangeNothing) {
    const auto files = [this] { return text("/etc/group") + text("/etc/group_desc"); };
    int failed = 0;
    for (long nth = 1;; ++nth) {
        const std::string before = files();
        const long start = allocation_count();
        Group renamed("eng", "alice");
        int rc = 0;
        {
            const AllocationFailure failure(nth);
            rc = KOVAGroupSet("engineering", renamed.p);
        }
        const bool reached = allocation_count() - start >= nth;
        ASSERT_TRUE(no_tmp_files()) << "allocation " << nth;
        if (rc != 0) {
            ++failed;
            ASSERT_EQ(files(), before) << "allocation " << nth;
            continue;
        }
        ASSERT_NE(text("/etc/group_desc").find("\neng:Engineering\n"), std::string::npos);
        Group back("engineering", "");
        ASSERT_EQ(KOVAGroupSet("eng", back.p), 0);
        if (!reached) break;  // no allocation failed: every one has been tried
    }
    EXPECT_GT(failed, 10);
}

int g_renames_left = 0;
int rename_or_die(const char *from, const char *to) {
    if (--g_renames_left == 0) raise(SIGKILL);
    return sys::real_calls().rename(from, to);
}

int wait_for(pid_t pid) {
    int status = 0;
    if (waitpid(pid, &status, 0) != pid) return -2;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A writer killed at each rename of a group rename in turn (the description moves with the
// group): the next program's call leaves both files naming the group alike.
TEST_F(GroupTest, AWriterKilledAtEachRenameIsCompletedOrUndone) {
    int killed = 0;
    for (int nth = 1; nth < 20; ++nth) {
        const char *from = nth % 2 == 1 ? "engineering" : "eng";
        const char *to = nth % 2 == 1 ? "eng" : "engineering";
        // Undo the previous round's rename if it went through.
        Group probe;
        if (KOVAGroupGet(from, &probe.p) != 0) std::swap(from, to);
        const pid_t writer = fork();
        if (writer == 0) {
            alarm(60);
            Group warm;
            if (KOVAGroupGet(from, &warm.p) != 0) _exit(2);
            g_renames_left = nth;
            sys::calls().rename = rename_or_die;
            Group renamed(to, "");
            _exit(KOVAGroupSet(from, renamed.p) == 0 ? 0 : 1);
        }
        const int status = wait_for(writer);
        ASSERT_TRUE(status == 0 || status == -1) << "status " << status << " at rename " << nth;
        const pid_t next = fork();
        if (next == 0) {
            Group any;
            _exit(KOVAGroupGet("sales", &any.p) == 0 ? 0 : 1);
        }
        ASSERT_EQ(wait_for(next), 0);
        const std::string group = text("/etc/group"), desc = text("/etc/group_desc");
        const bool renamed = group.find("\neng:") != std::string::npos;
        EXPECT_EQ(desc.find("\neng:") != std::string::npos, renamed) << "at rename " << nth;
        EXPECT_TRUE(no_tmp_files()) << "at rename " << nth;
        if (status == 0) break;
        ++killed;
    }
    EXPECT_GE(killed, 5);  // the two files and the three stores
}

}  // namespace
}  // namespace kova::test
