#include "lin/DmTreeDev.h"

#include <gtest/gtest.h>

#include "platform/Exception.h"
#include "support/Owned.h"
#include "support/ScriptedView.h"
#include "support/TestSupport.h"

using vessa::target::Storage;
using vessa::target::lin::DmTreeDev;

namespace {

TEST(DmTreeDev, TreeLines) {
    const struct {
        std::string line;
        bool device;
        std::string name;
        int major, minor, depth;
    } cases[] = {
        {"mpatha (253:0)", true, "mpatha", 253, 0, 0},
        {"mpatha\t(253:0)", true, "mpatha", 253, 0, 0},
        {"350002ac001dc0031 (253, 0)", true, "350002ac001dc0031", 253, 0, 0},
        {" |- (8:16)", true, "device", 8, 16, 1},
        {"    `- (8:32)", true, "device", 8, 32, 4},
        {" \u2514\u2500mpatha (253:0)", true, "device", 253, 0, 1},
        {"    |-  vg-root (253:2)", true, "vg-root", 253, 2, 4},
        // Depth is the first non-blank column only: behind a vertical bar the drawing of the next level
        // is read as the name.
        {" \u2502  \u2514\u2500mpathep1 (253:8)", true, "\u2514\u2500mpathep1", 253, 8, 1},
        {"mpatha (253:0", true, "mpatha", 253, 0, 0},
        {"No devices found", false, "device", 0, 0, 0},
        {"", false, "device", 0, 0, -1},
    };
    for (const auto& c : cases) {
        std::string name;
        std::pair<int, int> numbers(0, 0);
        int depth = 99;
        EXPECT_EQ(DmTreeDev::parseTreeLine(c.line, name, numbers, depth), c.device) << c.line;
        EXPECT_EQ(name, c.name) << c.line;
        EXPECT_EQ(numbers, std::make_pair(c.major, c.minor)) << c.line;
        EXPECT_EQ(depth, c.depth) << c.line;
    }
    std::string name;
    std::pair<int, int> numbers;
    int depth = 0;
    EXPECT_THROW(DmTreeDev::parseTreeLine("vg-lv (253:x)", name, numbers, depth), vessa::Exception);
    EXPECT_THROW(DmTreeDev::parseTreeLine("vg-lv (253)", name, numbers, depth), vessa::Exception);
}

TEST(DmTreeDev, ChildrenAttachToTheNearestShallowerNode) {
    auto multipaths = DmTreeDev::parseMultipathList("mpatha (253, 0)\n");
    vessa::test::Owned<DmTreeDev> roots;
    DmTreeDev::parseTree("mpatha (253:0)\n |- (8:16)\n `- (8:32)\nvg-lv (253:1)\n  `- (253:0)\n", multipaths,
                         roots);
    ASSERT_EQ(roots.size(), 2u);
    DmTreeDev* mpatha = roots.front();
    EXPECT_TRUE(mpatha->multipath());
    ASSERT_EQ(mpatha->children().size(), 2u);  // siblings, not parent and child
    for (DmTreeDev* child : mpatha->children()) {
        EXPECT_EQ(child->name(), "device");
        EXPECT_EQ(child->parents().front(), mpatha);
        EXPECT_FALSE(child->multipath());
    }
    DmTreeDev* lv = roots.back();
    ASSERT_EQ(lv->children().size(), 1u);
    EXPECT_EQ(lv->children().front()->name(), "mpatha");  // an unnamed node takes the multipath name
    EXPECT_TRUE(lv->children().front()->multipath());
}

TEST(DmTreeDev, OfTwoMapsWithTheSameNumbersTheFirstByNameNamesTheNode) {
    vessa::test::Owned<DmTreeDev> roots;
    DmTreeDev::parseTree("top (253:9)\n `- (253:0)\n", {{"mpathb", {253, 0}}, {"mpatha", {253, 0}}}, roots);
    ASSERT_EQ(roots.size(), 1u);
    EXPECT_FALSE(roots.front()->multipath());
    ASSERT_EQ(roots.front()->children().size(), 1u);
    EXPECT_EQ(roots.front()->children().front()->name(), "mpatha");
    EXPECT_TRUE(roots.front()->children().front()->multipath());
}

TEST(DmTreeDev, RealTreesParse) {
    vessa::test::Owned<DmTreeDev> roots;
    DmTreeDev::parseTree(vessa::test::dataBody("dmsetup/cn-dmsetup-ls-tree-hp-eva-cciss-multipath.txt"),
                         DmTreeDev::parseMultipathList(""), roots);
    ASSERT_FALSE(roots.empty());
    EXPECT_EQ(roots.front()->name(), "fenxi-lvfenxi");
    EXPECT_EQ(roots.front()->children().front()->major(), 253);
    EXPECT_EQ(roots.front()->children().front()->minor(), 5);
    auto comma = DmTreeDev::parseMultipathList(
        vessa::test::dataBody("dmsetup/hp3par-dmsetup-ls-target-multipath-comma.txt"));
    EXPECT_EQ(comma.at("350002ac001dc0031"), std::make_pair(253, 0));
}

// A real multipath tree in which the drawing glues every child's name to the tree characters: only
// the multipath maps get a name back, from the multipath list.
TEST(DmTreeDev, RealMultipathTreeNamesItsMapsFromTheList) {
    vessa::test::Owned<DmTreeDev> roots;
    DmTreeDev::parseTree(vessa::test::dataBody("dmsetup/cn-dmsetup-ls-tree-hp-eva-cciss-multipath.txt"),
                         DmTreeDev::parseMultipathList(
                             vessa::test::dataBody("dmsetup/cn-dmsetup-ls-target-multipath-handmade.txt")),
                         roots);
    std::vector<std::string> tops;
    for (const DmTreeDev* root : roots) {
        tops.push_back(root->name());
        EXPECT_FALSE(root->multipath()) << root->name();
    }
    EXPECT_EQ(tops, (std::vector<std::string>{"fenxi-lvfenxi", "hdvg-swaplv", "vgdm-lvznff2", "hdvg-rootlv",
                                              "vg_settlement-lv_settlement", "vgdm-lvznff"}));
    auto at = [&](std::size_t i) { return *std::next(roots.begin(), static_cast<long>(i)); };
    const DmTreeDev* fenxi = at(0)->children().front();
    EXPECT_EQ(fenxi->name(), "fenxi-2T");
    EXPECT_TRUE(fenxi->multipath());
    EXPECT_EQ(fenxi->children().size(), 4u);
    EXPECT_EQ(at(1)->children().front()->name(), "device");  // the cciss partition under the swap volume
    EXPECT_EQ(at(1)->children().front()->major(), 104);
    const DmTreeDev* partition = at(4)->children().front();  // the kpartx map, named in the drawing only
    EXPECT_EQ(partition->name(), "device");
    EXPECT_FALSE(partition->multipath());
    EXPECT_EQ(partition->children().front()->name(), "36001438005deddc80000400003340000");
    EXPECT_EQ(partition->children().front()->children().size(), 6u);
    // Paths drawn behind a vertical bar start in column 1, so they attach beside their map.
    EXPECT_EQ(at(5)->children().size(), 8u);
    EXPECT_EQ(at(5)->children().front()->name(), "DMdisk03-1T");
    EXPECT_TRUE(at(5)->children().front()->children().empty());
    EXPECT_EQ(at(5)->children().back()->name(), "DMdisk02-2T");
}

TEST(DmTreeDev, ReaderLogsMatchesAndTheTreeAndMarksThePartitionOfAMap) {
    auto view = std::make_unique<vessa::test::ScriptedView>();
    view->commands["dmsetup ls --target multipath"] = {
        true, 0, vessa::test::dataBody("dmsetup/handmade-dmsetup-ls-target-multipath-tab.txt")};
    view->commands["dmsetup ls --tree -o notrunc"] = {
        true, 0, vessa::test::dataBody("dmsetup/handmade-dmsetup-ls-tree-kpartx-partition-on-mpath.txt")};
    vessa::test::ScopedView scoped(std::move(view));
    vessa::test::LogCapture log;
    vessa::test::Owned<DmTreeDev> roots;
    ASSERT_TRUE(DmTreeDev::readDmTree(roots, nullptr));
    EXPECT_TRUE(log.hasMessage("Adding \"mpatha\" @ (253:0)"));
    EXPECT_TRUE(log.hasMessage("Matched device (253:0)  with mpatha (253:0)"));
    EXPECT_TRUE(log.hasMessage("Matched mpathb (253:2)  with mpathb (253:2)"));
    EXPECT_NE(log.text().find("[lin/DmTreeDev.cpp] printDmTree: DmTree:\n"
                              "mpathap1 (253:1)\n"
                              "    mpatha (253:0) Multipath\n"
                              "        device (8:16)\n"
                              "        device (8:32)\n"
                              "mpathb (253:2) Multipath\n"
                              "    device (8:48)\n"
                              "    device (8:64)\n"),
              std::string::npos)
        << log.text();
    ASSERT_EQ(roots.size(), 2u);
    Storage::exclusions partition = 0, map = 0;
    roots.front()->getExclusions(partition, false, false);
    roots.back()->getExclusions(map, false, false);
    EXPECT_EQ(partition, Storage::kPartitioned);
    EXPECT_EQ(map, 0u);
    // Up from a path: the walk reaches the partition and applies its check there.
    Storage::exclusions path = 0;
    roots.front()->children().front()->children().front()->getExclusions(path, false, true);
    EXPECT_EQ(path, Storage::kPartitioned);
}

TEST(DmTreeDev, NumbersThatDoNotConvertStopTheReaderAndLeaveWhatWasBuilt) {
    auto view = std::make_unique<vessa::test::ScriptedView>();
    view->commands["dmsetup ls --target multipath"] = {true, 1, ""};
    view->commands["dmsetup ls --tree -o notrunc"] = {true, 0, "vg-lv (253:0)\n `- (8:1)\nvg-bad (253:x)\n"};
    vessa::test::ScopedView scoped(std::move(view));
    vessa::test::Owned<DmTreeDev> roots;
    EXPECT_THROW(DmTreeDev::readDmTree(roots, nullptr), vessa::Exception);
    ASSERT_EQ(roots.size(), 1u);
    EXPECT_EQ(roots.front()->children().size(), 1u);
}

TEST(DmTreeDev, ReaderRunsDmsetupTwiceAndOnlyTheRunnerFailureSkips) {
    const struct {
        bool listStarts;
        int treeStatus;
        bool treeStarts;
        std::size_t roots;
        bool multipath;
    } cases[] = {
        {true, 0, true, 1, true},
        {true, 1, true, 1, true},    // dmsetup's own failure status: output still read
        {false, 0, true, 1, false},  // no multipath list: the tree alone
        {true, 0, false, 0, false},  // no tree: nothing
    };
    for (const auto& c : cases) {
        auto view = std::make_unique<vessa::test::ScriptedView>();
        view->commands["dmsetup ls --target multipath"] = {c.listStarts, 0, "mpatha\t(253:0)\n"};
        view->commands["dmsetup ls --tree -o notrunc"] = {c.treeStarts, c.treeStatus,
                                                          "mpatha (253:0)\n |- (8:16)\n"};
        vessa::test::ScopedView scoped(std::move(view));
        vessa::test::Owned<DmTreeDev> roots;
        EXPECT_TRUE(DmTreeDev::readDmTree(roots, nullptr));
        ASSERT_EQ(roots.size(), c.roots);
        if (c.roots) {
            EXPECT_EQ(roots.front()->multipath(), c.multipath);
        }
    }
}

TEST(DmTreeDev, PartitionExclusionForANodeRootingANamesakeMultipath) {
    const struct {
        const char* child;
        bool multipath;
        Storage::exclusions ex;
    } cases[] = {{"mpatha1", true, Storage::kPartitioned},
                 {"mpat", true, Storage::kPartitioned},
                 {"other", true, 0},
                 {"mpatha1", false, 0}};
    for (const auto& c : cases) {
        vessa::test::Owned<DmTreeDev> roots;
        std::map<std::string, std::pair<int, int>> mp;
        if (c.multipath) {
            mp[c.child] = {253, 1};
        }
        DmTreeDev::parseTree(std::string("mpatha (253:0)\n ") + c.child + " (253:1)\n", mp, roots);
        Storage::exclusions ex = 0;
        roots.front()->getExclusions(ex, false, false);
        EXPECT_EQ(ex, c.ex) << c.child;
    }
    // Down the tree from the top: the child's own check is made too.
    vessa::test::Owned<DmTreeDev> roots;
    DmTreeDev::parseTree("top (253:9)\n `- mpatha (253:0)\n    `- mpatha1 (253:1)\n", {{"mpatha1", {253, 1}}},
                         roots);
    vessa::test::LogCapture log;
    Storage::exclusions ex = 0;
    roots.front()->getExclusions(ex, true, false);
    EXPECT_EQ(ex, Storage::kPartitioned);
    EXPECT_TRUE(log.hasMessage("Checking DmTreeDev parent/parting status for mpatha"));
    EXPECT_TRUE(log.hasMessage("Add the partition exclusion"));
    std::map<std::string, vessa::target::Property> props;
    roots.front()->addProperties("Holder ", props);
    EXPECT_EQ(props.at("DmDevChildCount").value(), "1");
    EXPECT_EQ(props.at("DmDevName").category(), "Holder dmsetup lm --tree -> top");
}

}  // namespace
