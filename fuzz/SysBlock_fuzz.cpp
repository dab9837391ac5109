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
#include "support/Owned.h"
#include "target/Host.h"

using vessa::fuzz::require;
using vessa::target::lin::SysBlock;

namespace {

const char* const kAttributes[] = {
    "dev", "size", "range", "removable", "device/model", "device/rev", "device/scsi_level", "device/vendor"};
vessa::target::Host* host = nullptr;

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

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vessa::fuzz::discardLog();
    vessa::fuzz::scriptedView();
    host = vessa::target::Host::named("127.0.0.1", false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> parts(1);
    for (const char c : vessa::fuzz::text(data, size)) {
        if (c == '\xff') {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    vessa::test::ScriptedView& view = vessa::fuzz::scriptedView();
    view.dirs["/sys/block"] = {"fz"};
    view.dirs["/sys/block/fz"] = {"dev", "device", "fz1", "holders", "queue", "size", "slaves"};
    view.dirs["/sys/block/fz/holders"] = {"dm-0"};
    view.dirs["/sys/block/fz/slaves"] = {"sdz"};
    view.dirs["/sys/block/fz/fz1"] = {"dev", "holders", "size"};
    view.dirs["/sys/block/fz/fz1/holders"] = {"dm-1"};
    scriptDevice(view, "/sys/block/fz", parts, 0);
    scriptDevice(view, "/sys/block/fz/fz1", parts, 1);

    vessa::test::Owned<vessa::target::lin::ProcPartition> listed;
    listed.push_back(new vessa::target::lin::ProcPartition("8 0 1 fz", 0, 1, 2, 3));
    vessa::test::Owned<SysBlock> disks;
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
        vessa::fuzz::publish(*disk);
    }
    return 0;
}
