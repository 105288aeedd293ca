// Prints one table of how far the library is from its transforms. Every ratio is of medians over interleaved
// repetitions in this very run.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <thread>

#include "bare_transforms.h"
#include "counted_new.h"
#include "inference/inference_onnx.h"
#include "medians.h"
#include "models.h"
#include "resident_memory.h"
#include "signals.h"
#include "stages.h"
#include "streams.h"

namespace {

constexpr int kRepetitions = 15;
constexpr double kRate = 44100.0;
constexpr size_t kThreadBlocks = 60;

void measure(const char* name, const std::function<void()>& work) {
    benchmark::RegisterBenchmark(name,
                                 [work](benchmark::State& state) {
                                     for (auto iteration : state) work();
                                 })
        ->Repetitions(kRepetitions)
        ->MinTime(0.06)
        ->UseRealTime();
}

/// A whole stream in host blocks of a second and a half.
void wholeStream(size_t seconds) {
    tavrin::StreamSeparator separator(idleConfig());
    static const std::vector<float> block = noise(2 * 65536);
    const auto samples = size_t(kRate) * seconds;
    for (size_t fed = 0; fed < samples; fed += block.size() / 2) {
        std::vector<float> output = separator.process(block);
        benchmark::DoNotOptimize(output.data());
    }
    benchmark::DoNotOptimize(separator.finish());
}

std::shared_ptr<IInference> loadModel(const char* path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (bytes.empty()) throw std::runtime_error(std::string(path) + ": no model to read");
    return InferenceONNX::create(bytes.data(), bytes.size(), "CPU");
}

class Table {
public:
    explicit Table(const Medians& medians) : _medians(medians) {
        std::printf("%-46s %12s %9s  %s\n", "", "ratio", "ms", "target");
    }

    /// `name` as a multiple of `base` seconds.
    void ratio(const char* what, const char* name, double base, const char* target = "") const {
        row(what, _medians.of(name) / base, _medians.of(name), target);
    }

    void row(const char* what, double value, double seconds, const char* target = "") const {
        std::printf("%-46s %12.3f %9.3f  %s\n", what, value, seconds * 1e3, target);
    }

    void count(const char* what, double value, const char* unit, const char* target = "") const {
        std::printf("%-46s %12.1f %9s  %s\n", what, value, unit, target);
    }

    static void section(const char* title) { std::printf("\n%s\n", title); }

private:
    const Medians& _medians;
};

/// Other libraries' round trips, by name; an empty time says why there is none.
void printPeers(const Table& table, double floor) {
    const char* chosen = std::getenv("PYTHON");
    const std::string command = std::string(chosen ? chosen : "/usr/bin/python3") + " " TAVRIN_BENCH_FOLDER "/peers.py";
    FILE* peers = popen(command.c_str(), "r");
    char line[200];
    while (peers && std::fgets(line, sizeof line, peers)) {
        std::istringstream words(line);
        std::string name, value, reason;
        words >> name >> value;
        std::getline(words, reason);
        if (value == "-")
            std::printf("  %-44s skipped:%s\n", name.c_str(), reason.c_str());
        else
            table.row(("  " + name + ": stft + istft / floor").c_str(), std::stod(value) / floor, std::stod(value));
    }
    if (!peers || pclose(peers) != 0)
        std::printf("  peers                                        skipped: no Python\n");
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<char*> arguments(argv, argv + argc);
    char interleaving[] = "--benchmark_enable_random_interleaving=true";
    arguments.push_back(interleaving);
    argc = int(arguments.size());
    benchmark::Initialize(&argc, arguments.data());

    // In forked copies, so before anything else has used memory; with a model that writes, so that all of it counts.
    const auto copy = std::make_shared<CopyingModel>();
    const size_t separatorKiB = peakGrowthKiB([&] {
        tavrin::StreamSeparator separator(configFor(copy));
        for (int i = 0; i < 12; ++i) separator.process(std::vector<float>(2 * 65536));
        separator.finish();
    });
    const size_t sixStemsKiB = peakGrowthKiB([&] { SteadyStems(copy, 6).block(); });
    BareTransforms transforms;
    measure("floor", [&] { transforms.block(); });
    measure("floor of six", [&] { transforms.block(6); });

    const std::vector<float> block = noise(2 * kBlockSamples);
    SteadyStream interleaved(idleConfig(), block), planar(idleConfig(false), block), small(idleConfig(), block, 1024);
    measure("interleaved", [&] { interleaved.block(); });
    measure("planar", [&] { planar.block(); });
    measure("small", [&] { small.block(); });

    Stages stages;
    measure("host in", [&] { stages.hostIn(); });
    measure("queue", [&] { stages.queue(); });
    measure("analysis", [&] { stages.analysis(); });
    measure("handover", [&] { stages.handover(); });
    measure("synthesis", [&] { stages.synthesis(); });
    measure("host out", [&] { stages.hostOut(); });

    const std::shared_ptr<IInference> centre = loadModel(TAVRIN_MODELS "/centre.onnx");
    const std::vector<float> spectra = noise(4 * kFrames * kFrameLength / 2);
    std::vector<float> separated(spectra.size());
    SteadyStream centreStream(configFor(centre), block);
    measure("bare model", [&] { centre->run(spectra.data(), {separated.data()}, {1, 4, kFrames, kFrameLength / 2}); });
    measure("centre", [&] { centreStream.block(); });

    SteadyStems six(std::make_shared<IdleModel>(), 6), one(std::make_shared<IdleModel>(), 1);
    measure("six stems", [&] { six.block(); });
    measure("one stem", [&] { one.block(); });

    SteadyStream loud(configFor(copy), block), fading(configFor(copy), fadeIntoSilence(2 * kBlockSamples));
    measure("noise", [&] { loud.block(); });
    measure("fade", [&] { fading.block(); });

    measure("10 s", [] { wholeStream(10); });
    measure("10 min", [] { wholeStream(600); });
    measure("1 h", [] { wholeStream(3600); });

    SteadyStream first(idleConfig(), block), second(idleConfig(), block);
    const auto run = [](SteadyStream& stream) {
        for (size_t i = 0; i < kThreadBlocks; ++i) stream.block();
    };
    measure("one thread", [&] { std::thread(run, std::ref(first)).join(); });
    measure("two threads", [&] {
        std::thread other(run, std::ref(second));
        run(first);
        other.join();
    });

    Medians medians;
    benchmark::RunSpecifiedBenchmarks(&medians);
    const size_t before = allocationCount();
    interleaved.block();
    const size_t allocations = allocationCount() - before;
    const size_t faults = pageFaults([&] { interleaved.block(); }), sixFaults = pageFaults([&] { six.block(); });

    const double base = medians.of("floor"), whole = medians.of("interleaved");
    const Table table(medians);
    Table::section("One steady-state block of 253 frames, 5.9 s of stereo audio, around a model that does nothing");
    table.ratio("  floor: bare ordered transforms", "floor", base);
    table.ratio("  pipeline / floor, interleaved", "interleaved", base, "at most 2.0, wanted 1.5");
    table.ratio("  pipeline / floor, planar", "planar", base, "at most 2.0, wanted 1.5");
    table.ratio("  pipeline / floor, calls of 1024 samples", "small", base, "at most 2.0, wanted 1.5");
    Table::section("Stages, as shares of the interleaved pipeline");
    table.ratio("  host vector in (cutting)", "host in", whole);
    table.ratio("  queue", "queue", whole);
    table.row("  analysis", (medians.of("analysis") - medians.of("handover")) / whole,
              medians.of("analysis") - medians.of("handover"));
    table.ratio("  clearing and hand-over of the model's buffer", "handover", whole);
    table.ratio("  synthesis", "synthesis", whole);
    table.ratio("  host vector out", "host out", whole);
    double rest = whole - medians.of("analysis") - medians.of("synthesis");
    for (const char* stage : {"host in", "queue", "host out"}) rest -= medians.of(stage);
    table.row("  the rest: what the stages take from each other", rest / whole, rest);
    Table::section("Other libraries, one thread, the same audio");
    printPeers(table, base);
    Table::section("The shipped model through the real runtime");
    table.ratio("  bare model call / floor", "bare model", base);
    table.ratio("  library / (bare model call + floor)", "centre", medians.of("bare model") + base, "at most 1.03");
    Table::section("Multi-stem, around a model that does nothing");
    table.ratio("  floor: one forward, six inverse / floor", "floor of six", base);
    table.ratio("  six stems / their floor", "six stems", medians.of("floor of six"), "at most 2.0, wanted 1.5");
    table.ratio("  one stem of six / floor", "one stem", base, "at most 2.0, wanted 1.5");
    table.ratio("  one stem of six / six of six", "one stem", medians.of("six stems"));
    Table::section("Scaling");
    table.count("  10 s of audio", 10 / medians.of("10 s"), "x real", "flat");
    table.count("  10 min", 600 / medians.of("10 min"), "x real", "flat");
    table.count("  1 h", 3600 / medians.of("1 h"), "x real", "flat");
    table.row("  two threads / one, throughput", 2 * medians.of("one thread") / medians.of("two threads"),
              medians.of("two threads"), "at least 1.9 on free cores");
    table.ratio("  fade into denormal silence / noise", "fade", medians.of("noise"), "at most 1.2");
    Table::section("Memory");
    table.count("  a separator at its peak", double(separatorKiB) / 1024, "MiB", "at most 40");
    table.count("  a multi-stem separator at its peak, six stems", double(sixStemsKiB) / 1024, "MiB");
    table.count("  page faults per call, one stem", double(faults), "");
    table.count("  page faults per call, six stems", double(sixFaults), "");
    table.count("  allocations per steady-state call", double(allocations), "",
                "the returned vector, and a list that the model takes by value");
    return 0;
}
