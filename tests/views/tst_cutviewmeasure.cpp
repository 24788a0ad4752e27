#include "measure/pointpair.h"
#include "measure/profilemeasure.h"
#include "measure/profilepoints.h"
#include "views/cutview.h"
#include "views/drawcut.h"
#include "views/framesync.h"
#include "views/measurepanel.h"
#include "viewtestsupport.h"

#include <QAction>
#include <QClipboard>
#include <QLabel>
#include <QMouseEvent>
#include <QSignalSpy>
#include <algorithm>

using namespace vxlindral;
using viewtest::makeLine;
using viewtest::pt;

namespace {

const QRgb kBandEdge = qRgb(230, 120, 0);

// A flat base at z = 0 from y = -100 to 100 mm, a box 50 mm wide (y -25 ..
// 25 mm) whose top lies 20 mm up (z = -20 mm), a point every 0.5 mm; the
// whole profile lifted by `lift` metres (up is a smaller z).
std::vector<vxs::VxPt> boxPoints(double lift = 0.0)
{
    std::vector<vxs::VxPt> pts;
    for (int i = -200; i <= 200; ++i) {
        const double y = 0.0005 * i;
        const double z = (std::abs(i) <= 50 ? -0.020 : 0.0) - lift;
        // Away from the scanner, so every point has a range.
        pts.push_back(pt(y, z + 1.0, 1));
        pts.back().z = z;
    }
    return pts;
}

// A point every 10 mm from y = -50 to 50 mm: a base at z = 0 and, from
// -20 to 20 mm, a step 20 mm up.
LineType sparseLine()
{
    std::vector<vxs::VxPt> pts;
    for (int i = -5; i <= 5; ++i) {
        pts.push_back(pt(0.01 * i, 1.0, 1));
        pts.back().z = std::abs(i) <= 2 ? -0.020 : 0.0;
    }
    return makeLine(pts);
}

// The columns in which some pixel has colour `c`.
QVector<int> columnsOf(const QImage& img, QRgb c)
{
    QVector<int> out;
    for (int x = 0; x < img.width(); ++x)
        for (int y = 0; y < img.height(); ++y)
            if (img.pixel(x, y) == c) {
                out << x;
                break;
            }
    return out;
}

// A view of `size`, shown, with `line` drawn.
void prepare(CutView& view, QSize size, const LineType& line)
{
    view.resize(size);
    view.show();
    QCoreApplication::processEvents();
    view.updateNewLine(line);
    FrameSync::flushAll();
}

// A view of 400 x 300 showing the box, in Measure mode with the region y0 .. y1.
void measureBox(CutView& view, double y0, double y1)
{
    prepare(view, {400, 300}, makeLine(boxPoints()));
    view.setMeasureMode(true);
    view.setMeasureRegion(y0, y1);
    FrameSync::flushAll();
}

// Sends a mouse event at a pixel of the view's picture.
void mouse(CutView& view, QEvent::Type type, QPoint picturePixel,
           Qt::MouseButtons held = Qt::LeftButton)
{
    const QLabel* label = view.findChild<QLabel*>();
    const QPoint at = label->mapTo(&view, picturePixel);
    QMouseEvent e(type, at, Qt::LeftButton, held, {});
    QApplication::sendEvent(&view, &e);
}

void click(CutView& view, QPoint picturePixel)
{
    mouse(view, QEvent::MouseButtonPress, picturePixel);
    mouse(view, QEvent::MouseButtonRelease, picturePixel, Qt::NoButton);
}

double panelValue(const CutView& view, const char* name)
{
    const QString text = view.measurePanel()->value(QString::fromLatin1(name));
    return text.isEmpty() ? std::nan("") : text.toDouble();
}

// A panel value lies within `tolerance` of `expected`; NaN: shows no value.
void compareShown(const CutView& view, const char* name, double expected, double tolerance)
{
    const double shown = panelValue(view, name);
    if (std::isnan(expected)) {
        QVERIFY2(std::isnan(shown), name);
        return;
    }
    QVERIFY2(std::fabs(shown - expected) <= tolerance,
             qPrintable(QStringLiteral("%1: %2 shown, %3 measured")
                            .arg(QString::fromLatin1(name))
                            .arg(shown)
                            .arg(expected)));
}

} // namespace

class TstCutViewMeasure : public QObject
{
    Q_OBJECT
private slots:
    // The band's edges fall on the columns where drawCut draws the points
    // at y0 and y1, at any view size, zoom and pan, whether the region is
    // set or dragged from one point to the other (which does not pan).
    void bandAtTrueScale_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<float>("scale"); // metres over half the width
        QTest::addColumn<QPoint>("pan");  // a drag before Measure mode
        QTest::addColumn<bool>("dragged");
        QTest::newRow("small") << QSize(301, 201) << 0.2f << QPoint() << false;
        QTest::newRow("small, dragged") << QSize(301, 201) << 0.2f << QPoint() << true;
        QTest::newRow("wide, panned") << QSize(640, 300) << 0.15f << QPoint(20, -10) << false;
        QTest::newRow("odd, panned, dragged")
            << QSize(517, 389) << 0.35f << QPoint(-30, 15) << true;
        QTest::newRow("tall, panned") << QSize(260, 480) << 0.12f << QPoint(11, -6) << false;
    }
    void bandAtTrueScale()
    {
        QFETCH(QSize, size);
        QFETCH(float, scale);
        QFETCH(QPoint, pan);
        QFETCH(bool, dragged);
        const double y0 = -0.0371, y1 = 0.0532;
        const LineType two = makeLine({pt(y0, 0.0, 1), pt(y1, 0.0, 1)});
        CutView view;
        prepare(view, size, two);
        view.setScale(scale);
        mouse(view, QEvent::MouseButtonPress, {60, 70});
        mouse(view, QEvent::MouseMove, QPoint(60, 70) + pan);
        mouse(view, QEvent::MouseButtonRelease, QPoint(60, 70) + pan, Qt::NoButton);
        const QSize viewSize = view.size();
        view.setMeasureMode(true);
        // Showing the panel narrows the picture on show, not the view.
        QCOMPARE(view.size(), viewSize);
        view.updateNewLine(two);
        const QVector<int> points = columnsOf(viewtest::rgb(view.image()), viewtest::kCutPoint);
        QCOMPARE(points.size(), 2);

        QSignalSpy changed(&view, &CutView::measureRegionChanged);
        const QPoint panned = view.panOffset();
        if (dragged) {
            // From the point at y1 (the left one) to the point at y0.
            mouse(view, QEvent::MouseButtonPress, {points[0], 30});
            mouse(view, QEvent::MouseMove, {(points[0] + points[1]) / 2, 40});
            mouse(view, QEvent::MouseMove, {points[1], 50});
            mouse(view, QEvent::MouseButtonRelease, {points[1], 50}, Qt::NoButton);
            QVERIFY(changed.count() >= 1);
            QCOMPARE(view.panOffset(), panned);
            QCOMPARE(view.measurement().pickedCount(), 0);
        } else {
            view.setMeasureRegion(y1, y0);
            QCOMPARE(changed.count(), 1);
        }
        QCOMPARE(columnsOf(viewtest::rgb(view.image()), kBandEdge), points);
        double a = 0, b = 0;
        QVERIFY(view.measureRegion(a, b));
        QVERIFY(a > b);
    }

    // The panel shows the library's measures of the line on show: a box 20 mm
    // high and 50 mm wide on a flat base. They change with a frame, not with
    // a line; they stay while no line arrives; clearLines empties them.
    void panelShowsLineOnShow_data()
    {
        QTest::addColumn<double>("y0");
        QTest::addColumn<double>("y1");
        QTest::addColumn<double>("height"); // mm; NaN: no value
        QTest::addColumn<double>("width");
        QTest::newRow("box and base") << -0.08 << 0.08 << 20.0 << 50.0;
        QTest::newRow("reversed") << 0.08 << -0.08 << 20.0 << 50.0;
        QTest::newRow("base only") << 0.04 << 0.09 << 0.0 << 0.0;
        QTest::newRow("beside the line") << 0.3 << 0.4 << std::nan("") << std::nan("");
    }
    void panelShowsLineOnShow()
    {
        QFETCH(double, y0);
        QFETCH(double, y1);
        QFETCH(double, height);
        QFETCH(double, width);
        CutView view;
        measureBox(view, y0, y1);
        QVERIFY(view.measurePanel()->isVisible());

        const std::vector<vxs::VxPt> box = boxPoints();
        vxmeasure::ProfilePoints points;
        points.assign(box.data(), box.size());
        vxmeasure::ProfileMeasure measure;
        const vxmeasure::ProfileMeasure::Result r = measure.measure(points, y0, y1);
        // The library's values, rounded as the panel shows them.
        const double mm = 1e3, ms = 0.0005;
        const auto all = [&] {
            compareShown(view, "points", double(r.count), 0);
            for (const auto& [name, v] : {std::pair("height", r.height),
                                          {"width", r.width},
                                          {"centre y", r.centre},
                                          {"base z", r.base},
                                          {"top z", r.top},
                                          {"lowest z", r.zMin},
                                          {"highest z", r.zMax},
                                          {"mean z", r.zMean},
                                          {"noise", r.noise}})
                compareShown(view, name, v * mm, ms);
            compareShown(view, "angle", r.angle, ms);
            compareShown(view, "area", r.area * 1e6, 0.05);
        };
        all();
        // Copy values: the same rows, name<TAB>value<TAB>unit.
        view.copyValues();
        QCOMPARE(QApplication::clipboard()->text(), view.measurePanel()->text());
        if (!std::isnan(height))
            QVERIFY(view.measurePanel()->text().contains(
                QStringLiteral("height\t%1\tmm\n").arg(height, 0, 'f', 3)));
        compareShown(view, "height", height, 0.01);
        compareShown(view, "width", width, 0.5);
        // The centre has a value only with a feature.
        QCOMPARE(std::isnan(panelValue(view, "centre y")), !(width > 0));

        // Frames without a line keep the values.
        view.updateImage();
        FrameSync::flushAll();
        all();
        // A line lifted by 5 mm shows with its frame, not before.
        view.updateNewLine(makeLine(boxPoints(0.005)));
        all();
        view.image();
        if (r.count > 0)
            compareShown(view, "mean z", r.zMean * mm - 5.0, ms);

        view.clearLines(0);
        for (const char* name : {"points", "height", "width", "mean z", "area"})
            QVERIFY2(std::isnan(panelValue(view, name)), name);
        FrameSync::flushAll();
        QVERIFY(std::isnan(panelValue(view, "mean z")));
    }

    // Two picks give the pair's measures: a pick near a drawn point snaps to
    // it; one far from every point lies where the mouse was. A third pick
    // starts a new pair. Two quick clicks (a double click) are two picks.
    void twoPoints_data()
    {
        QTest::addColumn<QPointF>("first"); // metres, where the pick aims
        QTest::addColumn<QPointF>("second");
        QTest::addColumn<QPoint>("offset"); // pixels beside the aim
        QTest::addColumn<bool>("doubleClick");
        QTest::addColumn<double>("distance"); // mm
        QTest::addColumn<double>("tolerance");
        // The step's corner and a base point, 25 px apart: snapped exactly.
        QTest::newRow("snapped") << QPointF(-0.02, -0.020) << QPointF(0.04, 0.0) << QPoint(2, -3)
                                 << false << std::hypot(60.0, 20.0) << 0.0005;
        QTest::newRow("snapped, double click") << QPointF(0.0, -0.020) << QPointF(0.01, -0.020)
                                               << QPoint(-1, 4) << true << 10.0 << 0.0005;
        // 100 px above the profile: where the mouse was, within a pixel
        // (0.4 mm).
        QTest::newRow("free") << QPointF(-0.05, -0.06) << QPointF(0.05, -0.06) << QPoint() << false
                              << 100.0 << 0.5;
    }
    void twoPoints()
    {
        QFETCH(QPointF, first);
        QFETCH(QPointF, second);
        QFETCH(QPoint, offset);
        QFETCH(bool, doubleClick);
        QFETCH(double, distance);
        QFETCH(double, tolerance);
        CutView view;
        prepare(view, {500, 400}, sparseLine());
        // 2,500 px per metre: the points lie 25 px apart.
        view.setScale(0.1f);
        view.updateImage();
        view.setMeasureMode(true);
        const QSize size = view.image().size();
        const auto pixel = [&](const QPointF& m) {
            const CutParams& p = view.params();
            return QPoint(cutColumn(m.x(), p, size.width()),
                          cutRow(m.y(), p, size.width(), size.height())) +
                   offset;
        };
        click(view, pixel(first));
        QCOMPARE(view.measurement().pickedCount(), 1);
        if (doubleClick) {
            mouse(view, QEvent::MouseButtonDblClick, pixel(second));
            mouse(view, QEvent::MouseButtonRelease, pixel(second), Qt::NoButton);
        } else {
            click(view, pixel(second));
        }
        view.image();
        vxmeasure::PointPair pair;
        QVERIFY(view.measurement().pair(pair));
        QVERIFY2(std::fabs(pair.distance * 1e3 - distance) <= tolerance,
                 qPrintable(QString::number(pair.distance * 1e3)));
        compareShown(view, "points distance", distance, tolerance + 0.0005);
        // The segment is drawn.
        QVERIFY(viewtest::countPixels(viewtest::rgb(view.image()),
                                      [](QRgb c) { return c == qRgb(200, 0, 200); }) > 10);
        click(view, pixel(first));
        view.image();
        QCOMPARE(view.measurement().pickedCount(), 1);
        QVERIFY(!view.measurement().pair(pair));
        QVERIFY(std::isnan(panelValue(view, "points distance")));
    }

    // M in the view toggles Measure mode, with its panel and its actions.
    void keyToggles()
    {
        CutView view;
        prepare(view, {400, 300}, sparseLine());
        view.activateWindow();
        view.setFocus();
        QTRY_VERIFY(view.hasFocus());
        auto* copy = view.findChild<QAction*>(QStringLiteral("actionCopyValues"));
        for (bool on : {true, false}) {
            QTest::keyClick(&view, Qt::Key_M);
            QCOMPARE(view.measureMode(), on);
            QCOMPARE(view.measurePanel()->isVisible(), on);
            QCOMPARE(copy->isVisible(), on);
        }
    }

    // The line on show taken as reference: the difference is flat zero. A
    // later line shows its difference from it, only where both measured;
    // Clear reference removes it.
    void reference_data()
    {
        QTest::addColumn<double>("lift");  // of the next line, metres
        QTest::addColumn<int>("holes");    // its pixels without a range
        QTest::addColumn<double>("meanZ"); // the difference's, mm
        QTest::newRow("same line") << 0.0 << 0 << 0.0;
        QTest::newRow("lifted by 5 mm") << 0.005 << 0 << -5.0;
        QTest::newRow("lifted, with holes") << 0.002 << 7 << -2.0;
    }
    void reference()
    {
        QFETCH(double, lift);
        QFETCH(int, holes);
        QFETCH(double, meanZ);
        CutView view;
        measureBox(view, -0.1, 0.1);
        view.takeReference();
        view.image();
        const vxmeasure::ProfilePoints& diff = view.measurement().differencePoints();
        QCOMPARE(int(diff.size()), 401);
        QCOMPARE(std::count(diff.z(), diff.z() + diff.size(), 0.0), 401);
        QCOMPARE(panelValue(view, "difference height"), 0.0);
        QCOMPARE(panelValue(view, "difference mean z"), 0.0);

        std::vector<vxs::VxPt> next = boxPoints(lift);
        for (int i = 0; i < holes; ++i)
            next[40 * i + 3].range = 0.0;
        view.updateNewLine(makeLine(next));
        view.image();
        QCOMPARE(int(view.measurement().differencePoints().size()), 401 - holes);
        QCOMPARE(panelValue(view, "difference points"), 401.0 - holes);
        compareShown(view, "difference mean z", meanZ, 0.001);
        QCOMPARE(panelValue(view, "difference height"), 0.0);
        // Drawn in its own colour.
        QVERIFY(!columnsOf(viewtest::rgb(view.image()), qRgb(0, 150, 0)).isEmpty());

        view.clearReference();
        view.image();
        QCOMPARE(int(view.measurement().differencePoints().size()), 0);
        QVERIFY(view.measurePanel()->value(QStringLiteral("difference points")).isEmpty());
        QVERIFY(!view.measurePanel()->text().contains(QStringLiteral("difference")));
    }
};

VIEW_TEST_MAIN(TstCutViewMeasure, true)
#include "tst_cutviewmeasure.moc"
