// One node of the device-mapper dependency tree as `dmsetup ls --tree` prints it: a device-mapper
// device or a device beneath it, with its numbers, children and parents, and whether it is a
// multipath device.
//
// Ownership: nodes are made with new; the result list holds the top-level nodes, the others are
// reachable through children. The discovery run decides when they are freed.
#pragma once

#include <list>
#include <map>
#include <string>
#include <utility>

#include "target/Property.h"
#include "target/Storage.h"

namespace vessa::target {
class Host;
}

namespace vessa::target::lin {

class DmTreeDev {
  public:
    DmTreeDev(const std::string& name, int major, int minor);

    // Runs dmsetup twice (the multipath list, then the whole tree) on the local machine and appends
    // the top-level nodes. Always returns true; a dmsetup that cannot be run leaves the list as it
    // was. Numbers that do not convert throw the text-conversion exception; the nodes made before
    // that are in `result` all the same.
    static bool readDmTree(std::list<DmTreeDev*>& result, Host* host);
    // The arguments of the two dmsetup runs the reader makes: the multipath list, then the tree.
    static const std::list<std::string> kMultipathArgs;
    static const std::list<std::string> kTreeArgs;
    // The parsing halves, on the tools' output text. Every line makes a node, also one without
    // numbers ("device", 0:0); parseTree appends the new top-level nodes to `result` as it goes.
    static std::map<std::string, std::pair<int, int>> parseMultipathList(const std::string& output);
    static void parseTree(const std::string& output,
                          const std::map<std::string, std::pair<int, int>>& multipaths,
                          std::list<DmTreeDev*>& result);
    // One line: name ("device" when the line names none), numbers from "(253:1)" or "(253, 0)", and
    // the depth (first non-blank column). False when the line holds no "(".
    static bool parseTreeLine(const std::string& line, std::string& name, std::pair<int, int>& numbers,
                              int& depth);

    void getExclusions(Storage::exclusions& ex, bool fromChildren, bool fromParents);
    void addProperties(const std::string& categoryPrefix, std::map<std::string, Property>& properties);

    const std::string& name() const { return name_; }
    void setName(const std::string& name) { name_ = name; }
    int major() const { return major_; }
    int minor() const { return minor_; }
    bool multipath() const { return multipath_; }
    const std::list<DmTreeDev*>& children() const { return children_; }
    const std::list<DmTreeDev*>& parents() const { return parents_; }

  private:
    static void printDmTree(const std::list<DmTreeDev*>& roots);

    std::list<DmTreeDev*> children_;
    int major_;
    int minor_;
    bool multipath_ = false;
    std::string name_;
    std::list<DmTreeDev*> parents_;
};

}  // namespace vessa::target::lin
