#include "audio/data_chunk.h"

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

}  // namespace tavrin::tool
