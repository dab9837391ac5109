#include "lin/ProcPartition.h"

#include <exception>
#include <sstream>

#include "platform/Log.h"
#include "platform/Stat.h"
#include "platform/Str.h"
#include "platform/view/RunScope.h"
#include "platform/view/SystemView.h"

namespace vessa::target::lin {

namespace str = util::str;

namespace {

constexpr const char* kUnit = "lin/ProcPartition.cpp";
const char* const kPseudoNames[] = {".cifs.", ".nfs.", ".vmhgfs.", ".fusefs."};

bool isPseudoName(const std::string& name) {
    for (const char* p : kPseudoNames) {
        if (name == p) {
            return true;
        }
    }
    return false;
}

void logFound(const char* what, const ProcPartition& p) {
    VESSA_LOG_AT(kUnit, "readProcPartitions")
        << what << p.name() << " (" << p.major() << ":" << p.minor() << ") blocks=" << p.blocks();
}

void logInvalid(const std::string& line) {
    VESSA_LOG_AT(kUnit, "readProcPartitions")
        << "couldn't get a valid /proc/partition entry from \"" << line << "\"";
}

std::string firstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

}  // namespace

std::list<std::string> blankTokens(const std::string& line) {
    // The cuts of trimming the rest and splitting it at its first blank, again and again, made in one
    // pass: a line of a million short tokens is not copied once per token.
    auto space = [](char c) {
        return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
    };
    std::list<std::string> tokens;
    std::string::size_type end = line.size();
    while (end > 0 && space(line[end - 1])) {
        --end;
    }
    std::string::size_type pos = 0;
    for (;;) {
        while (pos < end && space(line[pos])) {
            ++pos;
        }
        if (pos >= end) {
            break;
        }
        const std::string::size_type blank = line.find(' ', pos);
        if (blank == std::string::npos || blank >= end) {
            tokens.push_back(line.substr(pos, end - pos));
            break;
        }
        tokens.push_back(line.substr(pos, blank - pos));
        pos = blank + 1;
    }
    return tokens;
}

ProcPartition::ProcPartition(const std::string& line, int majorColumn, int minorColumn, int blocksColumn,
                             int nameColumn) {
    if (isPseudoName(line)) {
        name_ = line;
        valid_ = true;
        return;
    }
    int column = 0;
    for (const std::string& token : blankTokens(line)) {
        if (column == majorColumn) {
            str::to(major_, token);
        } else if (column == minorColumn) {
            str::to(minor_, token);
        } else if (column == blocksColumn) {
            str::to(blocks_, token);
        } else if (column == nameColumn) {
            name_ += token;
        }
        ++column;
    }
    valid_ = !name_.empty() && major_ >= 0 && minor_ >= 0;
}

bool ProcPartition::isPseudo() const {
    return isPseudoName(name_);
}

void ProcPartition::parse(const std::string& text, std::list<ProcPartition*>& result,
                          std::set<std::string>& names) {
    VESSA_TRACE(kUnit, "readProcPartitions");
    std::istringstream in(text);
    std::string header;
    std::getline(in, header);
    VESSA_LOG << "Getting header offsets";
    int majorColumn = -1, minorColumn = -1, blocksColumn = -1, nameColumn = -1;
    int column = 0;
    for (const std::string& token : blankTokens(header)) {
        const std::string lower = str::toLower(token);
        if (lower == "name") {
            nameColumn = column;
        } else if (lower == "#blocks") {
            blocksColumn = column;
        } else if (lower == "major") {
            majorColumn = column;
        } else if (lower == "minor") {
            minorColumn = column;
        }
        ++column;
    }
    VESSA_LOG << "Parsing partitions.";
    for (std::string line; std::getline(in, line);) {
        if (str::trim(line).empty()) {
            continue;
        }
        auto* entry = new ProcPartition(line, majorColumn, minorColumn, blocksColumn, nameColumn);
        if (entry->valid()) {
            logFound("Got procPart: ", *entry);
            result.push_back(entry);
            names.insert(entry->name());
        } else {
            logInvalid(line);
            delete entry;
        }
    }
}

void ProcPartition::readProcPartitions(std::list<ProcPartition*>& result) {
    VESSA_TRACE(kUnit, "readProcPartitions");
    for (const char* pseudo : {".cifs.", ".nfs.", ".fusefs."}) {
        result.push_back(new ProcPartition(pseudo, -1, -1, -1, -1));
    }
    try {
        std::string text;
        sal::sys::current().readFile("/proc/partitions", text);
        std::set<std::string> names;
        parse(text, result, names);

        std::list<std::string> entries;
        sal::fs::util::listDirectory("/sys/block", entries);
        // Each disk the kernel's list lacks is measured below, one after another: asked ahead, the
        // answers come together (a host may have a thousand idle loop devices).
        std::vector<sal::sys::DeviceProbes> ahead;
        for (const std::string& name : entries) {
            if (names.count(name) == 0) {
                ahead.push_back({"/dev/" + name, false, false, "", false, true});
            }
        }
        sal::sys::RunScope::probeAhead(ahead, 0);
        for (const std::string& name : entries) {
            VESSA_LOG << "Checking " << name;
            if (names.count(name)) {
                VESSA_LOG << name << " already processed from /proc/partitions";
                continue;
            }
            VESSA_LOG << "Checking /dev/" << name;
            sal::fs::Stat node("/dev/" + name);
            if (!node.exists()) {
                VESSA_LOG << "/dev/" << name << " doesn't exist";
                continue;
            }
            if (node.blockSizeByRC() == 0 && node.blockSizeByRC16() == 0) {
                VESSA_LOG << "/dev/" << name << " block size by RC == 0";
                continue;
            }
            std::string dev;
            if (!sal::sys::current().readFile("/sys/block/" + name + "/dev", dev)) {
                VESSA_LOG << "failed to open /sys/block/" << name << "/dev";
                continue;
            }
            std::string numbers = firstLine(dev);
            const std::string::size_type colon = numbers.find(':');
            if (colon == std::string::npos) {
                VESSA_LOG << "failed to tokenize major:minor";
                continue;
            }
            numbers[colon] = ' ';
            const std::string line = numbers + " " + str::from(node.size() / 1024) + " " + name;
            auto* entry = new ProcPartition(line, 0, 1, 2, 3);
            if (entry->valid()) {
                logFound("Got procPart (via /sys/block): ", *entry);
                result.push_back(entry);
            } else {
                logInvalid(line);
                delete entry;
            }
        }
    } catch (const std::exception& e) {
        VESSA_LOG << "Failed to finish reading...like a boss...";
        // The reader keeps the failure to itself; the run still learns that the list is cut short.
        sal::sys::RunScope::noteFailure("/proc/partitions", e.what());
    }
}

void ProcPartition::getExclusions(Storage::exclusions& ex) {
    if (!isPseudo() && blocks_ == 0) {
        ex |= Storage::kEmpty;
    }
}

void ProcPartition::addProperties(const std::string& categoryPrefix,
                                  std::map<std::string, Property>& properties) {
    const std::string category = categoryPrefix + "/proc/partitions/" + name_;
    auto put = [&](const char* key, const char* label, const std::string& value, const char* description) {
        properties.insert_or_assign(key, Property(key, value, label, description, category));
    };
    put("Name", "Name", name_, "Name pulled from the /proc/partitions entry for this item");
    put("Blocks", "Blocks", str::from(static_cast<unsigned long long>(blocks_)),
        "Number of blocks the item contains.");
    put("MajorNumber", "Major Number", str::from(major_),
        "System assigned major number.  Typically indicates the bus type of the device.");
    put("MinorNumber", "Minor Number", str::from(minor_),
        "System assigned minor number.  Typically indicates the index of the device on the bus.");
    put("Valid", "Valid Entry", valid_ ? "true" : "false",
        "If true, then this represents a valid entry in the /proc/partitions file.");
}

}  // namespace vessa::target::lin
