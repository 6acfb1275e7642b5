// The filter command: one filter applied to one image or a batch.
#include "commands.h"
#include "options.h"

#include <kx/freqfilt.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace kxcli {

const char* const kFilterHelp =
    "Usage: kxfreq filter IN... -o OUT_OR_DIR FILTER [options]\n"
    "\n"
    "Filters each image in the frequency domain and writes the result with the\n"
    "input's bit depth. With several inputs OUT_OR_DIR is a directory (made if\n"
    "missing) and each result keeps its input's file name.\n"
    "\n"
    "FILTER is exactly one of:\n"
    "  --gabor                oriented band-pass (a lobe at --frequency, --angle)\n"
    "  --gabor-reject         its complement: removes the lobe, keeps the rest\n"
    "  --band-pass            keeps a ring at radius --frequency\n"
    "  --band-reject          removes that ring, keeps the rest\n"
    "  --load FILE            a filter stored with --save\n"
    "\n"
    "Filter parameters (frequencies in cycles per pixel, 0 to 0.5):\n"
    "  --frequency F          lobe or ring position (default 0.1)\n"
    "  --sigma S[,S2]         Gaussian width; Gabor filters take along,across (default 0.01)\n"
    "  --plateau P[,P2]       half-width of the flat top (default 0)\n"
    "  --angle DEG            direction of the Gabor lobe in degrees (default 0)\n"
    "  --dc-radius R          pass filters clear, reject filters keep, the\n"
    "                         (2R-1) x (2R-1) frequencies around zero (default 0)\n"
    "\n"
    "Options:\n"
    "  -o, --output PATH      output file, or directory for a batch\n"
    "  --save FILE            store the filter used (for the first image's size)\n"
    "  --scale                stretch each result to the full grey range\n"
    "  --jobs N               process N images at once (default 1)\n";

namespace {

enum class Kind { Gabor, GaborReject, BandPass, BandReject, Loaded };

struct FilterChoice {
    Kind kind;
    std::pair<double, double> sigma, plateau;
    double angleDegrees, frequency;
    long dcRadius;
    std::shared_ptr<const kxFrequencyFilter> loaded;
};

std::unique_ptr<kxFrequencyFilter> makeFilter(const FilterChoice& choice, const kxPair<long>& size)
{
    const kxPair<double> sigma(choice.sigma.first, choice.sigma.second);
    const kxPair<double> plateau(choice.plateau.first, choice.plateau.second);
    const kxRadian angle(choice.angleDegrees * 3.141592653589793 / 180.0);
    switch (choice.kind) {
    case Kind::Gabor:
        return std::make_unique<kxFrequencyFilterGabor>(sigma, plateau, angle, choice.frequency, size, choice.dcRadius);
    case Kind::GaborReject:
        return std::make_unique<kxFrequencyFilterGaborReject>(sigma, plateau, angle, choice.frequency, size,
                                                              choice.dcRadius);
    case Kind::BandPass:
        return std::make_unique<kxFrequencyFilterBandPass>(sigma.x(), plateau.x(), choice.frequency, size,
                                                           choice.dcRadius);
    case Kind::BandReject:
        return std::make_unique<kxFrequencyFilterBandReject>(sigma.x(), plateau.x(), choice.frequency, size,
                                                             choice.dcRadius);
    case Kind::Loaded:
        break;
    }
    return std::unique_ptr<kxFrequencyFilter>(choice.loaded->clone());
}

kxPair<long> paddedSize(const kxio::GreyImage& image)
{
    auto pad = [](long v) {
        long p = 1;
        while (p < v)
            p *= 2;
        return p;
    };
    return kxPair<long>(pad(image.width()), pad(image.height()));
}

std::shared_ptr<const kxFrequencyFilter> loadFilter(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw CommandError(path + ": cannot open filter file");
    try {
        kxStreamArchive archive(in);
        std::shared_ptr<kxFrequencyFilter> filter = archive.loadObjectAs<kxFrequencyFilter>();
        if (!filter || !filter->isInitialized())
            throw CommandError(path + ": the file holds no initialised filter");
        return filter;
    } catch (const kxException& e) {
        throw CommandError(path + ": not a valid filter file: " + e.what());
    }
}

void saveFilter(const std::string& path, const kxFrequencyFilter& filter)
{
    const std::string temporary = path + ".partial";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (!out)
            throw CommandError(path + ": cannot write filter file");
        kxStreamArchive archive(out);
        archive.storeObject(&filter);
        out.close();
        if (!out) {
            std::remove(temporary.c_str());
            throw CommandError(path + ": cannot write filter file");
        }
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::remove(temporary.c_str());
        throw CommandError(path + ": cannot write filter file");
    }
}

void filterOne(const std::string& in, const std::string& out, const FilterChoice& choice, bool scale)
{
    const kxio::GreyImage image = readInput(in);
    const kxPair<long> size = paddedSize(image);
    const std::unique_ptr<kxFrequencyFilter> filter = makeFilter(choice, size);
    kxFrequencyBuffer spectrum;
    forward(image, spectrum);
    try {
        filter->apply(spectrum);
    } catch (const kxFrequencyDefs::InvalidSize& e) {
        throw CommandError(in + ": the filter does not fit this image (" + e.what() + "); the image pads to " +
                           std::to_string(size.x()) + " x " + std::to_string(size.y()));
    }
    kxio::writeImage(out, inverse(spectrum, image.bits, scale));
}

// A progress bar on standard error, shown only when it is a terminal.
class Progress {
public:
    explicit Progress(std::size_t total) : total_(total), shown_(isatty(STDERR_FILENO) != 0) {}
    void step()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++done_;
        if (!shown_)
            return;
        const int width = 30;
        const int filled = static_cast<int>(width * done_ / total_);
        std::cerr << "\r[" << std::string(filled, '#') << std::string(width - filled, ' ') << "] " << done_ << "/"
                  << total_ << std::flush;
        if (done_ == total_)
            std::cerr << "\n";
    }

private:
    std::mutex mutex_;
    std::size_t total_;
    std::size_t done_ = 0;
    bool shown_;
};

}  // namespace

int runFilter(const std::vector<std::string>& args)
{
    const Options options(args,
                          {"-o", "--output", "--load", "--save", "--sigma", "--plateau", "--angle", "--frequency",
                           "--dc-radius", "--jobs"},
                          {"--gabor", "--gabor-reject", "--band-pass", "--band-reject", "--scale"});
    const std::vector<std::string>& inputs = options.positional();
    if (inputs.empty())
        throw UsageError("filter needs at least one input image");
    const std::string output = options.has("-o") ? options.value("-o") : options.value("--output");
    if (output.empty())
        throw UsageError("an output is needed (-o OUT_OR_DIR)");

    FilterChoice choice{};
    int chosen = 0;
    for (auto [flag, kind] : {std::pair<const char*, Kind>{"--gabor", Kind::Gabor}, {"--gabor-reject", Kind::GaborReject},
                              {"--band-pass", Kind::BandPass}, {"--band-reject", Kind::BandReject},
                              {"--load", Kind::Loaded}})
        if (options.has(flag)) {
            choice.kind = kind;
            ++chosen;
        }
    if (chosen != 1)
        throw UsageError("give exactly one filter: --gabor, --gabor-reject, --band-pass, --band-reject or --load FILE");
    choice.sigma = options.pair("--sigma", 0.01);
    choice.plateau = options.pair("--plateau", 0.0);
    choice.angleDegrees = options.number("--angle", 0.0);
    choice.frequency = options.number("--frequency", 0.1);
    choice.dcRadius = options.integer("--dc-radius", 0);
    const long jobs = options.integer("--jobs", 1);
    if (jobs < 1 || jobs > 256)
        throw UsageError("--jobs takes a number from 1 to 256");
    const bool scale = options.has("--scale");

    // Outputs: a file for one input, a directory for several.
    namespace fs = std::filesystem;
    const bool toDirectory = inputs.size() > 1 || fs::is_directory(output);
    std::vector<std::string> outputs;
    for (const std::string& in : inputs) {
        const std::string out = toDirectory ? (fs::path(output) / fs::path(in).filename()).string() : output;
        kxio::formatFor(out);
        std::error_code ec;
        if (fs::equivalent(in, out, ec))
            throw UsageError(out + ": the output would overwrite its input");
        outputs.push_back(out);
    }

    // The filter is checked (and saved) before any image is processed.
    if (choice.kind == Kind::Loaded)
        choice.loaded = loadFilter(options.value("--load"));
    else
        makeFilter(choice, kxPair<long>(1, 1));   // validates the parameters
    if (options.has("--save"))
        saveFilter(options.value("--save"), *makeFilter(choice, paddedSize(readInput(inputs[0]))));
    if (toDirectory)
        fs::create_directories(output);

    const auto start = std::chrono::steady_clock::now();
    std::vector<std::string> failures(inputs.size());
    std::atomic<std::size_t> next{0};
    Progress progress(inputs.size());
    auto worker = [&] {
        for (std::size_t i; (i = next++) < inputs.size();) {
            try {
                filterOne(inputs[i], outputs[i], choice, scale);
            } catch (const std::exception& e) {
                failures[i] = e.what();
            }
            progress.step();
        }
    };
    std::vector<std::thread> threads;
    for (long t = 1; t < std::min<long>(jobs, static_cast<long>(inputs.size())); ++t)
        threads.emplace_back(worker);
    worker();
    for (std::thread& t : threads)
        t.join();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    std::size_t failed = 0;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        if (failures[i].empty()) {
            std::cout << outputs[i] << "\n";
        } else {
            ++failed;
            std::cerr << "kxfreq: error: " << failures[i] << "\n";
        }
    }
    if (inputs.size() > 1 || failed > 0)
        std::cerr << "filtered " << inputs.size() - failed << " of " << inputs.size() << " images in " << seconds
                  << " s" << (failed ? ", " + std::to_string(failed) + " failed" : std::string()) << "\n";
    return failed ? 1 : 0;
}

}  // namespace kxcli
