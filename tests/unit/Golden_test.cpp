// Inputs beside the outputs they must give (tests/support/Golden.h). Tool outputs under tests/data give
// their records in "<name>.records" beside them, chosen by what their name says they are; each snapshot
// tests/golden/<family>/<case>/root, and every scenario, gives its items and verdicts in
// "expected.records" and its log in "expected.log".
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <regex>
#include <sstream>

#include "cli/Fleet.h"
#include "cli/ListOutput.h"
#include "lin/DmTreeDev.h"
#include "lin/FsTableEntry.h"
#include "lin/InUse.h"
#include "lin/LogicalVolume.h"
#include "lin/MTableEntry.h"
#include "lin/Partition.h"
#include "lin/PhysicalVolume.h"
#include "lin/ProcPartition.h"
#include "lin/VolumeGroup.h"
#include "platform/Str.h"
#include "platform/view/SystemView.h"
#include "support/Golden.h"
#include "support/Owned.h"
#include "support/ScriptedView.h"
#include "support/TestSupport.h"
#include "target/Host.h"
#include "target/Property.h"
#include "target/Verdict.h"

namespace fs = std::filesystem;
using vessa::target::Host;
using vessa::target::Storage;
using vessa::target::Verdict;
using namespace vessa::target::lin;
using vessa::test::Owned;

namespace {

const fs::path kSource(VESSA_SOURCE_DIR);

// One line per record that `parse` appends to a list, as `line` writes it.
template <class Record, class Parse, class Line>
std::string eachOf(Parse parse, Line line) {
    Owned<Record> list;
    parse(list);
    std::string out;
    for (Record* r : list) {
        out += line(*r) + "\n";
    }
    return out;
}

template <class Record>
std::string exclusionsOf(Record& r) {
    Storage::exclusions ex = 0;
    r.getExclusions(ex);
    return " | exclusions " + std::to_string(ex);
}

template <typename Volume>
std::string fieldsOf(const Volume& v) {
    std::string out = v.value(static_cast<typename Volume::Field>(0));
    for (int f = 1; f < Volume::FieldCount; ++f) {
        out += " | " + v.value(static_cast<typename Volume::Field>(f));
    }
    return out;
}

std::string numbers(int major, int minor) {
    return std::to_string(major) + ":" + std::to_string(minor);
}

std::string multipathList(const std::string& text) {
    std::string out;
    for (const auto& [name, numbers] : DmTreeDev::parseMultipathList(text)) {
        out += name + " " + std::to_string(numbers.first) + ":" + std::to_string(numbers.second) + "\n";
    }
    return out;
}

// Each node on a line of its own below its parent, "*" for a multipath map, with the exclusions it
// finds for itself and, walking down, for the nodes below it.
void printNodes(const std::list<DmTreeDev*>& nodes, const std::string& indent, std::string& out) {
    for (DmTreeDev* n : nodes) {
        Storage::exclusions own = 0, down = 0;
        n->getExclusions(own, false, false);
        n->getExclusions(down, true, false);
        out += indent + n->name() + " " + numbers(n->major(), n->minor()) + (n->multipath() ? " *" : "") +
               " | own exclusions " + std::to_string(own) + " | down exclusions " + std::to_string(down) +
               "\n";
        printNodes(n->children(), indent + "    ", out);
    }
}

// A tree is read with the multipath list of the same machine: the file of the same directory whose
// name starts as the tree's does, up to "dmsetup-ls-tree", and then says "target-multipath".
std::string dmTree(const std::string& text, const fs::path& file) {
    const std::string name = file.filename().string();
    const std::string origin = name.substr(0, name.find("dmsetup-ls-tree"));
    std::string list;
    for (const auto& entry : fs::directory_iterator(file.parent_path())) {
        const std::string other = entry.path().filename().string();
        if (other.rfind(origin + "dmsetup-ls-target-multipath", 0) == 0 &&
            entry.path().extension() == ".txt") {
            list = vessa::test::dataBody(fs::relative(entry.path(), kSource / "tests/data").string());
        }
    }
    Owned<DmTreeDev> roots;
    std::string out;
    try {
        DmTreeDev::parseTree(text, DmTreeDev::parseMultipathList(list), roots);
    } catch (const std::exception& e) {
        out = std::string("stopped: ") + e.what() + "\n";
    }
    printNodes(roots, "", out);
    return out;
}

// Every item of a device listing as "index|path|name|file system|signature|size|exclusions".
std::string listing(const std::string& text, Storage::storageType type) {
    std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
    std::istringstream in(text);
    Host::callback cb = nullptr;
    std::string out;
    try {
        host->parseOldKorvoListing(in, type, cb);
    } catch (const std::exception& e) {
        out = std::string("stopped: ") + e.what() + "\n";
    }
    for (Storage* s : host->storage()) {
        out += std::to_string(s->index()) + "|" + s->path() + "|" + s->name() + "|" +
               s->properties().at("fileSystem").value() + "|" + s->properties().at("signature").value() +
               "|" + std::to_string(s->size()) + "|" + s->exclusionString() + "\n";
    }
    // The rows of the first item pin what a report shows of each property a listing gives.
    if (!host->storage().empty()) {
        std::ostringstream rows;
        for (const auto& [key, property] : host->storage().front()->properties()) {
            property.print(rows, "first");
        }
        out += rows.str();
    }
    return out;
}

// The value `text` reads as in decimal, or the reason it does not (which must leave the value alone).
template <class T>
std::string readAs(const std::string& text) {
    T value = static_cast<T>(9);
    try {
        vessa::util::str::to(value, text);
    } catch (const vessa::util::str::Exception& e) {
        return e.why() + (value == static_cast<T>(9) ? "" : " (value changed)");
    }
    return std::to_string(value);
}

// "TYPE TEXT" read as that type, "\\n" in the text standing for a line end; or a number written as
// that type ("from-int", "from-unsigned", "from-ull", "from-hex"), the text trimmed or lower-cased, or a
// file system's magic number (hexadecimal) named.
std::string conversion(const std::string& line) {
    namespace str = vessa::util::str;
    const std::map<std::string, std::string (*)(const std::string&)> as = {
        {"long", readAs<long long>},
        {"unsigned", readAs<unsigned long long>},
        {"int", readAs<int>},
        {"short", readAs<unsigned short>},
        {"bool", readAs<bool>},
        {"from-int", [](const std::string& t) { return str::from(std::stoi(t)); }},
        {"from-unsigned",
         [](const std::string& t) { return str::from(static_cast<unsigned int>(std::stoul(t))); }},
        {"from-ull", [](const std::string& t) { return str::from(std::stoull(t)); }},
        {"from-hex", [](const std::string& t) { return str::from(std::stoi(t), std::ios_base::hex); }},
        {"trim", [](const std::string& t) { return "\"" + str::trim(t) + "\""; }},
        {"lower", str::toLower},
        {"magic", [](const std::string& t) {  // as a partition mounted with it names its file system
             vessa::target::lin::Partition p("sda1", 1, "/", nullptr, "");
             p.setFileSystem(std::stol(t, nullptr, 16));
             return "\"" + p.fileSystem() + "\"";
         }}};
    const std::size_t blank = line.find(' ');
    return as.at(line.substr(0, blank))(
        std::regex_replace(line.substr(blank + 1), std::regex("\\\\n"), "\n"));
}

// "KIND:REASON; ..." added to a verdict, the kinds as its word says them; the verdict's word, its reasons,
// and whether it is a candidate or holds only data.
std::string verdictOf(const std::string& line) {
    const std::map<std::string, Verdict::Kind> kinds = {{"excluded", Verdict::Excluded},
                                                        {"in use", Verdict::InUse},
                                                        {"holds data", Verdict::HoldsData},
                                                        {"unknown", Verdict::Unknown},
                                                        {"candidate", Verdict::Candidate}};
    Verdict v;
    std::istringstream found(line);
    for (std::string f; std::getline(found >> std::ws, f, ';');) {
        v.add(kinds.at(f.substr(0, f.find(':'))), f.substr(f.find(':') + 1));
    }
    std::string reasons;
    for (const std::string& r : v.reasons()) {
        reasons += (reasons.empty() ? "" : "; ") + r;
    }
    return std::string(v.word()) + " | " + reasons + (v.candidate() ? " | candidate" : "") +
           (v.onlyData() ? " | only data" : "");
}

// "BITS STEP...": the exclusion string of an item with those bits, then after each step (OVERRIDES as
// "override=HEX", "user" or "nouser" for the user mark, "reset" for a string made from the bits again)
// its string, and last the bits; an override also gives the overrides kept, what its argument holds
// after the call and the exclusion property.
std::string exclusionLetters(const std::string& line) {
    std::istringstream in(line);
    std::string bits;
    in >> bits;
    Storage s(Storage::discoveredBlockDevice, "d", "/dev/d", 4096, 0, "", std::stoul(bits, nullptr, 16), {});
    std::string out = "\"" + s.exclusionString() + "\"";
    for (std::string step; in >> step;) {
        if (step.rfind("override=", 0) == 0) {
            Storage::exclusions o = std::stoul(step.substr(9), nullptr, 16);
            s.setExclusionOverrides(o);
            out += " | kept " + std::to_string(s.exclusionOverrides()) + " | argument " + std::to_string(o) +
                   " | property \"" + s.properties().at("exclusion").value() + "\"";
        } else if (step == "reset") {
            s.resetExclusionString();
        } else {
            s.setUserExclusion(step == "user");
        }
        out += " | " + step + " \"" + s.exclusionString() + "\"";
    }
    return out + " | bits " + std::to_string(s.exclusionsList());
}

// "item|listed TYPE PATH": the path an item made by the discovery run, or from a listing line, stores,
// and its path property; for a listed one, its access type and how many properties it has. Each item
// writes its debug dump to the log, a listed one its access type property's too.
std::string storedPath(const std::string& line) {
    std::istringstream in(line);
    std::string made, path;
    unsigned int type = 0;
    in >> made >> type >> path;
    const auto t = static_cast<Storage::storageType>(type);
    Storage s = made == "listed" ? Storage(t, -4, "n", path, 4096, "inq", "ext4", "", "1:0:0:0", "", 9, 0,
                                           false, false, false, true)
                                 : Storage(t, "name", path, 1024, 0, "INQ", 0, {});
    s.printToDebug();
    if (made == "listed") {
        s.properties().at("accessType").printToDebug();
    }
    return s.path() + " | property " + s.properties().at("path").value() +
           (made == "listed" ? " | access type " + s.properties().at("accessType").value() + " | " +
                                   std::to_string(s.properties().size()) + " properties"
                             : "");
}

// The records a tool's output gives, by what its file name says it is ("" for no parser).
std::string recordsOf(const fs::path& file) {
    const std::string name = file.filename().string();
    const std::string text = vessa::test::dataBody(fs::relative(file, kSource / "tests/data").string());
    const auto says = [&name](const char* what) { return name.find(what) != std::string::npos; };
    if (says("pvdisplay")) {
        return eachOf<PhysicalVolume>([&](auto& l) { PhysicalVolume::parse(text, l); },
                                      [](PhysicalVolume& v) {
                                          return v.name() + " | vg " + v.vgName() + " | allocatable " +
                                                 v.allocatable() + " | allocated PE " + v.allocatedPE() +
                                                 " | free PE " + v.freePE() + " | PE size " + v.peSize() +
                                                 " | size " + v.pvSize() + " | total PE " + v.totalPE() +
                                                 " | " + v.uuid() + exclusionsOf(v);
                                      });
    }
    if (says("vgdisplay")) {
        return eachOf<VolumeGroup>([&](auto& l) { VolumeGroup::parse(text, l); },
                                   [](VolumeGroup& v) { return fieldsOf(v) + exclusionsOf(v); });
    }
    if (says("lvdisplay")) {
        return eachOf<LogicalVolume>([&](auto& l) { LogicalVolume::parse(text, l); },
                                     [](LogicalVolume& v) {
                                         return v.deviceName() + " " + numbers(v.major(), v.minor()) + " | " +
                                                fieldsOf(v);
                                     });
    }
    if (says("proc-partitions")) {
        std::set<std::string> names;
        return eachOf<ProcPartition>([&](auto& l) { ProcPartition::parse(text, l, names); },
                                     [](ProcPartition& p) {
                                         return p.name() + " " + numbers(p.major(), p.minor()) + " " +
                                                std::to_string(p.blocks()) + (p.valid() ? "" : " invalid") +
                                                exclusionsOf(p);
                                     });
    }
    if (says("dmsetup-ls")) {
        return says("dmsetup-ls-tree") ? dmTree(text, file) : multipathList(text);
    }
    std::string out;
    if (says("mountinfo")) {
        for (const MountInfoLine& m : parseMountInfo(text)) {
            out += numbers(m.major, m.minor) + " " + m.mountPoint + " " + m.fileSystemType + " " + m.source +
                   "\n";
        }
    }
    if (says("swaps")) {
        for (const SwapLine& s : parseSwaps(text)) {
            out += s.path + " " + s.type + "\n";
        }
    }
    const auto entry = [](auto& e) {
        return e.deviceName() + "|" + e.mountPoint() + "|" + e.fileSystemType();
    };
    if (says("mtab") || says("proc-mounts")) {  // every device under /dev counts as readable
        return eachOf<MTableEntry>(
            [&](auto& l) { MTableEntry::parse(text, l, [](const std::string&) { return true; }); }, entry);
    }
    if (says("fstab")) {
        return eachOf<FsTableEntry>([&](auto& l) { FsTableEntry::parse(text, l); }, entry);
    }
    if (says("xml-clean")) {  // each line as an element's name and as its text
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            std::string name = line, cleaned = line;
            vessa::target::Property::cleanForXmlElement(name);
            vessa::target::Property::cleanForXmlText(cleaned);
            out += name + " | " + cleaned + "\n";
        }
    }
    if (says("json-text")) {  // the whole text as a string of a JSON document, beside an empty list
        std::ostringstream json;
        vessa::cli::JsonWriter j(json);
        j.beginObject();
        j.key("text");
        j.value(text);
        j.key("empty");
        j.value(std::vector<std::string>{});
        j.endObject();
        j.finish();
        out += json.str();
    }
    // Each line a value that the command line or the library reads or shows, beside what it makes of it.
    const std::pair<const char*, std::string (*)(const std::string&)> perLine[] = {
        {"sizes", [](const std::string& l) { return vessa::cli::humanSize(std::stoull(l)); }},  // bytes
        {"type-words",  // the mask of --type, or the refusal (which leaves the mask as it was, 7)
         [](const std::string& l) {
             unsigned int mask = 7;
             std::string why;
             const bool ok = vessa::cli::parseTypes(l, mask, why);
             return (ok ? "" : "refused: " + why + "; mask ") + std::to_string(mask);
         }},
        {"fleet-statuses",  // why a host failed, as ssh and the tools say it
         [](const std::string& l) -> std::string { return vessa::cli::statusWord(vessa::cli::statusOf(l)); }},
        {"conversions", conversion},
        {"verdicts", verdictOf},
        {"exclusion-bits", exclusionLetters},
        {"storage-paths", storedPath}};
    for (const auto& [word, give] : perLine) {
        std::istringstream lines(says(word) ? text : "");
        for (std::string line; std::getline(lines, line);) {
            out += line + " -> " + give(line) + "\n";
        }
    }
    if (says("hosts-file")) {  // the hosts that a --hosts-file names
        for (const std::string& host : vessa::cli::parseHostsFile(text)) {
            out += host + "\n";
        }
    }
    if (says("listing")) {
        return listing(text, says("fs-listing") ? Storage::fileSystemStorage : Storage::physicalStorage);
    }
    return out;
}

// Nothing of this machine answers (a file-system table asks statfs of its mount points).
TEST(Golden, ToolOutputsGiveTheirRecords) {
    vessa::test::ScopedView nothing(std::make_unique<vessa::test::ScriptedView>());
    int files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(kSource / "tests/data")) {
        if (entry.path().extension() != ".txt") {
            continue;
        }
        vessa::test::LogCapture log;
        std::string records = recordsOf(entry.path());
        if (records.empty() && log.text().empty()) {
            continue;
        }
        SCOPED_TRACE(entry.path().string());
        ++files;
        fs::path expected = entry.path();
        vessa::test::expectGolden(expected.replace_extension(".records").string(),
                                  records + "log:\n" + vessa::test::normalisedLog(log.text()));
    }
    EXPECT_GT(files, 30);
}

std::vector<std::string> linesOf(const fs::path& file) {
    std::vector<std::string> lines;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

// Every item as "type path [exclusions] verdict", its reasons and the properties the case names in
// "show", then the sources whose readers stopped and what the run could not see.
std::string recordsOf(Host& host, const std::vector<std::string>& show) {
    std::string out;
    for (Storage* s : host.storage()) {
        const vessa::target::Verdict v = host.verdict(*s);
        out += std::to_string(s->deviceStorageType()) + " " + s->path() + " [" + s->exclusionString() + "] " +
               v.word() + "\n";
        for (const std::string& r : v.reasons()) {
            out += "    " + r + "\n";
        }
        for (const std::string& key : show) {
            const auto p = s->properties().find(key);
            if (p != s->properties().end()) {
                out += "    " + key + "=" + p->second.value() + "\n";
            }
        }
    }
    const vessa::target::DiscoveryReport& report = host.discoveryReport();
    for (const auto& f : report.failedSources) {
        out += "failed " + f.source + ": " + f.reason + "\n";
    }
    for (const std::string& w : report.warnings) {
        out += "warning: " + w + "\n";
    }
    return out;
}

// Every case of tests/golden/<family>/ and every scenario: a snapshot in root/, its expected records and
// log beside it. A case may name the options of the run ("options", one a line) and the properties to
// show ("show").
TEST(Golden, SnapshotsGiveTheirItemsAndLog) {
    std::vector<fs::path> cases;
    for (const auto& family : fs::directory_iterator(kSource / "tests/golden")) {
        for (const auto& c :
             family.is_directory() ? fs::directory_iterator(family.path()) : fs::directory_iterator()) {
            cases.push_back(c.path());
        }
    }
    for (const auto& c : fs::directory_iterator(kSource / "tests/scenarios")) {
        cases.push_back(c.path());
    }
    int run = 0;
    for (const fs::path& c : cases) {
        if (!fs::is_directory(c / "root")) {
            continue;
        }
        SCOPED_TRACE(c.string());
        ++run;
        const std::vector<std::string> options = linesOf(c / "options");
        vessa::hax::clearHostCache();
        vessa::sal::sys::useRoot((c / "root").string());
        std::unique_ptr<Host> host(Host::named(vessa::sal::sys::current().hostName(), false));
        vessa::test::LogCapture log;
        host->fill(Storage::allStorage, nullptr, false, {options.begin(), options.end()});
        vessa::test::expectGolden((c / "expected.records").string(), recordsOf(*host, linesOf(c / "show")));
        vessa::test::expectGolden((c / "expected.log").string(), vessa::test::normalisedLog(log.text()));
    }
    EXPECT_GT(run, 40);
}

}  // namespace
