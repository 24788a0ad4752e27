#include "views/cutview.h"
#include "views/drawcut.h"
#include "views/framesync.h"
#include "viewtestsupport.h"

#include <QImage>
#include <QLabel>
#include <QMouseEvent>
#include <QPixmap>
#include <QSignalSpy>

using namespace vxlindral;
using viewtest::makeLine;
using viewtest::pt;

namespace {

const QRgb kGood = qRgb(0, 0, 200);
const QRgb kReject = qRgb(192, 0, 0);
const QRgb kWhite = qRgb(255, 255, 255);

// Drawing parameters without grid.
CutParams params(float scale, QPoint pan = {}, bool filtered = false, bool lines = false)
{
    CutParams p;
    p.grid = false;
    p.scale = scale;
    p.offsetX = pan.x();
    p.offsetY = pan.y();
    p.displayFiltered = filtered;
    p.drawLines = lines;
    return p;
}

// Draws the line into a 200 x 100 pixmap.
QImage render(const LineType& line, const CutParams& p)
{
    QPixmap pixmap(200, 100);
    drawCut(*line, p, pixmap);
    return pixmap.toImage().convertToFormat(QImage::Format_RGB32);
}

int countColour(const QImage& img, QRgb c)
{
    return viewtest::countPixels(img, [c](QRgb p) { return p == c; });
}

// A profile of 80 points on an arc, shifted by `seed`; every 5th point
// rejected, every 7th invalid.
LineType profile(int seed)
{
    std::vector<vxs::VxPt> pts;
    for (int i = 0; i < 80; ++i)
        pts.push_back(pt(0.4 * (i - 40) + 0.3 * seed, 0.01 * (i - 40) * (i - 40) - 5 + seed, 1,
                         i % 7 != 3, i % 5 == 1 ? 2 : 0));
    return makeLine(pts);
}

void sendMouse(CutView& view, QEvent::Type type, QPoint at, Qt::MouseButton button)
{
    QMouseEvent e(type, at, button, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&view, &e);
}

// Plays a script on the view: l the next line, d a drag by (7, -5), f the
// filter switch, z zoom in, m polyline mode, r a resize by (13, 9). With
// `frames` every step is followed by a display frame.
void play(CutView& view, const QString& script, bool frames)
{
    int next = 0;
    for (QChar c : script) {
        if (c == 'l') {
            view.updateNewLine(profile(next++));
        } else if (c == 'd') {
            sendMouse(view, QEvent::MouseButtonPress, {60, 70}, Qt::LeftButton);
            sendMouse(view, QEvent::MouseMove, {67, 65}, Qt::NoButton);
            sendMouse(view, QEvent::MouseButtonRelease, {67, 65}, Qt::LeftButton);
        } else if (c == 'f') {
            view.setDisplayFiltered(!view.isFilteredDisplayed());
        } else if (c == 'z') {
            view.handleZoomIn();
        } else if (c == 'm') {
            view.handleDrawMode();
        } else if (c == 'r') {
            view.resize(view.size() + QSize(13, 9));
        }
        if (frames)
            FrameSync::flushAll();
    }
}

} // namespace

Q_DECLARE_METATYPE(vxlindral::CutParams)

class TstCutView : public QObject
{
    Q_OBJECT
private slots:
    // Points land at round(cx - k*y + offset.x), round(cy + k*z + offset.y)
    // with k = cx / scale: both axes are negated. Rejected and invalid points
    // show in red only with the filter switch; a line without flag bit 3
    // leaves the pixmap white, grid included. The rest of the 200 x 100
    // pixmap must stay white.
    void drawing_data()
    {
        QTest::addColumn<CutParams>("params");
        QTest::addColumn<LineType>("line");
        QTest::addColumn<QPoint>("at"); // a good point's pixel
        QTest::addColumn<int>("good");
        QTest::addColumn<int>("reject");
        // k = 100/35: y 3.5 -> 10 px left, z 1.75 -> 5 px down.
        QTest::newRow("negated axes")
            << params(35) << makeLine({pt(3.5, 1.75, 1)}) << QPoint(90, 55) << 1 << 0;
        // k = 100: 0.125 m is 12.5 px, rounded half away from zero.
        QTest::newRow("half rounds away")
            << params(1) << makeLine({pt(-0.125, 0.125, 1)}) << QPoint(113, 63) << 1 << 0;
        QTest::newRow("pan offset")
            << params(35, {-30, 20}) << makeLine({pt(0, 0, 1)}) << QPoint(70, 70) << 1 << 0;
        const auto mixed = makeLine({pt(0, 0, 1), pt(3.5, 0, 1, true, 7), pt(-3.5, 0, 1, false)});
        QTest::newRow("unfiltered hides") << params(35) << mixed << QPoint(100, 50) << 1 << 0;
        QTest::newRow("filtered shows red")
            << params(35, {}, true) << mixed << QPoint(100, 50) << 1 << 2;
        CutParams grid = params(35, {}, true);
        grid.grid = true;
        QTest::newRow("flag bit 3 clear")
            << grid << makeLine({pt(0, 0, 1)}, 200 & ~8) << QPoint(-1, -1) << 0 << 0;
        QTest::newRow("polyline") << params(35, {}, false, true)
                                  << makeLine({pt(3.5, 0, 1), pt(-3.5, 0, 1)}) << QPoint(95, 50)
                                  << 21 << 0;
    }
    void drawing()
    {
        QFETCH(CutParams, params);
        QFETCH(LineType, line);
        QFETCH(QPoint, at);
        QFETCH(int, good);
        QFETCH(int, reject);
        const QImage img = render(line, params);
        if (good > 0)
            QCOMPARE(img.pixel(at), kGood);
        QCOMPARE(countColour(img, kGood), good);
        QCOMPARE(countColour(img, kReject), reject);
        QCOMPARE(countColour(img, kWhite), 200 * 100 - good - reject);
    }

    // The grid spacing is the step in millimetres over the scale (1000 / 35 =
    // 28 px here), although the points use the real half-width of 100 px.
    void gridAxesAndLabel()
    {
        CutParams p;
        p.scale = 35.0f;
        const QImage img = render(makeLine({}), p);
        const int axis = qGray(img.pixel(100, 30));
        const int line = qGray(img.pixel(128, 30));
        QVERIFY2(axis < line && line < 255, qPrintable(QString("%1 %2").arg(axis).arg(line)));
        for (QPoint at :
             {QPoint(72, 30), QPoint(16, 30), QPoint(184, 30), QPoint(30, 22), QPoint(30, 78)})
            QCOMPARE(qGray(img.pixel(at)), line);
        QCOMPARE(qGray(img.pixel(30, 50)), axis);
        QCOMPARE(img.pixel(114, 36), kWhite);
        // The label (alpha 80, darker than the grid lines) sits at the top left.
        QVERIFY(viewtest::countPixels(img.copy(5, 0, 60, 11),
                                      [](QRgb c) { return qGray(c) < 200; }) > 0);
    }

    // The step grows with the scale in bands; from 500 on the last one holds.
    void gridStepLastBand()
    {
        double step = 0;
        int unit = 0;
        cutGridStep(499.0f, step, unit);
        QCOMPARE(unit, 10000);
        cutGridStep(500.0f, step, unit);
        QCOMPARE(step, 100.0);
        QCOMPARE(unit, 100000);
    }

    // The limits are tested before the step, so the scale may end one step
    // beyond them; the point size cycles 1 .. 5.
    void zoomAndPointSizeSteps()
    {
        CutView view;
        view.setScale(0.1f);
        view.handleZoomIn();
        QCOMPARE(view.params().scale, 0.1f);
        view.setScale(499.0f);
        view.handleZoomOut();
        QCOMPARE(view.params().scale, 623.75f);
        view.handleZoomOut();
        QCOMPARE(view.params().scale, 623.75f);
        view.handleZoomHome();
        QCOMPARE(view.params().scale, 35.0f);
        for (int expected : {2, 3, 4, 5, 1}) {
            view.handlePointSize();
            QCOMPARE(view.params().pointSize, expected);
        }
    }

    // The first line resets the zoom and is drawn at the centre; later lines
    // keep the zoom. A press reports the position over a fixed divisor 500.
    void shownViewDrawsAndReports()
    {
        CutView view;
        view.resize(301, 201);
        view.show();
        view.setScale(3.0f);
        view.updateNewLine(makeLine({pt(0, 0, 1)}));
        QCOMPARE(view.params().scale, 35.0f);
        const QImage img = view.image().toImage().convertToFormat(QImage::Format_RGB32);
        QVERIFY(!img.isNull());
        QCOMPARE(img.pixel(img.width() / 2, img.height() / 2), kGood);
        view.setScale(3.0f);
        view.updateNewLine(makeLine({}));
        QCOMPARE(view.params().scale, 3.0f);

        view.handleZoomHome();
        QSignalSpy spy(&view, &BasicView::updateStatusBar);
        QLabel* label = view.findChild<QLabel*>();
        QVERIFY(label);
        // 100 px right of the label's centre, in scroll-area coordinates.
        const QRect g = label->geometry();
        const QPoint centre((g.left() + g.right()) / 2, (g.top() + g.bottom()) / 2);
        const QPoint at =
            label->parentWidget()->parentWidget()->mapTo(&view, centre + QPoint(100, 0));
        QTest::mousePress(&view, Qt::LeftButton, Qt::NoModifier, at);
        QCOMPARE(spy.count(), 1);
        // x = 100 * 35 / 500 = 7 m; atan2(7, 0) = 90 deg, + 180 -> 270.
        QCOMPARE(spy.at(0).at(0).toString(), QStringLiteral("u: 100 v: 0 x: 7m y: 0m a: 270deg"));
        QTest::mouseRelease(&view, Qt::LeftButton, Qt::NoModifier, at);
    }

    // The newest line is drawn once per frame with the parameters of its
    // arrival: a script played in one burst shows, at the label's next paint,
    // what it shows with a frame after every step. Changes after the last
    // line (drag, filter) wait for the next line; zoom redraws; a resize
    // leaves the label on the last picture and the pixmap at the new size.
    void framedDrawingMatchesPerLine_data()
    {
        QTest::addColumn<QString>("script");
        QTest::newRow("lines") << "llll";
        QTest::newRow("drag after the last line") << "lldld";
        QTest::newRow("filter between lines") << "lflflf";
        QTest::newRow("zoom redraws") << "lldzlz";
        QTest::newRow("zoom before the first line") << "zzl";
        QTest::newRow("polyline after the last line") << "lmlm";
        QTest::newRow("resize after a line") << "llr";
        QTest::newRow("line after a resize") << "lrdl";
    }
    void framedDrawingMatchesPerLine()
    {
        QFETCH(QString, script);
        CutView stepwise;
        CutView burst;
        for (CutView* v : {&stepwise, &burst}) {
            v->resize(301, 201);
            v->show();
            QCoreApplication::processEvents();
        }
        play(stepwise, script, true);
        play(burst, script, false);
        const auto shown = [](CutView& v) {
            return v.findChild<QLabel*>()->grab().toImage().convertToFormat(QImage::Format_RGB32);
        };
        const QImage expected = shown(stepwise);
        QVERIFY(countColour(expected, kGood) > 0);
        QCOMPARE(shown(burst), expected);
        QCOMPARE(burst.panOffset(), stepwise.panOffset());
        QCOMPARE(burst.image().size(), stepwise.image().size());
        if (!script.endsWith('r'))
            QCOMPARE(burst.image().toImage(), stepwise.image().toImage());
    }
};

VIEW_TEST_MAIN(TstCutView, true)
#include "tst_cutview.moc"
