// The engine on SSE2: four lines per instruction. Compiled with its own
// flags; see filt/CMakeLists.txt.
#include "fft/engine/lanes_128.h"
#include "fft/engine/line_group.h"
#include "fft/engine/pixel_rows.h"

namespace kf_sse2 {

struct Tag {};
using Lane4 = kf_Lane128<Tag>;

}  // namespace kf_sse2

const kf_LaneWidth kf_Sse2Widths[4] = {kf_LaneWidthOf<kf_sse2::Lane4>(), kf_LaneWidth{}, kf_LaneWidth{},
                                       kf_LaneWidth{}};
