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

// New frames per model call.
constexpr std::pair<const char*, size_t> kSteps[] = {
    {"step 254", 254}, {"step 64", 64}, {"step 16", 16}, {"step 4", 4}, {"step 1", 1}};

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
    tavrin::Separator separator(idleModel(), {});
    static const std::vector<float> block = noise(2 * 65536);
    static std::vector<float> out(2 * (separator.latency() + 65536));
    const float* const input[] = {block.data()};
    float* const outputs[] = {out.data()};
    for (size_t fed = 0, samples = size_t(kRate) * seconds; fed < samples; fed += 65536)
        separator.process(input, 65536, outputs, out.size() / 2);
    separator.finish(outputs, out.size() / 2);
}

std::string readModel(const char* path) {
    std::ifstream file(path, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (bytes.empty()) throw std::runtime_error(std::string(path) + ": no model to read");
    return bytes;
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
    const std::vector<float> block = noise(2 * kBlockSamples);
    const tavrin::SeparatorConfig interleaved, planar{{}, false, tavrin::Layout::planar};
    const std::vector<float> second(2 * 65536, 0.1f);
    std::vector<float> taken(2 * 65536 * 6, 0.1f);  // by the host, not by the separator
    const float* const secondIn[] = {second.data()};
    float* const secondOut[] = {taken.data()};
    const size_t separatorKiB = peakGrowthKiB([&] {
        tavrin::Separator separator(handleOf(std::make_unique<CopyingModel>()), {});
        for (int i = 0; i < 12; ++i) separator.process(secondIn, 65536, secondOut, 65536 * 6);
        separator.finish(secondOut, 65536 * 6);
    });
    const size_t facadeKiB = peakGrowthKiB([] { SteadyFacade().block(); });
    BareTransforms transforms;
    measure("floor", [&] { transforms.block(); });
    measure("floor of six", [&] { transforms.block(6); });

    SteadyStream woven(idleModel(), interleaved, block), apart(idleModel(), planar, block),
        small(idleModel(), interleaved, block, 1024);
    SteadyFacade facade;
    measure("interleaved", [&] { woven.block(); });
    measure("planar", [&] { apart.block(); });
    measure("small", [&] { small.block(); });
    measure("facade", [&] { facade.block(); });

    std::vector<std::unique_ptr<SteadyStream>> steps;
    for (const auto& [name, step] : kSteps) {
        tavrin::SeparatorConfig config;
        config.latency = (double(kFrameLength) + double(step) * kHop) / kRate;
        steps.push_back(std::make_unique<SteadyStream>(idleModel(), config, block));
        measure(name, [stream = steps.back().get()] { stream->block(); });
    }

    Stages stages;
    measure("ring", [&] { stages.ring(); });
    measure("analysis", [&] { stages.analysis(); });
    measure("synthesis", [&] { stages.synthesis(); });
    measure("host out", [&] { stages.hostOut(); });

    const std::string bytes = readModel(TAVRIN_MODELS "/centre.onnx");
    const tavrin::Model centre({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), nullptr});
    const std::shared_ptr<IInference> bare = InferenceONNX::create(bytes.data(), bytes.size(), "CPU");
    const std::vector<float> spectra = noise(kSpectrumSize);
    std::vector<float> separated(spectra.size());
    SteadyStream centreStream(centre, interleaved, block);
    measure("bare model", [&] { bare->run(spectra.data(), {separated.data()}, {1, 4, kFrames, kFrameLength / 2}); });
    measure("centre", [&] { centreStream.block(); });

    SteadyStream six(idleModel(6), interleaved, block), one(idleModel(6), {{"stem2"}}, block);
    measure("six stems", [&] { six.block(); });
    measure("one stem", [&] { one.block(); });

    SteadyStream loud(handleOf(std::make_unique<CopyingModel>()), interleaved, block),
        fading(handleOf(std::make_unique<CopyingModel>()), interleaved, fadeIntoSilence(2 * kBlockSamples));
    measure("noise", [&] { loud.block(); });
    measure("fade", [&] { fading.block(); });

    measure("10 s", [] { wholeStream(10); });
    measure("10 min", [] { wholeStream(600); });
    measure("1 h", [] { wholeStream(3600); });

    SteadyStream first(idleModel(), interleaved, block), other(idleModel(), interleaved, block);
    BareTransforms otherTransforms;
    const auto measureThreads = [](const std::string& name, auto& work, auto& otherWork) {
        const auto run = [](auto& blocks) {
            for (size_t i = 0; i < kThreadBlocks; ++i) blocks.block();
        };
        measure((name + "one thread").c_str(), [&work, run] { std::thread([&] { run(work); }).join(); });
        measure((name + "two threads").c_str(), [&work, &otherWork, run] {
            std::thread beside([&] { run(otherWork); });
            run(work);
            beside.join();
        });
    };
    measureThreads("", first, other);
    measureThreads("floor on ", transforms, otherTransforms);

    Medians medians;
    benchmark::RunSpecifiedBenchmarks(&medians);
    const size_t before = allocationCount();
    woven.block();
    const size_t allocations = allocationCount() - before;
    const size_t faults = pageFaults([&] { woven.block(); });

    const double base = medians.of("floor"), whole = medians.of("interleaved");
    const Table table(medians);
    Table::section("253 frames, 5.9 s of stereo audio, around a model that does nothing, on the caller's memory");
    table.ratio("  floor: bare ordered transforms", "floor", base);
    table.ratio("  pipeline / floor, interleaved", "interleaved", base, "at most 1.5");
    table.ratio("  pipeline / floor, planar", "planar", base, "at most 1.5");
    table.ratio("  pipeline / floor, calls of 1024 samples", "small", base, "at most 1.5");
    table.row("  the block engine, through vectors / floor",
              medians.of("facade") / (base * SteadyFacade::kHops / kBlockFrames), medians.of("facade"), "at most 2.0");
    Table::section("The same with fewer new frames per model call, so a shorter latency");
    for (const auto& [name, step] : kSteps) {
        char text[64];
        std::snprintf(text, sizeof text, "  %s, %.3f s, %.2f calls / s", name,
                      (double(kFrameLength) - 1 + double(step) * kHop) / kRate, kRate / double(step * kHop));
        table.ratio(text, name, base);
    }
    Table::section("Stages, as shares of the interleaved pipeline");
    table.ratio("  ring", "ring", whole);
    table.ratio("  analysis", "analysis", whole);
    table.ratio("  synthesis", "synthesis", whole);
    table.ratio("  host out", "host out", whole);
    double rest = whole;
    for (const char* stage : {"ring", "analysis", "synthesis", "host out"}) rest -= medians.of(stage);
    table.row("  the rest: what the stages take from each other", rest / whole, rest);
    Table::section("Other libraries, one thread, the same audio");
    printPeers(table, base);
    Table::section("The shipped model through the real runtime");
    table.ratio("  bare model call / floor", "bare model", base);
    table.ratio("  library / (bare model call + floor)", "centre", medians.of("bare model") + base);
    Table::section("Several stems, around a model that does nothing");
    table.ratio("  floor: one forward, six inverse / floor", "floor of six", base);
    table.ratio("  six stems / their floor", "six stems", medians.of("floor of six"), "at most 1.7");
    table.ratio("  one stem of six / floor", "one stem", base, "at most 1.5");
    Table::section("Scaling");
    table.count("  10 s of audio", 10 / medians.of("10 s"), "x real", "flat");
    table.count("  10 min", 600 / medians.of("10 min"), "x real", "flat");
    table.count("  1 h", 3600 / medians.of("1 h"), "x real", "flat");
    table.row("  two threads / one, throughput", 2 * medians.of("one thread") / medians.of("two threads"),
              medians.of("two threads"), "at least 1.9 on free cores");
    table.row("  two threads / one, bare transforms",
              2 * medians.of("floor on one thread") / medians.of("floor on two threads"),
              medians.of("floor on two threads"));
    table.ratio("  fade into denormal silence / noise", "fade", medians.of("noise"), "at most 1.2");
    Table::section("Memory");
    table.count("  a separator at its peak, one stem", double(separatorKiB) / 1024, "MiB", "at most 20");
    table.count("  a facade at its peak, with the host's vectors", double(facadeKiB) / 1024, "MiB");
    table.count("  page faults per steady-state call", double(faults), "", "0");
    table.count("  allocations per steady-state call", double(allocations), "", "0");
    return 0;
}
