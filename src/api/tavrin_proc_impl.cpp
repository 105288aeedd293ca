#include "api/tavrin_proc_impl.h"

#include <algorithm>
#include <utility>

#include "api/engine.h"
#include "api/sample_layout.h"
#include "support/interleaving.h"

namespace tavrin {

TavrinProcImpl::TavrinProcImpl(TavrinProcConfig config) {
    _inference = findModel(config);
    _interleaved = config.interleaved;
    _channels = config.channels;
    _chunkProcessor = makeEngine(_inference, config);
}

std::vector<float> TavrinProcImpl::process(const std::vector<float>& samples, bool eof) {
    xt::xarray<float> block;
    if (_interleaved) {
        block = deinterleave(samples.data(), samples.size() / static_cast<size_t>(_channels));
    } else {
        const size_t frames = stereoView(samples, false).samples;
        block = xt::xarray<float>::from_shape({2, frames});
        std::copy(samples.begin(), samples.end(), block.begin());
    }
    xt::xarray<float> result = _chunkProcessor->process(std::move(block), eof);
    if (result.dimension() != 2) return {};
    if (_interleaved) result = interleave(result.data(), result.shape(1));
    return {result.begin(), result.end()};
}

size_t TavrinProcImpl::maxInputSize() { return _chunkProcessor->maxInputSize(); }

xt::xarray<float> TavrinProcImpl::deinterleave(const float* data, size_t frames) {
    auto rows = xt::xarray<float>::from_shape({2, frames});
    ::deinterleave(data, frames, rows.data(), rows.data() + frames);
    return rows;
}

xt::xarray<float> TavrinProcImpl::interleave(const float* data, size_t frames) {
    auto samples = xt::xarray<float>::from_shape({2 * frames});
    ::interleave(data, data + frames, frames, samples.data());
    return samples;
}

}  // namespace tavrin
