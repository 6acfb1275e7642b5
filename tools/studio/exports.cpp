#include "exports.h"

#include "tiled_result.h"

#include <kx/core/archive.h>

#include <filesystem>
#include <sstream>

namespace kxstudio {

namespace {

std::string stem(const Session& session) { return std::filesystem::path(session.path()).stem().string(); }

// Quoted for a POSIX shell when it holds anything but safe characters.
std::string shellWord(const std::string& word)
{
    if (!word.empty() && word.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                                                "_-+=.,/:@%") == std::string::npos)
        return word;
    std::string quoted = "'";
    for (char c : word)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// A Python string literal (the path as given, escaped).
std::string pythonString(const std::string& text) { return kxcli::jsonString(text); }

std::string regionText(const kxio::Region& r)
{
    return std::to_string(r.x) + "," + std::to_string(r.y) + "," + std::to_string(r.width) + "," +
           std::to_string(r.height);
}

// Comment lines listing the filters, each prefixed by `lead`.
std::string filterLines(const FilterSet& filters, const std::string& lead)
{
    std::string lines;
    for (std::size_t i = 0; i < filters.size(); ++i)
        lines += lead + std::to_string(i + 1) + ". " + describe(filters[i]) + "\n";
    if (filters.empty())
        lines += lead + "(no filter: the image transformed forward and back)\n";
    return lines;
}

std::string sizeText(const Session& s)
{
    if (s.tiled())
        return std::to_string(s.image().width()) + " x " + std::to_string(s.image().height()) +
               ", filtered in overlapping tiles";
    return std::to_string(s.image().width()) + " x " + std::to_string(s.image().height()) + ", padded to " +
           std::to_string(s.paddedWidth()) + " x " + std::to_string(s.paddedHeight());
}

}  // namespace

std::string archiveName(const Session& session) { return stem(session) + "-filter.kxf"; }

std::string resultName(const Session& session, const std::string& extension)
{
    return stem(session) + "-filtered" + extension;
}

std::vector<unsigned char> filterArchive(const Session& session, const FilterSet& filters)
{
    const std::unique_ptr<kxFrequencyFilter> filter = session.combined(filters);
    std::ostringstream out(std::ios::binary);
    {
        kxStreamArchive archive(out);
        archive.storeObject(filter.get());
    }
    const std::string bytes = out.str();
    return std::vector<unsigned char>(bytes.begin(), bytes.end());
}

namespace {

// A tiled image: the filter command takes one filter and tiles it itself.
std::string tiledCommandExport(const Session& session, const FilterSet& filters, const std::string& head)
{
    checkFilterSet(filters);
    std::string text = "# kxfreq studio: " + session.path() + " (" + sizeText(session) + ")\n" +
                       filterLines(filters, "#   ");
    if (filters.size() == 1)
        return text + head + " " + commandOptions(filters[0]) + "\n";
    return text + (filters.empty() ? "# No filter: the result is the image itself.\n"
                                   : "# The filter command applies one filter to an image this large (in tiles);\n"
                                     "# several filters are exported as Python code only.\n");
}

}  // namespace

std::string commandExport(const Session& session, const FilterSet& filters)
{
    const std::string head = "kxfreq filter " + shellWord(session.path()) + " -o " +
                             shellWord(resultName(session, ".png")) +
                             (session.region().whole() ? "" : " --region " + regionText(session.region()));
    if (session.tiled())
        return tiledCommandExport(session, filters, head);
    session.combined(filters);   // refuses bad values before anything is written
    std::string text = "# kxfreq studio: " + session.path() + " (" + sizeText(session) + ")\n" +
                       filterLines(filters, "#   ") + "# With the filter file saved from the page:\n" + head +
                       " --load " + shellWord(archiveName(session)) + "\n";
    if (filters.size() == 1)
        text += "# The same without the file:\n" + head + " " + commandOptions(filters[0]) + "\n";
    return text;
}

namespace {

// The call of kxfreq's array function that applies one filter to `input`.
std::string pythonCall(const StudioFilter& f, const std::string& input, const std::string& extra)
{
    const std::string common = "frequency=" + exactNumber(f.frequency) + ", dc_radius=" + std::to_string(f.dcRadius);
    if (f.kind == StudioFilter::BandReject)
        return "kxfreq.band_reject(" + input + ", " + common + ", sigma=" + exactNumber(f.sigma[0]) +
               ", plateau=" + exactNumber(f.plateau[0]) + extra + ")";
    return "kxfreq.gabor_reject(" + input + ", " + common + ",\n" + "                               sigma=(" +
           exactNumber(f.sigma[0]) + ", " + exactNumber(f.sigma[1]) + "), plateau=(" + exactNumber(f.plateau[0]) +
           ", " + exactNumber(f.plateau[1]) + "),\n                               angle=" +
           exactNumber(angleRadians(f)) + extra + ")   # radians";
}

// A tiled image: kxfreq's array functions tile each filter as the filter
// command does; several are chained in floating point (see tiled_result.h).
std::string tiledPythonExport(const Session& session, const FilterSet& filters)
{
    checkFilterSet(filters);
    const kxio::GreyImage& image = session.image();
    const std::string type = image.bits == 8 ? "uint8" : "uint16";
    std::ostringstream py;
    py << "# kxfreq studio: " << session.path() << " (" << sizeText(session) << ")\n"
       << filterLines(filters, "#   ")
       << "# The image is larger than one transform: kxfreq's array functions filter it\n"
       << "# in overlapping tiles, as 'kxfreq filter' does with one filter. Several\n"
       << "# filters are applied one after another with float64 results, rounded once.\n"
       << "import sys\n"
       << "import numpy\n"
       << "import kxfreq\n"
       << "\n"
       << "\n"
       << "def studio_filter(image):\n"
       << "    \"\"\"The filtered image of a 2-D " << type << " array of " << image.width() << " x "
       << image.height() << " pixels"
       << (session.region().whole() ? "" : " (the region " + regionText(session.region()) + " of the image)")
       << ".\"\"\"\n";
    if (filters.empty())
        py << "    return image.copy()   # no filter\n";
    else if (filters.size() == 1)
        py << "    return " << pythonCall(filters[0], "image", "") << "\n";
    else {
        for (std::size_t i = 0; i < filters.size(); ++i)
            py << "    work = " << pythonCall(filters[i], i == 0 ? "image" : "work", ", dtype=numpy.float64") << "\n";
        py << "    work = numpy.where(numpy.isfinite(work), work, 0.0)\n"
           << "    whole = numpy.trunc(work)   # rounded half away from zero, as in C++\n"
           << "    rounded = whole + numpy.where(numpy.abs(work - whole) >= 0.5, numpy.sign(work), 0.0)\n"
           << "    return numpy.clip(rounded, 0, " << (image.bits == 8 ? "255" : "65535") << ").astype(numpy."
           << type << ")\n";
    }
    py << "\n"
       << "\n"
       << "if __name__ == \"__main__\":\n"
       << "    # python3 this.py IMAGE.npy RESULT.npy\n"
       << "    numpy.save(sys.argv[2], studio_filter(numpy.load(sys.argv[1])))\n";
    return py.str();
}

}  // namespace

std::string pythonExport(const Session& session, const FilterSet& filters)
{
    if (session.tiled())
        return tiledPythonExport(session, filters);
    session.combined(filters);
    const kxio::GreyImage& image = session.image();
    const std::string type = image.bits == 8 ? "uint8" : "uint16";
    const std::string top = image.bits == 8 ? "255" : "65535";
    std::ostringstream py;
    py << "# kxfreq studio: " << session.path() << " (" << sizeText(session) << ")\n"
       << filterLines(filters, "#   ")
       << "# The filter is the file " << archiveName(session) << " saved from the page. The result is\n"
       << "# what 'kxfreq filter --load' writes: the image mirrored at its borders into\n"
       << "# the padded grid, filtered, transformed back, rounded and clamped.\n"
       << "import sys\n"
       << "import numpy\n"
       << "import kxfreq\n"
       << "\n"
       << "FILTER_FILE = " << pythonString(archiveName(session)) << "\n"
       << "PADDED_WIDTH, PADDED_HEIGHT = " << session.paddedWidth() << ", " << session.paddedHeight() << "\n"
       << "\n"
       << "\n"
       << "def mirror_index(n, padded):\n"
       << "    \"\"\"Where each position of a padded axis reads the image: the image, then its\n"
       << "    far border mirrored, then its near border mirrored, meeting half-way.\"\"\"\n"
       << "    p = numpy.arange(padded)\n"
       << "    j = p - n\n"
       << "    beyond = numpy.where(j < (padded - n + 1) // 2, n - 1 - j, padded - p - 1)\n"
       << "    return numpy.clip(numpy.where(p < n, p, beyond), 0, n - 1)\n"
       << "\n"
       << "\n"
       << "def studio_filter(image):\n"
       << "    \"\"\"The filtered image of a 2-D " << type << " array of " << image.width() << " x "
       << image.height() << " pixels"
       << (session.region().whole() ? "" : " (the region " + regionText(session.region()) + " of the image)")
       << ".\"\"\"\n"
       << "    height, width = image.shape\n"
       << "    grid = image[numpy.ix_(mirror_index(height, PADDED_HEIGHT), mirror_index(width, PADDED_WIDTH))]\n"
       << "    spectrum = kxfreq.forward(numpy.ascontiguousarray(grid))\n"
       << "    with open(FILTER_FILE, \"rb\") as f:\n"
       << "        kxfreq.Filter.from_bytes(f.read()).apply(spectrum)\n"
       << "    real, _ = kxfreq.inverse_complex(spectrum)\n"
       << "    real = real[:height, :width]\n"
       << "    real = numpy.where(numpy.isfinite(real), real, 0.0)\n"
       << "    whole = numpy.trunc(real)   # rounded half away from zero, as in C++\n"
       << "    rounded = whole + numpy.where(numpy.abs(real - whole) >= 0.5, numpy.sign(real), 0.0)\n"
       << "    return numpy.clip(rounded, 0, " << top << ").astype(numpy." << type << ")\n"
       << "\n"
       << "\n"
       << "if __name__ == \"__main__\":\n"
       << "    # python3 this.py IMAGE.npy RESULT.npy\n"
       << "    numpy.save(sys.argv[2], studio_filter(numpy.load(sys.argv[1])))\n";
    return py.str();
}

}  // namespace kxstudio
