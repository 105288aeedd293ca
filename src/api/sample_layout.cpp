#include "api/sample_layout.h"

#include <stdexcept>
#include <string>

AudioView stereoView(const std::vector<float>& samples, bool interleaved) {
    const size_t n = samples.size() / 2;
    if (samples.size() % 2 != 0)
        throw std::invalid_argument((interleaved ? "interleaved" : "planar") + std::string(" input of ") +
                                    std::to_string(samples.size()) +
                                    " samples cannot be split into two channels of equal length");
    return interleaved ? AudioView{samples.data(), 2, n, 1, 2} : AudioView{samples.data(), 2, n, n};
}

AudioTarget stereoTarget(std::vector<float>& samples, bool interleaved) {
    const size_t n = samples.size() / 2;
    return interleaved ? AudioTarget{samples.data(), 2, n, 1, 2} : AudioTarget{samples.data(), 2, n, n};
}
