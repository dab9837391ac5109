// Fuzzes the device-mapper parsers: the input up to its first NUL byte is the multipath list, the rest
// the tree (without a NUL byte the same text is both), as the two dmsetup runs give them.
// Seeds: tests/data/dmsetup tests/scenarios/*/root/.vessa/commands/dmsetup*
#include <vector>

#include "fuzz/FuzzSupport.h"
#include "lin/DmTreeDev.h"

using vessa::target::lin::DmTreeDev;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vessa::fuzz::discardLog();
    const std::string input = vessa::fuzz::text(data, size);
    const std::string::size_type nul = input.find('\0');
    const std::string list = nul == std::string::npos ? input : input.substr(0, nul);
    const std::string tree = nul == std::string::npos ? input : input.substr(nul + 1);

    std::map<std::string, std::pair<int, int>> multipaths;
    try {
        multipaths = DmTreeDev::parseMultipathList(list);
    } catch (const vessa::util::str::Exception&) {
    }
    std::list<DmTreeDev*> roots;
    bool threw = false;
    try {
        DmTreeDev::parseTree(tree, multipaths, roots);
    } catch (const vessa::util::str::Exception&) {
        threw = true;  // the nodes of the lines before stay
    }

    // Every line makes one node, each printed under at most one other: a forest, walked once.
    std::vector<DmTreeDev*> nodes(roots.begin(), roots.end());
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        DmTreeDev* node = nodes[i];
        vessa::fuzz::require(node->parents().size() <= 1 && (i < roots.size()) == node->parents().empty(),
                             "a root has no parent, every other node one");
        for (DmTreeDev* child : node->children()) {
            vessa::fuzz::require(!child->parents().empty() && child->parents().front() == node,
                                 "a child's parent is the node that lists it");
            nodes.push_back(child);
        }
    }
    const std::size_t lines = vessa::fuzz::lineCount(tree);
    vessa::fuzz::require(threw ? nodes.size() < lines : nodes.size() == lines, "one node per line read");
    // Each node's own check, the walk down from every root and the walk up from the last node: every
    // link is followed a bounded number of times.
    vessa::target::Storage::exclusions ex = 0;
    for (DmTreeDev* node : nodes) {
        node->getExclusions(ex, false, false);
        std::map<std::string, vessa::target::Property> properties;
        node->addProperties("fuzz ", properties);
    }
    for (DmTreeDev* root : roots) {
        root->getExclusions(ex, true, false);
    }
    if (!nodes.empty()) {
        nodes.back()->getExclusions(ex, false, true);
    }
    for (DmTreeDev* node : nodes) {
        delete node;
    }
    return 0;
}
