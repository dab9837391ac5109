#include "platform/view/RunScope.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <tuple>

#include "support/ScriptedView.h"

namespace sys = vessa::sal::sys;

namespace {

// A scripted view that two threads may read at once, counting what it was asked.
class SharedView : public vessa::test::ScriptedView {
  public:
    bool allowsConcurrentReads() const override { return true; }
    bool readFile(const std::string& path, std::string& content) override {
        count(path);
        return ScriptedView::readFile(path, content);
    }
    bool listDirectory(const std::string& path, std::vector<sys::DirEntry>& entries) override {
        count(path + "/");
        return ScriptedView::listDirectory(path, entries);
    }
    bool readLink(const std::string& path, std::string& target, std::size_t limit) override {
        count(path + "@");
        return ScriptedView::readLink(path, target, limit);
    }
    int asked(const std::string& what) {
        std::lock_guard<std::mutex> lock(mutex_);
        return asked_[what];
    }
    std::atomic<int> calls{0};

  private:
    void count(const std::string& what) {
        std::lock_guard<std::mutex> lock(mutex_);
        ++asked_[what];
        ++calls;
    }
    std::mutex mutex_;
    std::map<std::string, int> asked_;
};

}  // namespace

// What was read ahead is answered from memory, once, exactly as the view answers; what was not (a
// partition below a device, whose path ends like a device's file) is read as before.
TEST(RunScope, ReadAheadAnswersAsTheViewWould) {
    auto owned = std::make_unique<SharedView>();
    SharedView& view = *owned;
    view.files = {{"/sys/block/sda/dev", "8:0\n"},
                  {"/sys/block/sda/sda1/dev", "8:1\n"},
                  {"/sys/block/sdb/dev", "8:16\n"}};
    view.dirs = {{"/sys/block/sda", {"dev", "sda1"}},
                 {"/sys/block/sdb", {"dev"}},
                 {"/sys/block/sda/sda1", {"dev"}},
                 {"/dev/disk/by-id/", {"a", "plain"}}};
    view.links = {{"/dev/disk/by-id/a", "../../sda"}};
    view.dirs["/short"] = {"Holders", "x"};
    for (int i = 0; i < 40; ++i) {
        view.dirs["/long"].push_back((i % 2 ? "m" : "N") + std::to_string(i));
    }
    vessa::test::ScopedView scoped(std::move(owned));
    sys::RunScope scope({"/sys/block/sdc/dev", "/sys/block/sdb/size", "/sys/block/sda/dev"});
    using Ahead = sys::RunScope::Ahead;
    sys::RunScope::readAhead({"/sys/block/sda", "/sys/block/sdb", "/sys/block/sdc"},
                             {{Ahead::Directory, ""}, {Ahead::File, "/dev"}, {Ahead::File, "/size"}});
    sys::RunScope::readAhead({"/dev/disk/by-id/"}, {{Ahead::Links, ""}});
    // The reading threads are done when they have asked for all they may: the sizes of sda and sdb are
    // not in their listings, so not tried; the alias directory is listed and each entry's link read.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (view.calls < 10 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_EQ(view.calls, 10);

    const struct {
        const char* path;
        bool read;
        const char* content;
    } files[] = {{"/sys/block/sda/dev", true, "8:0\n"},  {"/sys/block/sda/sda1/dev", true, "8:1\n"},
                 {"/sys/block/sdb/dev", true, "8:16\n"}, {"/sys/block/sdb/size", false, "kept"},
                 {"/sys/block/sdc/dev", false, "kept"},  {"/sys/block/sda/dev", true, "8:0\n"}};
    for (const auto& f : files) {
        std::string content = "kept";
        EXPECT_EQ(sys::current().readFile(f.path, content), f.read) << f.path;
        EXPECT_EQ(content, f.content) << f.path;
    }
    std::vector<sys::DirEntry> entries;
    EXPECT_TRUE(sys::current().listDirectory("/sys/block/sda", entries));
    EXPECT_EQ(entries.size(), 2u);
    EXPECT_FALSE(sys::current().listDirectory("/sys/block/sdc", entries));
    // Links: answered from memory once their directory's listing was taken, and only for the view's
    // default length bound.
    EXPECT_TRUE(sys::current().listDirectory("/dev/disk/by-id/", entries));
    std::string target;
    EXPECT_TRUE(sys::current().readLink("/dev/disk/by-id/a", target, 512));
    EXPECT_EQ(target, "../../sda");
    EXPECT_FALSE(sys::current().readLink("/dev/disk/by-id/plain", target, 512));
    EXPECT_TRUE(sys::current().readLink("/dev/disk/by-id/a", target, 100));
    EXPECT_EQ(view.asked("/dev/disk/by-id//"), 1);
    EXPECT_EQ(view.asked("/dev/disk/by-id/a@"), 2);
    EXPECT_EQ(view.asked("/dev/disk/by-id/plain@"), 1);

    // Each item was asked of the view once; the file read twice above only once more, by the run's
    // own reading after the read-ahead's answer was taken.
    for (const char* once : {"/sys/block/sda/", "/sys/block/sdb/", "/sys/block/sdc/", "/sys/block/sdc/dev",
                             "/sys/block/sdc/size", "/sys/block/sda/sda1/dev", "/sys/block/sdb/dev"}) {
        EXPECT_EQ(view.asked(once), 1) << once;
    }
    EXPECT_EQ(view.asked("/sys/block/sda/dev"), 2);
    EXPECT_EQ(view.asked("/sys/block/sdb/size"), 0);
    EXPECT_EQ(scope.unreadable(), (std::vector<std::string>{"/sys/block/sdb/size", "/sys/block/sdc/dev"}));

    // Names are looked up lower-cased, in a short listing entry by entry and in a long one by index.
    for (const auto& [directory, name, found] :
         {std::make_tuple("/short", "holders", 1u), std::make_tuple("/short", "holder", 0u),
          std::make_tuple("/long", "n38", 1u), std::make_tuple("/long", "m37", 1u),
          std::make_tuple("/long", "n37", 0u), std::make_tuple("/long", "n40", 0u)}) {
        std::vector<sys::DirEntry::Type> types;
        sys::current().entryTypes(directory, name, types);
        EXPECT_EQ(types.size(), found) << directory << " " << name;
    }
}
