// The engine on AVX2: eight lines per instruction, with four for narrower
// matrices. Compiled with its own flags; see filt/CMakeLists.txt.
#include "fft/engine/lanes_128.h"
#include "fft/engine/lanes_256.h"
#include "fft/engine/line_group.h"
#include "fft/engine/pixel_rows.h"

namespace kf_avx2 {

struct Tag {};
using Lane8 = kf_Lane256<Tag>;
using Lane4 = kf_Lane128<Tag>;

}  // namespace kf_avx2

const kf_LaneWidth kf_Avx2Widths[4] = {kf_LaneWidthOf<kf_avx2::Lane8>(), kf_LaneWidthOf<kf_avx2::Lane4>(),
                                       kf_LaneWidth{}, kf_LaneWidth{}};
