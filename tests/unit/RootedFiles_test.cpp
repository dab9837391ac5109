#include "platform/view/RootedFiles.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>

#include "support/HostileRoot.h"
#include "support/TestSupport.h"

using vessa::sal::posix::RootedFiles;

namespace {

class Hostile : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_NE(root = vessa::test::makeHostileRoot(outside.path()), ""); }
    vessa::test::TempDir outside;
    std::string root;
};

// Every path, through the kernel's resolution and through the fallback walk: what it reads, or that
// it reads nothing. Nothing outside the root is ever reached.
TEST_F(Hostile, PathsResolveInsideTheRootWithEitherResolver) {
    struct Case {
        const char* path;
        const char* content;  // nullptr: the read fails
        int err;              // the errno of the failed open, 0 when it does not matter or opens
    };
    const Case cases[] = {
        {"/etc/mtab", "inside", 0},                                // absolute target: under the root
        {"etc/mtab", "inside", 0},                                 // relative paths start at the root too
        {"/sys/block/sda/size", "16", 0},                          // relative link in the middle
        {"/sys/block/sda/../../../../proc/mounts", "inside", 0},   // ".." of the link's target,
        {"/sys/block/sda/../../../proc/mounts", nullptr, ENOENT},  // not of the path as written
        {"/../../../../proc/mounts", "inside", 0},                 // ".." stops at the root
        {"/up/proc/mounts", "inside", 0},
        {"/abs/abs/etc/mtab", "inside", 0},
        {"/up/secret", nullptr, ENOENT},
        {"/out-rel", nullptr, ENOENT},
        {"/out-abs", nullptr, ENOENT},
        {"/out-full", nullptr, ENOENT},
        {"/out-top/secret", nullptr, ENOENT},
        {"/loop-a", nullptr, ELOOP},
        {"/loop-a/x", nullptr, ELOOP},
        {"/c1", "inside", 0},
        {"/c0", nullptr, ELOOP},
        {"/proc/mounts/", nullptr, ENOTDIR},  // a trailing "/" wants a directory
        {"/proc/mounts/.", nullptr, ENOTDIR},
        {"/proc", nullptr, 0},  // a directory is not read
        {"/fifo", nullptr, 0},  // opened for nothing, so it cannot hang
        {"/socket", nullptr, 0},
        {"", nullptr, ENOENT},
    };
    for (RootedFiles::Resolver resolver : {RootedFiles::Resolver::Kernel, RootedFiles::Resolver::Portable}) {
        RootedFiles files(root, resolver);
        ASSERT_TRUE(files.valid());
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(c.path) +
                         (resolver == RootedFiles::Resolver::Kernel ? " kernel" : " walk"));
            std::string content = "unchanged";
            EXPECT_EQ(files.readFile(c.path, content), c.content != nullptr);
            EXPECT_EQ(content, c.content != nullptr ? c.content : "unchanged");
            errno = 0;
            const int fd = files.open(c.path, O_PATH);
            if (c.err != 0) {
                EXPECT_EQ(fd, -1);
                EXPECT_EQ(errno, c.err);
            }
            if (fd >= 0) {
                ::close(fd);
            }
        }
        std::string target;
        ASSERT_TRUE(files.readLink("/abs/etc/mtab", target, 512));
        EXPECT_EQ(target, "/proc/mounts");
        EXPECT_FALSE(files.readLink("/proc/mounts", target, 512));
        std::vector<vessa::sal::sys::DirEntry> entries;
        ASSERT_TRUE(files.listDirectory("/up", entries));  // the root itself
        EXPECT_EQ(entries.front().name, ".vessa");
        vessa::sal::sys::FileStatus st;
        ASSERT_TRUE(files.status("/sys/block/sda", st));
        EXPECT_TRUE(st.isDirectory);
        EXPECT_FALSE(files.status("/loop-b", st));
        EXPECT_FALSE(files.usesPortableWalk() && resolver == RootedFiles::Resolver::Kernel);
    }
    // Large files are read up to the bound given, and say whether they were cut.
    ASSERT_EQ(::truncate(outside.write("root/big", "x").c_str(), RootedFiles::kReadLimit + 10), 0);
    RootedFiles files(root);
    std::string content;
    bool cut = false;
    ASSERT_TRUE(files.readFile("/big", content, RootedFiles::kReadLimit, &cut));
    EXPECT_EQ(content.size(), RootedFiles::kReadLimit);
    EXPECT_TRUE(cut);
    ASSERT_TRUE(files.readFile("/c1", content, 6, &cut));
    EXPECT_EQ(content, "inside");
    EXPECT_FALSE(cut);
}

// A kernel without openat2: the first call finds out and every call walks instead, with the same rules.
TEST_F(Hostile, WithoutOpenat2TheWalkTakesOver) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        sock_filter filter[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        };
        sock_fprog program = {static_cast<unsigned short>(sizeof filter / sizeof filter[0]), filter};
        if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
            ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
            ::_exit(2);
        }
        RootedFiles files(root);
        std::string content;
        const bool ok = files.readFile("/etc/mtab", content) && content == "inside" &&
                        files.usesPortableWalk() && !files.readFile("/up/secret", content) &&
                        !files.readFile("/loop-a", content);
        ::_exit(ok ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
