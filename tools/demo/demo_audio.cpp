// tavrin-demo-audio: what the demo needs beside the separation itself. Mixes tracks, and scores stems against them.
#include <sndfile.hh>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr int kChannels = 2;
constexpr sf_count_t kBlockFrames = 65536;

// Centre and rest are a float sum away from the mix: more than this is a fault.
constexpr double kLargestDeviationDb = -120.0;

using Samples = std::vector<float>;

// A stereo file read block by block; after its end come zeros, so that tracks of unequal length can be read in step.
class Track {
public:
    explicit Track(const std::string& path) : _path(path), _file(path) {
        if (_file.error() != SF_ERR_NO_ERROR) throw std::runtime_error(path + ": " + _file.strError());
        if (_file.channels() != kChannels)
            throw std::runtime_error(path + ": has " + std::to_string(_file.channels()) + " channels; needed are 2");
    }

    sf_count_t frames() const { return _file.frames(); }
    int rate() const { return _file.samplerate(); }

    void requireRate(int wanted) const {
        if (rate() != wanted)
            throw std::runtime_error(_path + ": " + std::to_string(rate()) + " Hz, but the first file has " +
                                     std::to_string(wanted) + " Hz");
    }

    void skipTo(sf_count_t frame) {
        if (_file.seek(std::min(frame, frames()), SEEK_SET) < 0)
            throw std::runtime_error(_path + ": cannot seek: " + _file.strError());
    }

    // Fills the whole block.
    void read(Samples& block) {
        const sf_count_t got = _file.readf(block.data(), static_cast<sf_count_t>(block.size()) / kChannels);
        if (_file.error() != SF_ERR_NO_ERROR) throw std::runtime_error(_path + ": " + _file.strError());
        std::fill(block.begin() + got * kChannels, block.end(), 0.0F);
    }

private:
    std::string _path;
    SndfileHandle _file;
};

std::vector<Track> openInStep(const std::vector<std::string>& paths) {
    std::vector<Track> tracks(paths.begin(), paths.end());
    for (const Track& track : tracks) track.requireRate(tracks.front().rate());
    return tracks;
}

sf_count_t longest(const std::vector<Track>& tracks) {
    sf_count_t frames = 0;
    for (const Track& track : tracks) frames = std::max(frames, track.frames());
    return frames;
}

// Calls `use` with blocks of as many samples as remain, up to a whole one.
template <typename Use>
void forEachBlock(sf_count_t frames, Use use) {
    for (sf_count_t done = 0; done < frames; done += kBlockFrames)
        use(static_cast<std::size_t>(std::min(kBlockFrames, frames - done) * kChannels));
}

// Writes the sum of all tracks, as long as the longest, as float samples: a sum beyond full scale is kept.
void mix(const std::string& output, const std::vector<std::string>& inputs) {
    std::vector<Track> tracks = openInStep(inputs);
    SndfileHandle file(output, SFM_WRITE, SF_FORMAT_WAV | SF_FORMAT_FLOAT, kChannels, tracks.front().rate());
    if (file.error() != SF_ERR_NO_ERROR) throw std::runtime_error(output + ": " + file.strError());
    Samples sum;
    Samples block;
    forEachBlock(longest(tracks), [&](std::size_t samples) {
        sum.assign(samples, 0.0F);
        block.resize(samples);
        for (Track& track : tracks) {
            track.read(block);
            for (std::size_t i = 0; i < samples; ++i) sum[i] += block[i];
        }
        const auto frames = static_cast<sf_count_t>(samples) / kChannels;
        if (file.writef(sum.data(), frames) != frames) throw std::runtime_error(output + ": " + file.strError());
    });
}

// Signal-to-distortion ratio: 10 log10(sum s^2 / sum (s - e)^2) over all samples of both channels.
class Ratio {
public:
    void add(const Samples& signal, const Samples& estimate) {
        for (std::size_t i = 0; i < signal.size(); ++i) {
            const double s = signal[i];
            const double d = s - estimate[i];
            _signal += s * s;
            _distortion += d * d;
        }
    }
    double decibels() const { return 10.0 * std::log10(_signal / _distortion); }

private:
    double _signal = 0.0;
    double _distortion = 0.0;
};

struct Row {
    const char* track;
    const char* stem;
    Ratio before;
    Ratio after;
};

void print(const Row& row) {
    const double before = row.before.decibels();
    const double after = row.after.decibels();
    std::printf("  %-8s %-8s %8.1f %11.1f %+8.1f\n", row.track, row.stem, before, after, after - before);
}

// Prints how near the stems come to the tracks, over a part of the song or all of it. Returns whether centre and rest
// are exactly as long as the mix and add up to it.
bool score(const std::vector<std::string>& paths, double startSeconds, double lengthSeconds) {
    std::vector<Track> tracks = openInStep(paths);
    const sf_count_t total = tracks[0].frames();
    const double rate = tracks[0].rate();
    if (!(startSeconds >= 0.0 && lengthSeconds > 0.0 && startSeconds * rate < static_cast<double>(total)))
        throw std::runtime_error("the part to score lies outside the mix");
    const auto start = static_cast<sf_count_t>(startSeconds * rate);
    const auto frames = static_cast<sf_count_t>(std::min(lengthSeconds * rate, static_cast<double>(total - start)));

    for (Track& track : tracks) track.skipTo(start);
    Samples mix;
    Samples centre;
    Samples rest;
    Samples others;
    Samples guitar;
    Row rows[] = {{"guitar", "rest", {}, {}}, {"others", "centre", {}, {}}};
    double deviation = 0.0;
    forEachBlock(frames, [&](std::size_t samples) {
        Samples* const blocks[] = {&mix, &centre, &rest, &others, &guitar};
        for (std::size_t i = 0; i < tracks.size(); ++i) {
            blocks[i]->resize(samples);
            tracks[i].read(*blocks[i]);
        }
        rows[0].before.add(guitar, mix);
        rows[0].after.add(guitar, rest);
        rows[1].before.add(others, mix);
        rows[1].after.add(others, centre);
        for (std::size_t i = 0; i < samples; ++i) {
            const double d = std::abs(static_cast<double>(centre[i]) + rest[i] - mix[i]);
            // Written so that a NaN counts as a deviation.
            if (!(d <= deviation)) deviation = std::isnan(d) ? std::numeric_limits<double>::infinity() : d;
        }
    });

    std::printf("Signal-to-distortion ratio, dB (higher is better)\n");
    std::printf("  %-8s %-8s %8s %11s %8s\n", "track", "stem", "mix", "separated", "gain");
    for (const Row& row : rows) print(row);
    const double deviationDb = 20.0 * std::log10(deviation);
    const bool sameLength = tracks[1].frames() == total && tracks[2].frames() == total;
    std::printf("Centre + rest against the mix: at most %.1f dB of full scale apart\n", deviationDb);
    std::printf("Samples per channel: mix %lld, centre %lld, rest %lld\n", static_cast<long long>(total),
                static_cast<long long>(tracks[1].frames()), static_cast<long long>(tracks[2].frames()));
    if (!sameLength) std::fprintf(stderr, "tavrin-demo-audio: the stems are not as long as the mix\n");
    if (!(deviationDb <= kLargestDeviationDb))
        std::fprintf(stderr, "tavrin-demo-audio: centre + rest is not the mix: off by %.1f dB, allowed are %.0f dB\n",
                     deviationDb, kLargestDeviationDb);
    return sameLength && deviationDb <= kLargestDeviationDb;
}

constexpr const char* kUsage =
    "usage: tavrin-demo-audio mix OUTPUT.wav TRACK...\n"
    "       tavrin-demo-audio score MIX CENTRE REST OTHERS GUITAR [START LENGTH]\n"
    "START and LENGTH in seconds; the whole mix without them.\n";

int run(const std::vector<std::string>& words) {
    const std::string verb = words.empty() ? "" : words[0];
    if (verb == "mix" && words.size() >= 3) {
        mix(words[1], {words.begin() + 2, words.end()});
        return 0;
    }
    if (verb == "score" && (words.size() == 6 || words.size() == 8)) {
        const bool part = words.size() == 8;
        const double start = part ? std::stod(words[6]) : 0.0;
        const double length = part ? std::stod(words[7]) : std::numeric_limits<double>::infinity();
        return score({words.begin() + 1, words.begin() + 6}, start, length) ? 0 : 1;
    }
    std::fputs(kUsage, stderr);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tavrin-demo-audio: %s\n", error.what());
        return 1;
    }
}
