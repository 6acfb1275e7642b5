#include "spectrum_picture.h"

#include "bitmap_font.h"
#include "image_io.h"
#include "rgb_picture.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace kxcli {

namespace {

constexpr unsigned char kFrame = 24;   // the frame's ground: dark, but not the spectrum's black
constexpr unsigned char kLine = 150;   // outline and ticks
constexpr unsigned char kInk = 255;    // labels

// Sizes in pixels of the frame's parts at a text scale.
struct Metrics {
    explicit Metrics(int scale)
        : s(scale), advance(6L * scale), line(textHeight(scale)), tick(4L * scale), pad(3L * scale)
    {
    }
    long s, advance, line, tick, pad;
};

struct Tick {
    long position;           // pixel along the side
    std::string frequency;   // "0.125"
    std::string period;      // "(8)", empty at the zero frequency
};

std::string frequencyText(double f)
{
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.6g", f == 0 ? 0.0 : f);   // no "-0"
    return buffer;
}

std::string periodText(double f)
{
    if (f == 0)
        return "";
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "(%.3g)", 1 / std::fabs(f));
    return buffer;
}

// The ticks at the multiples of `step` cycles per pixel on a side of
// `pixels` pixels.
std::vector<Tick> ticksAt(double step, long pixels, const FrequencyScale& scale)
{
    const double last = scale.first + static_cast<double>(pixels - 1) * scale.perPixel;
    const long from = static_cast<long>(std::ceil(scale.first / step - 1e-9));
    const long to = static_cast<long>(std::floor(last / step + 1e-9));
    std::vector<Tick> ticks;
    for (long k = from; k <= to; ++k) {
        const double f = static_cast<double>(k) * step;
        ticks.push_back(Tick{std::lround((f - scale.first) / scale.perPixel), frequencyText(f), periodText(f)});
    }
    return ticks;
}

long widestLabel(const std::vector<Tick>& ticks, int s)
{
    long widest = 0;
    for (const Tick& t : ticks)
        widest = std::max({widest, textWidth(t.frequency, s), textWidth(t.period, s)});
    return widest;
}

// The finest step of ticks along one side, from 1/64 to 1/2 cycle per
// pixel, whose labels leave room between them (side by side along the
// bottom, two lines each up the left side); 1 (only the zero frequency is
// labelled) when even 1/2 is too crowded.
double stepFor(long pixels, const FrequencyScale& scale, bool vertical, const Metrics& m)
{
    for (double step = 1.0 / 64; step <= 0.5; step *= 2) {
        const double spacing = step / scale.perPixel;
        const double needed =
            vertical ? 3.0 * static_cast<double>(m.line)
                     : static_cast<double>(widestLabel(ticksAt(step, pixels, scale), static_cast<int>(m.s)) +
                                           2 * m.advance);
        if (spacing >= needed)
            return step;
    }
    return 1.0;
}

struct AxesLayout {
    std::vector<Tick> u, v;
    long left = 0, top = 0, right = 0, bottom = 0;   // margins around the spectrum
};

AxesLayout layoutFor(long width, long height, const FrequencyScale& u, const FrequencyScale& v, const Metrics& m)
{
    AxesLayout layout;
    // One step for both sides, the coarser one, so that they read alike.
    const double step = std::max(stepFor(width, u, false, m), stepFor(height, v, true, m));
    layout.u = ticksAt(step, width, u);
    layout.v = ticksAt(step, height, v);
    const int s = static_cast<int>(m.s);
    layout.left = m.pad + widestLabel(layout.v, s) + m.pad + m.tick + 1;
    layout.top = m.line + m.pad;
    layout.right = std::max(m.pad, widestLabel(layout.u, s) / 2 + m.pad);
    // ticks, frequencies, periods, title
    layout.bottom = 1 + m.tick + m.pad + m.line + m.s + m.line + 2 * m.pad + m.line + m.pad;
    return layout;
}

void fillRect(kxPelBuffer<unsigned char>& image, long x0, long y0, long w, long h, unsigned char value)
{
    for (long y = std::max(0L, y0); y < std::min(image.height(), y0 + h); ++y)
        for (long x = std::max(0L, x0); x < std::min(image.width(), x0 + w); ++x)
            image(x, y) = value;
}

// The longest title that fits the width.
std::string titleFor(long width, int s)
{
    const char* titles[] = {"CYCLES PER PIXEL (PERIOD IN PIXELS)", "CYCLES/PIXEL (PERIOD IN PIXELS)",
                            "CYCLES/PIXEL (PERIOD PX)", "CYCLES/PX (PX)"};
    for (const char* title : titles)
        if (textWidth(title, s) <= width)
            return title;
    return "";
}

}  // namespace

FrequencyScale centredScale(long side)
{
    const double n = static_cast<double>(side);
    return FrequencyScale{-static_cast<double>(side / 2) / n, 1 / n};
}

Picture plainPicture(const kxPelBuffer<unsigned char>& spectrum)
{
    Picture picture{kxPelBuffer<unsigned char>(spectrum.width(), spectrum.height()),
                    {PictureRect{0, 0, spectrum.width(), spectrum.height()}}};
    for (long y = 0; y < spectrum.height(); ++y)   // a copy: pel buffers share their pixels
        for (long x = 0; x < spectrum.width(); ++x)
            picture.levels(x, y) = spectrum(x, y);
    return picture;
}

int axisTextScale(long width, long height) { return std::max(width, height) >= 768 ? 2 : 1; }

PictureRect axesPlotArea(long width, long height, const FrequencyScale& u, const FrequencyScale& v, int textScale)
{
    const AxesLayout layout = layoutFor(width, height, u, v, Metrics(textScale));
    return PictureRect{layout.left, layout.top, width, height};
}

Picture withAxes(const kxPelBuffer<unsigned char>& spectrum, const FrequencyScale& u, const FrequencyScale& v,
                 int textScale)
{
    const Metrics m(textScale);
    const long w = spectrum.width(), h = spectrum.height();
    const AxesLayout layout = layoutFor(w, h, u, v, m);
    const long L = layout.left, T = layout.top;
    Picture picture;
    picture.levels = kxPelBuffer<unsigned char>(L + w + layout.right, T + h + layout.bottom);
    kxPelBuffer<unsigned char>& out = picture.levels;
    kfPelSet<unsigned char>(out, kFrame);
    fillRect(out, L - 1, T - 1, w + 2, h + 2, kLine);   // the outline, under the spectrum
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            out(L + x, T + y) = spectrum(x, y);
    picture.mapped.push_back(PictureRect{L, T, w, h});

    const long labelsTop = T + h + 1 + m.tick + m.pad;
    for (const Tick& t : layout.u) {
        const long x = L + t.position;
        fillRect(out, x, T + h + 1, 1, m.tick, kLine);
        drawText(out, x - textWidth(t.frequency, textScale) / 2, labelsTop, t.frequency, textScale, kInk);
        drawText(out, x - textWidth(t.period, textScale) / 2, labelsTop + m.line + m.s, t.period, textScale, kInk);
    }
    const long labelsRight = L - 1 - m.tick - m.pad;
    for (const Tick& t : layout.v) {
        const long y = T + t.position;
        fillRect(out, L - 1 - m.tick, y, m.tick, 1, kLine);
        const long top = t.period.empty() ? y - m.line / 2 : y - (2 * m.line + m.s) / 2;
        drawText(out, labelsRight - textWidth(t.frequency, textScale), top, t.frequency, textScale, kInk);
        drawText(out, labelsRight - textWidth(t.period, textScale), top + m.line + m.s, t.period, textScale, kInk);
    }
    const std::string title = titleFor(out.width() - 2 * m.pad, textScale);
    const long titleWidth = textWidth(title, textScale);
    const long titleLeft = std::clamp(L + (w - titleWidth) / 2, m.pad, std::max(m.pad, out.width() - m.pad - titleWidth));
    drawText(out, titleLeft, labelsTop + 2 * m.line + m.s + 2 * m.pad, title, textScale, kInk);
    return picture;
}

void place(Picture& into, const Picture& panel, long x, long y)
{
    for (long py = 0; py < panel.levels.height(); ++py)
        for (long px = 0; px < panel.levels.width(); ++px)
            if (x + px >= 0 && y + py >= 0 && x + px < into.levels.width() && y + py < into.levels.height())
                into.levels(x + px, y + py) = panel.levels(px, py);
    for (const PictureRect& r : panel.mapped)
        into.mapped.push_back(PictureRect{r.x + x, r.y + y, r.width, r.height});
}

void checkPictureOutput(const std::string& path, Colormap map)
{
    if (map == Colormap::Gray)
        kxio::formatFor(path);
    else
        requireRgbFormat(path);
}

void writePicture(const std::string& path, const Picture& picture, Colormap map)
{
    if (map == Colormap::Gray) {
        kxio::writeImage(path, kxio::makeImage8(picture.levels));
        return;
    }
    const long w = picture.levels.width(), h = picture.levels.height();
    kxPelBuffer<unsigned char> isData(w, h);
    kfPelSet<unsigned char>(isData, 0);
    for (const PictureRect& r : picture.mapped)
        fillRect(isData, r.x, r.y, r.width, r.height, 1);
    RgbPicture rgb;
    rgb.width = w;
    rgb.height = h;
    rgb.rgb.reserve(static_cast<std::size_t>(3 * w * h));
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x) {
            const unsigned char level = picture.levels(x, y);
            const Rgb c = isData(x, y) ? colourOf(map, level) : Rgb{level, level, level};
            rgb.rgb.insert(rgb.rgb.end(), {c.r, c.g, c.b});
        }
    writeRgbPicture(path, rgb);
}

}  // namespace kxcli
