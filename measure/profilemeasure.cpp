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
    }
    // One pass: the region's points, their extremes and the sums of the
    // fitted line, taken about the first point for accuracy.
    std::size_t first = 0;
    while (first < n && !(py[first] >= lo && py[first] <= hi))
        ++first;
    if (first == n)
        return result;
    std::size_t m = 0;
    double zMin = HUGE_VAL, zMax = -HUGE_VAL;
    const double y0r = py[first], z0r = pz[first];
    double sy = 0.0, sz = 0.0, syy = 0.0, syz = 0.0, szz = 0.0;
    for (std::size_t i = first; i < n; ++i) {
        const double y = py[i];
        if (!(y >= lo && y <= hi))
            continue;
        const double z = pz[i];
        ry[m] = y;
        ru[m] = up * z;
        ++m;
        zMin = std::min(zMin, z);
        zMax = std::max(zMax, z);
        const double dy = y - y0r, dz = z - z0r;
        sy += dy;
        sz += dz;
        syy += dy * dy;
        syz += dy * dz;
        szz += dz * dz;
    }
    result.count = m;
    if (m == 0)
        return result;
    const double count = double(m);
    result.zMin = zMin;
    result.zMax = zMax;
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
    auto mid = work.begin() + std::ptrdiff_t(taken / 2);
    std::nth_element(work.begin(), mid, work.begin() + std::ptrdiff_t(taken));
    return *mid / kSecondDifferenceMedian;
}

void ProfileMeasure::levels(std::size_t k, double window, double& low, double& high)
{
    const std::size_t m = result.count;
    // The k lowest and the k highest values, each kept sorted, found in one
    // pass: the first k sorted, then most values pass by after one
    // comparison with each array's last.
    double lows[kLevelRankMax], highs[kLevelRankMax];
    for (std::size_t i = 0; i < k; ++i)
        lows[i] = highs[i] = ru[i];
    std::sort(lows, lows + k);
    std::sort(highs, highs + k, [](double a, double b) { return a > b; });
    double lowK = lows[k - 1], highK = highs[k - 1];
    for (std::size_t i = k; i < m; ++i) {
        const double v = ru[i];
        if (v < lowK) {
            std::size_t j = k - 1;
            for (; j > 0 && lows[j - 1] > v; --j)
                lows[j] = lows[j - 1];
            lows[j] = v;
            lowK = lows[k - 1];
        }
        if (v > highK) {
            std::size_t j = k - 1;
            for (; j > 0 && highs[j - 1] < v; --j)
                highs[j] = highs[j - 1];
            highs[j] = v;
            highK = highs[k - 1];
        }
    }
    low = lowK;
    high = highK;
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
        __m128d sl = _mm_setzero_pd(), sh = sl, cl = sl, ch = sl;
        for (; i + 2 <= m; i += 2) {
            const __m128d v = _mm_loadu_pd(&ru[i]);
            const __m128d dl = _mm_sub_pd(v, vl), dh = _mm_sub_pd(v, vh);
            const __m128d inLow = _mm_cmple_pd(_mm_mul_pd(dl, dl), vw);
            const __m128d inHigh = _mm_cmple_pd(_mm_mul_pd(dh, dh), vw);
            sl = _mm_add_pd(sl, _mm_and_pd(inLow, dl));
            cl = _mm_add_pd(cl, _mm_and_pd(inLow, one));
            sh = _mm_add_pd(sh, _mm_and_pd(inHigh, dh));
            ch = _mm_add_pd(ch, _mm_and_pd(inHigh, one));
        }
        double lanes[2];
        _mm_storeu_pd(lanes, sl);
        lowSum = lanes[0] + lanes[1];
        _mm_storeu_pd(lanes, cl);
        lowCount = lanes[0] + lanes[1];
        _mm_storeu_pd(lanes, sh);
        highSum = lanes[0] + lanes[1];
        _mm_storeu_pd(lanes, ch);
        highCount = lanes[0] + lanes[1];
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
    std::size_t bestCount = 0, runCount = 0;
    double bestLo = 0.0, bestHi = 0.0, runLo = 0.0, runHi = 0.0;
    const auto endRun = [&] {
        if (runCount >= kMinFeaturePoints && (bestCount == 0 || runHi - runLo > bestHi - bestLo)) {
            bestCount = runCount;
            bestLo = runLo;
            bestHi = runHi;
        }
        runCount = 0;
    };
    for (std::size_t i = 0; i < m; ++i) {
        if (ru[i] - base > threshold) {
            const double y = ry[i];
            if (runCount++ == 0) {
                runLo = runHi = y;
            } else {
                runLo = std::min(runLo, y);
                runHi = std::max(runHi, y);
            }
        } else {
            endRun();
        }
    }
    endRun();
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
    for (std::size_t i = 1; i < m; ++i) {
        const double dy = ry[i] - ry[i - 1];
        const double a = ru[i - 1] - base, b = ru[i] - base;
        const double middle = (a + b) / 2;
        sum += (dy * dy > gap2 ? middle + side * std::fabs(a - b) : middle) * dy;
    }
    return ry[m - 1] >= ry[0] ? sum : -sum;
}

} // namespace vxmeasure
