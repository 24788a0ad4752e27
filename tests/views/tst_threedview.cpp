#include "views/myopenglwidget.h"
#include "views/threedview.h"
#include "viewtestsupport.h"

#include <QOpenGLContext>
#include <QSettings>

using namespace vxlindral;
using viewtest::makeIntensityLine;
using viewtest::makeLine;
using viewtest::pt;

class TstThreeDView : public QObject
{
    Q_OBJECT
private:
    std::unique_ptr<ThreeDView> view;
    MyOpenGLWidget* gl() const { return view->glWidget(); }

    // Pixels of the current frame that differ from the clear colour.
    int pointsDrawn(QRgb clear) const
    {
        return viewtest::countPixels(gl()->grabFramebuffer().convertToFormat(QImage::Format_RGB32),
                                     [clear](QRgb c) { return c != clear; });
    }

private slots:
    void initTestCase()
    {
        QCoreApplication::setOrganizationName("vx-test");
        QCoreApplication::setApplicationName("tst_threedview");
        QSettings().clear();
    }
    void init()
    {
        view = std::make_unique<ThreeDView>();
        view->resize(320, 240);
        view->show();
        view->activateWindow();
        QTRY_VERIFY(gl()->isValid());
        // Offscreen platforms silently fall back to a compatibility context.
        const QSurfaceFormat f = gl()->context()->format();
        QCOMPARE(f.profile(), QSurfaceFormat::CoreProfile);
        QVERIFY(qMakePair(f.majorVersion(), f.minorVersion()) >= qMakePair(3, 3));
    }
    void cleanup()
    {
        view.reset();
        QSettings().clear();
    }

    // Vertices: (lineCount / 250 + 0.1, -z, y), gray from the intensity range
    // (100 .. 310 here, so 100 is 45 / 255 and 310 is 1).
    void verticesOfOneLine()
    {
        auto line = makeLine(
            {pt(0.25, 0.5, 100), pt(0.75, -1.0, 100), pt(1.0, 2.0, 310), pt(2.0, 3.0, 310)});
        view->updateNewLine(line);
        view->updateNewLine(line);
        const auto& v = gl()->getVertices();
        QCOMPARE(v.size(), std::size_t(8));
        QCOMPARE(QVector3D(v[0].x, v[0].y, v[0].z), QVector3D(0.1f, -0.5f, 0.25f));
        QCOMPARE(v[0].r, 45.0f / 255.0f);
        QCOMPARE(v[2].g, 1.0f);
        QCOMPARE(v[4].x, static_cast<float>(1 / 250.0 + 0.1));
    }

    // Each line is thinned to about pointsPerLine points; a line that would
    // pass maxPoints first drops the oldest vertices, as many as it adds.
    void thinningAndTrimming_data()
    {
        QTest::addColumn<int>("pointsPerLine");
        QTest::addColumn<int>("maxPoints");
        QTest::addColumn<int>("pixels");
        QTest::addColumn<int>("lines");
        QTest::addColumn<int>("expected");
        QTest::newRow("fewer than per line") << 1000 << 100000 << 600 << 1 << 600;
        QTest::newRow("2500 gives step 2") << 1000 << 100000 << 2500 << 1 << 1250;
        QTest::newRow("trim oldest") << 1000 << 2500 << 1000 << 3 << 2000;
        QTest::newRow("zero per line is not thinned") << 0 << 100000 << 300 << 1 << 300;
    }
    void thinningAndTrimming()
    {
        QFETCH(int, pointsPerLine);
        QFETCH(int, maxPoints);
        QFETCH(int, pixels);
        QFETCH(int, lines);
        QSettings s;
        s.setValue("ThreeD/pointsPerLine", pointsPerLine);
        s.setValue("ThreeD/maxPoints", maxPoints);
        s.sync();
        view->handleConfigChanged();
        auto line = makeIntensityLine(std::vector<uint32_t>(static_cast<std::size_t>(pixels), 7));
        for (int i = 0; i < lines; ++i)
            view->updateNewLine(line);
        QTEST(static_cast<int>(gl()->getVertices().size()), "expected");
    }

    // Before any line only the gray clear colour; a cloud in front of the
    // camera shows. Home brings the camera back and keeps the cloud.
    void frameShowsPointsAndHomeKeepsThem()
    {
        const QRgb clear = gl()->grabFramebuffer().pixel(160, 120);
        QVERIFY(qAbs(qRed(clear) - 128) <= 1);
        QCOMPARE(pointsDrawn(clear), 0);
        // A dense block of points around the origin, bright and dark.
        std::vector<vxs::VxPt> pts;
        for (int i = 0; i < 900; ++i)
            pts.push_back(pt((i % 30) / 60.0 - 0.25, (i / 30) / 60.0 - 0.25, i % 2 ? 5000 : 100));
        for (int i = 0; i < 20; ++i)
            view->updateNewLine(makeLine(pts));
        const int shown = pointsDrawn(clear);
        QVERIFY2(shown > 50, qPrintable(QString::number(shown)));

        gl()->getCamera().translate(QVector3D(1, 2, 3));
        gl()->getCamera().rotate(30.0f, QVector3D(0, 1, 0));
        QVERIFY(pointsDrawn(clear) != shown);
        view->handleHome();
        QCOMPARE(gl()->getCamera().translation(), QVector3D());
        QVERIFY(qFuzzyCompare(gl()->getCamera().rotation(), QQuaternion()));
        QCOMPARE(gl()->getVertices().size(), std::size_t(20 * 900));
        QCOMPARE(pointsDrawn(clear), shown);
    }
};

VIEW_TEST_MAIN(TstThreeDView, false)
#include "tst_threedview.moc"
