// Writes the golden files: `make_goldens DIR` stores every case of
// golden_cases.h as DIR/<name>.bin. Run it only on purpose, when a change
// of the library's results is intended, and say so in the commit; the test
// never writes these files.
#include "golden_cases.h"

#include <fstream>
#include <iostream>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: make_goldens DIR\n";
        return 2;
    }
    for (const kxgolden::Case& c : kxgolden::goldenCases()) {
        const kxgolden::Bytes bytes = c.make();
        const std::string path = std::string(argv[1]) + "/" + c.name + ".bin";
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        if (!file) {
            std::cerr << "make_goldens: cannot write " << path << "\n";
            return 1;
        }
        std::cout << path << " (" << bytes.size() << " bytes)\n";
    }
    return 0;
}
