#pragma once
// Internal: which way the engine transforms.

// Forward: kernel e^(-2 pi i nk/N); inverse: e^(+2 pi i nk/N), run as the
// forward kernel between two conjugations. Neither scales.
enum class kf_Direction { Forward, Inverse };
