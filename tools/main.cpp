// kxfreq: see what frequency-domain filtering does to an image, without
// writing code.
#include "commands.h"
#include "options.h"
#include "studio/studio.h"

#include <kx/core/exception.h>

#include <iostream>

#ifndef KXFREQ_VERSION
#define KXFREQ_VERSION "unknown"
#endif

namespace {

struct Command {
    const kxcli::CommandTable* table;
    int (*run)(const std::vector<std::string>&);
    const char* summary;
};

const Command kCommands[] = {
    {&kxcli::kDemoCommand, kxcli::runDemo, "filter a built-in inspection image and write the pictures"},
    {&kxcli::kSpectrumCommand, kxcli::runSpectrum, "write a picture of an image's spectrum"},
    {&kxcli::kFilterCommand, kxcli::runFilter, "filter images with a Gabor, band or painted filter, or\n"
     "                remove their periodic texture"},
    {&kxcli::kRoundtripCommand, kxcli::runRoundtrip, "transform an image forward and back"},
    {&kxcli::kRegisterCommand, kxcli::runRegister, "measure the shift between two images, to a fraction of a pixel"},
    {&kxcli::kPeaksCommand, kxcli::runPeaks, "list the periodic components (textures, stripes) of an image"},
    {&kxcli::kStudioCommand, kxcli::runStudio, "design a filter on an image in the browser"},
};

std::string mainHelp()
{
    std::string text = "Usage: kxfreq COMMAND [options]\n"
                       "\n"
                       "Frequency-domain image processing for machine vision.\n"
                       "\n"
                       "Commands:\n";
    for (const Command& command : kCommands) {
        std::string name = command.table->name;
        text += "  " + name + std::string(14 - name.size(), ' ') + command.summary + "\n";
    }
    text += "\n"
            "Images are 8- or 16-bit PGM (binary or ASCII), PNG or TIFF, or 8-bit JPEG.\n"
            "filter keeps colour (--color); the other commands work on the luminance.\n"
            "Images may have up to 65535 pixels in a side. filter, spectrum, peaks and\n"
            "register also take images larger than one transform (2048 in a side);\n"
            "roundtrip needs --region X,Y,W,H for them.\n"
            "Frequencies are in cycles per pixel; angles in degrees, 0 along +x, 90\n"
            "along +y (downwards), so positive angles turn clockwise on the screen.\n"
            "'kxfreq COMMAND --help' tells more.\n"
            "\n"
            "Options:\n"
            "  -h, --help    this help\n"
            "  --version     the version\n";
    return text;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) {
        std::cerr << mainHelp();
        return 2;
    }
    if (args[0] == "-h" || args[0] == "--help") {
        std::cout << mainHelp();
        return 0;
    }
    if (args[0] == "--version") {
        std::cout << "kxfreq " << KXFREQ_VERSION << "\n";
        return 0;
    }
    for (const Command& command : kCommands) {
        if (args[0] != command.table->name)
            continue;
        const std::vector<std::string> rest(args.begin() + 1, args.end());
        for (const std::string& a : rest)
            if (a == "-h" || a == "--help") {
                std::cout << kxcli::helpText(*command.table);
                return 0;
            }
        try {
            return command.run(rest);
        } catch (const kxcli::UsageError& e) {
            std::cerr << "kxfreq " << command.table->name << ": " << e.what() << "\n"
                      << "Try 'kxfreq " << command.table->name << " --help'.\n";
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
