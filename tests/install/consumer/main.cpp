// A program written against the installed package only.
#include <kx/fft.h>
#include <kx/analysis.h>

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
    // The analysis header is installed and its functions exported.
    if (kfWindowWeights(3, kxWindow::hann())[1] != 1.0)
        return 1;
    return buffer.getImaginary(1, 2, true) == 4.0 ? 0 : 1;
}
