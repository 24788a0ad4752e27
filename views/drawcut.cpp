#include "views/drawcut.h"

#include "line/myline.h"
#include "views/viewframing.h"

#include <QMutex>
#include <QMutexLocker>
#include <QPainter>
#include <QPixmap>
#include <QPoint>
#include <QRect>
#include <algorithm>
#include <cmath>
#include <vector>

namespace vxlindral {

namespace {

// One lock for every cut view's drawing; it also guards the scratch buffer.
QMutex drawMutex;
std::vector<QPoint> scratch;

// Draws one run of grid lines from the axis outward, at most 499 of them.
template <typename Draw> void gridRun(int start, int step, int limit, bool forward, Draw draw)
{
    int pos = start;
    for (int n = 0; n < 499; ++n) {
        pos += forward ? step : -step;
        if (forward ? pos >= limit : pos < 1)
            break;
        draw(pos);
    }
}

void flush(QPainter& painter, bool lines)
{
    if (lines) {
        if (scratch.size() > 1)
            painter.drawPolyline(scratch.data(), static_cast<int>(scratch.size()));
    } else if (!scratch.empty()) {
        painter.drawPoints(scratch.data(), static_cast<int>(scratch.size()));
    }
}

// Axes through the pan offset, the grid label and the grid lines.
void drawGrid(QPainter& painter, const CutParams& params, int w, int h)
{
    const int cx = w / 2;
    const int cy = h / 2;
    const float s = params.scale;
    double step = 0.0;
    int unit = 0;
    cutGridStep(s, step, unit);
    painter.setPen(QPen(QColor(0, 0, 0, 80), 1));
    painter.drawText(QPointF(5.0, 10.0), QStringLiteral("Grid: %1m").arg(step, 0, 'g', 2));
    const int x0 = cx + params.offsetX;
    painter.drawLine(x0, 0, x0, h - 1);
    const int y0 = cy + params.offsetY;
    painter.drawLine(0, y0, w - 1, y0);

    // The spacing takes the step in millimetres over the scale, which is
    // one step in pixels only for a half-width of 1000 pixels; the points
    // (drawPoints) use the real half-width.
    const int d = static_cast<int>(static_cast<float>(unit) / s);
    painter.setPen(QPen(QColor(0, 0, 0, 40), 1));
    auto vertical = [&](int x) { painter.drawLine(x, 0, x, h - 1); };
    auto horizontal = [&](int y) { painter.drawLine(0, y, w - 1, y); };
    gridRun(x0, d, w, true, vertical);
    gridRun(x0, d, w, false, vertical);
    // The downward run is bounded by the width, not the height.
    gridRun(y0, d, w, true, horizontal);
    gridRun(y0, d, w, false, horizontal);
}

// The line's points (or a polyline through them) at their y and z in metres:
// half the width spans `scale` metres, both axes negated unless oriented.
void drawPoints(QPainter& painter, const MyLine& line, const CutParams& params, int w, int h)
{
    const QPen goodPen(QColor(0, 0, 200), params.pointSize);
    const QPen rejectPen(QColor(192, 0, 0), params.pointSize);
    const bool lines = params.drawLines;

    // Consecutive points of one pen are drawn in one call; a pen change
    // flushes the run so the drawing order stays that of the points.
    scratch.clear();
    scratch.reserve(line.points.size() + 1);
    int currentPen = -1; // 0 good, 1 reject
    bool havePrevious = false;
    QPoint previous;
    for (const vxs::VxPt& pt : line.points) {
        const bool good = pt.valid != 0 && pt.reject == 0;
        if (!params.displayFiltered && !good)
            continue;
        const double y = pt.y;
        const double z = pt.z;
        const int px = cutColumn(y, params, w);
        const int py = cutRow(z, params, w, h);
        const QPoint screen(px, py);
        const int pen = good ? 0 : 1;
        if (lines) {
            if (pen != currentPen) {
                flush(painter, true);
                scratch.clear();
                if (havePrevious)
                    scratch.push_back(previous);
                painter.setPen(pen == 0 ? goodPen : rejectPen);
                currentPen = pen;
            }
            scratch.push_back(screen);
            previous = screen;
            havePrevious = true;
        } else {
            // Only the far edges are tested; Qt clips anything left of or
            // above the pixmap.
            if (px >= w || py >= h)
                continue;
            if (pen != currentPen) {
                flush(painter, false);
                scratch.clear();
                painter.setPen(pen == 0 ? goodPen : rejectPen);
                currentPen = pen;
            }
            scratch.push_back(screen);
        }
    }
    flush(painter, lines);
}

// The drawing's factor: pixels per metre (k = cx / scale, in float).
double pixelsPerMetre(const CutParams& params, int w)
{
    return static_cast<float>(w / 2) / params.scale;
}

} // namespace

int cutColumn(double y, const CutParams& params, int w)
{
    const double k = pixelsPerMetre(params, w);
    const double fx = params.orientX ? k : -k;
    return static_cast<int>(std::lround(fx * y + w / 2)) + params.offsetX;
}

int cutRow(double z, const CutParams& params, int w, int h)
{
    const double k = pixelsPerMetre(params, w);
    const double fy = params.orientY ? k : -k;
    return static_cast<int>(std::lround(h / 2 - fy * z)) + params.offsetY;
}

double cutY(int column, const CutParams& params, int w)
{
    const double k = pixelsPerMetre(params, w);
    return (column - params.offsetX - w / 2) / (params.orientX ? k : -k);
}

double cutZ(int row, const CutParams& params, int w, int h)
{
    const double k = pixelsPerMetre(params, w);
    return (h / 2 + params.offsetY - row) / (params.orientY ? k : -k);
}

void cutGridStep(float scale, double& stepMetres, int& unit)
{
    struct Step
    {
        float below;
        double metres;
        int unit;
    };
    static const Step steps[] = {{0.5f, 0.01, 10},    {5.0f, 0.1, 100},     {10.0f, 0.25, 250},
                                 {25.0f, 0.5, 500},   {50.0f, 1.0, 1000},   {100.0f, 2.0, 2000},
                                 {200.0f, 4.0, 4000}, {500.0f, 10.0, 10000}};
    for (const Step& s : steps) {
        if (scale < s.below) {
            stepMetres = s.metres;
            unit = s.unit;
            return;
        }
    }
    stepMetres = 100.0;
    unit = 100000;
}

bool cutFrame(const MyLine& line, const CutParams& params, int w, int h, const QRect& shown,
              float minScale, float maxScale, bool fit, float& scale, int& panX, int& panY)
{
    if (w < 1 || h < 1 || shown.isEmpty())
        return false;
    double yMin = HUGE_VAL, yMax = -HUGE_VAL, zMin = HUGE_VAL, zMax = -HUGE_VAL;
    for (const vxs::VxPt& pt : line.points) {
        if (!params.displayFiltered && !(pt.valid != 0 && pt.reject == 0))
            continue;
        if (pt.range == 0.0)
            continue;
        // Copies: the point is a packed record, and std::min takes references.
        const double y = pt.y, z = pt.z;
        yMin = std::min(yMin, y);
        yMax = std::max(yMax, y);
        zMin = std::min(zMin, z);
        zMax = std::max(zMax, z);
    }
    if (yMin > yMax)
        return false;
    const int cx = w / 2, cy = h / 2;
    // The drawing's own factors for a scale (drawCut: k = cx / scale in float).
    const auto factors = [&](float s, double& fx, double& fy) {
        const double k = static_cast<float>(cx) / s;
        fx = params.orientX ? k : -k;
        fy = params.orientY ? k : -k;
    };
    if (!fit) {
        double fx = 0, fy = 0;
        factors(params.scale, fx, fy);
        // Where the profile's corners land now (drawCut's rounding).
        const double x0 = std::lround(fx * yMin + cx) + params.offsetX;
        const double x1 = std::lround(fx * yMax + cx) + params.offsetX;
        const double y0 = std::lround(cy - fy * zMin) + params.offsetY;
        const double y1 = std::lround(cy - fy * zMax) + params.offsetY;
        const bool inside = std::min(x0, x1) >= shown.left() && std::max(x0, x1) <= shown.right() &&
                            std::min(y0, y1) >= shown.top() && std::max(y0, y1) <= shown.bottom();
        const bool large =
            std::fabs(x1 - x0) >= 0.1 * shown.width() || std::fabs(y1 - y0) >= 0.1 * shown.height();
        if (inside && large)
            return false;
    }
    snapOutward(yMin, yMax);
    snapOutward(zMin, zMax);
    // The snapped extent takes up to 90 % of the width and of the height
    // shown, centred there.
    constexpr double kFill = 0.9;
    const double k = std::min(yMax > yMin ? kFill * shown.width() / (yMax - yMin) : HUGE_VAL,
                              zMax > zMin ? kFill * shown.height() / (zMax - zMin) : HUGE_VAL);
    scale = k < HUGE_VAL && cx > 0 ? std::clamp(static_cast<float>(cx / k), minScale, maxScale)
                                   : params.scale;
    double fx = 0, fy = 0;
    factors(scale, fx, fy);
    const int centreX = shown.x() + shown.width() / 2, centreY = shown.y() + shown.height() / 2;
    panX = centreX - cx + static_cast<int>(std::lround(-fx * (yMin + yMax) / 2));
    panY = centreY - cy + static_cast<int>(std::lround(fy * (zMin + zMax) / 2));
    return true;
}

void drawCut(const MyLine& line, const CutParams& params, QPixmap& pixmap)
{
    QMutexLocker locker(&drawMutex);
    if (pixmap.isNull())
        return;
    pixmap.fill(Qt::white);
    if (!(line.flags & 8))
        return;

    QPainter painter(&pixmap);
    if (params.grid)
        drawGrid(painter, params, pixmap.width(), pixmap.height());
    drawPoints(painter, line, params, pixmap.width(), pixmap.height());
    painter.end();
}

} // namespace vxlindral
