#include "views/cutview.h"
#include "views/drawcut.h"
#include "viewtestsupport.h"

#include <QImage>
#include <QLabel>
#include <QPixmap>
#include <QSignalSpy>

using namespace vxlindral;
using viewtest::makeLine;
using viewtest::pt;

namespace {

const QRgb kGood = qRgb(0, 0, 200);
const QRgb kReject = qRgb(192, 0, 0);
const QRgb kWhite = qRgb(255, 255, 255);

// Draws the line into a 200 x 100 pixmap, without grid unless asked.
QImage render(const LineType& line, CutParams p = {}, bool grid = false)
{
    p.grid = grid;
    QPixmap pixmap(200, 100);
    drawCut(*line, p, pixmap);
    return pixmap.toImage().convertToFormat(QImage::Format_RGB32);
}

int countColour(const QImage& img, QRgb c)
{
    int n = 0;
    for (int y = 0; y < img.height(); ++y)
        for (int x = 0; x < img.width(); ++x)
            n += img.pixel(x, y) == c;
    return n;
}

} // namespace

class TstCutView : public QObject
{
    Q_OBJECT
private slots:
    // Points land at round(cx - k*y + offset.x), round(cy + k*z + offset.y)
    // with k = cx / scale: both axes are negated.
    void pointMapping_data()
    {
        QTest::addColumn<float>("scale");
        QTest::addColumn<QPointF>("yz");
        QTest::addColumn<QPoint>("offset");
        QTest::addColumn<QPoint>("expected");
        QTest::newRow("origin at centre") << 35.0f << QPointF() << QPoint() << QPoint(100, 50);
        // k = 100/35: y 3.5 -> 10 px left, z 1.75 -> 5 px down.
        QTest::newRow("negated axes") << 35.0f << QPointF(3.5, 1.75) << QPoint() << QPoint(90, 55);
        // k = 100: 0.125 m is 12.5 px, rounded half away from zero.
        QTest::newRow("half rounds away")
            << 1.0f << QPointF(-0.125, 0.125) << QPoint() << QPoint(113, 63);
        QTest::newRow("pan offset") << 35.0f << QPointF() << QPoint(-30, 20) << QPoint(70, 70);
    }
    void pointMapping()
    {
        QFETCH(QPointF, yz);
        QFETCH(QPoint, offset);
        CutParams p;
        QFETCH(float, scale);
        p.scale = scale;
        p.offsetX = offset.x();
        p.offsetY = offset.y();
        const QImage img = render(makeLine({pt(yz.x(), yz.y(), 100)}), p);
        QFETCH(QPoint, expected);
        QCOMPARE(img.pixel(expected), kGood);
        QCOMPARE(countColour(img, kGood), 1);
    }

    // A good point, a rejected one and an invalid one: the two bad ones show
    // in red only with the filter switch; a line without flag bit 3 leaves
    // the pixmap white, grid included. The white count proves nothing else
    // was drawn.
    void drawnPixels_data()
    {
        QTest::addColumn<bool>("filtered");
        QTest::addColumn<int>("flags");
        QTest::addColumn<bool>("grid");
        QTest::addColumn<int>("good");
        QTest::addColumn<int>("reject");
        QTest::addColumn<int>("white");
        QTest::newRow("unfiltered hides") << false << 200 << false << 1 << 0 << 19999;
        QTest::newRow("filtered shows red") << true << 200 << false << 1 << 2 << 19997;
        QTest::newRow("flag bit 3 clear") << true << (200 & ~8) << true << 0 << 0 << 20000;
    }
    void drawnPixels()
    {
        QFETCH(bool, filtered);
        QFETCH(int, flags);
        QFETCH(bool, grid);
        CutParams p;
        p.scale = 35.0f;
        p.displayFiltered = filtered;
        const auto line =
            makeLine({pt(0, 0, 1), pt(3.5, 0, 1, true, 7), pt(-3.5, 0, 1, false)}, flags);
        const QImage img = render(line, p, grid);
        QTEST(countColour(img, kGood), "good");
        QTEST(countColour(img, kReject), "reject");
        QTEST(countColour(img, kWhite), "white");
    }

    // The grid spacing is the step in millimetres over the scale (1000 / 35 =
    // 28 px here), although the points use the real half-width of 100 px.
    void gridAxesAndLabel()
    {
        CutParams p;
        p.scale = 35.0f;
        const QImage img = render(makeLine({}), p, true);
        const int axis = qGray(img.pixel(100, 30));
        const int line = qGray(img.pixel(128, 30));
        QVERIFY2(axis < line && line < 255, qPrintable(QString("%1 %2").arg(axis).arg(line)));
        for (QPoint at :
             {QPoint(72, 30), QPoint(16, 30), QPoint(184, 30), QPoint(30, 22), QPoint(30, 78)})
            QCOMPARE(qGray(img.pixel(at)), line);
        QCOMPARE(qGray(img.pixel(30, 50)), axis);
        QCOMPARE(img.pixel(114, 36), kWhite);
        // The label (alpha 80, darker than the grid lines) sits at the top left.
        int dark = 0;
        for (int y = 0; y <= 10; ++y)
            for (int x = 5; x < 65; ++x)
                dark += qGray(img.pixel(x, y)) < 200;
        QVERIFY(dark > 0);
    }

    // The step grows with the scale in bands; from 500 on the last one holds.
    void gridStep()
    {
        const struct
        {
            float scale;
            double step;
            int unit;
        } rows[] = {{0.1f, 0.01, 10}, {499.0f, 10.0, 10000}, {500.0f, 100.0, 100000}};
        for (const auto& r : rows) {
            double step = 0;
            int unit = 0;
            cutGridStep(r.scale, step, unit);
            QCOMPARE(step, r.step);
            QCOMPARE(unit, r.unit);
        }
    }

    void polylineJoinsPoints()
    {
        CutParams p;
        p.scale = 35.0f;
        p.drawLines = true;
        const QImage img = render(makeLine({pt(3.5, 0, 1), pt(-3.5, 0, 1)}), p);
        for (int x = 90; x <= 110; ++x)
            QCOMPARE(img.pixel(x, 50), kGood);
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
};

VIEW_TEST_MAIN(TstCutView, true)
#include "tst_cutview.moc"
