/// @file
/// One stream of a multi-stem separator, whatever its model is.
#pragma once

#include <memory>
#include <vector>

#include "api/host_stream.h"
#include "inference/inference.h"
#include "pipeline/multi_stem_processor.h"
#include "tavrin/multi_stem_separator.h"

namespace tavrin {

/// From a host's vector to its vectors.
class MultiStemStream {
public:
    /// @param model has kStemCount outputs. @param wantRest also give the input minus all stems.
    MultiStemStream(std::shared_ptr<IInference> model, bool wantRest, bool interleaved);

    /// What `samples`, and the end of the stream if this is the `last` call, make final.
    /// @param wanted which stems are on, one flag each. @throws as HostStream's functions.
    SeparatedStems process(const std::vector<float>& samples, bool last, const std::vector<bool>& wanted);

    /// Starts a new stream.
    void reset();

private:
    std::shared_ptr<IInference> _model;
    bool _wantRest;
    bool _interleaved;
    std::unique_ptr<MultiStemProcessor> _engine;
    HostStream _stream;
};

}  // namespace tavrin
