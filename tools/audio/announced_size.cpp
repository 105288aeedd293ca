#include "audio/announced_size.h"

namespace tavrin::tool {

namespace {

// The kinds have the same chunks: a name, a size, the data; then the next one at an even place.
struct Layout {
    const char* magic;
    std::size_t first;     // offset of the first chunk
    std::size_t nameSize;  // bytes, of which the first four tell
    std::size_t sizeSize;
    bool isBigEndian;
    std::uint64_t counted;  // how much of its own head a chunk's size includes
    std::uint64_t align;
    std::uint64_t skipped;  // bytes of the data chunk before the samples
};
constexpr Layout layouts[] = {
    {"RIFF", 12, 4, 4, false, 0, 2, 0},   {"RF64", 12, 4, 4, false, 0, 2, 0}, {"BW64", 12, 4, 4, false, 0, 2, 0},
    {"riff", 40, 16, 8, false, 24, 8, 0}, {"caff", 8, 4, 8, true, 0, 1, 4},
};

std::uint64_t number(const std::string& bytes, std::size_t at, std::size_t size, bool isBigEndian) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
        value = value << 8 | static_cast<unsigned char>(bytes[at + (isBigEndian ? i : size - 1 - i)]);
    }
    return value;
}

// Programs that write into a pipe do not know the length: some leave 0, others the most that fits.
bool isOpen(std::uint64_t size) {
    return size == 0 || size >> 63 != 0 || (size >> 12) == 0xFFFFF || (size >> 12) == 0x7FFFF;
}

}  // namespace

std::optional<DataChunk> findDataChunk(const std::string& head) {
    for (const Layout& layout : layouts) {
        if (!head.starts_with(layout.magic)) continue;
        std::uint64_t longSize = 0;
        const std::size_t chunkHead = layout.nameSize + layout.sizeSize;
        for (std::uint64_t at = layout.first; at + chunkHead + 16 <= head.size();) {
            const std::string name = head.substr(at, 4);
            std::uint64_t size =
                number(head, at + layout.nameSize, layout.sizeSize, layout.isBigEndian) - layout.counted;
            at += chunkHead;
            if (name == "ds64") longSize = number(head, at + 8, 8, false);
            if (name == "data") {
                if (longSize > 0 && size == 0xFFFFFFFF) {
                    size = longSize;
                } else if (isOpen(size)) {
                    return std::nullopt;
                }
                DataChunk chunk{static_cast<std::int64_t>(size - layout.skipped),
                                static_cast<std::int64_t>(at + layout.skipped), 0};
                const std::uint64_t fileSize = number(head, 4, 4, false);
                if (head.starts_with("RIFF") && !isOpen(fileSize))
                    chunk.fileSize = static_cast<std::int64_t>(fileSize) + 8;
                return chunk;
            }
            if (size > head.size()) break;
            at += (size + layout.align - 1) / layout.align * layout.align;
        }
    }
    return std::nullopt;
}

std::size_t mpegFrameSize(std::span<const std::uint8_t> frame, int rate) {
    // Thousands of bits per second by the header's number, for layer III and II of MPEG-1 and both of MPEG-2.
    static constexpr std::size_t rates[3][16] = {{0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0},
                                                 {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0},
                                                 {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0}};
    if (frame.size() < 4 || frame[0] != 0xFF || frame[1] < 0xE0 || rate < 1) return 0;
    const bool isFirstVersion = (frame[1] & 8) != 0;
    const bool isThirdLayer = (frame[1] & 6) == 2;
    const std::size_t bitRate = 1000 * rates[isFirstVersion ? (isThirdLayer ? 0 : 1) : 2][frame[2] >> 4];
    const std::size_t factor = isThirdLayer && !isFirstVersion ? 72 : 144;  // an eighth of the samples of a frame
    const std::size_t padding = frame[2] >> 1 & 1;
    return bitRate == 0 ? 0 : factor * bitRate / static_cast<std::size_t>(rate) + padding;
}

}  // namespace tavrin::tool
