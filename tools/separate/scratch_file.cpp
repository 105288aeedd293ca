#include "separate/scratch_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "common/failure.h"

namespace tavrin::tool {

ScratchFile::ScratchFile(std::filesystem::path neighbour) : _neighbour(std::move(neighbour)) {
    // Not every file system knows files that never had a name.
    std::string name = (_neighbour.parent_path() / ".tavrin-XXXXXX").string();
    const int descriptor = mkostemp(name.data(), 0);
    if (descriptor >= 0) unlink(name.c_str());
    _file.reset(descriptor < 0 ? nullptr : fdopen(descriptor, "w+"));
    if (!_file) throw writeFailure(_neighbour, std::strerror(errno));
}

void ScratchFile::append(const std::vector<float>& samples) {
    if (std::fwrite(samples.data(), sizeof(float), samples.size(), _file.get()) != samples.size())
        throw writeFailure(_neighbour, std::strerror(errno));
}

void ScratchFile::rewind() {
    if (std::fseek(_file.get(), 0, SEEK_SET) != 0) throw writeFailure(_neighbour, std::strerror(errno));
}

std::vector<float> ScratchFile::read(std::size_t count) {
    std::vector<float> samples(count);
    samples.resize(std::fread(samples.data(), sizeof(float), count, _file.get()));
    if (std::ferror(_file.get())) throw writeFailure(_neighbour, std::strerror(errno));
    return samples;
}

}  // namespace tavrin::tool
