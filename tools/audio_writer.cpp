#include "audio_writer.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "failure.h"

namespace tavrin::tool {

namespace {

SF_INFO describe(const OutputFormat& format, int rate, std::int64_t frames) {
    // At most 8 bytes a frame: half of what a WAV file can hold, because announced lengths are not always right.
    constexpr std::int64_t surelyFits = (std::int64_t{1} << 31) / 8;
    const bool isWav = format.container() == SF_FORMAT_WAV;
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 2;
    info.format = isWav && frames >= surelyFits ? SF_FORMAT_RF64 | format.encoding() : format.code;
    return info;
}

// libsndfile does not report every failed write, least of all those while it closes a file; the HiddenFile does.
SF_VIRTUAL_IO writeThroughHiddenFile() {
    SF_VIRTUAL_IO access{};
    access.get_filelen = [](void* disk) -> sf_count_t { return static_cast<HiddenFile*>(disk)->size(); };
    access.seek = [](sf_count_t offset, int whence, void* disk) -> sf_count_t {
        return static_cast<HiddenFile*>(disk)->seek(offset, whence);
    };
    access.tell = [](void* disk) -> sf_count_t { return static_cast<HiddenFile*>(disk)->seek(0, SEEK_CUR); };
    access.write = [](const void* bytes, sf_count_t count, void* disk) -> sf_count_t {
        return static_cast<HiddenFile*>(disk)->write(bytes, count);
    };
    return access;
}

}  // namespace

AudioWriter::AudioWriter(const std::filesystem::path& target, const OutputFormat& format, int rate, std::int64_t frames,
                         const Tags& tags)
    : _disk(target) {
    SF_INFO info = describe(format, rate, frames);
    SF_VIRTUAL_IO access = writeThroughHiddenFile();
    _file.reset(sf_open_virtual(&access, SFM_WRITE, &info, &_disk));
    check(_file != nullptr);
    sf_command(_file.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    sf_command(_file.get(), SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
    // The peak chunk holds the time of day: the same song would give different bytes in every run.
    sf_command(_file.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    // Of lossy formats: stems are worked on, so near the best.
    double quality = 0.8;
    sf_command(_file.get(), SFC_SET_VBR_ENCODING_QUALITY, &quality, sizeof quality);
    writeTags(_file.get(), tags);
}

void AudioWriter::write(const std::vector<float>& samples) {
    // In small blocks: the OGG encoder keeps a whole one on the stack.
    constexpr std::size_t largest = 8192;
    for (std::size_t at = 0; at < samples.size(); at += largest) {
        const auto count = static_cast<sf_count_t>(std::min(largest, samples.size() - at));
        check(sf_write_float(_file.get(), samples.data() + at, count) == count);
    }
}

void AudioWriter::complete() {
    _file.reset();
    check(true);
}

void AudioWriter::check(bool succeeded) const {
    if (_disk.error() != 0) throw writeFailure(target(), std::strerror(_disk.error()));
    if (!succeeded) throw writeFailure(target(), sf_strerror(_file.get()));
}

}  // namespace tavrin::tool
