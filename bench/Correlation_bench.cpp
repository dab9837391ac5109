// Correlation alone, on the records of generated SAN hosts (bench/san_snapshot.py: LUNs over two paths
// with a partition map each), read once through the replay view: building one link per partition-list
// entry (every record offered to its matchers), folding the links into trees (cleanLinks) and sharing
// logical volumes (makeUnique). The baseline, measured in the same run, is one pass over every record,
// sub-records included: what any correlation must at least touch. The fitted complexity shows how each
// step grows with the number of block devices.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <memory>

#include "bench/SanSnapshot.h"
#include "lin/RunRecords.h"
#include "lin/lin.h"
#include "platform/view/SystemView.h"
#include "target/Host.h"

namespace {

using namespace vessa::target::lin;

// Every record of one snapshot, read once and kept for the whole benchmark run.
RunRecords& records(int luns) {
    static std::map<int, std::unique_ptr<RunRecords>> cache;
    std::unique_ptr<RunRecords>& r = cache[luns];
    if (r) {
        return *r;
    }
    vessa::sal::sys::useRoot(vessa::bench::sanSnapshot(luns));
    std::unique_ptr<vessa::target::Host> host(vessa::target::Host::named("127.0.0.1", false));
    r = std::make_unique<RunRecords>();
    ProcPartition::readProcPartitions(r->procPartitions);
    SysBlock::readSysFs(r->sysBlocks, r->procPartitions, host.get());
    DmTreeDev::readDmTree(r->dmDevs, host.get());
    PhysicalVolume::readPvDisplay(r->physicalVolumes, host.get());
    LogicalVolume::readLvDisplay(r->logicalVolumes, host.get());
    VolumeGroup::readVgDisplay(r->volumeGroups, host.get());
    FsTableEntry::readFsTab(r->fsTableEntries, host.get());
    MTableEntry::readMTab(r->mTableEntries, host.get());
    DiskBy::readDisksBy(r->diskBys, host.get());
    return *r;
}

// The matchers give unnamed tree nodes their device's name; building again finds them named.
std::list<DeviceLink*> buildLinks(RunRecords& r) {
    std::list<DeviceLink*> links;
    for (ProcPartition* p : r.procPartitions) {
        links.push_back(new DeviceLink(p, r.sysBlocks, r.dmDevs, r.physicalVolumes, r.logicalVolumes,
                                       r.volumeGroups, r.fsTableEntries, r.mTableEntries, r.diskBys));
    }
    return links;
}

void freeLinks(std::list<DeviceLink*>& links) {
    for (DeviceLink* l : links) {
        delete l;
    }
    links.clear();
}

void count(const DmTreeDev* d, long& sum) {
    sum += d->major() + d->minor();
    for (const DmTreeDev* c : d->children()) {
        count(c, sum);
    }
}

void setCounters(benchmark::State& state, const RunRecords& r) {
    state.counters["devices"] = static_cast<double>(r.procPartitions.size());
    state.SetComplexityN(static_cast<std::int64_t>(r.procPartitions.size()));
}

void BM_Baseline_OnePassOverRecords(benchmark::State& state) {
    RunRecords& r = records(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        long sum = 0;
        for (const ProcPartition* p : r.procPartitions) {
            sum += p->major() + p->minor();
        }
        for (const SysBlock* s : r.sysBlocks) {
            sum += s->major() + s->minor();
            for (const SysBlock* p : s->partitions()) {
                sum += p->major() + p->minor();
            }
        }
        for (const DmTreeDev* d : r.dmDevs) {
            count(d, sum);
        }
        for (const PhysicalVolume* v : r.physicalVolumes) {
            sum += static_cast<long>(v->name().size());
        }
        for (const LogicalVolume* l : r.logicalVolumes) {
            sum += l->major() + l->minor();
        }
        for (const VolumeGroup* g : r.volumeGroups) {
            sum += static_cast<long>(g->name().size());
        }
        for (const FsTableEntry* f : r.fsTableEntries) {
            sum += static_cast<long>(f->deviceName().size());
        }
        for (const MTableEntry* m : r.mTableEntries) {
            sum += static_cast<long>(m->deviceName().size());
        }
        for (const DiskBy* a : r.diskBys) {
            sum += static_cast<long>(a->target().size());
        }
        benchmark::DoNotOptimize(sum);
    }
    setCounters(state, r);
}

void BM_BuildLinks(benchmark::State& state) {
    RunRecords& r = records(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        std::list<DeviceLink*> links = buildLinks(r);
        state.PauseTiming();
        freeLinks(links);
        state.ResumeTiming();
    }
    setCounters(state, r);
}

void BM_CleanLinks(benchmark::State& state) {
    RunRecords& r = records(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        std::list<DeviceLink*> links = buildLinks(r);
        std::list<DeviceLink*> all = links;
        state.ResumeTiming();
        cleanLinks(links);
        state.PauseTiming();
        freeLinks(all);
        state.ResumeTiming();
    }
    setCounters(state, r);
}

void BM_MakeUnique(benchmark::State& state) {
    RunRecords& r = records(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        std::list<DeviceLink*> links = buildLinks(r);
        std::list<DeviceLink*> all = links;
        cleanLinks(links);
        state.ResumeTiming();
        makeUnique(links);
        state.PauseTiming();
        freeLinks(all);
        state.ResumeTiming();
    }
    setCounters(state, r);
}

// LUNs: about 4 block devices each (two paths, the map and its partition map), plus a few volumes.
#define SIZES ->Arg(100)->Arg(200)->Arg(400)->Arg(800)->Unit(benchmark::kMillisecond)->Complexity()
BENCHMARK(BM_Baseline_OnePassOverRecords) SIZES;
BENCHMARK(BM_BuildLinks) SIZES;
BENCHMARK(BM_CleanLinks) SIZES;
BENCHMARK(BM_MakeUnique) SIZES;

}  // namespace
