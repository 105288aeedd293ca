#include "spectrogram/spectrogram.h"

#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <sstream>

#include "common/failure.h"
#include "common/messages.h"

namespace tavrin::tool {

namespace {

// Pixels.
constexpr int plotWidth = 900;
constexpr int plotHeight = Spectrogram::rows;
constexpr int leftMargin = 70;
constexpr int rightMargin = 90;
constexpr int titleHeight = 28;   // above every plot
constexpr int footHeight = 36;    // below the last one
constexpr int titleMiddle = -12;  // seen from the plot
constexpr int tick = 5;

// Decibels of full scale that the colours span.
constexpr float quietest = -100;
constexpr float loudest = 0;
constexpr float colourStep = 2.5F;

// From black to white, brighter at every step, so that the picture also reads without colours.
constexpr std::uint32_t colours[] = {0x000005, 0x240D5C, 0x731A6E, 0xBF3654, 0xF2731A, 0xFABF33, 0xFFFFE0};

std::uint32_t pixelOf(float power) {
    const float decibels = std::round(10 * std::log10(power) / colourStep) * colourStep;
    const float share = (decibels - quietest) / (loudest - quietest);
    const float place = std::clamp(share, 0.0F, 1.0F) * (std::size(colours) - 1);
    const auto below = std::min(static_cast<std::size_t>(place), std::size(colours) - 2);
    std::uint32_t pixel = 0;
    for (const int shift : {0, 8, 16}) {
        const auto channel = [&](std::size_t i) { return static_cast<float>(colours[i] >> shift & 0xFF); };
        const float value = std::lerp(channel(below), channel(below + 1), place - static_cast<float>(below));
        pixel |= static_cast<std::uint32_t>(std::lround(value)) << shift;
    }
    return pixel;
}

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;

void paint(cairo_t* canvas, int left, const std::vector<Spectrogram::Column>& columns) {
    std::vector<std::uint32_t> pixels;
    for (std::size_t row = Spectrogram::rows; row-- > 0;) {
        for (const Spectrogram::Column& column : columns) pixels.push_back(pixelOf(column[row]));
    }
    const int width = static_cast<int>(columns.size());
    auto* const bytes = reinterpret_cast<unsigned char*>(pixels.data());
    const Surface image(cairo_image_surface_create_for_data(bytes, CAIRO_FORMAT_RGB24, width, plotHeight, 4 * width),
                        cairo_surface_destroy);
    cairo_set_source_surface(canvas, image.get(), left, 0);
    cairo_paint(canvas);
    cairo_set_source_rgb(canvas, 0, 0, 0);
}

// Where text lies, seen from a point at half its height.
enum Side { leftOf = -1, around = 0, rightOf = 1 };

// Text that is longer than a plot is cut.
void print(cairo_t* canvas, const std::string& text, double x, double y, Side side) {
    const std::unique_ptr<PangoLayout, void (*)(gpointer)> layout(pango_cairo_create_layout(canvas), g_object_unref);
    const std::unique_ptr<PangoFontDescription, decltype(&pango_font_description_free)> font(
        pango_font_description_from_string("sans 9"), pango_font_description_free);
    pango_layout_set_font_description(layout.get(), font.get());
    pango_layout_set_single_paragraph_mode(layout.get(), TRUE);
    pango_layout_set_text(layout.get(), printable(text).c_str(), -1);
    pango_layout_set_width(layout.get(), plotWidth * PANGO_SCALE);
    pango_layout_set_ellipsize(layout.get(), PANGO_ELLIPSIZE_END);
    int width = 0, height = 0;
    pango_layout_get_pixel_size(layout.get(), &width, &height);
    cairo_move_to(canvas, x - width * (1 - side) / 2.0, y - height / 2.0);
    pango_cairo_show_layout(canvas, layout.get());
}

// A mark from a plot's edge to that side, or down, and the text at its end.
void drawTick(cairo_t* canvas, double x, double y, Side side, const std::string& text) {
    const int down = side == around ? 1 : 0;
    cairo_move_to(canvas, x, y);
    cairo_rel_line_to(canvas, side * tick, down * tick);
    cairo_stroke(canvas);
    print(canvas, text, x + side * (tick + 3), y + down * (tick + 10), side);
}

// The multiples of a step in a range: of the first step that gives no more than about `most` of them, or the last.
std::vector<double> marks(double from, double to, int most, const std::vector<double>& steps) {
    const auto fits = [&](double step) { return (to - from) / step <= most; };
    const double step = *std::find_if(steps.begin(), steps.end() - 1, fits);
    std::vector<double> multiples;
    for (double i = std::ceil(from / step); i * step <= to; ++i) multiples.push_back(i * step);
    return multiples;
}

void drawFrequencies(cairo_t* canvas, const FrequencyScale& scale) {
    const std::vector<double> round = {10,   20,   50,    100,   200,   500,    1000,
                                       2000, 5000, 10000, 20000, 50000, 100000, 200000};
    for (const double hertz : scale.isLinear() ? marks(0, scale.highest, 6, round) : round) {
        if (hertz < scale.lowest || hertz > scale.highest) continue;
        std::ostringstream text;
        text << (hertz < 1000 ? hertz : hertz / 1000) << (hertz < 1000 ? "" : "k");
        drawTick(canvas, 0, plotHeight * (1 - scale.shareOf(hertz)), leftOf, text.str());
    }
    print(canvas, "Hz", -tick - 3, titleMiddle, leftOf);
}

void drawTimes(cairo_t* canvas, double start, double seconds) {
    constexpr int most = 12;
    const std::vector<double> round = {0.1, 0.2, 0.5, 1,   2,    5,    10,   15,    30,    60,
                                       120, 300, 600, 900, 1800, 3600, 7200, 14400, 28800, 86400};
    for (const double time : marks(start, start + seconds, most, round)) {
        std::string text = clockTime(time);
        if (seconds > most * 0.5) text.resize(text.find('.'));  // tenths are for marks half a second apart
        drawTick(canvas, (time - start) / seconds * plotWidth, plotHeight, around, text);
    }
}

void drawScale(cairo_t* canvas) {
    constexpr int left = plotWidth + 22;
    constexpr int width = 14;
    Spectrogram::Column column;
    for (std::size_t row = 0; row < column.size(); ++row)
        column[row] = std::pow(10.0F, std::lerp(quietest, loudest, static_cast<float>(row) / (plotHeight - 1)) / 10);
    paint(canvas, left, std::vector(width, column));
    for (const float decibels : {0.0F, -20.0F, -40.0F, -60.0F, -80.0F, -100.0F}) {
        const double y = plotHeight * (loudest - decibels) / (loudest - quietest);
        drawTick(canvas, left + width, y, rightOf, std::to_string(std::lround(decibels)));
    }
    print(canvas, "dB", left + width + tick + 3, titleMiddle, rightOf);
}

}  // namespace

// The logarithmic axis begins below a bass guitar's lowest note, or has its two octaves where the rate is that low.
SpectrogramPicture::SpectrogramPicture(std::vector<std::string> names, int rate, double start, bool linear)
    : _scale{linear ? 0 : std::min(40.0, rate / 8.0), rate / 2.0}, _rate(rate), _start(start) {
    for (std::string& name : names) _streams.emplace_back(std::move(name), _scale);
}

void SpectrogramPicture::add(std::size_t stream, const std::vector<float>& samples) {
    if (stream == 0) _samples += samples.size() / 2;
    _streams[stream].second.add(samples);
}

void SpectrogramPicture::writeTo(HiddenFile& file) {
    const int height = static_cast<int>(_streams.size()) * (titleHeight + plotHeight) + footHeight;
    const Surface surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, leftMargin + plotWidth + rightMargin, height),
                          cairo_surface_destroy);
    const std::unique_ptr<cairo_t, decltype(&cairo_destroy)> owner(cairo_create(surface.get()), cairo_destroy);
    cairo_t* const canvas = owner.get();
    cairo_set_source_rgb(canvas, 1, 1, 1);
    cairo_paint(canvas);
    cairo_set_source_rgb(canvas, 0, 0, 0);
    cairo_set_line_width(canvas, 1);
    cairo_translate(canvas, leftMargin, titleHeight);
    drawScale(canvas);
    for (auto& [name, spectrogram] : _streams) {
        spectrogram.finish();
        std::vector<Spectrogram::Column> columns;
        for (std::size_t x = 0; x < plotWidth; ++x)
            columns.push_back(spectrogram.loudest(x * _samples / plotWidth, (x + 1) * _samples / plotWidth));
        paint(canvas, 0, columns);
        drawFrequencies(canvas, _scale);
        print(canvas, name, 0, titleMiddle, rightOf);
        cairo_translate(canvas, 0, plotHeight + titleHeight);
    }
    cairo_translate(canvas, 0, -plotHeight - titleHeight);
    drawTimes(canvas, _start, static_cast<double>(std::max<std::size_t>(_samples, 1)) / _rate);
    // Cairo opens files by name, and the hidden one keeps its own to itself.
    const std::string path = "/proc/self/fd/" + std::to_string(file.descriptor());
    const cairo_status_t status = cairo_surface_write_to_png(surface.get(), path.c_str());
    if (status != CAIRO_STATUS_SUCCESS) throw writeFailure(file.target(), cairo_status_to_string(status));
}

}  // namespace tavrin::tool
