/// @file
/// What the user asked for on the command line.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "audio/audio_format.h"
#include "audio/audio_reader.h"

namespace tavrin::tool {

/// Stands for standard input among the songs, and for standard output as the folder.
inline constexpr const char* pipeSign = "-";

/// What is separated, with what, and how.
struct ModelChoice {
    std::vector<std::string> models = {"centre"};  ///< names or files; side by side on the song
    std::vector<std::string> then;                 ///< one after another on what is left
    std::string keyFile;                           ///< of a key that descrambles the models; empty: they are plain
    std::vector<std::string> stems;                ///< empty: all that the models know
    std::string provider;                          ///< execution provider to try first; empty: the runtime's order
    std::size_t threads = 0;                       ///< of a model call; 0: the runtime's choice
    double latency = 0;                            ///< seconds; 0: the cheapest
    std::size_t context = 0;                       ///< frames; 0: the model's own
};

/// What becomes of the parts.
struct OutputOptions {
    std::string folder;                        ///< empty: the current one; pipeSign: standard output
    std::string name = "{song}/{stem}.{ext}";  ///< of a result in that folder
    std::string only{};                        ///< "stem" or "rest"; empty: both
    const AudioFormat* format = nullptr;
    std::optional<double> quality{};
    /// What becomes of samples beyond full scale. "none": they stay, and a format that cannot hold them is refused;
    /// "clamp": they are set to full scale; "scale-all": one factor turns all parts down until the loudest fits.
    std::string clip{};
    bool spectrogram = false;
    bool linear = false;  ///< frequencies of the spectrogram
    bool noRecord = false;

    bool toStandardOutput() const { return folder == pipeSign; }
};

struct Options {
    std::vector<std::string> songs;  ///< files, folders or pipeSign
    AudioInput input;                ///< of each song, all but its place
    ModelChoice model;
    OutputOptions output;
    bool overwrite = false;
    int jobs = 1;  ///< songs at a time
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    bool listStems = false;
    bool listProviders = false;
};

/// Seconds of "95", "1:35" or "0:01:35.5". @param option for the message. @throws as parseOptions().
double parseTime(const std::string& option, const std::string& text);

/// @return what was asked for; ends the process with code 0 after --help and --version.
/// @throws Failure with ExitCode::wrongUsage.
Options parseOptions(int argc, const char* const* argv);

}  // namespace tavrin::tool
