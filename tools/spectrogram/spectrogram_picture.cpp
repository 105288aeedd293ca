#include "spectrogram/spectrogram_picture.h"

#include <pango/pangocairo.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <utility>

#include "common/failure.h"
#include "common/messages.h"

namespace tavrin::tool {

namespace {

// Pixels.
constexpr int plotWidth = 900;
constexpr int plotHeight = static_cast<int>(Spectrogram::rows);
constexpr int leftMargin = 70;
constexpr int rightMargin = 90;
constexpr int titleHeight = 28;  // above every plot
constexpr int footHeight = 36;   // below the last one
constexpr int tick = 5;

// Decibels of full scale that the colours span.
constexpr float quietest = -100;
constexpr float loudest = 0;
constexpr float colourStep = 2.5F;

struct Colour {
    float red;
    float green;
    float blue;
};

// From black to white, brighter at every step, so that the picture also reads without colours.
constexpr std::array<Colour, 7> colours = {{{0, 0, 0.02F},
                                            {0.14F, 0.05F, 0.36F},
                                            {0.45F, 0.10F, 0.43F},
                                            {0.75F, 0.21F, 0.33F},
                                            {0.95F, 0.45F, 0.10F},
                                            {0.98F, 0.75F, 0.20F},
                                            {1, 1, 0.88F}}};

std::uint32_t pixelOf(float decibels) {
    const float stepped = std::round(decibels / colourStep) * colourStep;
    const float share = std::clamp((stepped - quietest) / (loudest - quietest), 0.0F, 1.0F);
    const float place = share * (colours.size() - 1);
    const auto below = std::min(static_cast<std::size_t>(place), colours.size() - 2);
    const float above = place - static_cast<float>(below);
    const auto mix = [&](float Colour::*channel) {
        const float value = colours[below].*channel * (1 - above) + colours[below + 1].*channel * above;
        return static_cast<std::uint32_t>(std::lround(255 * value));
    };
    return mix(&Colour::red) << 16 | mix(&Colour::green) << 8 | mix(&Colour::blue);
}

using Canvas = std::unique_ptr<cairo_t, void (*)(cairo_t*)>;
using Surface = std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)>;

Surface makeSurface(int width, int height) {
    return {cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height), cairo_surface_destroy};
}

// Fills a surface with the colour that `decibels(x, y)` has, y from the top.
template <typename Decibels>
Surface paint(int width, int height, Decibels decibels) {
    Surface surface = makeSurface(width, height);
    unsigned char* const bytes = cairo_image_surface_get_data(surface.get());
    const int stride = cairo_image_surface_get_stride(surface.get());
    for (int y = 0; bytes && y < height; ++y) {
        unsigned char* const row = bytes + std::ptrdiff_t{y} * stride;
        for (int x = 0; x < width; ++x) {
            const std::uint32_t pixel = pixelOf(decibels(x, y));
            std::memcpy(row + 4 * std::ptrdiff_t{x}, &pixel, sizeof pixel);
        }
    }
    cairo_surface_mark_dirty(surface.get());
    return surface;
}

void place(cairo_t* canvas, const Surface& picture, int x, int y) {
    cairo_set_source_surface(canvas, picture.get(), x, y);
    cairo_paint(canvas);
    cairo_set_source_rgb(canvas, 0, 0, 0);
}

enum class Side { left, middle, right };  // of the text that lies at the point

// The point is at the text's middle height. With a width the text is cut to it.
void print(cairo_t* canvas, const std::string& text, double x, double y, Side side, int width = -1) {
    const std::unique_ptr<PangoLayout, void (*)(gpointer)> layout(pango_cairo_create_layout(canvas), g_object_unref);
    const std::unique_ptr<PangoFontDescription, void (*)(PangoFontDescription*)> font(
        pango_font_description_from_string("sans 9"), pango_font_description_free);
    pango_layout_set_font_description(layout.get(), font.get());
    pango_layout_set_single_paragraph_mode(layout.get(), TRUE);
    pango_layout_set_text(layout.get(), printable(text).c_str(), -1);
    if (width >= 0) {
        pango_layout_set_width(layout.get(), width * PANGO_SCALE);
        pango_layout_set_ellipsize(layout.get(), PANGO_ELLIPSIZE_END);
    }
    int wide = 0;
    int high = 0;
    pango_layout_get_pixel_size(layout.get(), &wide, &high);
    const double shift = side == Side::left ? 0 : side == Side::middle ? wide / 2.0 : wide;
    cairo_move_to(canvas, x - shift, y - high / 2.0);
    pango_cairo_show_layout(canvas, layout.get());
}

void drawLine(cairo_t* canvas, double x, double y, double right, double down) {
    cairo_move_to(canvas, x, y);
    cairo_rel_line_to(canvas, right, down);
    cairo_stroke(canvas);
}

// The first of the steps that cuts `span` into at most `most` pieces, or the last one.
double stepFor(double span, int most, std::initializer_list<double> steps) {
    const auto fits = [&](double step) { return span / step <= most; };
    const auto* step = std::find_if(steps.begin(), steps.end() - 1, fits);
    return *step;
}

std::string number(double value) {
    char text[40];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

std::string hertz(double value) { return value < 1000 ? number(value) : number(value / 1000) + "k"; }

}  // namespace

SpectrogramPicture::SpectrogramPicture(std::vector<std::string> names, int rate, double start, bool linear)
    : _names(std::move(names)), _scale(rate, linear), _rate(rate), _start(start) {
    for (std::size_t i = 0; i < _names.size(); ++i) _streams.emplace_back(rate, _scale);
}

void SpectrogramPicture::add(std::size_t stream, const std::vector<float>& samples) { _streams[stream].add(samples); }

double SpectrogramPicture::secondsShown() const {
    return std::max(static_cast<double>(_streams.front().samples()), 1.0) / _rate;
}

int SpectrogramPicture::plotTop(std::size_t stream) const {
    return static_cast<int>(stream) * (titleHeight + plotHeight) + titleHeight;
}

int SpectrogramPicture::pictureHeight() const { return plotTop(_names.size()) - titleHeight + footHeight; }

double SpectrogramPicture::xOf(double second) const {
    return leftMargin + (second - _start) / secondsShown() * plotWidth;
}

void SpectrogramPicture::drawPlot(cairo_t* canvas, std::size_t stream) const {
    const Spectrogram& spectrogram = _streams[stream];
    const double columnsPerPixel =
        static_cast<double>(spectrogram.samples()) / plotWidth / static_cast<double>(spectrogram.samplesPerColumn());
    const auto columnAt = [&](int x) {
        return std::min(static_cast<std::size_t>(x * columnsPerPixel), spectrogram.columns() - 1);
    };
    const auto decibels = [&](int x, int y) {
        const auto row = static_cast<std::size_t>(plotHeight - 1 - y);
        float value = spectrogram.decibels(columnAt(x), row);
        for (std::size_t next = columnAt(x) + 1; next < columnAt(x + 1); ++next) {
            value = std::max(value, spectrogram.decibels(next, row));
        }
        return value;
    };
    place(canvas, paint(plotWidth, plotHeight, decibels), leftMargin, plotTop(stream));
    print(canvas, _names[stream], leftMargin, plotTop(stream) - 12, Side::left, plotWidth);
}

void SpectrogramPicture::drawFrequencies(cairo_t* canvas, std::size_t stream) const {
    const auto draw = [&](double frequency) {
        if (frequency < _scale.lowest || frequency > _scale.highest) return;
        const double y = plotTop(stream) + plotHeight * (1 - _scale.shareOf(frequency));
        drawLine(canvas, leftMargin, y, -tick, 0);
        print(canvas, hertz(frequency), leftMargin - tick - 3, y, Side::right);
    };
    const double step = stepFor(_scale.highest, 6, {100, 200, 500, 1000, 2000, 5000, 10000, 20000, 50000, 100000});
    for (int i = 0; _scale.isLinear && i * step <= _scale.highest; ++i) draw(i * step);
    for (double decade = 10; !_scale.isLinear && decade < _scale.highest; decade *= 10) {
        for (const double factor : {1, 2, 5}) draw(factor * decade);
    }
    print(canvas, "Hz", leftMargin - tick - 3, plotTop(stream) - 12, Side::right);
}

void SpectrogramPicture::drawTimes(cairo_t* canvas) const {
    const double step = stepFor(secondsShown(), 12, {0.1, 0.2, 0.5, 1,   2,    5,    10,   15,    30,    60,
                                                     120, 300, 600, 900, 1800, 3600, 7200, 14400, 28800, 86400});
    const double top = pictureHeight() - footHeight;
    for (double i = std::ceil(_start / step); i * step <= _start + secondsShown(); ++i) {
        drawLine(canvas, xOf(i * step), top, 0, tick);
        const std::string time = clockTime(i * step);
        print(canvas, step < 1 ? time : time.substr(0, time.find('.')), xOf(i * step), top + tick + 10, Side::middle);
    }
}

void SpectrogramPicture::drawScale(cairo_t* canvas) const {
    constexpr int width = 14;
    constexpr int left = leftMargin + plotWidth + 22;
    const int top = plotTop(0);
    const auto decibels = [](int /*x*/, int y) {
        return loudest + (quietest - loudest) * static_cast<float>(y) / (plotHeight - 1);
    };
    place(canvas, paint(width, plotHeight, decibels), left, top);
    for (int i = 0; i <= 5; ++i) {
        const double share = i / 5.0;
        const double value = loudest + (quietest - loudest) * share;
        const double y = top + share * plotHeight;
        drawLine(canvas, left + width, y, tick, 0);
        print(canvas, number(value), left + width + tick + 3, y, Side::left);
    }
    print(canvas, "dB", left + width + tick + 3, top - 12, Side::left);
}

void SpectrogramPicture::writeTo(HiddenFile& file) {
    for (Spectrogram& stream : _streams) stream.finish();
    const Surface surface = makeSurface(leftMargin + plotWidth + rightMargin, pictureHeight());
    const Canvas canvas(cairo_create(surface.get()), cairo_destroy);
    cairo_set_source_rgb(canvas.get(), 1, 1, 1);
    cairo_paint(canvas.get());
    cairo_set_source_rgb(canvas.get(), 0, 0, 0);
    cairo_set_line_width(canvas.get(), 1);
    for (std::size_t stream = 0; stream < _streams.size(); ++stream) {
        drawPlot(canvas.get(), stream);
        drawFrequencies(canvas.get(), stream);
    }
    drawTimes(canvas.get());
    drawScale(canvas.get());
    const auto write = [](void* to, const unsigned char* bytes, unsigned count) {
        try {
            static_cast<HiddenFile*>(to)->write({reinterpret_cast<const char*>(bytes), count});
            return CAIRO_STATUS_SUCCESS;
        } catch (const Failure&) {
            return CAIRO_STATUS_WRITE_ERROR;
        }
    };
    const cairo_status_t status = cairo_surface_write_to_png_stream(surface.get(), write, &file);
    if (status != CAIRO_STATUS_SUCCESS) throw writeFailure(file.target(), cairo_status_to_string(status));
}

}  // namespace tavrin::tool
