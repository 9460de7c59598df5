// The throughput of CopyPath beside its peer in the same run: std::filesystem::copy_file followed by the same flush to
// disk. Both replace an existing file of the same size in the same folder, in turn, each going first every other time.
//
// A disk is a noisy thing: "ratio" is the median of the pairs' ratios of throughput, CopyPath's over the peer's, and
// "best_ratio" that of the best times. The goal is at least 0.95.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "foundation/file_copy.h"
#include "support/temporary_folder.h"

namespace {

constexpr double mebibyte = 1 << 20;

void Require(bool holds, const char* what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

void CopyByModule(const std::string& source, const std::string& target) {
    Require(updkrx::CopyPath(source, target, true) == updkrx::copied, "CopyPath failed");
}

void CopyByPeer(const std::string& source, const std::string& target) {
    std::filesystem::copy_file(source, target, std::filesystem::copy_options::overwrite_existing);
    const int file = open(target.c_str(), O_WRONLY);
    Require(file >= 0 && fsync(file) == 0 && close(file) == 0, "the peer's flush failed");
}

std::string RandomBytes(size_t size) {
    std::string bytes(size, '\0');
    unsigned state = 1;
    for (char& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

double SecondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void CopyFile(benchmark::State& state) {
    const updkrx::test::TemporaryFolder folder;
    const std::string source = folder.Path() / "source";
    const std::string ours = folder.Path() / "ours";
    const std::string peers = folder.Path() / "peers";
    const auto size = static_cast<size_t>(state.range(0)) << 20;
    updkrx::test::WriteFile(source, RandomBytes(size));
    CopyByModule(source, ours);
    CopyByPeer(source, peers);

    std::vector<double> ourTimes;
    std::vector<double> peerTimes;
    std::vector<double> ratios;
    bool first = false;
    for (auto _ : state) {
        first = !first;
        double peerSeconds = first ? 0 : SecondsOf([&] { CopyByPeer(source, peers); });
        const double seconds = SecondsOf([&] { CopyByModule(source, ours); });
        if (first) {
            peerSeconds = SecondsOf([&] { CopyByPeer(source, peers); });
        }
        state.SetIterationTime(seconds);
        ourTimes.push_back(seconds);
        peerTimes.push_back(peerSeconds);
        ratios.push_back(peerSeconds / seconds);
    }
    const auto rate = [&](double seconds) { return static_cast<double>(size) / mebibyte / seconds; };
    state.counters["MiB_per_s"] = rate(Median(ourTimes));
    state.counters["peer_MiB_per_s"] = rate(Median(peerTimes));
    state.counters["ratio"] = Median(ratios);
    state.counters["best_ratio"] =
        *std::min_element(peerTimes.begin(), peerTimes.end()) / *std::min_element(ourTimes.begin(), ourTimes.end());
}

BENCHMARK(CopyFile)->Arg(64)->Iterations(21)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(CopyFile)->Arg(512)->Iterations(9)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    try {
        benchmark::Initialize(&argc, argv);
        if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
            return 2;
        }
        benchmark::RunSpecifiedBenchmarks();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "copy_bench: %s\n", error.what());
        return 1;
    }
}
