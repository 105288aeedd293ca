#include "song_run.h"

#include <chrono>
#include <exception>

#include "interrupt.h"
#include "results.h"
#include "separation.h"
#include "song_reader.h"
#include "targets.h"

namespace tavrin::tool {

namespace {

// What the user should know about a song that was read without an error.
void warnAbout(const SongReader& reader, std::int64_t framesRead, SongReport& report) {
    if (reader.notFinite() > 0) {
        report.warnings.push_back(report.song.label() + ": " + std::to_string(reader.notFinite()) +
                                  " samples are not finite numbers and count as 0; check the song");
    }
    // Compressed files may be a little wrong about their length.
    if (reader.frames() != unknownLength && framesRead < reader.frames() - reader.rate()) {
        report.warnings.push_back(report.song.label() + ": ends at " + clockTime(reader.seconds(framesRead)) +
                                  ", but its file says " + clockTime(reader.seconds(reader.frames())) +
                                  "; check that it is complete");
    }
}

// The unfinished files are removed before anybody hears of a failure.
void separate(const Options& options, const Model& model, const Targets& targets, Progress::Song& bar,
              SongReport& report) {
    const auto start = std::chrono::steady_clock::now();
    SongReader reader(options, report.song);
    Separation separation(model.openStream(), reader.rate());
    Results results(options, report.song, targets, reader.rate(), reader.frames(), reader.tags());
    for (std::vector<float> block = reader.read(); !block.empty(); block = reader.read()) {
        throwIfInterrupted();
        results.write(separation.process(block));
        bar.show(separation.framesDone(), reader.frames());
    }
    results.write(separation.finish());
    throwIfInterrupted();
    results.publish(report);
    report.status = SongReport::Status::done;
    report.rate = reader.rate();
    report.provider = model.provider();
    report.seconds = reader.seconds(separation.framesDone());
    report.elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    warnAbout(reader, separation.framesDone(), report);
}

}  // namespace

SongReport separateSong(const Options& options, const Model& model, const Song& song, Progress& progress) {
    SongReport report;
    report.song = song;
    Progress::Song bar(progress);
    try {
        const Targets targets = targetsOf(options, song);
        if (!options.overwrite && targets.areNewerThan(song.file)) {
            report.status = SongReport::Status::skipped;
            for (const Target& target : targets.parts) report.parts.push_back({target.name, target.file});
            report.picture = targets.picture;
            return report;
        }
        separate(options, model, targets, bar, report);
    } catch (const Failure& failure) {
        if (failure.code() == ExitCode::interrupted || failure.code() == ExitCode::done) throw;
        report.code = failure.code();
        report.message = failure.what();
    } catch (const std::exception& error) {
        // All other exceptions come from the library: a run of the model failed.
        report.code = ExitCode::modelUnusable;
        report.message =
            song.label() + ": " + options.model.string() + ": " + error.what() + "; choose another model with --model";
    }
    return report;
}

}  // namespace tavrin::tool
