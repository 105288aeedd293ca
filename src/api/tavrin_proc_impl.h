/// @file
/// What a tavrin::TavrinProc hides.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "inference/inference.h"
#include "pipeline/chunk_processor.h"
#include "support/tensor.h"
#include "tavrin/tavrin_proc.h"

namespace tavrin {

/// Converts between a host's flat sample vectors and the pipeline's rows, with the fixed geometry of the models.
class TavrinProcImpl {
public:
    explicit TavrinProcImpl(TavrinProcConfig config);
    std::vector<float> process(const std::vector<float>& samples, bool eof);
    size_t maxInputSize();

private:
    xt::xarray<float> deinterleave(const float* data, size_t frames);
    xt::xarray<float> interleave(const float* data, size_t frames);

    std::unique_ptr<ChunkProcessor> _chunkProcessor;
    bool _interleaved = false;
    std::int64_t _channels = 2;
    std::shared_ptr<IInference> _inference;
};

}  // namespace tavrin
