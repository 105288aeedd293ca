#include "png_file.h"

#include <png.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "failure.h"

namespace tavrin::tool {

namespace {

constexpr std::size_t paletteSize = 256;

// Text has many greys at its edges.
std::uint32_t fewerGreys(std::uint32_t pixel) {
    constexpr std::uint32_t step = 17;
    const std::uint32_t level = pixel & 0xFF;
    if (pixel != level * 0x10101) return pixel;
    return level / step * step * 0x10101;
}

// The colours of a picture in the order in which they occur, and the picture in their numbers.
struct Indexed {
    std::vector<png_byte> palette;  // red, green, blue, red, ...
    std::vector<png_byte> pixels;
};

Indexed indexColours(cairo_surface_t* picture) {
    const int width = cairo_image_surface_get_width(picture);
    const int height = cairo_image_surface_get_height(picture);
    const int stride = cairo_image_surface_get_stride(picture);
    const unsigned char* const bytes = cairo_image_surface_get_data(picture);
    Indexed indexed;
    std::map<std::uint32_t, png_byte> known;
    for (int y = 0; y < height; ++y) {
        const unsigned char* const row = bytes + std::ptrdiff_t{y} * stride;
        for (int x = 0; x < width; ++x) {
            std::uint32_t pixel = 0;
            std::memcpy(&pixel, row + 4 * std::ptrdiff_t{x}, sizeof pixel);
            pixel = fewerGreys(pixel & 0xFFFFFF);
            const auto number = static_cast<png_byte>(std::min(known.size(), paletteSize - 1));
            const auto [colour, isNew] = known.emplace(pixel, number);
            if (isNew) {
                for (const int shift : {16, 8, 0}) indexed.palette.push_back(static_cast<png_byte>(pixel >> shift));
            }
            indexed.pixels.push_back(colour->second);
        }
    }
    return indexed;
}

}  // namespace

void writePng(cairo_surface_t* picture, HiddenFile& file) {
    cairo_surface_flush(picture);
    const Indexed indexed = indexColours(picture);
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(cairo_image_surface_get_width(picture));
    image.height = static_cast<png_uint_32>(cairo_image_surface_get_height(picture));
    image.format = PNG_FORMAT_RGB_COLORMAP;
    image.colormap_entries = static_cast<png_uint_32>(std::min(indexed.palette.size() / 3, paletteSize));
    png_alloc_size_t size = 0;
    const auto write = [&](void* to) {
        return png_image_write_to_memory(&image, to, &size, 0, indexed.pixels.data(), 0, indexed.palette.data()) != 0;
    };
    std::vector<png_byte> bytes;
    if (write(nullptr)) {
        bytes.resize(size);
        if (write(bytes.data())) {
            const auto count = static_cast<std::int64_t>(size);
            if (file.write(bytes.data(), count) == count) return;
            throw writeFailure(file.target(), std::strerror(file.error()));
        }
    }
    throw writeFailure(file.target(), image.message);
}

}  // namespace tavrin::tool
