#pragma once
// Internal: the one place where storage indices and signed frequencies on an
// axis of n elements are converted into each other.
//
// Index k stands for frequency k while 2k < n and for k - n after it; the
// centred index (the zero frequency in the middle, at n / 2) is the frequency
// plus n / 2:
//
//     n = 8:  index      0  1  2  3  4  5  6  7
//             frequency  0  1  2  3 -4 -3 -2 -1      (-(n/2) .. (n+1)/2 - 1)
//             centred    4  5  6  7  0  1  2  3
//     n = 1:  index 0, frequency 0, centred 0
//
// Written with 2k < n rather than k < n / 2 so that odd sizes (and a side of
// 1) keep index 0 at frequency 0.

// The signed frequency of storage index `index` (0 <= index < n).
inline long kf_SignedFrequency(long index, long n) { return 2 * index < n ? index : index - n; }

// Whether `frequency` is one of the n frequencies of the axis.
inline bool kf_IsAxisFrequency(long frequency, long n) { return frequency >= -(n / 2) && frequency < (n + 1) / 2; }

// The storage index of a frequency: the spectrum is periodic with period n,
// so any whole frequency wraps onto the axis.
inline long kf_StorageIndex(long frequency, long n) { return (frequency % n + n) % n; }

// The ring walk of the band filters counts index k as frequency k only while
// k < n / 2, so on an axis of one element its only index is frequency -1,
// not 0. Kept as it is: it decides every stored band filter's result on a
// grid one row high or one column wide.
inline long kf_RingFrequency(long index, long n) { return index < n / 2 ? index : index - n; }

// The centred index of storage index `index`: the zero frequency at n / 2.
inline long kf_CentredIndex(long index, long n) { return kf_SignedFrequency(index, n) + n / 2; }
