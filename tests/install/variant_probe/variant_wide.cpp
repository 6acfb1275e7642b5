// Compiled with -mavx2: its copy of kxProbeSum uses wide vectors.
#include "shared.h"

float kxProbeWide(const float* values, int count) { return kxProbeSum(values, count) + 1.0f; }
