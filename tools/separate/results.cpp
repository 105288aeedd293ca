#include "separate/results.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <utility>

#include "common/failure.h"

namespace tavrin::tool {

namespace {

std::string decibels(float peak) {
    char text[40];
    std::snprintf(text, sizeof text, "%.1f dB", 20 * std::log10(peak));
    return text;
}

}  // namespace

Results::Results(const OutputOptions& options, const Song& source, const Targets& targets, const AudioReader& song,
                 double start)
    : _options(options) {
    for (const Target& target : targets.parts) openPart(target, source, song);
    if (targets.picture.empty()) return;
    _pictureFile = std::make_unique<HiddenFile>(targets.picture);
    std::vector<std::string> names = {source.name()};
    for (const Target& target : targets.parts) names.push_back(target.name);
    _picture.emplace(std::move(names), song.rate(), start, options.linear);
}

void Results::openPart(const Target& target, const Song& source, const AudioReader& song) {
    Part& part = _parts.emplace_back();
    part.place = target.part;
    part.channels = song.channels();
    part.report = {target.name, target.file};
    if (!_options.toStandardOutput) part.file = std::make_unique<HiddenFile>(target.file);
    if (_options.clip == ClipPolicy::scaleAll) {
        part.waiting = makeScratchFile(target.file.parent_path());
        if (!part.waiting) throw writeFailure(target.file, std::strerror(errno));
    }
    AudioOutput output;
    output.place.descriptor = part.file ? part.file->descriptor() : STDOUT_FILENO;
    output.place.name = part.report.label();
    output.format = _options.format;
    output.quality = _options.quality;
    output.rate = song.rate();
    output.channels = song.channels();
    output.tags = song.tags();
    std::string& title = output.tags["title"];
    title = (title.empty() ? source.name() : title) + " (" + target.name + ")";
    output.picture = song.picture();
    // Opposite noise: stem and rest add up to the song.
    output.dither = target.name == "rest" ? -1 : 1 + static_cast<int>(target.part);
    part.writer = std::make_unique<AudioWriter>(output);
}

void Results::write(const Parts& parts) {
    if (parts.front().empty()) return;
    for (Part& part : _parts) write(part, parts[part.place]);
    if (!_picture) return;
    // All parts together are the song.
    std::vector<float> song = parts.front();
    for (auto part = parts.begin() + 1; part != parts.end(); ++part)
        std::transform(song.begin(), song.end(), part->begin(), song.begin(), std::plus());
    _picture->add(0, song);
    for (std::size_t i = 0; i < _parts.size(); ++i) _picture->add(i + 1, parts[_parts[i].place]);
}

void Results::write(Part& part, std::vector<float> samples) {
    for (const float sample : samples) part.report.peak = std::max(part.report.peak, std::abs(sample));
    if (_options.clip == ClipPolicy::clamp && part.report.peak > 1)
        for (std::size_t i = 0; i < samples.size(); ++i) {
            if (std::abs(samples[i]) <= 1) continue;
            samples[i] = std::copysign(1.0F, samples[i]);
            if (part.channels == 2 || i % 2 == 0) ++part.report.clipped;
        }
    if (part.waiting) {
        if (std::fwrite(samples.data(), sizeof(float), samples.size(), part.waiting.get()) != samples.size())
            throw writeFailure(part.report.file, std::strerror(errno));
        return;
    }
    if (_options.clip == ClipPolicy::none && part.report.peak > 1 && !_options.format->hasHeadroom()) {
        throw Failure(ExitCode::writeFailed, part.report.label() + ": is " + decibels(part.report.peak) +
                                                 " too loud for " + _options.format->name +
                                                 "; choose --clip clamp, --clip scale-all or --format wav");
    }
    part.writer->write(samples);
}

float Results::applyGain() {
    if (_options.clip != ClipPolicy::scaleAll) return 1;
    float peak = 1;
    for (const Part& part : _parts) peak = std::max(peak, part.report.peak);
    std::vector<float> samples;
    for (Part& part : _parts) {
        if (std::fseek(part.waiting.get(), 0, SEEK_SET) != 0)
            throw writeFailure(part.report.file, std::strerror(errno));
        do {
            samples.resize(1 << 16);
            samples.resize(std::fread(samples.data(), sizeof(float), samples.size(), part.waiting.get()));
            for (float& sample : samples) sample /= peak;
            part.writer->write(samples);
        } while (!samples.empty());
        if (std::ferror(part.waiting.get())) throw writeFailure(part.report.file, std::strerror(errno));
    }
    return 1 / peak;
}

void Results::publish(SongReport& report) {
    report.gain = applyGain();
    std::vector<HiddenFile*> files;
    for (Part& part : _parts) {
        part.writer->finish();
        if (part.file) files.push_back(part.file.get());
    }
    if (_picture) {
        _picture->writeTo(*_pictureFile);
        files.push_back(_pictureFile.get());
        report.picture = _pictureFile->target();
    }
    HiddenFile::publish(files);
    const int rate = _options.format->rateFor(report.rate);
    for (const Part& each : _parts) {
        const PartReport& part = report.parts.emplace_back(each.report);
        if (part.clipped > 0) {
            report.warnings.push_back(part.label() + ": " + std::to_string(part.clipped) + " samples, the loudest " +
                                      decibels(part.peak) +
                                      " above full scale, were clipped; --clip scale-all keeps them");
        }
        if (rate != report.rate) {
            report.warnings.push_back(part.label() + ": has " + std::to_string(rate) + " Hz, because " +
                                      _options.format->name + " cannot have the song's " + std::to_string(report.rate) +
                                      " Hz");
        }
    }
}

}  // namespace tavrin::tool
