/// @file
/// From song samples to stems and rest.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tavrin/separator.h"

namespace tavrin::tool {

/// Stretches of sound of one length, in interleaved stereo samples: a vector per part of the song.
using Parts = std::vector<std::vector<float>>;

/// What is done to a song: models that separate the same signal, and what comes after them.
struct Stage {
    std::vector<Model> models;       ///< stems of one name are averaged
    std::vector<std::string> stems;  ///< wanted of them, in this order; each is a stem of at least one model
    double latency = 0.0;            ///< of SeparatorConfig
    std::size_t context = 0;         ///< of SeparatorConfig
};

/// The stems that the models know, each name once, in the models' order.
std::vector<std::string> stemsOf(const std::vector<Model>& models);

/// Separates one song in its own samples: whatever its rate, every part is exactly as long as the song, and at every
/// sample the rest is the song minus all stems. Each stage separates what the stages before it left over. The song
/// waits in memory only until its stems are known, about six seconds a stage.
class Separation {
public:
    /// @param songRate samples per second. @throws as Separator's constructor.
    Separation(const std::vector<Stage>& stages, int songRate);
    ~Separation();

    /// Takes any number of samples and returns the parts that have become final, possibly none, at the song's end all:
    /// the stems of all stages in their order, and last the rest. @throws std::runtime_error when a model run fails.
    Parts process(std::vector<float> song, bool isEnd = false);

private:
    class Step;

    std::vector<std::unique_ptr<Step>> _steps;
    Parts _waiting;  // stems with which later stages have not caught up
};

}  // namespace tavrin::tool
