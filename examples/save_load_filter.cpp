// Store a filter in a file and load it back by its class.
#include <kx/freqfilt.h>

#include <cstdio>
#include <fstream>

int main()
{
    const kxFrequencyFilterGabor gabor(kxPair<double>(0.02, 0.01), kxPair<double>(0, 0), kxRadian(0.5), 0.2,
                                       kxPair<long>(256, 256), 1);
    const char* path = "gabor.kxf";
    {
        std::ofstream file(path, std::ios::binary);
        kxStreamArchive archive(file);
        archive.storeObject(&gabor);
    }

    std::ifstream file(path, std::ios::binary);
    kxStreamArchive archive(file);
    std::shared_ptr<kxFrequencyFilter> loaded = archive.loadObjectAs<kxFrequencyFilter>();
    auto* again = dynamic_cast<kxFrequencyFilterGabor*>(loaded.get());
    std::printf("loaded a %s filter, %s to the one stored\n", again ? "Gabor" : "different",
                again && *again == gabor ? "equal" : "not equal");
    std::remove(path);
    return again && *again == gabor ? 0 : 1;
}
