#include "exports.h"

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

std::string commandExport(const Session& session, const FilterSet& filters)
{
    session.combined(filters);   // refuses bad values before anything is written
    const std::string head = "kxfreq filter " + shellWord(session.path()) + " -o " +
                             shellWord(resultName(session, ".png")) +
                             (session.region().whole() ? "" : " --region " + regionText(session.region()));
    std::string text = "# kxfreq studio: " + session.path() + " (" + sizeText(session) + ")\n" +
                       filterLines(filters, "#   ") + "# With the filter file saved from the page:\n" + head +
                       " --load " + shellWord(archiveName(session)) + "\n";
    if (filters.size() == 1)
        text += "# The same without the file:\n" + head + " " + commandOptions(filters[0]) + "\n";
    return text;
}

std::string pythonExport(const Session& session, const FilterSet& filters)
{
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
