#include "separate/scratch_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "common/failure.h"

namespace tavrin::tool {

namespace {

// Not every file system knows files that never had a name.
int openUnnamed(const std::filesystem::path& folder) {
    std::string name = (folder / ".tavrin-XXXXXX").string();
    const int descriptor = mkostemp(name.data(), 0);
    if (descriptor >= 0) unlink(name.c_str());
    return descriptor;
}

}  // namespace

ScratchFile::ScratchFile(std::filesystem::path neighbour)
    : _neighbour(std::move(neighbour)), _descriptor(openUnnamed(_neighbour.parent_path())) {
    if (_descriptor < 0) throw writeFailure(_neighbour, std::strerror(errno));
}

ScratchFile::~ScratchFile() { close(_descriptor); }

void ScratchFile::append(const std::vector<float>& samples) {
    const char* bytes = reinterpret_cast<const char*>(samples.data());
    for (std::size_t left = samples.size() * sizeof(float); left > 0;) {
        const ssize_t count = ::write(_descriptor, bytes, left);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw writeFailure(_neighbour, std::strerror(errno));
        bytes += count;
        left -= static_cast<std::size_t>(count);
    }
}

std::vector<float> ScratchFile::read(std::size_t count) {
    std::vector<float> samples(count);
    char* bytes = reinterpret_cast<char*>(samples.data());
    std::size_t have = 0;
    while (have < count * sizeof(float)) {
        const ssize_t now = pread(_descriptor, bytes + have, count * sizeof(float) - have, _readTo);
        if (now < 0 && errno == EINTR) continue;
        if (now < 0) throw writeFailure(_neighbour, std::strerror(errno));
        if (now == 0) break;
        have += static_cast<std::size_t>(now);
        _readTo += now;
    }
    samples.resize(have / sizeof(float));
    return samples;
}

}  // namespace tavrin::tool
