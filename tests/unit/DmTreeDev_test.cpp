#include "lin/DmTreeDev.h"

#include <gtest/gtest.h>

#include "platform/Exception.h"
#include "support/Owned.h"
#include "support/ScriptedView.h"
#include "support/TestSupport.h"

using vessa::target::Storage;
using vessa::target::lin::DmTreeDev;
using Command = vessa::test::ScriptedView::Command;

namespace {

// Installs a view in which dmsetup prints `list` for the multipath list and `tree` for the whole tree.
std::unique_ptr<vessa::test::ScopedView> dmsetup(const Command& list, const Command& tree) {
    auto view = std::make_unique<vessa::test::ScriptedView>();
    view->commands["dmsetup ls --target multipath"] = list;
    view->commands["dmsetup ls --tree -o notrunc"] = tree;
    return std::make_unique<vessa::test::ScopedView>(std::move(view));
}

// The nodes on one line: "name(major:minor)", "*" for a multipath node, the children in braces. Every
// child must name its parent.
std::string dump(const std::list<DmTreeDev*>& nodes, const DmTreeDev* parent = nullptr) {
    std::string out;
    for (const DmTreeDev* n : nodes) {
        EXPECT_EQ(parent ? n->parents().front() : nullptr, parent) << n->name();
        out += (out.empty() ? "" : " ") + n->name() + "(" + std::to_string(n->major()) + ":" +
               std::to_string(n->minor()) + ")" + (n->multipath() ? "*" : "");
        out += n->children().empty() ? "" : "{" + dump(n->children(), n) + "}";
    }
    return out;
}

Storage::exclusions exclusionsOf(DmTreeDev* node, bool fromChildren, bool fromParents) {
    Storage::exclusions ex = 0;
    node->getExclusions(ex, fromChildren, fromParents);
    return ex;
}

// Single lines, each as "name major:minor depth" ("-" first when the line holds no device); the drawing
// of real trees, the tab and the comma forms are in the tests below.
TEST(DmTreeDev, TreeLines) {
    const std::pair<std::string, std::string> cases[] = {
        {"mpatha (253:0)", "mpatha 253:0 0"},           {"    `- (8:32)", "device 8:32 4"},
        {"    |-  vg-root (253:2)", "vg-root 253:2 4"}, {"mpatha (253:0", "mpatha 253:0 0"},
        {"No devices found", "- device 0:0 0"},         {"", "- device 0:0 -1"}};
    for (const auto& [line, expected] : cases) {
        std::string name;
        std::pair<int, int> n(0, 0);
        int depth = 99;
        const bool device = DmTreeDev::parseTreeLine(line, name, n, depth);
        EXPECT_EQ((device ? "" : "- ") + name + " " + std::to_string(n.first) + ":" +
                      std::to_string(n.second) + " " + std::to_string(depth),
                  expected);
    }
    std::string name;
    std::pair<int, int> numbers;
    int depth = 0;
    EXPECT_THROW(DmTreeDev::parseTreeLine("vg-lv (253:x)", name, numbers, depth), vessa::Exception);
    EXPECT_THROW(DmTreeDev::parseTreeLine("vg-lv (253)", name, numbers, depth), vessa::Exception);
}

// Siblings at one depth attach to the same node, not to each other; an unnamed node whose numbers are a
// multipath map's takes the map's name.
TEST(DmTreeDev, ChildrenAttachToTheNearestShallowerNode) {
    EXPECT_EQ(DmTreeDev::parseMultipathList(
                  vessa::test::dataBody("dmsetup/hp3par-dmsetup-ls-target-multipath-comma.txt")),
              (std::map<std::string, std::pair<int, int>>{{"350002ac001dc0031", {253, 0}}}));
    vessa::test::Owned<DmTreeDev> roots;
    DmTreeDev::parseTree("mpatha (253:0)\n |- (8:16)\n `- (8:32)\nvg-lv (253:1)\n  `- (253:0)\n",
                         DmTreeDev::parseMultipathList("mpatha (253, 0)\n"), roots);
    EXPECT_EQ(dump(roots), "mpatha(253:0)*{device(8:16) device(8:32)} vg-lv(253:1){mpatha(253:0)*}");
}

// A real multipath tree in which the drawing glues every child's name to the tree characters: only
// the multipath maps get a name back, from the multipath list. Depth is the first non-blank column
// only: paths drawn behind a vertical bar start in column 1, so they attach beside their map, and the
// drawing of their level is read as their name.
TEST(DmTreeDev, RealMultipathTreeNamesItsMapsFromTheList) {
    vessa::test::Owned<DmTreeDev> roots;
    DmTreeDev::parseTree(vessa::test::dataBody("dmsetup/cn-dmsetup-ls-tree-hp-eva-cciss-multipath.txt"),
                         DmTreeDev::parseMultipathList(
                             vessa::test::dataBody("dmsetup/cn-dmsetup-ls-target-multipath-handmade.txt")),
                         roots);
    const std::string disk02 =
        "DMdisk02-2T(253:3)*{device(8:240) device(8:224) device(8:80) device(8:16) device(8:144) "
        "device(8:96)}";
    EXPECT_EQ(
        dump(roots),
        "fenxi-lvfenxi(253:8){fenxi-2T(253:5)*{device(65:80) device(65:64) device(65:48) device(65:32)}} "
        "hdvg-swaplv(253:1){device(104:2)} vgdm-lvznff2(253:10){" +
            disk02 +
            "} hdvg-rootlv(253:0){device(104:2)} vg_settlement-lv_settlement(253:7){device(253:6){"
            "36001438005deddc80000400003340000(253:2)*{device(8:208) device(8:192) device(8:64) "
            "device(8:0) device(8:128) device(8:48)}}} vgdm-lvznff(253:9){DMdisk03-1T(253:4)* "
            "\u251c\u2500(65:16) \u251c\u2500(65:0) \u251c\u2500(8:112) \u251c\u2500(8:32) "
            "\u251c\u2500(8:176) \u2514\u2500(8:160) " +
            disk02 + "}");
}

TEST(DmTreeDev, ReaderLogsMatchesAndTheTreeAndMarksThePartitionOfAMap) {
    auto scoped = dmsetup(
        {true, 0, vessa::test::dataBody("dmsetup/handmade-dmsetup-ls-target-multipath-tab.txt")},
        {true, 0, vessa::test::dataBody("dmsetup/handmade-dmsetup-ls-tree-kpartx-partition-on-mpath.txt")});
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
    EXPECT_EQ(exclusionsOf(roots.front(), false, false), Storage::kPartitioned);
    EXPECT_EQ(exclusionsOf(roots.back(), false, false), 0u);
    // Up from a path: the walk reaches the partition and applies its check there.
    EXPECT_EQ(exclusionsOf(roots.front()->children().front()->children().front(), false, true),
              Storage::kPartitioned);
}

// dmsetup's own failure status still has its output read; only a dmsetup that cannot be run is skipped.
TEST(DmTreeDev, ReaderRunsDmsetupTwice) {
    // Whether the list starts, the tree's status, whether the tree starts, and the tree read.
    const std::tuple<bool, int, bool, const char*> cases[] = {
        {true, 0, true, "mpatha(253:0)*{device(8:16)}"},
        {true, 1, true, "mpatha(253:0)*{device(8:16)}"},
        {false, 0, true, "mpatha(253:0){device(8:16)}"},  // no multipath list: the tree alone
        {true, 0, false, ""},                             // no tree: nothing
    };
    for (const auto& [listStarts, treeStatus, treeStarts, tree] : cases) {
        auto scoped = dmsetup({listStarts, 0, "mpatha\t(253:0)\n"},
                              {treeStarts, treeStatus, "mpatha (253:0)\n |- (8:16)\n"});
        vessa::test::Owned<DmTreeDev> roots;
        EXPECT_TRUE(DmTreeDev::readDmTree(roots, nullptr));
        EXPECT_EQ(dump(roots), tree);
    }
}

TEST(DmTreeDev, PartitionExclusionForANodeRootingANamesakeMultipath) {
    // The child's name, whether it is in the multipath list, the top's exclusions.
    const std::tuple<const char*, bool, Storage::exclusions> cases[] = {
        {"mpatha1", true, Storage::kPartitioned},
        {"mpat", true, Storage::kPartitioned},
        {"other", true, 0},
        {"mpatha1", false, 0}};
    for (const auto& [child, multipath, ex] : cases) {
        vessa::test::Owned<DmTreeDev> roots;
        std::map<std::string, std::pair<int, int>> mp;
        if (multipath) {
            mp[child] = {253, 1};
        }
        DmTreeDev::parseTree(std::string("mpatha (253:0)\n ") + child + " (253:1)\n", mp, roots);
        EXPECT_EQ(exclusionsOf(roots.front(), false, false), ex) << child;
    }
    // Down the tree from the top: the child's own check is made too.
    vessa::test::Owned<DmTreeDev> roots;
    DmTreeDev::parseTree("top (253:9)\n `- mpatha (253:0)\n    `- mpatha1 (253:1)\n", {{"mpatha1", {253, 1}}},
                         roots);
    vessa::test::LogCapture log;
    EXPECT_EQ(exclusionsOf(roots.front(), true, false), Storage::kPartitioned);
    EXPECT_TRUE(log.hasMessage("Checking DmTreeDev parent/parting status for mpatha"));
    EXPECT_TRUE(log.hasMessage("Add the partition exclusion"));
}

}  // namespace
