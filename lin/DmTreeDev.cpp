#include "lin/DmTreeDev.h"

#include <deque>
#include <functional>
#include <sstream>

#include "lin/common.h"
#include "platform/Log.h"
#include "platform/Str.h"

namespace vessa::target::lin {

namespace str = util::str;

namespace {

constexpr const char* kUnit = "lin/DmTreeDev.cpp";

// Walks the lines of a tool's output the way the readers always have: split at newlines, keeping
// empty pieces while any text remains.
void forEachLine(const std::string& output, const std::function<void(const std::string&)>& f) {
    std::string::size_type start = 0;
    while (start < output.size()) {
        const std::string::size_type nl = output.find('\n', start);
        f(output.substr(start, nl == std::string::npos ? std::string::npos : nl - start));
        if (nl == std::string::npos) {
            break;
        }
        start = nl + 1;
    }
}

bool startsWith(const std::string& s, const std::string& prefix) {
    return s.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

DmTreeDev::DmTreeDev(const std::string& name, int major, int minor)
    : major_(major), minor_(minor), name_(name) {}

bool DmTreeDev::parseTreeLine(const std::string& line, std::string& name, std::pair<int, int>& numbers,
                              int& depth) {
    const std::string::size_type first = line.find_first_not_of(' ');
    depth = first == std::string::npos ? -1 : static_cast<int>(first);
    name = "device";
    const std::string::size_type paren = line.find('(');
    if (paren == std::string::npos) {
        return false;
    }
    std::string found;
    if (depth == 0) {
        found = str::trim(line.substr(0, paren));
    } else {
        // Skip the drawing characters (one blank-free token after the indentation); the name, if
        // any, follows the blank after them.
        const std::string::size_type blank = line.find(' ', static_cast<std::string::size_type>(depth));
        if (blank != std::string::npos && blank < paren) {
            found = str::trim(line.substr(blank, paren - blank));
        }
    }
    if (!found.empty()) {
        name = found;
    }
    std::string inner = line.substr(paren);
    inner.erase(0, 1);
    const std::string::size_type close = inner.find(')');
    if (close != std::string::npos) {
        inner.erase(close, 1);
    }
    const std::string::size_type comma = inner.find(',');
    const std::string::size_type split = comma != std::string::npos ? comma : inner.find(':');
    const std::string majorText = inner.substr(0, split);
    const std::string minorText = split == std::string::npos ? std::string() : inner.substr(split + 1);
    str::to(numbers.first, majorText);
    str::to(numbers.second, minorText);
    return true;
}

std::map<std::string, std::pair<int, int>> DmTreeDev::parseMultipathList(const std::string& output) {
    VESSA_TRACE(kUnit, "readMultipathList");
    std::map<std::string, std::pair<int, int>> multipaths;
    VESSA_LOG << "Reading output";
    forEachLine(output, [&](const std::string& line) {
        VESSA_LOG << "Parsing multipath entry \"" << line << "\"";
        std::string name;
        std::pair<int, int> numbers(0, 0);
        int depth = 0;
        parseTreeLine(line, name, numbers, depth);
        VESSA_LOG << "Adding \"" << name << "\" @ (" << numbers.first << ":" << numbers.second << ")";
        multipaths[name] = numbers;
    });
    VESSA_LOG << "Done reading";
    return multipaths;
}

void DmTreeDev::parseTree(const std::string& output,
                          const std::map<std::string, std::pair<int, int>>& multipaths,
                          std::list<DmTreeDev*>& result) {
    // The first multipath device in name order for each pair of numbers: what a walk of the list in
    // name order would meet first, without walking it for every node.
    std::map<std::pair<int, int>, const std::string*> firstByNumbers;
    for (const auto& [mpName, mpNumbers] : multipaths) {
        firstByNumbers.emplace(mpNumbers, &mpName);
    }
    std::deque<std::pair<int, DmTreeDev*>> open;
    forEachLine(output, [&](const std::string& line) {
        std::string name;
        std::pair<int, int> numbers(0, 0);
        int depth = 0;
        parseTreeLine(line, name, numbers, depth);
        auto* node = new DmTreeDev(name, numbers.first, numbers.second);
        auto mp = firstByNumbers.find(numbers);
        if (mp != firstByNumbers.end()) {
            const std::string& mpName = *mp->second;
            VESSA_LOG_AT(kUnit, "readDmTree")
                << "Matched " << node->name_ << " (" << node->major_ << ":" << node->minor_ << ")  with "
                << mpName << " (" << numbers.first << ":" << numbers.second << ")";
            if (node->name_ == "device") {
                node->name_ = mpName;
            }
            node->multipath_ = true;
        }
        while (!open.empty() && open.back().first >= depth) {
            open.pop_back();
        }
        if (!open.empty()) {
            DmTreeDev* parent = open.back().second;
            node->parents_.push_back(parent);
            parent->children_.push_back(node);
        } else {
            result.push_back(node);
        }
        open.emplace_back(depth, node);
    });
}

const std::list<std::string> DmTreeDev::kMultipathArgs = {"ls", "--target", "multipath"};
const std::list<std::string> DmTreeDev::kTreeArgs = {"ls", "--tree", "-o", "notrunc"};

bool DmTreeDev::readDmTree(std::list<DmTreeDev*>& result, Host* /*host*/) {
    VESSA_TRACE(kUnit, "readDmTree");
    std::map<std::string, std::pair<int, int>> multipaths;
    std::string output;
    // Only the runner's own failure value skips the output: a non-zero status from dmsetup itself
    // still comes with a listing worth reading.
    if (quickRun("dmsetup", kMultipathArgs, output) != 255) {
        multipaths = parseMultipathList(output);
    }
    output.clear();
    if (quickRun("dmsetup", kTreeArgs, output) == 255) {
        return true;
    }
    std::list<DmTreeDev*> roots;
    try {
        parseTree(output, multipaths, roots);
    } catch (...) {
        // A number that does not convert ends the walk; what was built so far is the caller's.
        result.splice(result.end(), roots);
        throw;
    }
    printDmTree(roots);
    result.splice(result.end(), roots);
    return true;
}

void DmTreeDev::printDmTree(const std::list<DmTreeDev*>& roots) {
    VESSA_TRACE(kUnit, "printDmTree");
    if (!vessa::log::enabled()) {
        return;
    }
    std::ostringstream text;
    std::function<void(const DmTreeDev*, int)> render = [&](const DmTreeDev* node, int level) {
        text << std::string(static_cast<std::size_t>(level) * 4, ' ') << node->name_ << " (" << node->major_
             << ":" << node->minor_ << ")" << (node->multipath_ ? " Multipath" : "") << "\n";
        for (const DmTreeDev* child : node->children_) {
            render(child, level + 1);
        }
    };
    for (const DmTreeDev* root : roots) {
        render(root, 0);
    }
    VESSA_LOG << "DmTree:\n" << text.str();
}

void DmTreeDev::getExclusions(Storage::exclusions& ex, bool fromChildren, bool fromParents) {
    VESSA_TRACE(kUnit, "getExclusions");
    VESSA_LOG << "Getting exclusions for " << name_;
    if (fromChildren) {
        VESSA_LOG << "Inheriting exclusions from children...";
        for (DmTreeDev* child : children_) {
            child->getExclusions(ex, true, fromParents);
        }
    } else if (fromParents) {
        VESSA_LOG << "Inheriting exclusions from parents...";
        for (DmTreeDev* parent : parents_) {
            parent->getExclusions(ex, false, true);
        }
    }
    VESSA_LOG << "Checking DmTreeDev parent/parting status for " << name_;
    VESSA_LOG << "Are we a partition rooting a multipath device?";
    for (DmTreeDev* child : children_) {
        VESSA_LOG << "First, are we 'parent' to a multipath object? (i.e. is " << child->name_
                  << " a multipath dev?)";
        if (!child->multipath_) {
            VESSA_LOG << "No sir";
            continue;
        }
        VESSA_LOG << "Yes, do we start with the same name?";
        VESSA_LOG << "Comparing \"" << child->name_ << "\" to \"" << name_ << "\"";
        if (!startsWith(child->name_, name_) && !startsWith(name_, child->name_)) {
            VESSA_LOG << "Nope";
        } else {
            VESSA_LOG << "Add the partition exclusion";
            ex |= Storage::kPartitioned;
        }
    }
}

void DmTreeDev::addProperties(const std::string& categoryPrefix,
                              std::map<std::string, Property>& properties) {
    const std::string category = categoryPrefix + "dmsetup lm --tree -> " + name_;
    auto put = [&](const char* key, const char* label, const std::string& value, const char* description) {
        properties.insert_or_assign(key, Property(key, value, label, description, category));
    };
    put("DmDevName", "Name", name_, "Device name identified in `dmsetup ls --tree`");
    put("DmDevMajorNumber", "Major Number", str::from(major_), "Major number as identified by dmsetup.");
    put("DmDevMinorNumber", "Minor Number", str::from(minor_), "Minor number as identified by dmsetup.");
    put("DmDevChildCount", "Child count", str::from(static_cast<unsigned long>(children_.size())),
        "Count of the direct decendents in the tree listed by dmsetup.");
    put("DmDevMultipath", "Multipath Device", multipath_ ? "true" : "false",
        "If true, then this is a multipath node that represents the access point for multiple "
        "paths to the same device");
}

}  // namespace vessa::target::lin
