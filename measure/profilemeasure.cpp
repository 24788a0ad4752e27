#include "measure/profilemeasure.h"

#include <algorithm>
#include <cmath>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace vxmeasure {

namespace {

constexpr double kDegrees = 180.0 / 3.14159265358979323846;
// The median of |second difference| of Gaussian noise of deviation s is
// 0.6745 * sqrt(6) * s.
constexpr double kSecondDifferenceMedian = 1.6521;
// Half the window around a level's seed, in noise deviations.
constexpr double kLevelWindow = 3.0;
// The k-th extreme point seeds a level: 1 % of the points, at least 3 and
// at most kLevelRankMax.
constexpr std::size_t kLevelRankMin = 3;
constexpr std::size_t kLevelRankShare = 100;
// Second differences the noise is estimated from, at most.
constexpr std::size_t kNoiseSamples = 1024;
// Values per block whose extremes bound the level seeds.
constexpr std::size_t kBlock = 16;

// The value of rank `rank` (0: the smallest) among `n` values `v`, as
// sorting would place it; `scratch` holds n values, `v` stays as it is.
double rankValue(const double* v, std::size_t n, std::size_t rank, double* scratch)
{
    std::copy(v, v + n, scratch);
    std::nth_element(scratch, scratch + rank, scratch + n);
    return scratch[rank];
}

// The value of rank `rank` among the `n` values in `a`, as sorting would
// place it; `a` and `b` (room for n values each) are overwritten.
// A quickselect whose pass writes each value to both open ends of the other
// array and then moves one end on (the smaller values gather in front, the
// larger at the back, those equal to the pivot are only counted): no branch
// depends on how a value compares, which for noise is a coin toss, and a
// mispredicted branch per value would cost more than the pass itself.
double selectRank(double* a, double* b, std::size_t n, std::size_t rank)
{
    constexpr std::size_t kSmall = 32;
    // Three-way passes shrink the range by at least the pivot's own values;
    // should a pathological order keep them from halving it, the library's
    // selection takes over.
    for (int round = 0; n > kSmall && round < 64; ++round) {
        // The median of three, or on long ranges of three such medians:
        // the nearer the pivot to the middle, the fewer values pass again.
        const auto median = [](double p0, double p1, double p2) {
            return std::max(std::min(p0, p1), std::min(std::max(p0, p1), p2));
        };
        const std::size_t s = n / 9;
        const double pivot =
            n > 128 ? median(median(a[0], a[s], a[2 * s]), median(a[3 * s], a[4 * s], a[5 * s]),
                             median(a[6 * s], a[7 * s], a[8 * s]))
                    : median(a[0], a[n / 2], a[n - 1]);
        std::size_t front = 0, back = n;
        for (std::size_t i = 0; i < n; ++i) {
            const double x = a[i];
            b[front] = x;
            b[back - 1] = x;
            front += x < pivot ? 1 : 0;
            back -= x > pivot ? 1 : 0;
        }
        if (rank >= front && rank < back)
            return pivot;
        double* const from = a;
        if (rank < front) {
            a = b;
            n = front;
        } else {
            a = b + back;
            rank -= back;
            n -= back;
        }
        b = from;
    }
    std::nth_element(a, a + rank, a + n);
    return a[rank];
}

#ifdef __SSE2__
double lanesSum(__m128d v)
{
    double lanes[2];
    _mm_storeu_pd(lanes, v);
    return lanes[0] + lanes[1];
}

double lanesMin(__m128d v)
{
    double lanes[2];
    _mm_storeu_pd(lanes, v);
    return std::min(lanes[0], lanes[1]);
}

double lanesMax(__m128d v)
{
    double lanes[2];
    _mm_storeu_pd(lanes, v);
    return std::max(lanes[0], lanes[1]);
}
#endif

} // namespace

const ProfileMeasure::Result& ProfileMeasure::measure(const ProfilePoints& points, double y0,
                                                      double y1)
{
    result = Result();
    const double lo = std::min(y0, y1), hi = std::max(y0, y1);
    const std::size_t n = points.size();
    const double* py = points.y();
    const double* pz = points.z();
    const double up = settings.polarity == Polarity::Raised ? -1.0 : 1.0;
    // Sized once to the line, then only written: no allocation per call
    // once the arrays have grown.
    if (ry.size() < n) {
        ry.resize(n);
        ru.resize(n);
        work.resize(n);
        scratch.resize(n);
        blockLow.resize(n / kBlock + 1);
        blockHigh.resize(n / kBlock + 1);
    }
    // The region's points, in "up" terms (the branch changes only at the
    // region's edges along the line).
    std::size_t m = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const double y = py[i];
        if (y >= lo && y <= hi) {
            ry[m] = y;
            ru[m] = up * pz[i];
            ++m;
        }
    }
    result.count = m;
    if (m == 0)
        return result;
    // Their extremes and the sums of the fitted line, taken about the first
    // point for accuracy, two points at a time where the processor allows.
    const double y0r = ry[0], u0r = ru[0];
    double sy = 0.0, su = 0.0, syy = 0.0, syu = 0.0, suu = 0.0;
    double uMin = HUGE_VAL, uMax = -HUGE_VAL;
    std::size_t i = 0;
#ifdef __SSE2__
    {
        const __m128d vy0 = _mm_set1_pd(y0r), vu0 = _mm_set1_pd(u0r);
        __m128d vsy = _mm_setzero_pd(), vsu = vsy, vsyy = vsy, vsyu = vsy, vsuu = vsy;
        __m128d vmin = _mm_set1_pd(HUGE_VAL), vmax = _mm_set1_pd(-HUGE_VAL);
        for (; i + 2 <= m; i += 2) {
            const __m128d u = _mm_loadu_pd(&ru[i]);
            const __m128d dy = _mm_sub_pd(_mm_loadu_pd(&ry[i]), vy0), du = _mm_sub_pd(u, vu0);
            vsy = _mm_add_pd(vsy, dy);
            vsu = _mm_add_pd(vsu, du);
            vsyy = _mm_add_pd(vsyy, _mm_mul_pd(dy, dy));
            vsyu = _mm_add_pd(vsyu, _mm_mul_pd(dy, du));
            vsuu = _mm_add_pd(vsuu, _mm_mul_pd(du, du));
            vmin = _mm_min_pd(vmin, u);
            vmax = _mm_max_pd(vmax, u);
        }
        sy = lanesSum(vsy);
        su = lanesSum(vsu);
        syy = lanesSum(vsyy);
        syu = lanesSum(vsyu);
        suu = lanesSum(vsuu);
        uMin = lanesMin(vmin);
        uMax = lanesMax(vmax);
    }
#endif
    for (; i < m; ++i) {
        const double dy = ry[i] - y0r, du = ru[i] - u0r;
        sy += dy;
        su += du;
        syy += dy * dy;
        syu += dy * du;
        suu += du * du;
        uMin = std::min(uMin, ru[i]);
        uMax = std::max(uMax, ru[i]);
    }
    // Back from "up" to z: up is +1 or -1, so the products are exact.
    const double z0r = up * u0r, sz = up * su, syz = up * syu, szz = suu;
    const double count = double(m);
    result.zMin = up > 0 ? uMin : -uMax;
    result.zMax = up > 0 ? uMax : -uMin;
    result.zMean = z0r + sz / count;

    // The straight line z = a + b y through the points (least squares). A
    // region of one y (to rounding) stands upright, whatever the rounding
    // left of the sign of the y-z sum.
    if (m >= 2) {
        const double vyy = syy - sy * sy / count;
        const double vyz = syz - sy * sz / count;
        const double vzz = szz - sz * sz / count;
        result.angle = vzz > 0 && vyy <= 1e-20 * vzz ? 90.0 : std::atan2(vyz, vyy) * kDegrees;
    }

    const double noise = estimateNoise();
    const double threshold = std::max(settings.noiseFactor * noise, settings.minStep);
    const double window = std::max(kLevelWindow * noise, settings.minStep);
    const std::size_t k =
        std::min(m, std::clamp(m / kLevelRankShare, kLevelRankMin, kLevelRankMax));
    double base = 0.0, top = 0.0;
    levels(k, window, base, top);
    result.noise = noise;
    result.threshold = threshold;
    result.base = up * base;
    result.top = up * top;
    result.height = std::max(0.0, top - base);
    findFeature(base, threshold);
    result.area = areaAboveBase(base);
    return result;
}

double ProfileMeasure::estimateNoise()
{
    const std::size_t m = result.count;
    if (m < 3)
        return 0.0;
    // At most kNoiseSamples differences, spread evenly over the region:
    // enough for the median, and the selection stays quick on long lines.
    const std::size_t d = m - 2;
    const std::size_t stride = (d + kNoiseSamples - 1) / kNoiseSamples;
    std::size_t taken = 0;
    for (std::size_t i = 0; i < d; i += stride)
        work[taken++] = std::fabs(ru[i] - 2.0 * ru[i + 1] + ru[i + 2]);
    return selectRank(work.data(), scratch.data(), taken, taken / 2) / kSecondDifferenceMedian;
}

void ProfileMeasure::extremeRanks(std::size_t k, double& low, double& high)
{
    const std::size_t m = result.count;
    const std::size_t blocks = (m + kBlock - 1) / kBlock;
    if (blocks < k) {
        low = rankValue(ru.data(), m, k - 1, scratch.data());
        high = rankValue(ru.data(), m, m - k, scratch.data());
        return;
    }
    // Each block's lowest and highest value.
    for (std::size_t b = 0; b < blocks; ++b) {
        const double* v = ru.data() + b * kBlock;
        const std::size_t n = std::min(kBlock, m - b * kBlock);
        std::size_t i = 0;
        double lo = v[0], hi = v[0];
#ifdef __SSE2__
        if (n == kBlock) {
            __m128d vlo = _mm_loadu_pd(v), vhi = vlo;
            for (i = 2; i < kBlock; i += 2) {
                const __m128d x = _mm_loadu_pd(v + i);
                vlo = _mm_min_pd(vlo, x);
                vhi = _mm_max_pd(vhi, x);
            }
            lo = lanesMin(vlo);
            hi = lanesMax(vhi);
        }
#endif
        for (; i < n; ++i) {
            lo = std::min(lo, v[i]);
            hi = std::max(hi, v[i]);
        }
        blockLow[b] = lo;
        blockHigh[b] = hi;
    }
    // The k-th lowest block minimum bounds the k-th lowest value from above:
    // k blocks hold a value at or below it. Every value at or below that
    // bound lies in a block whose minimum does, and only those are gathered
    // and selected from (without branches: the comparisons are random).
    // Likewise for the highest.
    // `lowest` picks the low side; the high side is the same with the order
    // turned over (the k-th highest of n is the (n - k)-th lowest).
    const auto select = [&](const std::vector<double>& extremes, bool lowest) {
        std::copy(extremes.begin(), extremes.begin() + std::ptrdiff_t(blocks), scratch.begin());
        const double bound =
            selectRank(scratch.data(), work.data(), blocks, lowest ? k - 1 : blocks - k);
        const double sign = lowest ? 1.0 : -1.0;
        std::size_t n = 0;
        for (std::size_t b = 0; b < blocks; ++b) {
            if (sign * extremes[b] > sign * bound)
                continue;
            const double* v = ru.data() + b * kBlock;
            const std::size_t end = std::min(kBlock, m - b * kBlock);
            for (std::size_t i = 0; i < end; ++i) {
                scratch[n] = v[i];
                n += sign * v[i] > sign * bound ? 0 : 1;
            }
        }
        return selectRank(scratch.data(), work.data(), n, lowest ? k - 1 : n - k);
    };
    low = select(blockLow, true);
    high = select(blockHigh, false);
}

void ProfileMeasure::levels(std::size_t k, double window, double& low, double& high)
{
    const std::size_t m = result.count;
    // The k-th lowest and the k-th highest value seed the two levels.
    extremeRanks(k, low, high);
    // Twice: each seed lies in the tail of its surface's noise, the first
    // mean near its middle, the second on it.
    // Sums of the offsets from the seeds, compared in squares against the
    // window: without branches (noise crosses the windows' edges at random),
    // two points at a time where the processor allows.
    const double w2 = window * window;
    for (int pass = 0; pass < 2; ++pass) {
        double lowSum = 0.0, highSum = 0.0, lowCount = 0.0, highCount = 0.0;
        std::size_t i = 0;
#ifdef __SSE2__
        const __m128d vl = _mm_set1_pd(low), vh = _mm_set1_pd(high), vw = _mm_set1_pd(w2);
        const __m128d one = _mm_set1_pd(1.0);
        // Two sets of sums, so that the additions of one step need not
        // wait for those of the step before.
        __m128d sl[2], sh[2], cl[2], ch[2];
        for (int j = 0; j < 2; ++j)
            sl[j] = sh[j] = cl[j] = ch[j] = _mm_setzero_pd();
        const auto add = [&](int j, __m128d v) {
            const __m128d dl = _mm_sub_pd(v, vl), dh = _mm_sub_pd(v, vh);
            const __m128d inLow = _mm_cmple_pd(_mm_mul_pd(dl, dl), vw);
            const __m128d inHigh = _mm_cmple_pd(_mm_mul_pd(dh, dh), vw);
            sl[j] = _mm_add_pd(sl[j], _mm_and_pd(inLow, dl));
            cl[j] = _mm_add_pd(cl[j], _mm_and_pd(inLow, one));
            sh[j] = _mm_add_pd(sh[j], _mm_and_pd(inHigh, dh));
            ch[j] = _mm_add_pd(ch[j], _mm_and_pd(inHigh, one));
        };
        for (; i + 4 <= m; i += 4) {
            add(0, _mm_loadu_pd(&ru[i]));
            add(1, _mm_loadu_pd(&ru[i + 2]));
        }
        for (; i + 2 <= m; i += 2)
            add(0, _mm_loadu_pd(&ru[i]));
        lowSum = lanesSum(_mm_add_pd(sl[0], sl[1]));
        lowCount = lanesSum(_mm_add_pd(cl[0], cl[1]));
        highSum = lanesSum(_mm_add_pd(sh[0], sh[1]));
        highCount = lanesSum(_mm_add_pd(ch[0], ch[1]));
#endif
        for (; i < m; ++i) {
            const double dl = ru[i] - low, dh = ru[i] - high;
            const bool inLow = dl * dl <= w2, inHigh = dh * dh <= w2;
            lowSum += inLow ? dl : 0.0;
            lowCount += inLow ? 1.0 : 0.0;
            highSum += inHigh ? dh : 0.0;
            highCount += inHigh ? 1.0 : 0.0;
        }
        // Never empty: a seed lies in its own window, and a mean within it.
        low += lowCount > 0 ? lowSum / lowCount : 0.0;
        high += highCount > 0 ? highSum / highCount : 0.0;
    }
}

void ProfileMeasure::findFeature(double base, double threshold)
{
    const std::size_t m = result.count;
    const double* u = ru.data();
    const double* y = ry.data();
    std::size_t bestCount = 0;
    double bestLo = 0.0, bestHi = 0.0;
    // Run by run: the loops that find a run's ends only compare, its extent
    // is taken once it is whole.
    for (std::size_t i = 0; i < m;) {
        while (i < m && !(u[i] - base > threshold))
            ++i;
        const std::size_t start = i;
        while (i < m && u[i] - base > threshold)
            ++i;
        if (i - start < kMinFeaturePoints)
            continue;
        const auto [runLo, runHi] = std::minmax_element(y + start, y + i);
        if (bestCount == 0 || *runHi - *runLo > bestHi - bestLo) {
            bestCount = i - start;
            bestLo = *runLo;
            bestHi = *runHi;
        }
    }
    result.featurePoints = bestCount;
    result.width = bestCount ? bestHi - bestLo : 0.0;
    result.centre = bestCount ? (bestLo + bestHi) / 2 : kNaN;
}

double ProfileMeasure::areaAboveBase(double base) const
{
    const std::size_t m = result.count;
    if (m < 2)
        return 0.0;
    const double spacing = std::fabs(ry[m - 1] - ry[0]) / double(m - 1);
    const double gap = kGapFactor * spacing;
    // Across a gap the hidden stretch lies at the farther of its two ends
    // from the scanner (larger z): a shadow falls behind a raised edge, and
    // into a groove behind its rim.
    // In "up" terms the farther end is the lower one when raised, the
    // higher one when sunk: |a - b| / 2 off their middle.
    const double side = settings.polarity == Polarity::Raised ? -0.5 : 0.5;
    const double gap2 = gap * gap;
    double sum = 0.0;
    std::size_t i = 1;
#ifdef __SSE2__
    {
        // The same terms two at a time: the gap's correction masked in.
        const __m128d vbase = _mm_set1_pd(base), vgap2 = _mm_set1_pd(gap2);
        const __m128d vside = _mm_set1_pd(side), half = _mm_set1_pd(0.5);
        const __m128d magnitude = _mm_castsi128_pd(_mm_set1_epi64x(0x7fffffffffffffffLL));
        __m128d vsum = _mm_setzero_pd();
        for (; i + 2 <= m; i += 2) {
            const __m128d dy = _mm_sub_pd(_mm_loadu_pd(&ry[i]), _mm_loadu_pd(&ry[i - 1]));
            const __m128d a = _mm_sub_pd(_mm_loadu_pd(&ru[i - 1]), vbase);
            const __m128d b = _mm_sub_pd(_mm_loadu_pd(&ru[i]), vbase);
            const __m128d middle = _mm_mul_pd(_mm_add_pd(a, b), half);
            const __m128d gapped = _mm_cmpgt_pd(_mm_mul_pd(dy, dy), vgap2);
            const __m128d shift =
                _mm_and_pd(gapped, _mm_mul_pd(vside, _mm_and_pd(magnitude, _mm_sub_pd(a, b))));
            vsum = _mm_add_pd(vsum, _mm_mul_pd(_mm_add_pd(middle, shift), dy));
        }
        sum = lanesSum(vsum);
    }
#endif
    for (; i < m; ++i) {
        const double dy = ry[i] - ry[i - 1];
        const double a = ru[i - 1] - base, b = ru[i] - base;
        const double middle = (a + b) / 2;
        sum += (dy * dy > gap2 ? middle + side * std::fabs(a - b) : middle) * dy;
    }
    return ry[m - 1] >= ry[0] ? sum : -sum;
}

} // namespace vxmeasure
