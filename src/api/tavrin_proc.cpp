#include "tavrin/tavrin_proc.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

#include "api/model_registry.h"
#include "dsp/row_loops.h"
#include "pipeline/chunk_processor.h"
#include "support/log.h"
#include "support/tensor.h"

namespace tavrin {

namespace {

// The geometry that the models of the registry are made for.
constexpr size_t kFrameLength = 4096;
constexpr size_t kHop = 1024;
constexpr size_t kFrames = 256;

}  // namespace

/// Converts between a host's flat sample vectors and the pipeline's rows.
class TavrinProcImpl {
public:
    TavrinProcImpl(TavrinProcConfig config);
    std::vector<float> process(const std::vector<float>& samples, bool eof);
    size_t maxInputSize() { return _chunkProcessor->maxInputSize(); }

private:
    xt::xarray<float> deinterleave(const float* data, size_t frames);
    xt::xarray<float> interleave(const float* data, size_t frames);

    std::unique_ptr<ChunkProcessor> _chunkProcessor;
    bool _interleaved = false;
    std::int64_t _channels = 2;
    std::shared_ptr<IInference> _inference;
};

TavrinProcImpl::TavrinProcImpl(TavrinProcConfig config) {
    const auto entry = inferenceInstances.find(config.modelTag);
    if (entry == inferenceInstances.end()) {
        TAVRIN_LOG(plog::error, "tavrin::TavrinProcImpl::TavrinProcImpl(TavrinProcConfig)")
            << "Model is not initialized! Model tag: " << config.modelTag;
        throw std::runtime_error("Specified model is not initialized");
    }
    if (config.channels != 2)
        throw std::runtime_error("Only stereo can be separated, not " + std::to_string(config.channels) + " channels");
    _inference = entry->second;
    _interleaved = config.interleaved;
    _channels = config.channels;
    _chunkProcessor = std::make_unique<ChunkProcessor>(_inference, static_cast<size_t>(_channels), kFrameLength, kHop,
                                                       config.reserved, kFrames, config.subtractFromInput);
}

std::vector<float> TavrinProcImpl::process(const std::vector<float>& samples, bool eof) {
    if (samples.size() % 2 != 0)
        throw std::invalid_argument((_interleaved ? "interleaved" : "planar") + std::string(" input of ") +
                                    std::to_string(samples.size()) +
                                    " samples cannot be split into two channels of equal length");
    xt::xarray<float> block;
    if (_interleaved) {
        block = deinterleave(samples.data(), samples.size() / static_cast<size_t>(_channels));
    } else {
        block = xt::xarray<float>::from_shape({2, samples.size() / 2});
        std::copy(samples.begin(), samples.end(), block.begin());
    }
    xt::xarray<float> result = _chunkProcessor->process(std::move(block), eof);
    if (result.dimension() != 2) return {};
    if (_interleaved) result = interleave(result.data(), result.shape(1));
    return {result.begin(), result.end()};
}

xt::xarray<float> TavrinProcImpl::deinterleave(const float* data, size_t frames) {
    auto rows = xt::xarray<float>::from_shape({2, frames});
    tavrin::deinterleave(data, frames, rows.data(), rows.data() + frames);
    return rows;
}

xt::xarray<float> TavrinProcImpl::interleave(const float* data, size_t frames) {
    auto samples = xt::xarray<float>::from_shape({2 * frames});
    tavrin::interleave(data, data + frames, frames, samples.data());
    return samples;
}

TavrinProc::TavrinProc(TavrinProcConfig config) : _impl(std::make_unique<TavrinProcImpl>(std::move(config))) {}

TavrinProc::~TavrinProc() = default;

std::vector<float> TavrinProc::process(const std::vector<float>& samples, bool eof) {
    return _impl->process(samples, eof);
}

std::size_t TavrinProc::maxInputSize() const { return _impl->maxInputSize(); }

}  // namespace tavrin
