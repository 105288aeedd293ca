// Separates while the music plays. An audio callback must return within milliseconds and a model call may take longer,
// so the two meet in rings only: the callback leaves its input in one and takes its output, somewhat older, from
// another; a worker thread does the rest. What is heard is what a plain Separator gives, later by a fixed time.
//
// There is no sound card here: the program "plays" raw interleaved stereo floats at the model's sample rate, block by
// block in time, and records the model's first stem.
//     realtime_host MODEL.onnx SONG.f32 STEM.f32 [LATENCY [RESERVE [SPEED]]]
// LATENCY: seconds that the separator may hold back; 0: the longest, which costs the least.
// RESERVE: seconds that the worker may be late, more than a model call takes.
// SPEED: of the music, as a multiple of real time.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <thread>

#include "tavrin/separator.h"

namespace {

constexpr std::size_t kBlock = 512;  // samples that the sound card asks for at a time

// Two channels of samples, apart, as sound cards and plug-in hosts have them.
class Stereo {
public:
    explicit Stereo(std::size_t samples) : _left(samples), _right(samples), _channels{_left.data(), _right.data()} {}
    Stereo(const Stereo&) = delete;
    Stereo& operator=(const Stereo&) = delete;

    std::size_t size() const { return _left.size(); }
    float* const* channels() const { return _channels.data(); }

private:
    std::vector<float> _left, _right;
    std::array<float*, 2> _channels;
};

// A queue of samples from one thread to one other. Neither ever waits: both calls end after a copy, whatever the other
// thread does.
class Ring {
public:
    explicit Ring(std::size_t capacity) : _samples(capacity) {}

    // Of the writing thread: all or nothing. @return false when there is no room.
    bool push(const float* const* from, std::size_t count) {
        const std::size_t written = _written.load(std::memory_order_relaxed);
        if (count > _samples.size() - (written - _read.load(std::memory_order_acquire))) return false;
        const std::size_t start = written % _samples.size(), first = std::min(count, _samples.size() - start);
        for (std::size_t c = 0; c < 2; ++c) {
            std::copy_n(from[c], first, _samples.channels()[c] + start);
            std::copy_n(from[c] + first, count - first, _samples.channels()[c]);
        }
        _written.store(written + count, std::memory_order_release);
        return true;
    }

    // Of the reading thread: as many as there are, at most `count`. @return how many.
    std::size_t pop(float* const* to, std::size_t count) {
        const std::size_t read = _read.load(std::memory_order_relaxed);
        count = std::min(count, _written.load(std::memory_order_acquire) - read);
        const std::size_t start = read % _samples.size(), first = std::min(count, _samples.size() - start);
        for (std::size_t c = 0; c < 2; ++c) {
            std::copy_n(_samples.channels()[c] + start, first, to[c]);
            std::copy_n(_samples.channels()[c], count - first, to[c] + first);
        }
        _read.store(read + count, std::memory_order_release);
        return count;
    }

private:
    static_assert(std::atomic<std::size_t>::is_always_lock_free, "a lock could make the callback wait");

    Stereo _samples;
    // All samples ever written and read; on cache lines of their own, because two processors write them.
    alignas(64) std::atomic<std::size_t> _written{0};
    alignas(64) std::atomic<std::size_t> _read{0};
};

class RealtimeSeparator {
public:
    // @param separator planar, with one output. @param reserve samples that the worker may be late. A machine that is
    // later still has underruns.
    RealtimeSeparator(tavrin::Separator separator, std::size_t reserve)
        : _separator(std::move(separator)),
          _delay(_separator.latency() + reserve),
          _input(_delay),
          _output(2 * _delay),
          _in(8 * kBlock),
          _out(_separator.latency() + _in.size()) {
        const Stereo silence(_delay);
        _output.push(silence.channels(), silence.size());
        _worker = std::thread([this] { work(); });
    }
    ~RealtimeSeparator() {
        _stop = true;
        _worker.join();
    }
    RealtimeSeparator(const RealtimeSeparator&) = delete;
    RealtimeSeparator& operator=(const RealtimeSeparator&) = delete;

    // How much later the output is, in samples: what the separator may hold back, and the reserve.
    std::size_t delay() const { return _delay; }

    // The audio callback: no lock, no allocation, no system call. At most kBlock samples.
    void callback(const float* const* in, float* const* out, std::size_t count) {
        if (!_failed && !_input.push(in, count)) _failed = true;  // a worker that far behind does not catch up
        // What came too late to be heard is dropped, a block at a time, so that the delay stays what it is.
        while (_late > 0) {
            const std::size_t dropped = _output.pop(out, std::min(_late, count));
            if (dropped == 0) break;
            _late -= dropped;
        }
        const std::size_t heard = _late > 0 ? 0 : _output.pop(out, count);
        if (heard == count) return;
        for (std::size_t c = 0; c < 2; ++c) std::fill(out[c] + heard, out[c] + count, 0.0f);
        _late += count - heard;
        ++_underruns;
    }

    // From any thread.
    std::size_t underruns() const { return _underruns; }
    bool failed() const { return _failed; }  // silence from now on

private:
    void work() try {
        while (!_stop && !_failed) {
            const std::size_t count = _input.pop(_in.channels(), _in.size());
            // The callback cannot wake this thread: that would be a system call.
            if (count == 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
            const std::size_t finished = _separator.process(_in.channels(), count, _out.channels(), _out.size());
            if (!_output.push(_out.channels(), finished)) _failed = true;
        }
    } catch (const std::exception& failure) {
        std::cerr << "the separation has ended: " << failure.what() << '\n';
        _failed = true;
    }

    tavrin::Separator _separator;  // the worker's, as _in and _out are
    const std::size_t _delay;
    Ring _input;
    Ring _output;
    Stereo _in;
    Stereo _out;
    std::size_t _late = 0;  // the callback's: samples that were due already and will be dropped
    std::atomic<std::size_t> _underruns{0};
    std::atomic<bool> _failed{false};
    std::atomic<bool> _stop{false};
    std::thread _worker;
};

}  // namespace

int main(int argc, char** argv) try {
    const auto number = [&](int argument, double otherwise) {
        return argument < argc ? std::atof(argv[argument]) : otherwise;
    };
    const double latency = number(4, 0), reserve = number(5, 2), speed = number(6, 1);
    if (argc < 4 || argc > 7 || !(reserve > 0) || !(speed > 0)) return 2;
    std::ifstream modelFile(argv[1], std::ios::binary), song(argv[2], std::ios::binary);
    std::ofstream stem(argv[3], std::ios::binary);
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(modelFile), {}};

    const tavrin::Model model({bytes.data(), bytes.size()});
    tavrin::SeparatorConfig config;
    config.stems = {model.info().stems.front()};
    config.layout = tavrin::Layout::planar;
    config.latency = latency;
    const double rate = model.info().sampleRate;
    RealtimeSeparator separator(tavrin::Separator(model, config), static_cast<std::size_t>(reserve * rate));

    const std::chrono::duration<double> period(kBlock / (rate * speed));
    auto due = std::chrono::steady_clock::now();
    const Stereo in(kBlock), out(kBlock);
    std::vector<float> block(2 * kBlock);
    const auto blockBytes = static_cast<std::streamsize>(block.size() * sizeof(float));
    while (song.read(reinterpret_cast<char*>(block.data()), blockBytes)) {
        for (std::size_t i = 0; i < block.size(); ++i) in.channels()[i % 2][i / 2] = block[i];
        separator.callback(in.channels(), out.channels(), kBlock);
        for (std::size_t i = 0; i < block.size(); ++i) block[i] = out.channels()[i % 2][i / 2];
        stem.write(reinterpret_cast<const char*>(block.data()), blockBytes);
        due += std::chrono::duration_cast<std::chrono::steady_clock::duration>(period);
        std::this_thread::sleep_until(due);
    }
    std::cerr << "delay: " << separator.delay() << " samples, underruns: " << separator.underruns() << '\n';
    if (separator.failed()) return 5;
    return stem.flush() ? 0 : 4;
} catch (const std::exception& failure) {
    std::cerr << "realtime_host: " << failure.what() << '\n';
    return 3;
}
