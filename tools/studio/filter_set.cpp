#include "filter_set.h"

#include <kx/core/exception.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace kxstudio {

namespace {

std::vector<std::string> split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (;;) {
        const std::size_t at = text.find(separator, start);
        parts.push_back(text.substr(start, at == std::string::npos ? std::string::npos : at - start));
        if (at == std::string::npos)
            return parts;
        start = at + 1;
    }
}

double number(const std::string& text, const std::string& item)
{
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(v))
        throw BadRequest(item + ": '" + text + "' is not a finite number");
    return v;
}

long wholeNumber(const std::string& text, const std::string& item)
{
    char* end = nullptr;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || v < -1000000 || v > 1000000)
        throw BadRequest(item + ": '" + text + "' is not a whole number from -1000000 to 1000000");
    return v;
}

StudioFilter parseOne(const std::string& text, const std::string& item)
{
    const std::vector<std::string> f = split(text, ',');
    StudioFilter filter;
    if (f[0] == "g" && f.size() == 8) {
        filter.kind = StudioFilter::GaborReject;
        filter.frequency = number(f[1], item);
        filter.angleDegrees = number(f[2], item);
        filter.sigma[0] = number(f[3], item);
        filter.sigma[1] = number(f[4], item);
        filter.plateau[0] = number(f[5], item);
        filter.plateau[1] = number(f[6], item);
        filter.dcRadius = wholeNumber(f[7], item);
    } else if (f[0] == "b" && f.size() == 5) {
        filter.kind = StudioFilter::BandReject;
        filter.frequency = number(f[1], item);
        filter.sigma[0] = filter.sigma[1] = number(f[2], item);
        filter.plateau[0] = filter.plateau[1] = number(f[3], item);
        filter.dcRadius = wholeNumber(f[4], item);
    } else {
        throw BadRequest(item + ": expected g,F,ANGLE,S1,S2,P1,P2,DC or b,F,S,P,DC, not '" + text + "'");
    }
    return filter;
}

// The same construction as the filter command's, parameter for parameter.
std::unique_ptr<kxFrequencyFilter> libraryFilter(const StudioFilter& f, const kxPair<long>& size, double scale)
{
    const kxPair<double> sigma(f.sigma[0] * scale, f.sigma[1] * scale);
    const kxPair<double> plateau(f.plateau[0] * scale, f.plateau[1] * scale);
    if (f.kind == StudioFilter::BandReject)
        return std::make_unique<kxFrequencyFilterBandReject>(sigma.x(), plateau.x(), f.frequency * scale, size,
                                                             f.dcRadius);
    const kxRadian angle(angleRadians(f));
    return std::make_unique<kxFrequencyFilterGaborReject>(sigma, plateau, angle, f.frequency * scale, size,
                                                          f.dcRadius);
}

kxPelBuffer<double> constantImage(long width, long height, double value)
{
    kxPelBuffer<double> image(width, height);
    for (long y = 0; y < height; ++y)
        for (long x = 0; x < width; ++x)
            image(x, y) = value;
    return image;
}

}  // namespace

double angleRadians(const StudioFilter& filter) { return filter.angleDegrees * 3.141592653589793 / 180.0; }

void checkFilterSet(const FilterSet& filters)
{
    for (std::size_t i = 0; i < filters.size(); ++i)
        try {
            libraryFilter(filters[i], kxPair<long>(1, 1), 1.0);
        } catch (const kxException& e) {
            throw BadRequest("filter " + std::to_string(i + 1) + ": " + e.what());
        }
}

FilterSet parseFilterSet(const std::string& text)
{
    FilterSet filters;
    if (text.empty())
        return filters;
    const std::vector<std::string> items = split(text, ';');
    if (items.size() > kMaxFilters)
        throw BadRequest("at most " + std::to_string(kMaxFilters) + " filters, not " + std::to_string(items.size()));
    for (std::size_t i = 0; i < items.size(); ++i)
        filters.push_back(parseOne(items[i], "filter " + std::to_string(i + 1)));
    return filters;
}

std::unique_ptr<kxFrequencyFilter> combinedFilter(const FilterSet& filters, const kxPair<long>& size, double scale)
{
    const long w = size.x(), h = size.y();
    const bool preview = scale != 1.0;
    if (preview)   // values wrong at any size are reported, also while dragging
        checkFilterSet(filters);
    // For one Gabor reject this is the filter command's two-lobe gain, bit
    // for bit: 1.0 times the product of the two lobes, rounded to float once.
    // Each filter's gain is multiplied in as soon as it is made, so that one
    // gain of the padded size is held at a time.
    const kxPelBuffer<double> zeros = constantImage(w, h, 0.0);
    kxPelBuffer<double> product = constantImage(w, h, 1.0);
    const kxFrequencyBuffer ones(product, zeros);
    for (std::size_t i = 0; i < filters.size(); ++i) {
        if (preview && filters[i].frequency * scale > 0.5)
            continue;   // beyond what the reduced image holds
        kxPelBuffer<double> gain;
        try {
            const std::unique_ptr<kxFrequencyFilter> one = libraryFilter(filters[i], size, scale);
            if (filters.size() == 1 && filters[i].kind == StudioFilter::BandReject)
                return std::unique_ptr<kxFrequencyFilter>(one->clone());   // as the filter command applies it
            kxFrequencyBuffer applied(ones);
            one->apply(applied);
            gain = applied.getRealImage(false);
        } catch (const kxException& e) {
            if (!preview)
                throw BadRequest("filter " + std::to_string(i + 1) + ": " + e.what());
            continue;   // the full-size request reports it; the preview leaves it out
        }
        const bool bothLobes = filters[i].kind == StudioFilter::GaborReject;   // a real pattern's two lobes
        for (long y = 0; y < h; ++y)
            for (long x = 0; x < w; ++x)
                product(x, y) *= bothLobes ? gain(x, y) * gain((w - x) % w, (h - y) % h) : gain(x, y);
    }
    return std::make_unique<kxFrequencyFilterImage>(kxFrequencyBuffer(product, zeros));
}

std::string exactNumber(double v)
{
    // Plain decimals where they are short enough, the exponent form otherwise.
    char buffer[48];
    if (std::fabs(v) < 1e15)
        for (int decimals = 0; decimals <= 17; ++decimals) {
            std::snprintf(buffer, sizeof buffer, "%.*f", decimals, v);
            if (std::strtod(buffer, nullptr) == v)
                return buffer;
        }
    std::snprintf(buffer, sizeof buffer, "%.17g", v);
    return buffer;
}

std::string commandOptions(const StudioFilter& f)
{
    const std::string dc = " --dc-radius " + std::to_string(f.dcRadius);
    const std::string frequency = " --frequency " + exactNumber(f.frequency);
    if (f.kind == StudioFilter::BandReject)
        return "--band-reject" + frequency + " --sigma " + exactNumber(f.sigma[0]) + " --plateau " +
               exactNumber(f.plateau[0]) + dc;
    return "--gabor-reject" + frequency + " --angle " + exactNumber(f.angleDegrees) + " --sigma " +
           exactNumber(f.sigma[0]) + "," + exactNumber(f.sigma[1]) + " --plateau " + exactNumber(f.plateau[0]) + "," +
           exactNumber(f.plateau[1]) + dc;
}

std::string describe(const StudioFilter& f)
{
    std::ostringstream out;
    if (f.kind == StudioFilter::BandReject)
        out << "band reject: frequency " << exactNumber(f.frequency) << ", sigma " << exactNumber(f.sigma[0])
            << ", plateau " << exactNumber(f.plateau[0]);
    else
        out << "Gabor reject: frequency " << exactNumber(f.frequency) << ", angle " << exactNumber(f.angleDegrees)
            << " deg, sigma " << exactNumber(f.sigma[0]) << "," << exactNumber(f.sigma[1]) << ", plateau "
            << exactNumber(f.plateau[0]) << "," << exactNumber(f.plateau[1]);
    out << ", DC radius " << f.dcRadius;
    return out.str();
}

}  // namespace kxstudio
