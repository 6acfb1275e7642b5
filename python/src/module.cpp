// The kxfreq Python module: numpy arrays in and out of the library's
// transforms, spectra, filters and analysis. One file per concern:
//
//   errors.cpp     the exception classes and the translation of the library's
//   arrays.cpp     arrays in (checked, converted exactly) and out
//   spectrum.cpp   kxfreq.Spectrum and its numpy views
//   transforms.cpp forward and inverse transforms, arithmetic, map_image
//   filters.cpp    the filter classes
//   analysis.cpp   phase correlation, periodic components, texture removal
//   tiled.cpp      images of any size: filter descriptions, tiling, Welch spectrum
#include "module.h"

PYBIND11_MODULE(_kxfreq, m)
{
    m.doc() = "kxfreq: frequency-domain image processing on numpy arrays.";
    kxpy::bindErrors(m);
    kxpy::bindSpectrum(m);
    kxpy::bindTransforms(m);
    kxpy::bindFilters(m);
    kxpy::bindAnalysis(m);
    kxpy::bindTiled(m);
}
