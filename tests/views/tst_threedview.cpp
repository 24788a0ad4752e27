#include "views/myopenglwidget.h"
#include "views/threedview.h"
#include "viewtestsupport.h"

#include <QOpenGLContext>
#include <QSettings>

using namespace vxlindral;
using viewtest::makeIntensityLine;
using viewtest::makeLine;
using viewtest::Pt;

class TstThreeDView : public QObject
{
    Q_OBJECT
private:
    std::unique_ptr<ThreeDView> view;
    MyOpenGLWidget* gl() const { return view->glWidget(); }

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
    }
    void cleanup() { view.reset(); }

    void contextIsCore33()
    {
        QOpenGLContext* ctx = gl()->context();
        QVERIFY(ctx);
        const QSurfaceFormat f = ctx->format();
        QVERIFY2(f.profile() == QSurfaceFormat::CoreProfile, "no core profile");
        QVERIFY(qMakePair(f.majorVersion(), f.minorVersion()) >= qMakePair(3, 3));
    }

    // Vertices: (lineCount / 250 + 0.1, -z, y), gray from the intensity range.
    void verticesOfOneLine()
    {
        // 100 and 310 in pairs: range 100 .. 310, r = 1.
        auto line =
            makeLine({{0.25, 0.5, 100}, {0.75, -1.0, 100}, {1.0, 2.0, 310}, {2.0, 3.0, 310}});
        view->updateNewLine(line);
        view->updateNewLine(line);
        const auto& v = gl()->getVertices();
        QCOMPARE(v.size(), std::size_t(8));
        QCOMPARE(v[0].x, 0.1f);
        QCOMPARE(v[0].y, -0.5f);
        QCOMPARE(v[0].z, 0.25f);
        QCOMPARE(v[0].r, 45.0f / 255.0f);
        QCOMPARE(v[2].g, 1.0f);
        QCOMPARE(v[4].x, static_cast<float>(1 / 250.0 + 0.1));
        QCOMPARE(gl()->getLineCount(), 2);
    }

    void thinningAndTrimming_data()
    {
        QTest::addColumn<int>("pointsPerLine");
        QTest::addColumn<int>("maxPoints");
        QTest::addColumn<int>("pixels");
        QTest::addColumn<int>("lines");
        QTest::addColumn<int>("expected");
        QTest::newRow("fewer than per line") << 1000 << 100000 << 600 << 1 << 600;
        QTest::newRow("2500 gives step 2") << 1000 << 100000 << 2500 << 1 << 1250;
        // The third line first drops the oldest 1000 once.
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
        std::vector<uint32_t> values(static_cast<std::size_t>(pixels));
        for (int i = 0; i < pixels; ++i)
            values[static_cast<std::size_t>(i)] = static_cast<uint32_t>(i);
        auto line = makeIntensityLine(values);
        for (int i = 0; i < lines; ++i)
            view->updateNewLine(line);
        QTEST(static_cast<int>(gl()->getVertices().size()), "expected");
        s.clear();
    }

    // Before any line only the clear colour; with a cloud in front of the
    // camera some pixels differ from it.
    void renderedFrameShowsPoints()
    {
        QImage empty = gl()->grabFramebuffer().convertToFormat(QImage::Format_RGB32);
        const QRgb clear = empty.pixel(empty.width() / 2, empty.height() / 2);
        QVERIFY(qAbs(qRed(clear) - 128) <= 1);
        int nonClear = 0;
        for (int y = 0; y < empty.height(); ++y)
            for (int x = 0; x < empty.width(); ++x)
                nonClear += empty.pixel(x, y) != clear;
        QCOMPARE(nonClear, 0);

        // A dense block of points around the origin: bright and dark.
        std::vector<Pt> pts;
        for (int i = 0; i < 900; ++i)
            pts.push_back({(i % 30) / 60.0 - 0.25, (i / 30) / 60.0 - 0.25,
                           static_cast<uint32_t>(i % 2 ? 5000 : 100), 1, 0});
        for (int i = 0; i < 20; ++i)
            view->updateNewLine(makeLine(pts));
        const QImage img = gl()->grabFramebuffer().convertToFormat(QImage::Format_RGB32);
        nonClear = 0;
        for (int y = 0; y < img.height(); ++y)
            for (int x = 0; x < img.width(); ++x)
                nonClear += img.pixel(x, y) != clear;
        QVERIFY2(nonClear > 50, qPrintable(QString::number(nonClear)));
    }

    void homeResetsCameraNotCloud()
    {
        view->updateNewLine(makeIntensityLine({1, 2, 3}));
        gl()->getCamera().translate(QVector3D(1, 2, 3));
        gl()->getCamera().rotate(30.0f, QVector3D(0, 1, 0));
        view->handleHome();
        QCOMPARE(gl()->getCamera().translation(), QVector3D());
        QVERIFY(qFuzzyCompare(gl()->getCamera().rotation(), QQuaternion()));
        QCOMPARE(gl()->getVertices().size(), std::size_t(3));
    }
};

VIEW_TEST_MAIN(TstThreeDView, false)
#include "tst_threedview.moc"
