// Compiled for every processor, sharing kxProbeSum with the wide file.
#include "shared.h"

float kxProbePlain(const float* values, int count) { return kxProbeSum(values, count); }
