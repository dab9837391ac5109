// The whole discovery run on generated SAN hosts (bench/san_snapshot.py: LUNs over two paths with a
// partition map each, volume groups, mounts), against the baseline of merely reading, through the same
// replay view, the sources the run reads. The ratio shows what correlation and conversion cost on top
// of the reading, and how it grows with the number of block devices (bench/scale.sh measures the same
// for whole processes, beside lsblk and the floor).
#include <benchmark/benchmark.h>

#include <memory>

#include "bench/SanSnapshot.h"
#include "platform/view/SystemView.h"
#include "target/Host.h"

namespace {

void BM_ReadSources(benchmark::State& state) {
    vessa::sal::sys::useRoot(vessa::bench::sanSnapshot(static_cast<int>(state.range(0))));
    for (auto _ : state) {
        std::string text;
        vessa::sal::sys::View& view = vessa::sal::sys::current();
        view.readFile("/proc/partitions", text);
        view.readFile("/etc/mtab", text);
        view.readFile("/etc/fstab", text);
        int status = 0;
        for (const char* tool : {"pvdisplay", "vgdisplay", "lvdisplay"}) {
            view.run(tool, {}, text, status);
        }
        view.run("dmsetup", {"ls", "--target", "multipath"}, text, status);
        view.run("dmsetup", {"ls", "--tree", "-o", "notrunc"}, text, status);
        benchmark::DoNotOptimize(text);
    }
    state.counters["luns"] = static_cast<double>(state.range(0));
}

void BM_Discover(benchmark::State& state) {
    vessa::sal::sys::useRoot(vessa::bench::sanSnapshot(static_cast<int>(state.range(0))));
    for (auto _ : state) {
        std::unique_ptr<vessa::target::Host> host(vessa::target::Host::named("127.0.0.1", false));
        host->fill(vessa::target::Storage::allStorage, nullptr, false, {});
        benchmark::DoNotOptimize(host->storage().size());
    }
    state.counters["luns"] = static_cast<double>(state.range(0));
}

BENCHMARK(BM_ReadSources)->Arg(100)->Arg(200)->Arg(400)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Discover)->Arg(100)->Arg(200)->Arg(400)->Unit(benchmark::kMillisecond);

}  // namespace
