// Discovery on generated SAN hosts (bench/make_san_snapshot.py: N multipath devices over 4 paths each,
// a partition map, a physical volume and a mounted logical volume on each), against the baseline of
// merely reading, through the same replay view, the sources the run reads. The ratio shows what the
// correlation costs on top of the reading, and how it grows with the number of paths.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "platform/Process.h"
#include "platform/view/SystemView.h"
#include "target/Host.h"

namespace {

std::string snapshot(int multipaths) {
    const std::string dir =
        (std::filesystem::temp_directory_path() / ("vessa-bench-san-" + std::to_string(multipaths))).string();
    if (!std::filesystem::exists(dir + "/proc/partitions")) {
        std::string out;
        vessa::sal::exec::runCaptured(
            "python3",
            {std::string(VESSA_SOURCE_DIR) + "/bench/make_san_snapshot.py", dir, std::to_string(multipaths)},
            out);
    }
    return dir;
}

void BM_ReadSources(benchmark::State& state) {
    vessa::sal::sys::useRoot(snapshot(static_cast<int>(state.range(0))));
    for (auto _ : state) {
        std::string text;
        vessa::sal::sys::View& view = vessa::sal::sys::current();
        view.readFile("/proc/partitions", text);
        view.readFile("/etc/mtab", text);
        int status = 0;
        for (const char* tool : {"pvdisplay", "vgdisplay", "lvdisplay"}) {
            view.run(tool, {}, text, status);
        }
        view.run("dmsetup", {"ls", "--tree", "-o", "notrunc"}, text, status);
        benchmark::DoNotOptimize(text);
    }
    state.counters["paths"] = static_cast<double>(state.range(0) * 4);
}

void BM_Discover(benchmark::State& state) {
    vessa::sal::sys::useRoot(snapshot(static_cast<int>(state.range(0))));
    for (auto _ : state) {
        std::unique_ptr<vessa::target::Host> host(vessa::target::Host::named("127.0.0.1", false));
        host->fill(vessa::target::Storage::allStorage, nullptr, false, {});
        benchmark::DoNotOptimize(host->storage().size());
    }
    state.counters["paths"] = static_cast<double>(state.range(0) * 4);
}

BENCHMARK(BM_ReadSources)->Arg(125)->Arg(250)->Arg(500)->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Discover)->Arg(125)->Arg(250)->Arg(500)->Arg(1000)->Unit(benchmark::kMillisecond);

}  // namespace
