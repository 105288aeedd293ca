#include "api/sample_layout.h"

#include <algorithm>
#include <stdexcept>
#include <string>

StereoSource stereoSource(const std::vector<float>& samples, bool interleaved) {
    const size_t n = samples.size() / 2;
    if (samples.size() % 2 != 0)
        throw std::invalid_argument((interleaved ? "interleaved" : "planar") + std::string(" input of ") +
                                    std::to_string(samples.size()) +
                                    " samples cannot be split into two channels of equal length");
    const float* data = samples.data();
    return interleaved ? StereoSource{data, data + (n > 0 ? 1 : 0), 2, n} : StereoSource{data, data + n, 1, n};
}

void writeStereo(const float* left, const float* right, size_t n, bool interleaved, float* out) {
    if (!interleaved) {
        std::copy_n(right, n, std::copy_n(left, n, out));
        return;
    }
    for (size_t i = 0; i < n; ++i) {
        out[2 * i] = left[i];
        out[2 * i + 1] = right[i];
    }
}

void StereoRows::append(const xt::xarray<float>& block) {
    const size_t columns = block.shape(1);
    for (size_t c = 0; c < _rows.size(); ++c)
        _rows[c].insert(_rows[c].end(), block.data() + c * columns, block.data() + (c + 1) * columns);
}

void StereoRows::extend(size_t n) {
    for (std::vector<float>& row : _rows) row.resize(n, 0.0f);
}

std::vector<float> StereoRows::flatten(bool interleaved) const {
    std::vector<float> out(2 * samples());
    writeStereo(_rows[0].data(), _rows[1].data(), samples(), interleaved, out.data());
    return out;
}
