// Parsing a 10,000-line device listing into storage items, against the baseline of splitting the same
// text into lines and fields (the least any parser must do).
#include <benchmark/benchmark.h>

#include <sstream>

#include "target/Host.h"

namespace {

std::string listing(int lines) {
    std::string text;
    for (int i = 0; i < lines; ++i) {
        text += "[" + std::to_string(i) + "]~/dev/sd" + std::to_string(i) +
                "~disk~HP      HSV210          6220~ext4~~2:0:" + std::to_string(i) +
                ":0~~1~305419896~0~1000204886016~0~0~0\n";
    }
    return text;
}

void BM_SplitBaseline(benchmark::State& state) {
    const std::string text = listing(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        std::istringstream in(text);
        std::size_t fields = 0;
        for (std::string line; std::getline(in, line);) {
            std::istringstream l(line);
            for (std::string f; std::getline(l, f, '~');) {
                ++fields;
            }
        }
        benchmark::DoNotOptimize(fields);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_ParseListing(benchmark::State& state) {
    const std::string text = listing(static_cast<int>(state.range(0)));
    std::unique_ptr<vessa::target::Host> host(vessa::target::Host::named("127.0.0.1", false));
    for (auto _ : state) {
        std::istringstream in(text);
        vessa::target::Host::callback cb = nullptr;
        host->parseOldKorvoListing(in, vessa::target::Storage::physicalStorage, cb);
        state.PauseTiming();
        if (host->storage().size() != static_cast<std::size_t>(state.range(0))) {
            state.SkipWithError("wrong item count");
        }
        for (vessa::target::Storage* s : host->storage()) {
            delete s;
        }
        host->storage().clear();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(BM_SplitBaseline)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParseListing)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace
