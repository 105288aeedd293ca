#include "resampler.h"

#include <new>
#include <string>

#include "failure.h"

namespace tavrin::tool {

namespace {

constexpr std::size_t chunkFrames = 65536;

}  // namespace

Resampler::Resampler(double from, double to) {
    if (from == to) return;
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
    soxr_error_t error = nullptr;
    _soxr.reset(soxr_create(from, to, 2, &error, nullptr, &quality, nullptr));
    if (error) {
        throw Failure(ExitCode::inputUnreadable, "cannot convert from " + std::to_string(from) + " Hz to " +
                                                     std::to_string(to) + " Hz (" + error +
                                                     "); convert the song to 44100 Hz first");
    }
}

std::vector<float> Resampler::process(std::vector<float> samples) {
    // No samples, no pointer, and that would end the stream.
    if (!_soxr || samples.empty()) return samples;
    return convert(samples.data(), samples.size() / 2);
}

std::vector<float> Resampler::finish() { return _soxr ? convert(nullptr, 0) : std::vector<float>(); }

// A null pointer tells libsoxr that the stream has ended.
std::vector<float> Resampler::convert(const float* samples, std::size_t frames) {
    std::vector<float> out;
    std::size_t used = 0;
    std::size_t made = 0;
    do {
        const std::size_t before = out.size();
        out.resize(before + 2 * chunkFrames);
        const soxr_error_t error =
            soxr_process(_soxr.get(), samples, frames, &used, out.data() + before, chunkFrames, &made);
        // The arguments are valid, so only memory can have run out.
        if (error) throw std::bad_alloc();
        out.resize(before + 2 * made);
        if (samples) samples += 2 * used;
        frames -= used;
    } while (frames > 0 || made > 0);
    return out;
}

}  // namespace tavrin::tool
