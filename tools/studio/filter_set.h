#pragma once
// The studio's filters: a set of notches (Gabor rejects at a frequency and
// angle) and rings (band rejects), as the page sends them and as they are
// exported. The text form, one filter per ';'-separated item, is
//
//     g,FREQUENCY,ANGLE_DEG,SIGMA_ALONG,SIGMA_ACROSS,PLATEAU_ALONG,PLATEAU_ACROSS,DC_RADIUS
//     b,FREQUENCY,SIGMA,PLATEAU,DC_RADIUS
//
// with frequencies, sigmas and plateaus in cycles per pixel.
#include <kx/freqfilt.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace kxstudio {

// A request the server cannot serve; the message is shown on the page.
class BadRequest : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct StudioFilter {
    enum Kind { GaborReject, BandReject } kind = GaborReject;
    double frequency = 0.1;
    double angleDegrees = 0;              // Gabor reject only
    double sigma[2] = {0.01, 0.01};       // along, across (a ring uses the first)
    double plateau[2] = {0, 0};
    long dcRadius = 0;
};

using FilterSet = std::vector<StudioFilter>;

// The most filters one request may carry.
constexpr std::size_t kMaxFilters = 32;

// Parses the text form; BadRequest names the item and what is wrong with it.
// The library checks the values themselves when the filters are built.
FilterSet parseFilterSet(const std::string& text);

// The Gabor reject's angle in radians, as the filter command converts it.
double angleRadians(const StudioFilter& filter);

// BadRequest, with the filter's number and the library's message, for a
// value the library refuses at any size.
void checkFilterSet(const FilterSet& filters);

// One filter for a spectrum of padded size `size`, whose result equals the
// set applied as the filter command applies each kind: a single ring is its
// band-reject filter; otherwise the product of the gains (a Gabor reject's
// gain taken at both of its conjugate lobes) as one image filter. `scale`
// multiplies frequencies, sigmas and plateaus (a preview of a reduced
// image); a filter beyond the reduced image's frequencies is then left out.
// Library errors (out-of-range values) are thrown as BadRequest with the
// filter's number and the library's message.
std::unique_ptr<kxFrequencyFilter> combinedFilter(const FilterSet& filters, const kxPair<long>& size,
                                                  double scale = 1.0);

// The shortest decimal text that reads back as exactly `v`.
std::string exactNumber(double v);

// The filter command's options for one filter ("--gabor-reject --frequency
// ..."), which give the same result as the set made of this filter alone.
std::string commandOptions(const StudioFilter& filter);

// A description of one filter for people ("Gabor reject: frequency ...").
std::string describe(const StudioFilter& filter);

}  // namespace kxstudio
