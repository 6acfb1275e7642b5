// kxfreq: see what frequency-domain filtering does to an image, without
// writing code.
#include "commands.h"
#include "options.h"

#include <kx/core/exception.h>

#include <cstring>
#include <iostream>

#ifndef KXFREQ_VERSION
#define KXFREQ_VERSION "unknown"
#endif

namespace {

const char* const kHelp =
    "Usage: kxfreq COMMAND [options]\n"
    "\n"
    "Frequency-domain image processing for machine vision.\n"
    "\n"
    "Commands:\n"
    "  demo          filter a built-in inspection image and write the pictures\n"
    "  spectrum      write a picture of an image's spectrum\n"
    "  filter        filter images with a Gabor, band-pass or band-reject filter\n"
    "  roundtrip     transform an image forward and back\n"
    "\n"
    "Images are 8- or 16-bit grey PGM (binary or ASCII) or PNG, at most 2048\n"
    "pixels in a side. 'kxfreq COMMAND --help' tells more.\n"
    "\n"
    "Options:\n"
    "  -h, --help    this help\n"
    "  --version     the version\n";

struct Command {
    const char* name;
    int (*run)(const std::vector<std::string>&);
    const char* help;
};

const Command kCommands[] = {
    {"demo", kxcli::runDemo, kxcli::kDemoHelp},
    {"spectrum", kxcli::runSpectrum, kxcli::kSpectrumHelp},
    {"filter", kxcli::runFilter, kxcli::kFilterHelp},
    {"roundtrip", kxcli::runRoundtrip, kxcli::kRoundtripHelp},
};

}  // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) {
        std::cerr << kHelp;
        return 2;
    }
    if (args[0] == "-h" || args[0] == "--help") {
        std::cout << kHelp;
        return 0;
    }
    if (args[0] == "--version") {
        std::cout << "kxfreq " << KXFREQ_VERSION << "\n";
        return 0;
    }
    for (const Command& command : kCommands) {
        if (args[0] != command.name)
            continue;
        const std::vector<std::string> rest(args.begin() + 1, args.end());
        for (const std::string& a : rest)
            if (a == "-h" || a == "--help") {
                std::cout << command.help;
                return 0;
            }
        try {
            return command.run(rest);
        } catch (const kxcli::UsageError& e) {
            std::cerr << "kxfreq " << command.name << ": " << e.what() << "\n"
                      << "Try 'kxfreq " << command.name << " --help'.\n";
            return 2;
        } catch (const std::exception& e) {
            // Library (kxException), image and command failures alike.
            std::cerr << "kxfreq: error: " << e.what() << "\n";
            return 1;
        }
    }
    std::cerr << "kxfreq: unknown command '" << args[0] << "'\nTry 'kxfreq --help'.\n";
    return 2;
}
