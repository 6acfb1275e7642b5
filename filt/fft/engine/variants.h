#pragma once
// Internal: the vectorised variants of the engine and how one is chosen.
//
// A variant runs the scalar kernel's operations, in the same order, on a
// lane type that holds one float of each of several lines (rows, or
// adjacent columns) of the matrix, so every lane gives the bits the scalar
// kernel gives for its line. Each instruction set lives in its own source
// file, compiled with its own flags, with its lane types in its own
// namespace. The running processor picks the first usable entry of one
// table, best first; the scalar engine is the last entry.
#include "fft/engine/direction.h"

#include <cstdint>

struct kf_RotationTable;
struct kf_PixelRows;   // fft/engine/pixels.h
struct kf_RingRow;   // freqfilt/ring_row.h

// A group of `lanes` lines of a matrix of complex elements: element e of
// line l has its real part at base[e * elementStride + l * lineStride] and
// its imaginary part just after it.
struct kf_LineGroup {
    float* base;
    const float* source;       // where the lines are read from; nullptr: base
    long elementStride;
    long lineStride;
    int n;                     // elements per line transformed
    kf_Direction direction;
    unsigned keep;             // bit l set: line l is written back
    const kf_RotationTable* rotation;
    const std::int32_t* bitReverse;
    float* scratch;            // 64-byte aligned, 2 * (n + 1) * lanes floats
    // The bit-reversed index of each element 0 .. n - 1: where the
    // butterflies leave element e of a line's result, which the scatters
    // read from there instead of unscrambling the scratch first.
    const std::int32_t* bitReversed;
};

// The untangling constants of the real-input row pass.
struct kf_RealRowConstants {
    float c1, c2, wpr, wpi;
};

// One lane width of a variant.
struct kf_LaneWidth {
    int lanes;   // 0 ends the list
    // Transforms the group's lines of n complex elements.
    void (*complexLines)(const kf_LineGroup& group);
    // Rows of 2n packed reals: the half-length transform, the untangling,
    // and n + 1 elements written back.
    void (*realRows)(const kf_LineGroup& group, const kf_RealRowConstants& constants);
    // Adjacent columns firstColumn .. of a real input's spectrum (width W,
    // all lanes kept): transformed as complexLines does, then each element
    // (r, c) with 1 <= c <= W/2 - 1 also written conjugated at
    // ((H - r) mod H, W - c), the spectrum's redundant half.
    void (*realColumns)(const kf_LineGroup& group, int firstColumn, int width);
    // complexLines and realColumns over kf_ColumnBlockGroups adjacent groups
    // of columns at once (base at the first; every lane kept; the scratch
    // holds each group's part one after the other).
    void (*complexColumnBlock)(const kf_LineGroup& group);
    void (*realColumnBlock)(const kf_LineGroup& group, int firstColumn, int width);
    // realRows on rows firstRow .. of `pixels` (their samples as floats)
    // instead of the group's floats: the same floats reach the butterflies.
    void (*realRowsFromPixels)(const kf_LineGroup& group, const kf_RealRowConstants& constants,
                               const kf_PixelRows& pixels, int firstRow);
    // complexLines (forward) on rows firstRow .. of two images of one size,
    // their samples as the real and imaginary parts.
    void (*complexRowsFromPixels)(const kf_LineGroup& group, const kf_PixelRows& real, const kf_PixelRows& imag,
                                  int firstRow);
};

// Groups of adjacent columns walked down the matrix together.
constexpr int kf_ColumnBlockGroups = 4;
static_assert(16 * kf_ColumnBlockGroups <= 64, "a block's lines are counted in 64 bits");

// Pixel conversion of `count` complex elements: the magnitude
// sqrt(re * re + im * im) * s in single precision, plus 0.5 in double,
// truncated to a 64-bit integer as the hardware does (the minimum for NaN
// and out-of-range values), its low bits kept. nullptr: the scalar loop.
using kf_Magnitudes8 = void (*)(const float* elements, long count, float s, unsigned char* out);
using kf_Magnitudes16 = void (*)(const float* elements, long count, float s, unsigned short* out);
// Double pixels: the single-precision magnitude widened.
using kf_MagnitudesDouble = void (*)(const float* elements, long count, float s, double* out);

struct kf_EngineVariant {
    const char* name;
    bool (*usable)();
    const kf_LaneWidth* widths;   // widest first; nullptr for the scalar engine
    kf_Magnitudes8 magnitudes8;
    kf_Magnitudes16 magnitudes16;
    kf_MagnitudesDouble magnitudesDouble;
    // One row of the band filters' ring walk; nullptr: the scalar row.
    void (*ringRow)(const kf_RingRow& row);
};

#if defined(__x86_64__) || defined(_M_X64)
#define KF_ENGINE_X86 1
// Each variant file's widths.
extern const kf_LaneWidth kf_Avx512Widths[4];
extern const kf_LaneWidth kf_Avx2Widths[4];
extern const kf_LaneWidth kf_Sse2Widths[4];
void kf_Avx512Magnitudes8(const float* elements, long count, float s, unsigned char* out);
void kf_Avx512Magnitudes16(const float* elements, long count, float s, unsigned short* out);
void kf_Avx512MagnitudesDouble(const float* elements, long count, float s, double* out);
void kf_Avx2MagnitudesDouble(const float* elements, long count, float s, double* out);
#endif

// The table, best first, scalar last, and its length.
const kf_EngineVariant* kf_EngineVariants(int& count);

// The variant the engine runs: the first usable one of the table, unless a
// test has forced another.
const kf_EngineVariant& kf_ActiveEngineVariant();

// For tests only: runs every following transform of this thread with the
// named variant (which must be usable), or again with the automatic choice
// for nullptr. Returns false, changing nothing, for an unknown or unusable
// name.
bool kf_ForceEngineVariant(const char* name);
