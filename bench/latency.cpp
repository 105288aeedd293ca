// Prints what a shorter latency costs with a real model:  tavrin_latency MODEL.onnx…
// A host on the public headers; times are of the whole library around the runtime.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <vector>

#include "tavrin/separator.h"

namespace {

constexpr double kMeasureFor = 2.0;  // seconds of wall time, at least
constexpr std::size_t kFewestCalls = 5;

// Feeds noise, in calls that complete one step each, so that every one of them runs the model once.
// @return the median of their seconds.
double medianCall(tavrin::Separator& separator, const tavrin::ModelInfo& model) {
    const std::size_t samples = separator.step() * model.hop, capacity = separator.latency() + samples;
    std::vector<float> in(2 * samples), out(2 * capacity * separator.outputs().size());
    for (std::size_t i = 0; i < in.size(); ++i) in[i] = 0.3f * std::sin(static_cast<float>(i * i % 100003));
    std::vector<float*> outputs;
    for (std::size_t o = 0; o < separator.outputs().size(); ++o) outputs.push_back(&out[2 * capacity * o]);
    const float* const input[] = {in.data()};
    const auto call = [&] {
        const auto start = std::chrono::steady_clock::now();
        separator.process(input, samples, outputs.data(), capacity);
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    while (separator.outputFor(samples) < samples) call();  // the start of the stream
    call();
    std::vector<double> seconds;
    for (double spent = 0; spent < kMeasureFor || seconds.size() < kFewestCalls; spent += seconds.back())
        seconds.push_back(call());
    std::nth_element(seconds.begin(), seconds.begin() + static_cast<std::ptrdiff_t>(seconds.size() / 2), seconds.end());
    return seconds[seconds.size() / 2];
}

void printTable(const char* file) {
    std::ifstream stream(file, std::ios::binary);
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(stream), {}};
    const tavrin::Model model({bytes.data(), bytes.size()});
    const tavrin::ModelInfo& info = model.info();
    std::printf("%s: %zu frames a call, a context of %zu\n", file, info.frames, info.context);
    std::printf(
        "| latency | new frames per call | model calls per second | a call takes | times real time |\n"
        "|---|---|---|---|---|\n");
    const std::size_t largest = info.frames - 2 * info.context;
    for (const std::size_t step : {largest, std::size_t{128}, std::size_t{64}, std::size_t{32}, std::size_t{16},
                                   std::size_t{8}, std::size_t{4}, std::size_t{2}, std::size_t{1}}) {
        if (step > largest || (step == 128 && largest <= 128)) continue;
        tavrin::SeparatorConfig config;  // half a hop more than the step needs, against rounding
        config.latency = (static_cast<double>(info.frameLength) - 1 +
                          (static_cast<double>(step + info.context) - 0.5) * static_cast<double>(info.hop)) /
                         info.sampleRate;
        tavrin::Separator separator(model, config);
        const double call = medianCall(separator, info);
        const double stepSeconds = static_cast<double>(separator.step() * info.hop) / info.sampleRate;
        std::printf("| %.3f s | %zu | %.2f | %.1f ms | %.1f |\n",
                    static_cast<double>(separator.latency()) / info.sampleRate, separator.step(), 1 / stepSeconds,
                    1000 * call, stepSeconds / call);
        std::fflush(stdout);
    }
}

}  // namespace

int main(int argc, char** argv) try {
    for (int i = 1; i < argc; ++i) printTable(argv[i]);
    return argc < 2 ? 2 : 0;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "tavrin_latency: %s\n", failure.what());
    return 1;
}
