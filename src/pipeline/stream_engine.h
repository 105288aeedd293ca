/// @file
/// The streaming engine: from a stereo stream to the streams of its stems.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "inference/spectral_model.h"
#include "pipeline/model_window.h"
#include "pipeline/overlap_add.h"
#include "pipeline/sample_ring.h"

namespace tavrin {

/// What an engine is built for.
struct StreamPlan {
    /// One of the model's stems that is given out.
    struct Stem {
        std::string name;
        size_t modelOutput;
    };

    size_t hop;
    size_t frames;              ///< per model call
    size_t bins;                ///< that the model sees, at most half a frame
    size_t context;             ///< frames that the model sees at least on both sides of a frame that is used
    size_t step;                ///< new frames per model call, from 1 to frames - 2·context
    std::vector<float> window;  ///< of analysis and synthesis, one coefficient for each sample of a frame
    size_t modelOutputs;
    std::vector<Stem> stems;
    bool rest;            ///< the input minus all stems is the last output
    unsigned sampleRate;  ///< Hz, for messages

    size_t frameLength() const { return window.size(); }
    size_t outputs() const { return stems.size() + (rest ? 1 : 0); }

    /// The most samples per channel that are ever held back.
    size_t latency() const { return frameLength() - 1 + (step + context - 1) * hop; }
};

/// Frames a stream, runs the model on a window of the newest frames, and overlap-adds its output, hop by hop.
///
/// With N the frame length and H the hop, frame f covers the samples [f·H - N, f·H). The stream is mirrored at both
/// ends: N samples before its first one, and N and what its length lacks to a whole number of hops behind its last one;
/// a stream shorter than that is continued with zeros. Before the first frame and after the last one the model sees
/// frames of zeros. Whenever `step` new frames are there the model runs, and the frames that now have `context`
/// neighbours on both sides are used: what comes out of a frame does not depend on where the blocks fall, as long as
/// the model looks no further than that.
///
/// Rules: outputs have the room that outputFor() and pending() say; nothing is checked here.
class StreamEngine {
public:
    /// Stereo samples in the caller's memory: sample i at left[i · step] and right[i · step].
    struct Input {
        const float* left;
        const float* right;
        size_t step;
    };
    /// The place of an output, laid out like an Input; null pointers: nowhere.
    struct Output {
        float* left;
        float* right;
        size_t step;
    };

    StreamEngine(ISpectralModel& model, StreamPlan plan);

    /// Samples that process() finishes, for n more.
    size_t outputFor(size_t n) const { return finishedAt(_received + n) - _emitted; }

    /// Samples that finish() gives out.
    size_t pending() const { return _received - _emitted; }

    /// Takes n samples and writes those that are finished to each output.
    /// @throws what the model throws; std::runtime_error, naming stem and time, when its output is not finite. The
    ///         engine is of no use then until reset().
    void process(const Input& input, size_t n, const Output* outputs);

    /// Ends the stream. @throws as process().
    void finish(const Output* outputs);

    /// Switches stems on and off, from the next model call on; one flag per stem of the plan.
    void select(const std::vector<bool>& wanted) { _wanted = wanted; }

    /// Starts a new stream, with the present selection.
    void reset();

private:
    size_t finishedAt(size_t received) const;
    void takeFrames(const Output* outputs);
    void mirrorStart();
    void mirrorEnd(const Output* outputs);
    void addFrames(size_t n, const Output* outputs);
    void runModel();
    void emit(const Output* outputs);
    void synthesise(size_t slot, size_t n);
    void requireFinite(size_t stem, size_t frame);
    void subtractStems(size_t position, size_t frame);
    void write(const Output* outputs, size_t frame, size_t skipped, size_t count);
    float* hopOf(size_t output, size_t channel, size_t frame);

    ISpectralModel& _model;
    StreamPlan _plan;
    SampleRing _ring;  // positions are samples of the mirrored stream: sample k of the host's is N + k
    ModelWindow _window;
    OverlapAdd _synthesis;
    std::vector<std::vector<float>> _spectra;  // the model's output for each stem, [4, frames, bins]
    std::vector<float*> _modelOutputs;         // for each output of the model, where it is to go; null: not wanted
    std::vector<float> _hops;                  // finished samples, [outputs, 2, frames at once, hop]

    std::vector<bool> _wanted;      // by the host, from the next model call on
    std::vector<size_t> _fadesFor;  // frames for which a stem that is off still sounds
    size_t _received = 0;           // samples per channel from the host
    size_t _emitted = 0;            // and back to it
    size_t _target = 0;             // samples already written by this call
    size_t _frames = 0;             // that the window has taken
    size_t _framesUntilRun = 0;     // that the next model call lacks
    bool _isStarted = false;        // the start is mirrored
};

}  // namespace tavrin
