#pragma once
// An inline function that both probe files use: each emits its own weak
// copy, one of them compiled for wide vectors.
__attribute__((noinline)) inline float kxProbeSum(const float* values, int count)
{
    float sum = 0.0f;
    for (int i = 0; i < count; ++i)
        sum += values[i] * values[i];
    return sum;
}
