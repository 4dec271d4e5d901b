// MdctPasses: the memory passes of the fast transform, written once over a
// vector of W floats and instantiated by Mdct.cpp for 4 lanes (SSE2, every
// x86-64) and 8 lanes (AVX2, chosen at run time). Each pass applies, lane by
// lane, exactly the operations of the plain algorithm described in Mdct.cpp;
// only the grouping of loads and stores differs. Included by Mdct.cpp only.
#pragma once

#include <cstdint>
#include <cstring>

#include "codec/Mdct.h"

namespace mdctpasses {

#define MDCT_INLINE [[gnu::always_inline]] inline

// The vector of W floats and the lane shuffles the passes use.
template <int W>
struct Lanes;
template <>
struct Lanes<4> {
    typedef float F __attribute__((vector_size(16)));
    MDCT_INLINE static F reverse(F a) { return __builtin_shufflevector(a, a, 3, 2, 1, 0); }
    MDCT_INLINE static F evens(F a, F b) { return __builtin_shufflevector(a, b, 0, 2, 4, 6); }
    MDCT_INLINE static F oddsReversed(F a, F b) { return __builtin_shufflevector(a, b, 7, 5, 3, 1); }
    MDCT_INLINE static F interleaveLow(F a, F b) { return __builtin_shufflevector(a, b, 0, 4, 1, 5); }
    MDCT_INLINE static F interleaveHigh(F a, F b) { return __builtin_shufflevector(a, b, 2, 6, 3, 7); }
    MDCT_INLINE static F lowHalves(F a, F b) { return __builtin_shufflevector(a, b, 0, 1, 4, 5); }
    MDCT_INLINE static F highHalves(F a, F b) { return __builtin_shufflevector(a, b, 2, 3, 6, 7); }
};
template <>
struct Lanes<8> {
    typedef float F __attribute__((vector_size(32)));
    MDCT_INLINE static F reverse(F a) { return __builtin_shufflevector(a, a, 7, 6, 5, 4, 3, 2, 1, 0); }
    MDCT_INLINE static F interleaveLow(F a, F b) { return __builtin_shufflevector(a, b, 0, 8, 1, 9, 2, 10, 3, 11); }
    MDCT_INLINE static F interleaveHigh(F a, F b) {
        return __builtin_shufflevector(a, b, 4, 12, 5, 13, 6, 14, 7, 15);
    }
};

template <int W>
MDCT_INLINE typename Lanes<W>::F load(const float* p) {
    typename Lanes<W>::F v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

template <int W>
MDCT_INLINE void store(float* p, typename Lanes<W>::F v) {
    std::memcpy(p, &v, sizeof v);
}

// p[W - 1], ..., p[0]: the W floats ending at p + W, backwards.
template <int W>
MDCT_INLINE typename Lanes<W>::F loadReversed(const float* p) {
    return Lanes<W>::reverse(load<W>(p));
}

// W complex points side by side.
template <int W>
struct Points {
    typename Lanes<W>::F re, im;
};

template <int W>
MDCT_INLINE Points<W> loadPoints(const float* re, const float* im) {
    return {load<W>(re), load<W>(im)};
}

template <int W>
MDCT_INLINE void storePoints(float* re, float* im, Points<W> p) {
    store<W>(re, p.re);
    store<W>(im, p.im);
}

// Window and fold the 2N input samples into u = (-c_r - d, a - b_r).
template <int W>
MDCT_INLINE void fold(const float* w, int32_t n, const float* first, const float* second, float* u) {
    const int32_t half = n / 2;
    const float* wc = w + n;
    for (int32_t i = 0; i < half; i += W) {
        auto c = loadReversed<W>(second + half - W - i) * loadReversed<W>(wc + half - W - i);
        store<W>(u + i, -c - load<W>(second + half + i) * load<W>(wc + half + i));
        auto b = loadReversed<W>(first + n - W - i) * loadReversed<W>(w + n - W - i);
        store<W>(u + half + i, load<W>(first + i) * load<W>(w + i) - b);
    }
}

// z[j] = (u[2j] + i u[n-1-2j]) * t[j] for the 4 points from j on.
MDCT_INLINE Points<4> preTwiddled(const Mdct::Tables& t, const float* u, int32_t j) {
    const int32_t n = t.n;
    auto a = Lanes<4>::evens(load<4>(u + 2 * j), load<4>(u + 2 * j + 4));
    auto b = Lanes<4>::oddsReversed(load<4>(u + n - 2 * j - 8), load<4>(u + n - 2 * j - 4));
    auto cr = load<4>(t.twiddleRe.data() + j), ci = load<4>(t.twiddleIm.data() + j);
    return {a * cr - b * ci, a * ci + b * cr};
}

// The pre-twiddle, the bit-reversed reordering and the first two radix-2
// stages (rotations 1 and -i, exact) in one pass. The group of 4 points at
// 4c takes the pre-twiddled points r, r + P/2, r + P/4 and r + 3P/4, where r
// is c bit-reversed; four groups are computed side by side, then transposed
// into place.
MDCT_INLINE void firstStages(Mdct::Tables& t, const float* u) {
    typedef Lanes<4>::F F;
    const int32_t points = t.n / 2, quarter = points / 4;
    const uint32_t* groupStart = t.groupStart.data();
    for (int32_t r = 0; r < quarter; r += 4) {
        const Points<4> z0 = preTwiddled(t, u, r), z1 = preTwiddled(t, u, r + 2 * quarter);
        const Points<4> z2 = preTwiddled(t, u, r + quarter), z3 = preTwiddled(t, u, r + 3 * quarter);
        F r0r = z0.re + z1.re, r0i = z0.im + z1.im, r1r = z0.re - z1.re, r1i = z0.im - z1.im;
        F r2r = z2.re + z3.re, r2i = z2.im + z3.im, r3r = z2.re - z3.re, r3i = z2.im - z3.im;
        F outRe[4] = {r0r + r2r, r1r + r3i, r0r - r2r, r1r - r3i};  // (r3 + i r3i) * -i = r3i - i r3r
        F outIm[4] = {r0i + r2i, r1i - r3r, r0i - r2i, r1i + r3r};
        for (int32_t part = 0; part < 2; ++part) {
            F* o = part == 0 ? outRe : outIm;
            float* target = part == 0 ? t.re.data() : t.im.data();
            F low01 = Lanes<4>::interleaveLow(o[0], o[1]);    // a0 b0 a1 b1
            F low23 = Lanes<4>::interleaveLow(o[2], o[3]);    // c0 d0 c1 d1
            F high01 = Lanes<4>::interleaveHigh(o[0], o[1]);  // a2 b2 a3 b3
            F high23 = Lanes<4>::interleaveHigh(o[2], o[3]);
            store<4>(target + groupStart[r], Lanes<4>::lowHalves(low01, low23));  // a0 b0 c0 d0
            store<4>(target + groupStart[r + 1], Lanes<4>::highHalves(low01, low23));
            store<4>(target + groupStart[r + 2], Lanes<4>::lowHalves(high01, high23));
            store<4>(target + groupStart[r + 3], Lanes<4>::highHalves(high01, high23));
        }
    }
}

// The radix-2 butterfly: t = x * c, then x = y - t and y = y + t, in the
// plain algorithm's order of operations.
template <int W>
MDCT_INLINE void butterfly(Points<W>& y, Points<W>& x, const float* cr, const float* ci) {
    auto wr = load<W>(cr), wi = load<W>(ci);
    auto tr = x.re * wr - x.im * wi;
    auto ti = x.re * wi + x.im * wr;
    x = {y.re - tr, y.im - ti};
    y = {y.re + tr, y.im + ti};
}

// Two radix-2 stages in one pass: half-spans h and 2h. The points j, j + h,
// j + 2h and j + 3h of each block of 4h meet only each other in both stages.
template <int W>
MDCT_INLINE void stagePair(Mdct::Tables& t, int32_t h) {
    const int32_t points = t.n / 2;
    float* re = t.re.data();
    float* im = t.im.data();
    const float* firstRe = t.stageRe.data() + h - 1;
    const float* firstIm = t.stageIm.data() + h - 1;
    const float* secondRe = t.stageRe.data() + 2 * h - 1;
    const float* secondIm = t.stageIm.data() + 2 * h - 1;
    for (int32_t block = 0; block < points; block += 4 * h)
        for (int32_t j = block, k = 0; k < h; j += W, k += W) {
            auto p0 = loadPoints<W>(re + j, im + j), p1 = loadPoints<W>(re + j + h, im + j + h);
            auto p2 = loadPoints<W>(re + j + 2 * h, im + j + 2 * h), p3 = loadPoints<W>(re + j + 3 * h, im + j + 3 * h);
            butterfly<W>(p0, p1, firstRe + k, firstIm + k);
            butterfly<W>(p2, p3, firstRe + k, firstIm + k);
            butterfly<W>(p0, p2, secondRe + k, secondIm + k);
            butterfly<W>(p1, p3, secondRe + k + h, secondIm + k + h);
            storePoints<W>(re + j, im + j, p0), storePoints<W>(re + j + h, im + j + h, p1);
            storePoints<W>(re + j + 2 * h, im + j + 2 * h, p2), storePoints<W>(re + j + 3 * h, im + j + 3 * h, p3);
        }
}

// One radix-2 stage of half-span h.
template <int W>
MDCT_INLINE void stage(Mdct::Tables& t, int32_t h) {
    const int32_t points = t.n / 2;
    float* re = t.re.data();
    float* im = t.im.data();
    for (int32_t block = 0; block < points; block += 2 * h)
        for (int32_t j = block, k = 0; k < h; j += W, k += W) {
            auto y = loadPoints<W>(re + j, im + j), x = loadPoints<W>(re + j + h, im + j + h);
            butterfly<W>(y, x, t.stageRe.data() + h - 1 + k, t.stageIm.data() + h - 1 + k);
            storePoints<W>(re + j, im + j, y), storePoints<W>(re + j + h, im + j + h, x);
        }
}

// The stages after the first two, two at a time where they pair up.
template <int W>
MDCT_INLINE void laterStages(Mdct::Tables& t) {
    const int32_t points = t.n / 2;
    int32_t h = 4;
    if (4 * h <= points) {  // the pair (4, 8) is narrower than 8 lanes
        stagePair<4>(t, h);
        h *= 4;
    }
    for (; 4 * h <= points; h *= 4)
        stagePair<W>(t, h);
    if (h < points)
        stage<W>(t, h);
}

// Post-twiddle in place: re[k] becomes out[2k], im[k] becomes out[n-1-2k];
// then the two are interleaved into `out`.
template <int W>
MDCT_INLINE void postTwiddle(Mdct::Tables& t, float scale, float* out) {
    const int32_t points = t.n / 2;
    float* re = t.re.data();
    float* im = t.im.data();
    const float* tr = t.twiddleRe.data();
    const float* ti = t.twiddleIm.data();
    for (int32_t k = 0; k < points; k += W) {
        auto a = load<W>(re + k), b = load<W>(im + k);
        auto cr = load<W>(tr + k), ci = load<W>(ti + k);
        store<W>(re + k, (a * cr - b * ci) * scale);
        store<W>(im + k, -(a * ci + b * cr) * scale);
    }
    for (int32_t k = 0; k < points; k += W) {
        auto even = load<W>(re + k), odd = loadReversed<W>(im + points - W - k);
        store<W>(out + 2 * k, Lanes<W>::interleaveLow(even, odd));
        store<W>(out + 2 * k + W, Lanes<W>::interleaveHigh(even, odd));
    }
}

// Unfold the DCT-IV output u with the kernel's mirror symmetries, window it
// and overlap-add the first half.
template <int W>
MDCT_INLINE void unfold(const float* w, int32_t n, const float* u, const float* previousTail, float* out,
                        float* nextTail) {
    const int32_t half = n / 2;
    const float* wc = w + n;
    for (int32_t i = 0; i < half; i += W) {
        auto front = load<W>(u + half + i) * load<W>(w + i);
        auto back = -loadReversed<W>(u + n - W - i) * load<W>(w + half + i);
        store<W>(out + i, front + load<W>(previousTail + i));
        store<W>(out + half + i, back + load<W>(previousTail + half + i));
        store<W>(nextTail + i, -loadReversed<W>(u + half - W - i) * load<W>(wc + i));
        store<W>(nextTail + half + i, -load<W>(u + i) * load<W>(wc + half + i));
    }
}

// The DCT-IV of N values through the N/2-point FFT.
template <int W>
MDCT_INLINE void dct4(Mdct::Tables& t, const float* input, float* output, float scale) {
    firstStages(t, input);
    laterStages<W>(t);
    postTwiddle<W>(t, scale, output);
}

template <int W>
MDCT_INLINE void forward(Mdct::Tables& t, const float* first, const float* second, float* coefficients) {
    fold<W>(t.window.data(), t.n, first, second, t.folded.data());
    dct4<W>(t, t.folded.data(), coefficients, t.forwardScale);
}

template <int W>
MDCT_INLINE void synthesise(Mdct::Tables& t, const float* coefficients, const float* previousTail, float* out,
                            float* nextTail) {
    dct4<W>(t, coefficients, t.folded.data(), t.inverseScale);
    unfold<W>(t.window.data(), t.n, t.folded.data(), previousTail, out, nextTail);
}

#undef MDCT_INLINE

}  // namespace mdctpasses
