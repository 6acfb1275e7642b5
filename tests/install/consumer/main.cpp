// A program written against the installed package only.
#include <kx/fft.h>

#include <iostream>

int main()
{
    kxFrequencyBuffer buffer(100, 50);
    buffer.put(1, 2, kxPair<double>(3.0, 4.0), true);
    try {
        buffer.get(64, 0, true);
        return 1;
    } catch (const kxFrequencyDefs::BadCoord& e) {
        std::cout << "padded " << buffer.width() << " x " << buffer.height() << ", " << e.what() << "\n";
    }
    return buffer.getImaginary(1, 2, true) == 4.0 ? 0 : 1;
}
