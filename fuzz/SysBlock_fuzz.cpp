// Fuzzes the /sys/block attribute readers through a scripted view: one disk "fz" with a partition
// "fz1", a holder and a slave. The input, cut at every 0xff byte, gives the attribute files' contents
// in the order of kAttributes (an empty piece: the file is missing); too few pieces repeat, so one piece
// is every file. The partition's files take the pieces from the second one on.
// Seeds: tests/scenarios/*/root/sys/block
#include <vector>

#include "fuzz/FuzzSupport.h"
#include "lin/ProcPartition.h"
#include "lin/SysBlock.h"
#include "platform/hax/Hax.h"
#include "target/Host.h"

using vessa::fuzz::require;
using vessa::target::lin::SysBlock;

namespace {

const char* const kAttributes[] = {
    "dev", "size", "range", "removable", "device/model", "device/rev", "device/scsi_level", "device/vendor"};
vessa::target::Host* host = nullptr;

std::vector<std::string> pieces(const std::string& input) {
    std::vector<std::string> out;
    std::string::size_type start = 0;
    for (;;) {
        const std::string::size_type cut = input.find('\xff', start);
        out.push_back(input.substr(start, cut == std::string::npos ? std::string::npos : cut - start));
        if (cut == std::string::npos) {
            return out;
        }
        start = cut + 1;
    }
}

void scriptDevice(vessa::test::ScriptedView& view, const std::string& path,
                  const std::vector<std::string>& parts, std::size_t first) {
    std::size_t i = first;
    for (const char* attribute : kAttributes) {
        const std::string& content = parts[i++ % parts.size()];
        if (!content.empty()) {
            view.files[path + "/" + attribute] = content;
        }
    }
}

void freeDevice(SysBlock* s) {
    for (SysBlock* p : s->partitions()) {
        freeDevice(p);
    }
    for (SysBlock* h : s->holders()) {
        delete h;
    }
    for (SysBlock* sl : s->slaves()) {
        delete sl;
    }
    delete s;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vessa::fuzz::discardLog();
    vessa::fuzz::scriptedView();
    host = vessa::target::Host::named("127.0.0.1", false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<std::string> parts = pieces(vessa::fuzz::text(data, size));
    vessa::test::ScriptedView& view = vessa::fuzz::scriptedView();
    view.dirs["/sys/block"] = {"fz"};
    view.dirs["/sys/block/fz"] = {"dev", "device", "fz1", "holders", "queue", "size", "slaves"};
    view.dirs["/sys/block/fz/holders"] = {"dm-0"};
    view.dirs["/sys/block/fz/slaves"] = {"sdz"};
    view.dirs["/sys/block/fz/fz1"] = {"dev", "holders", "size"};
    view.dirs["/sys/block/fz/fz1/holders"] = {"dm-1"};
    scriptDevice(view, "/sys/block/fz", parts, 0);
    scriptDevice(view, "/sys/block/fz/fz1", parts, 1);

    std::list<vessa::target::lin::ProcPartition*> listed = {
        new vessa::target::lin::ProcPartition("8 0 1 fz", 0, 1, 2, 3)};
    std::list<SysBlock*> disks;
    try {
        SysBlock::readSysFs(disks, listed, host);
    } catch (const vessa::util::str::Exception&) {
        require(disks.empty(), "a disk that failed to read is not listed");
    }
    for (SysBlock* disk : disks) {
        require(disk->name() == "fz" && disk->partitions().size() == 1, "the disk and its one partition");
        const SysBlock* partition = disk->partitions().front();
        require(partition->name() == "fz1" && partition->parents().front() == disk, "the partition's disk");
        require(disk->holders().size() == 1 && disk->slaves().size() == 1, "one holder, one slave");
        require(partition->holders().size() == 1 && partition->slaves().empty(), "the partition's holder");
        vessa::target::Storage::exclusions ex = 0;
        disk->getExclusions(ex);
        require(
            (ex & vessa::target::Storage::kEmpty) == (disk->size() == 0 ? vessa::target::Storage::kEmpty : 0),
            "empty exactly when the size is 0");
        std::map<std::string, vessa::target::Property> properties;
        disk->addProperties("fuzz ", properties);
        require(properties.size() == 10, "ten properties");
        freeDevice(disk);
    }
    for (auto* p : listed) {
        delete p;
    }
    return 0;
}
