/// @file
/// tavrin-separate: a song in, its stems and the rest out.
#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "failure.h"
#include "interrupt.h"
#include "messages.h"
#include "options.h"
#include "progress.h"
#include "results.h"
#include "separation.h"
#include "song_reader.h"
#include "stem_stream.h"

namespace tavrin::tool {

namespace {

// What the user should know about a song that was read without an error.
void warnAbout(const SongReader& song, std::int64_t framesRead) {
    if (song.notFinite() > 0) {
        say("warning: " + std::to_string(song.notFinite()) +
            " samples of the song are not finite numbers and count as 0");
    }
    // Compressed files may be a little wrong about their length.
    if (song.frames() != SongReader::unknownLength && framesRead < song.frames() - song.rate()) {
        say("warning: the song ends at " + clockTime(song.seconds(framesRead)) + ", but its file says " +
            clockTime(song.seconds(song.frames())) + "; check that it is complete");
    }
}

void summarise(double songSeconds, double seconds, const std::string& files) {
    char speed[40];
    std::snprintf(speed, sizeof speed, "%.1f", seconds > 0 ? songSeconds / seconds : 0.0);
    say(clockTime(songSeconds) + " of music in " + clockTime(seconds) + " (" + speed + " times real time): " + files);
}

// The progress bar is gone and the unfinished files are removed before anybody hears of a failure.
void separate(const Options& options) {
    SongReader song(options.song);
    Separation separation(openStemStream(options), song.rate());
    Results results(options, song.rate(), song.frames());

    double seconds = 0;
    {
        Progress progress(song.frames(), options.verbosity != Verbosity::quiet);
        for (std::vector<float> block = song.read(); !block.empty(); block = song.read()) {
            throwIfInterrupted();
            results.write(separation.process(block));
            progress.show(separation.framesDone());
        }
        results.write(separation.finish());
        seconds = progress.seconds();
    }
    throwIfInterrupted();
    const std::string files = results.publish();
    if (options.verbosity == Verbosity::quiet) return;
    warnAbout(song, separation.framesDone());
    summarise(song.seconds(separation.framesDone()), seconds, files);
}

ExitCode run(int argc, const char* const* argv) {
    noteInterrupts();
    Options options;
    try {
        options = parseOptions(argc, argv);
        separate(options);
        return ExitCode::done;
    } catch (const Failure& failure) {
        say(failure.what());
        return failure.code();
    } catch (const std::exception& error) {
        // All other exceptions come from the library: a run of the model failed.
        say(options.model.string() + ": " + error.what() + "; choose another model with --model");
        return ExitCode::modelUnusable;
    }
}

}  // namespace

}  // namespace tavrin::tool

int main(int argc, char** argv) { return static_cast<int>(tavrin::tool::run(argc, argv)); }
