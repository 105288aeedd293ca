#include "separate/results.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <system_error>
#include <utility>

#include "common/failure.h"

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

std::unique_ptr<HiddenFile> openFile(const fs::path& target, const Song& source) {
    std::error_code none;
    if (fs::equivalent(target, source.file, none)) {
        throw Failure(ExitCode::wrongUsage,
                      target.string() + ": would replace the song itself; choose another folder with -o");
    }
    return std::make_unique<HiddenFile>(target);
}

float loudest(const std::vector<float>& samples) {
    float peak = 0;
    for (const float sample : samples) peak = std::max(peak, std::abs(sample));
    return peak;
}

std::string decibels(float peak) {
    char text[40];
    std::snprintf(text, sizeof text, "%.1f dB", 20 * std::log10(peak));
    return text;
}

// A stem's title says which one it is.
Tags tagsOf(const AudioReader& song, const std::string& name, const std::string& part) {
    Tags tags = song.tags();
    const std::string title = tagText(tags, "title");
    setTag(tags, "title", (title.empty() ? name : title) + " (" + part + ")");
    return tags;
}

}  // namespace

Results::Results(const OutputOptions& options, const Song& source, const Targets& targets, const AudioReader& song,
                 double start)
    : _options(options), _targets(targets) {
    for (const Target& target : targets.parts) openPart(target, source, song);
    if (targets.picture.empty()) return;
    _pictureFile = openFile(targets.picture, source);
    std::vector<std::string> names = {source.name()};
    for (const Target& target : targets.parts) names.push_back(target.name);
    _picture.emplace(std::move(names), song.rate(), start, options.linear);
}

void Results::openPart(const Target& target, const Song& source, const AudioReader& song) {
    Part part;
    part.target = target;
    AudioOutput output;
    if (_options.toStandardOutput) {
        output.place.descriptor = STDOUT_FILENO;
        output.place.name = "standard output";
    } else {
        part.file = openFile(target.file, source);
        output.place.descriptor = part.file->descriptor();
        output.place.name = target.file.string();
    }
    output.format = _options.format;
    output.quality = _options.quality;
    output.rate = song.rate();
    output.tags = tagsOf(song, source.name(), target.name);
    output.picture = song.picture();
    // Opposite noise: stem and rest add up to the song.
    output.dither = target.name == "rest" ? -1 : 1 + static_cast<int>(target.part);
    part.writer = std::make_unique<AudioWriter>(output);
    if (_options.clip == ClipPolicy::scaleAll) part.waiting = std::make_unique<ScratchFile>(target.file);
    _parts.push_back(std::move(part));
}

void Results::write(const Parts& parts) {
    for (Part& part : _parts) write(part, parts[part.target.part]);
    if (!_picture) return;
    // All parts together are the song.
    std::vector<float> song = parts.front();
    for (auto part = parts.begin() + 1; part != parts.end(); ++part) {
        for (std::size_t i = 0; i < song.size(); ++i) song[i] += (*part)[i];
    }
    _picture->add(0, song);
    for (std::size_t i = 0; i < _parts.size(); ++i) _picture->add(i + 1, parts[_parts[i].target.part]);
}

void Results::write(Part& part, std::vector<float> samples) {
    part.peak = std::max(part.peak, loudest(samples));
    if (part.waiting) return part.waiting->append(samples);
    if (_options.clip == ClipPolicy::none && part.peak > 1 && !_options.format->hasHeadroom()) {
        throw Failure(ExitCode::writeFailed, part.target.file.string() + ": is " + decibels(part.peak) +
                                                 " too loud for " + _options.format->name +
                                                 "; choose --clip clamp, --clip scale-all or --format wav");
    }
    if (_options.clip == ClipPolicy::clamp) {
        for (float& sample : samples) {
            if (std::abs(sample) <= 1) continue;
            sample = std::copysign(1.0F, sample);
            ++part.clipped;
        }
    }
    part.writer->write(samples);
}

float Results::applyGain() {
    constexpr std::size_t block = 1 << 16;
    if (_options.clip != ClipPolicy::scaleAll) return 1;
    float peak = 1;
    for (const Part& part : _parts) peak = std::max(peak, part.peak);
    for (Part& part : _parts) {
        part.waiting->rewind();
        for (std::vector<float> samples = part.waiting->read(block); !samples.empty();
             samples = part.waiting->read(block)) {
            for (float& sample : samples) sample /= peak;
            part.writer->write(samples);
        }
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
        report.picture = _targets.picture;
    }
    HiddenFile::publish(files);
    for (const Part& part : _parts) {
        report.parts.push_back({part.target.name, part.target.file, part.peak, part.clipped});
        const std::string name = part.target.file.empty() ? "standard output" : part.target.file.string();
        if (part.clipped > 0) {
            report.warnings.push_back(name + ": " + std::to_string(part.clipped) + " samples, the loudest " +
                                      decibels(part.peak) +
                                      " above full scale, were clipped; --clip scale-all keeps "
                                      "them");
        }
        if (part.writer->rate() != report.rate)
            report.warnings.push_back(name + ": has " + std::to_string(part.writer->rate()) + " Hz, because " +
                                      _options.format->name + " cannot have the song's " + std::to_string(report.rate) +
                                      " Hz");
    }
}

}  // namespace tavrin::tool
