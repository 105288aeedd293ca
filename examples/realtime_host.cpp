// Separates while the music plays. An audio callback must return within milliseconds and a model call takes longer, so
// the two meet in rings only: the callback leaves its input in one and takes its output, some seconds older, from
// another; a worker thread does the rest. What is heard is what a plain StreamSeparator gives, later by a fixed time.
//
// There is no sound card here: the program "plays" raw interleaved stereo floats at 44.1 kHz, block by block in time.
//     realtime_host MODEL.onnx SONG.f32 STEM.f32 [SPEED]
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <thread>

#include "tavrin/stream_separator.h"

namespace {

constexpr std::size_t kSampleRate = 44100;  // of the models made for this library
constexpr std::size_t kBlockFrames = 512;   // what the sound card asks for at a time

// A queue of floats from one thread to one other. Neither ever waits: both calls end after a copy, whatever the other
// thread does.
class Ring {
public:
    explicit Ring(std::size_t capacity) : _floats(capacity) {}

    // Of the writing thread: all or nothing. @return false when there is no room.
    bool push(const float* floats, std::size_t count) {
        const std::size_t written = _written.load(std::memory_order_relaxed);
        if (count > _floats.size() - (written - _read.load(std::memory_order_acquire))) return false;
        const std::size_t start = written % _floats.size(), first = std::min(count, _floats.size() - start);
        std::copy_n(floats, first, _floats.data() + start);
        std::copy_n(floats + first, count - first, _floats.data());
        _written.store(written + count, std::memory_order_release);
        return true;
    }

    // Of the reading thread: as many as there are, at most `count`. @return how many.
    std::size_t pop(float* floats, std::size_t count) {
        const std::size_t read = _read.load(std::memory_order_relaxed);
        count = std::min(count, _written.load(std::memory_order_acquire) - read);
        const std::size_t start = read % _floats.size(), first = std::min(count, _floats.size() - start);
        std::copy_n(_floats.data() + start, first, floats);
        std::copy_n(_floats.data(), count - first, floats + first);
        _read.store(read + count, std::memory_order_release);
        return count;
    }

private:
    static_assert(std::atomic<std::size_t>::is_always_lock_free, "a lock could make the callback wait");

    std::vector<float> _floats;
    // All floats ever written and read; on cache lines of their own, because two processors write them.
    alignas(64) std::atomic<std::size_t> _written{0};
    alignas(64) std::atomic<std::size_t> _read{0};
};

class RealtimeSeparator {
public:
    // How much later the output is, in frames: what the separator may hold back, and two seconds in which the worker
    // is to have finished a model call. A machine that needs longer has underruns; one with a fast model can do with
    // less.
    static std::size_t latency() { return tavrin::StreamSeparator::latency() + 2 * kSampleRate; }

    explicit RealtimeSeparator(const tavrin::TavrinProcConfig& config)
        : _separator(config), _input(2 * latency()), _output(4 * latency()) {
        const std::vector<float> silence(2 * latency());
        _output.push(silence.data(), silence.size());
        _worker = std::thread([this] { work(); });
    }
    ~RealtimeSeparator() {
        _stop = true;
        _worker.join();
    }
    RealtimeSeparator(const RealtimeSeparator&) = delete;
    RealtimeSeparator& operator=(const RealtimeSeparator&) = delete;

    // The audio callback: no lock, no allocation, no system call.
    void callback(const float* in, float* out, std::size_t frames) {
        const std::size_t count = 2 * frames;
        if (!_failed && !_input.push(in, count)) _failed = true;  // a worker that far behind does not catch up
        // What came too late to be heard is dropped, a block at a time, so that the latency stays what it is.
        while (_late > 0) {
            const std::size_t dropped = _output.pop(out, std::min(_late, count));
            if (dropped == 0) break;
            _late -= dropped;
        }
        const std::size_t heard = _late > 0 ? 0 : _output.pop(out, count);
        if (heard == count) return;
        std::fill(out + heard, out + count, 0.0f);
        _late += count - heard;
        ++_underruns;
    }

    // From any thread.
    std::size_t underruns() const { return _underruns; }
    bool failed() const { return _failed; }  // silence from now on

private:
    void work() try {
        std::vector<float> block;
        while (!_stop && !_failed) {
            block.resize(2 * kSampleRate / 10);
            block.resize(_input.pop(block.data(), block.size()));
            // The callback cannot wake this thread: that would be a system call.
            if (block.empty()) std::this_thread::sleep_for(std::chrono::milliseconds(2));
            const std::vector<float> stem = _separator.process(block);
            if (!_output.push(stem.data(), stem.size())) _failed = true;
        }
    } catch (const std::exception& failure) {
        std::cerr << "the separation has ended: " << failure.what() << '\n';
        _failed = true;
    }

    tavrin::StreamSeparator _separator;  // the worker's
    Ring _input;
    Ring _output;
    std::size_t _late = 0;  // the callback's: floats that were due already and will be dropped
    std::atomic<std::size_t> _underruns{0};
    std::atomic<bool> _failed{false};
    std::atomic<bool> _stop{false};
    std::thread _worker;
};

}  // namespace

int main(int argc, char** argv) {
    const double speed = argc == 5 ? std::atof(argv[4]) : 1.0;
    if (argc < 4 || argc > 5 || !(speed > 0)) return 2;
    std::ifstream modelFile(argv[1], std::ios::binary), song(argv[2], std::ios::binary);
    std::ofstream stem(argv[3], std::ios::binary);
    const std::vector<std::uint8_t> model{std::istreambuf_iterator<char>(modelFile), {}};
    if (!tavrin::initializeModel("centre", {model.data(), model.size(), nullptr})) return 3;
    tavrin::TavrinProcConfig config;
    config.modelTag = "centre";
    RealtimeSeparator separator(config);

    const std::chrono::duration<double> period(kBlockFrames / (kSampleRate * speed));
    auto due = std::chrono::steady_clock::now();
    std::vector<float> in(2 * kBlockFrames), out(in.size());
    const auto bytes = static_cast<std::streamsize>(in.size() * sizeof(float));
    while (song.read(reinterpret_cast<char*>(in.data()), bytes)) {
        separator.callback(in.data(), out.data(), kBlockFrames);
        stem.write(reinterpret_cast<const char*>(out.data()), bytes);
        due += std::chrono::duration_cast<std::chrono::steady_clock::duration>(period);
        std::this_thread::sleep_until(due);
    }
    std::cerr << "latency: " << RealtimeSeparator::latency() << " frames, underruns: " << separator.underruns() << '\n';
    if (separator.failed()) return 5;
    return stem.flush() ? 0 : 4;
}
