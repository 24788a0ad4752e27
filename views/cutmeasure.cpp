#include "views/cutmeasure.h"

#include "line/myline.h"
#include "views/drawcut.h"

#include <QPainter>
#include <QPixmap>
#include <algorithm>
#include <cmath>

namespace vxlindral {

namespace {

const QColor kBandFill(255, 170, 0, 40);
const QColor kBandEdge(230, 120, 0);
const QColor kDifference(0, 150, 0);
const QColor kPicked(200, 0, 200);

// A point the measures take (ProfilePoints' rule for a line's records).
bool measurable(const vxs::VxPt& p)
{
    const double range = p.range, y = p.y, z = p.z;
    return p.valid != 0 && p.reject == 0 && range > 0.0 && std::isfinite(y) && std::isfinite(z);
}

} // namespace

void CutMeasure::setRegion(double y0, double y1)
{
    hasRegion = true;
    regionY0 = y0;
    regionY1 = y1;
}

bool CutMeasure::region(double& y0, double& y1) const
{
    if (!hasRegion)
        return false;
    y0 = regionY0;
    y1 = regionY1;
    return true;
}

void CutMeasure::pick(const MyLine* line, QPoint at, const CutParams& params, const QSize& size)
{
    if (picked == 2)
        picked = 0;
    const int w = size.width(), h = size.height();
    double y = cutY(at.x(), params, w);
    double z = cutZ(at.y(), params, w, h);
    // The nearest profile point as drawn, within the snapping radius.
    int best = kSnapRadius * kSnapRadius + 1;
    if (line) {
        for (const vxs::VxPt& p : line->points) {
            if (!measurable(p))
                continue;
            const int dx = cutColumn(p.y, params, w) - at.x();
            const int dy = cutRow(p.z, params, w, h) - at.y();
            const int d = dx * dx + dy * dy;
            if (d < best) {
                best = d;
                y = p.y;
                z = p.z;
            }
        }
    }
    pickY[picked] = y;
    pickZ[picked] = z;
    ++picked;
}

bool CutMeasure::pair(vxmeasure::PointPair& out) const
{
    if (picked < 2)
        return false;
    out = vxmeasure::PointPair::between(pickY[0], pickZ[0], pickY[1], pickZ[1]);
    return true;
}

void CutMeasure::measure(const MyLine* line)
{
    haveLine = line != nullptr;
    difference.clear();
    lineResults = {};
    differenceResults = {};
    if (!line || !hasRegion)
        return;
    linePoints.assign(line->points.data(), line->points.size());
    lineResults = lineMeasurer.measure(linePoints, regionY0, regionY1);
    if (!reference)
        return;
    const std::size_t n = std::min(line->points.size(), reference->points.size());
    difference.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        const vxs::VxPt& p = line->points[i];
        const vxs::VxPt& r = reference->points[i];
        if (measurable(p) && measurable(r))
            difference.add(p.range, p.y, p.z - r.z);
    }
    differenceResults = differenceMeasurer.measure(difference, regionY0, regionY1);
}

void CutMeasure::draw(QPixmap& pixmap, const CutParams& params)
{
    if (pixmap.isNull())
        return;
    const int w = pixmap.width(), h = pixmap.height();
    QPainter painter(&pixmap);
    if (hasRegion) {
        const int c0 = cutColumn(regionY0, params, w);
        const int c1 = cutColumn(regionY1, params, w);
        const int left = std::min(c0, c1), right = std::max(c0, c1);
        painter.fillRect(left, 0, right - left + 1, h, kBandFill);
        painter.setPen(QPen(kBandEdge, 1));
        painter.drawLine(c0, 0, c0, h - 1);
        painter.drawLine(c1, 0, c1, h - 1);
    }
    if (difference.size() > 0) {
        scratch.clear();
        scratch.reserve(difference.size());
        for (std::size_t i = 0; i < difference.size(); ++i)
            scratch.emplace_back(cutColumn(difference.y()[i], params, w),
                                 cutRow(difference.z()[i], params, w, h));
        painter.setPen(QPen(kDifference, params.pointSize));
        painter.drawPoints(scratch.data(), static_cast<int>(scratch.size()));
    }
    if (picked > 0) {
        painter.setPen(QPen(kPicked, 1));
        QPoint at[2];
        for (int i = 0; i < picked; ++i) {
            at[i] = QPoint(cutColumn(pickY[i], params, w), cutRow(pickZ[i], params, w, h));
            painter.drawLine(at[i] - QPoint(4, 0), at[i] + QPoint(4, 0));
            painter.drawLine(at[i] - QPoint(0, 4), at[i] + QPoint(0, 4));
        }
        if (picked == 2)
            painter.drawLine(at[0], at[1]);
    }
}

QVector<CutMeasure::Row> CutMeasure::rows() const
{
    using Result = vxmeasure::ProfileMeasure::Result;
    constexpr double nan = vxmeasure::ProfileMeasure::kNaN;
    const QString mm = QStringLiteral("mm"), deg = QStringLiteral("deg"),
                  mm2 = QStringLiteral("mm²");
    QVector<Row> out;
    const auto region = [&](const QString& prefix, const Result& r, bool have) {
        const auto v = [have](double x, double factor) { return have ? x * factor : nan; };
        out.push_back({prefix + QStringLiteral("points"), have ? double(r.count) : nan, 0, {}});
        out.push_back({prefix + QStringLiteral("height"), v(r.height, 1e3), 3, mm});
        out.push_back({prefix + QStringLiteral("width"), v(r.width, 1e3), 3, mm});
        out.push_back({prefix + QStringLiteral("centre y"), v(r.centre, 1e3), 3, mm});
        out.push_back({prefix + QStringLiteral("base z"), v(r.base, 1e3), 3, mm});
        out.push_back({prefix + QStringLiteral("top z"), v(r.top, 1e3), 3, mm});
        out.push_back({prefix + QStringLiteral("lowest z"), v(r.zMin, 1e3), 3, mm});
        out.push_back({prefix + QStringLiteral("highest z"), v(r.zMax, 1e3), 3, mm});
        out.push_back({prefix + QStringLiteral("mean z"), v(r.zMean, 1e3), 3, mm});
        out.push_back({prefix + QStringLiteral("angle"), v(r.angle, 1.0), 3, deg});
        out.push_back({prefix + QStringLiteral("area"), v(r.area, 1e6), 1, mm2});
        out.push_back({prefix + QStringLiteral("noise"), v(r.noise, 1e3), 3, mm});
    };
    if (hasRegion) {
        out.push_back({QStringLiteral("region from y"), regionY0 * 1e3, 3, mm});
        out.push_back({QStringLiteral("region to y"), regionY1 * 1e3, 3, mm});
        region({}, lineResults, measured());
    }
    vxmeasure::PointPair p;
    if (pair(p)) {
        out.push_back({QStringLiteral("points dy"), p.dy * 1e3, 3, mm});
        out.push_back({QStringLiteral("points dz"), p.dz * 1e3, 3, mm});
        out.push_back({QStringLiteral("points distance"), p.distance * 1e3, 3, mm});
        out.push_back({QStringLiteral("points angle"), p.angle, 3, deg});
    }
    if (hasRegion && reference)
        region(QStringLiteral("difference "), differenceResults, differenceMeasured());
    return out;
}

} // namespace vxlindral
