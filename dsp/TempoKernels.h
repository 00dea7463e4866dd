#pragma once
// The inner loop of the tempo stretcher's search.

namespace tempo_kernels {

// Sum of a[i] * b[i] for i below n, in eight partial sums (lane i % 8) added
// pairwise at the end, so that the adds of one lane do not wait on another.
inline float DotPlain(const float* a, const float* b, int n)
{
    float s[8] = {0, 0, 0, 0, 0, 0, 0, 0};
    int i = 0;
    for (; i + 8 <= n; i += 8)
        for (int k = 0; k < 8; ++k)
            s[k] += a[i + k] * b[i + k];
    for (int k = 0; i < n; ++i, ++k)
        s[k] += a[i] * b[i];
    return ((s[0] + s[4]) + (s[1] + s[5])) + ((s[2] + s[6]) + (s[3] + s[7]));
}

inline float Dot(const float* a, const float* b, int n) { return DotPlain(a, b, n); }

}  // namespace tempo_kernels
