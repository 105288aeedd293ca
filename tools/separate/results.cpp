#include "separate/results.h"

#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <utility>

#include "common/failure.h"

namespace tavrin::tool {

namespace {

std::string decibels(float peak) {
    char text[40];
    std::snprintf(text, sizeof text, "%.1f dB", 20 * std::log10(peak));
    return text;
}

// The largest magnitude. Their bits compare as they do, and of whole numbers the compiler takes several at a time.
float peakOf(const std::vector<float>& samples) {
    std::int32_t peak = 0;
    for (const float sample : samples) peak = std::max(peak, std::bit_cast<std::int32_t>(sample) & 0x7FFFFFFF);
    return std::bit_cast<float>(peak);
}

}  // namespace

Results::Results(const OutputOptions& options, const Song& source, const Targets& targets, const AudioReader& song,
                 double start)
    : _options(options), _rate(song.rate()), _channels(song.channels()) {
    for (const Target& target : targets.parts) {
        Part& part = _parts.emplace_back();
        part.target = target;
        if (!_options.toStandardOutput()) part.file = std::make_unique<HiddenFile>(target.file);
        if (_options.clip == "scale-all") {
            part.waiting = makeScratchFile(target.file.parent_path());
            if (!part.waiting) throw writeFailure(target.file);
        }
        // Opposite noise: stem and rest add up to the song.
        const int dither = target.name == "rest" ? -1 : 1 + static_cast<int>(target.part);
        AudioOutput output{
            .place = {.descriptor = part.file ? part.file->descriptor() : STDOUT_FILENO, .name = target.label()},
            .format = _options.format,
            .quality = _options.quality,
            .rate = _rate,
            .channels = _channels,
            .tags = song.tags(),
            .picture = song.picture(),
            .dither = dither};
        std::string& title = output.tags["title"];
        title = (title.empty() ? source.name() : title) + " (" + target.name + ")";
        part.writer = std::make_unique<AudioWriter>(output);
    }
    if (targets.picture.empty()) return;
    _pictureFile = std::make_unique<HiddenFile>(targets.picture);
    std::vector<std::string> names = {source.name()};
    for (const Target& target : targets.parts) names.push_back(target.name);
    _picture.emplace(std::move(names), _rate, start, options.linear);
}

void Results::write(Parts parts) {
    if (parts.front().empty()) return;
    if (_picture) {
        // All parts together are the song.
        std::vector<float> song = parts.front();
        for (auto part = parts.begin() + 1; part != parts.end(); ++part)
            std::transform(song.begin(), song.end(), part->begin(), song.begin(), std::plus());
        _picture->add(0, song);
        for (std::size_t i = 0; i < _parts.size(); ++i) _picture->add(i + 1, parts[_parts[i].target.part]);
    }
    for (Part& part : _parts) write(part, parts[part.target.part]);
}

void Results::write(Part& part, std::vector<float>& samples) {
    const float peak = peakOf(samples);
    part.peak = std::max(part.peak, peak);
    if (_options.clip == "clamp" && peak > 1)
        for (std::size_t i = 0; i < samples.size(); ++i) {
            if (std::abs(samples[i]) <= 1) continue;
            samples[i] = std::copysign(1.0F, samples[i]);
            if (_channels == 2 || i % 2 == 0) ++part.clipped;
        }
    if (part.waiting) {
        if (std::fwrite(samples.data(), sizeof(float), samples.size(), part.waiting.get()) != samples.size())
            throw writeFailure(part.target.file);
        return;
    }
    if (_options.clip == "none" && peak > 1 && !_options.format->hasHeadroom()) {
        throw Failure(ExitCode::writeFailed, part.target.label() + ": is " + decibels(peak) + " too loud for " +
                                                 _options.format->name +
                                                 "; choose --clip clamp, --clip scale-all or --format wav");
    }
    part.writer->write(samples);
}

float Results::applyGain() {
    if (_options.clip != "scale-all") return 1;
    float peak = 1;
    for (const Part& part : _parts) peak = std::max(peak, part.peak);
    std::vector<float> samples;
    for (Part& part : _parts) {
        if (std::fseek(part.waiting.get(), 0, SEEK_SET) != 0) throw writeFailure(part.target.file);
        do {
            samples.resize(1 << 16);
            samples.resize(std::fread(samples.data(), sizeof(float), samples.size(), part.waiting.get()));
            for (float& sample : samples) sample /= peak;
            part.writer->write(samples);
        } while (!samples.empty());
        if (std::ferror(part.waiting.get())) throw writeFailure(part.target.file);
    }
    return 1 / peak;
}

void Results::publish(Json& record) {
    const auto rounded = [](double value) { return std::round(value * 1e6) / 1e6; };
    record["gain"] = rounded(applyGain());
    std::vector<HiddenFile*> files;
    for (Part& part : _parts) {
        part.writer->finish();
        if (part.file) files.push_back(part.file.get());
    }
    if (_picture) {
        _picture->writeTo(*_pictureFile);
        files.push_back(_pictureFile.get());
    }
    HiddenFile::publish(files);
    const int rate = _options.format->rateFor(_rate);
    for (const Part& part : _parts) {
        const std::string label = part.target.label();
        record["outputs"].push_back(
            {{"part", part.target.name}, {"peak", rounded(part.peak)}, {"clipped", part.clipped}});
        if (part.clipped > 0)
            record["warnings"].push_back(label + ": " + std::to_string(part.clipped) + " samples, the loudest " +
                                         decibels(part.peak) +
                                         " above full scale, were clipped; --clip scale-all keeps them");
        if (rate != _rate)
            record["warnings"].push_back(label + ": has " + std::to_string(rate) + " Hz, because " +
                                         _options.format->name + " cannot have the song's " + std::to_string(_rate) +
                                         " Hz");
    }
    if (_picture) record["outputs"].push_back({{"part", "spectrogram"}});
}

}  // namespace tavrin::tool
