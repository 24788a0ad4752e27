#include "views/linepoints.h"
#include "views/myopenglwidget.h"
#include "views/threedview.h"
#include "viewtestsupport.h"

#include <cmath>
#include <limits>

using namespace vxlindral;

// How a line becomes drawn points, against values worked out by hand. The
// line of the rows: intensities 100, 205 and 310 have mean 205 and sample
// deviation 105, so the band 205 - 210 .. 205 + 315 holds them all and the
// range is 100 .. 310: one intensity per gray step (210 / 210), intensity
// 100 at gray 45, 205 at 45 + 105 = 150, 310 at 45 + 210 = 255.
class TstLinePoints : public QObject
{
    Q_OBJECT
private:
    static LineType rowsLine()
    {
        return viewtest::makeLine(
            {viewtest::pt(0.5, 1.25, 100), viewtest::pt(-0.5, 2.0, 205), viewtest::pt(0, 0, 310)});
    }
    // x, y, z and gray of each pixel of the line as the 500th line (x = 500
    // / 250 + 0.1): the scanner's z goes down the viewer's y, its y along z.
    static QVector<QVector<double>> expected()
    {
        return {{2.1, -1.25, 0.5, 45}, {2.1, -2.0, -0.5, 150}, {2.1, 0, 0, 255}};
    }

private slots:
    void lineX_data()
    {
        QTest::addColumn<qint64>("index");
        QTest::addColumn<double>("x");
        QTest::newRow("first line") << qint64(0) << 0.1;
        QTest::newRow("250 lines on") << qint64(250) << 1.1;
        QTest::newRow("a million lines on") << qint64(1000000) << 4000.1;
    }
    void lineX()
    {
        QFETCH(qint64, index);
        QFETCH(double, x);
        QCOMPARE(LinePoints::lineX(index), float(x));
    }

    void grays_data()
    {
        QTest::addColumn<uint>("intensity");
        QTest::addColumn<int>("minI");
        QTest::addColumn<double>("step");
        QTest::addColumn<int>("gray");
        QTest::newRow("the range's lower end") << 100u << 100 << 1.0 << 45;
        QTest::newRow("half way") << 205u << 100 << 1.0 << 150;
        QTest::newRow("the upper end") << 310u << 100 << 1.0 << 255;
        QTest::newRow("beyond the upper end, clamped") << 400u << 100 << 1.0 << 255;
        QTest::newRow("two intensities a step") << 104u << 100 << 2.0 << 47;
        // Below the range the difference wraps: very bright, clamped.
        QTest::newRow("below the range wraps") << 99u << 100 << 1.0 << 255;
    }
    void grays()
    {
        QFETCH(uint, intensity);
        QFETCH(int, minI);
        QFETCH(double, step);
        QFETCH(int, gray);
        QCOMPARE(int(LinePoints::gray8(LinePoints::colour(intensity, {minI, step}))), gray);
    }

    void gray8OfOddColours()
    {
        QCOMPARE(int(LinePoints::gray8(std::numeric_limits<float>::quiet_NaN())), 0);
        QCOMPARE(int(LinePoints::gray8(-0.5f)), 0);
        QCOMPARE(int(LinePoints::gray8(255.0f)), 255);
    }

    void rangeOfTheRowsLine()
    {
        const LinePoints::Range range = LinePoints::rangeOf(*rowsLine());
        QCOMPARE(range.minI, 100);
        QCOMPARE(range.step, 1.0);
    }

    // The 3D view's cloud (and so its export) holds the hand-worked points.
    void threeDCloud()
    {
        ThreeDView view;
        MyOpenGLWidget* gl = view.glWidget();
        gl->clearLines(500); // the next line is the 500th
        gl->addLine(rowsLine());
        const std::vector<CloudWriter::Point> cloud = gl->cloud();
        const QVector<QVector<double>> want = expected();
        QCOMPARE(int(cloud.size()), want.size());
        for (int i = 0; i < want.size(); ++i) {
            const CloudWriter::Point& p = cloud[std::size_t(i)];
            QCOMPARE(p.x, float(want[i][0]));
            QCOMPARE(p.y, float(want[i][1]));
            QCOMPARE(p.z, float(want[i][2]));
            QCOMPARE(int(p.gray), int(want[i][3]));
            QCOMPARE(p.pixel, uint32_t(i));
        }
    }
};

QTEST_MAIN(TstLinePoints)
#include "tst_linepoints.moc"
