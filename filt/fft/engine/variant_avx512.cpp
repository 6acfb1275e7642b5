// The engine on AVX-512 (F and DQ): sixteen lines per instruction, with
// eight and four for narrower matrices. Compiled with its own flags; see
// filt/CMakeLists.txt.
// g++ 12 reports the AVX-512 intrinsics' own undefined placeholder operands
// as maybe uninitialized; they are not.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

#include "fft/engine/lanes_128.h"
#include "fft/engine/lanes_256.h"
#include "fft/engine/lanes_512.h"
#include "fft/engine/line_group.h"

namespace kf_avx512 {

struct Tag {};
using Lane16 = kf_Lane512<Tag>;
using Lane8 = kf_Lane256<Tag>;
using Lane4 = kf_Lane128<Tag>;

}  // namespace kf_avx512

const kf_LaneWidth kf_Avx512Widths[4] = {
    {16, kf_ComplexLines<kf_avx512::Lane16>, kf_RealRows<kf_avx512::Lane16>},
    {8, kf_ComplexLines<kf_avx512::Lane8>, kf_RealRows<kf_avx512::Lane8>},
    {4, kf_ComplexLines<kf_avx512::Lane4>, kf_RealRows<kf_avx512::Lane4>},
    {0, nullptr, nullptr}};
