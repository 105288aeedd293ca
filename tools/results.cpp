#include "results.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <mutex>
#include <system_error>
#include <utility>

#include "failure.h"

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

// Songs that are separated side by side share folders: none may vanish between its making and its use.
std::recursive_mutex folderTurn;

void requireFree(const fs::path& target, const Song& song) {
    std::error_code none;
    if (fs::equivalent(target, song.file, none)) {
        throw Failure(ExitCode::wrongUsage,
                      target.string() + ": would replace the song itself; choose another folder with -o");
    }
    if (fs::is_directory(target, none)) throw writeFailure(target, "there is a folder of that name");
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

}  // namespace

OutputFolders::~OutputFolders() {
    const std::lock_guard lock(folderTurn);
    // A folder that is in use by now is not empty, so it stays.
    std::error_code none;
    for (auto made = _made.rbegin(); made != _made.rend(); ++made) fs::remove(*made, none);
}

void OutputFolders::make(const fs::path& folder) {
    std::error_code error;
    fs::path path;
    for (const fs::path& step : folder) {
        path /= step;
        if (fs::create_directory(path, error)) _made.push_back(path);
    }
    if (error) throw writeFailure(folder, error.message());
}

Results::Results(const Options& options, const Song& song, const Targets& targets, int rate, std::int64_t frames,
                 const Tags& tags)
    : _options(options) {
    const std::lock_guard lock(folderTurn);
    for (const Target& target : targets.parts) openPart(target, song, rate, frames, tags);
    if (targets.picture.empty()) return;
    _folders.make(targets.picture.parent_path());
    requireFree(targets.picture, song);
    _pictureFile = std::make_unique<HiddenFile>(targets.picture);
    std::vector<std::string> names = {song.name()};
    for (const Target& target : targets.parts) names.push_back(target.name);
    _picture.emplace(names, rate, options.start);
}

void Results::openPart(const Target& target, const Song& song, int rate, std::int64_t frames, const Tags& tags) {
    Part part;
    part.target = target;
    if (_options.toStandardOutput()) {
        part.sink = openPartPipe(_options.format, rate);
    } else {
        _folders.make(target.file.parent_path());
        requireFree(target.file, song);
        const bool awaitsGain = _options.clip == ClipPolicy::scaleAll;
        part.sink = openPartFile(target.file, _options.format, rate, frames, tags, awaitsGain);
    }
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
    if (_options.clip == ClipPolicy::none && part.peak > 1 && !_options.format.hasHeadroom()) {
        throw Failure(ExitCode::writeFailed, part.target.file.string() + ": is " + decibels(part.peak) +
                                                 " too loud for " + _options.format.name +
                                                 "; choose --clip clamp, --clip scale-all or --format wav-float");
    }
    if (_options.clip == ClipPolicy::clamp) {
        for (float& sample : samples) {
            if (std::abs(sample) <= 1) continue;
            sample = std::copysign(1.0F, sample);
            ++part.clipped;
        }
    }
    part.sink->write(samples);
}

float Results::gain() const {
    float peak = 1;
    for (const Part& part : _parts) peak = std::max(peak, part.peak);
    return _options.clip == ClipPolicy::scaleAll ? 1 / peak : 1;
}

void Results::publish(SongReport& report) {
    report.gain = gain();
    for (Part& part : _parts) part.sink->complete(report.gain);
    if (_picture) _picture->writeTo(*_pictureFile);
    for (Part& part : _parts) {
        part.sink->publish();
        report.parts.push_back({part.target.name, part.target.file, part.peak, part.clipped});
        if (part.clipped > 0) {
            report.warnings.push_back(part.target.file.string() + ": " + std::to_string(part.clipped) +
                                      " samples up to " + decibels(part.peak) +
                                      " too loud were clipped; --clip scale-all keeps them");
        }
    }
    if (_picture) {
        _pictureFile->publish();
        report.picture = _pictureFile->target();
    }
}

}  // namespace tavrin::tool
