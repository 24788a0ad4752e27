#include "views/myopenglwidget.h"
#include "views/threedview.h"
#include "viewtestsupport.h"

#include <QAction>
#include <QOpenGLBuffer>
#include <QOpenGLContext>
#include <QOpenGLExtraFunctions>
#include <QOpenGLFramebufferObject>
#include <QOpenGLShaderProgram>
#include <QOpenGLVertexArrayObject>
#include <QSettings>
#include <QSignalSpy>
#include <QToolBar>
#include <cstring>

using namespace vxlindral;
using viewtest::makeLine;
using viewtest::pt;

namespace {

// The cloud as one contiguous array from whose front the oldest vertices are
// erased, drawn with one call: the form whose picture the ring must keep.
struct ContiguousCloud
{
    std::vector<CloudVertex> v;
    int lines = 0;
    void add(const MyLine& line, int perLine, int maxPoints, BasicView& view)
    {
        const int n = line.pixel;
        const int step = perLine > 0 ? std::max(n / perLine, 1) : 1;
        const int count = n / step;
        if (count > 0 && count + static_cast<long long>(v.size()) > maxPoints)
            v.erase(v.begin(), v.begin() + std::min<std::ptrdiff_t>(count, v.size()));
        int minI = 65535, maxI = 0;
        view.calculateRanges(&line, minI, maxI);
        const double r = (maxI - minI) / 210.0;
        const float x = static_cast<float>(lines++ / 250.0 + 0.1);
        for (int i = 0; i < n; i += step) {
            const vxs::VxPt& p = line.points[static_cast<std::size_t>(i)];
            const auto c = static_cast<float>(
                std::min(((p.intensity - static_cast<uint32_t>(minI)) / r + 45.0) / 255.0, 255.0));
            v.push_back({x, -static_cast<float>(p.z), static_cast<float>(p.y), c, c, c});
        }
    }
};

// Index of the first vertex that differs (or where the lengths part), -1 if
// none.
int firstDifference(const std::vector<CloudVertex>& a, const std::vector<CloudVertex>& b)
{
    for (std::size_t i = 0; i < std::max(a.size(), b.size()); ++i)
        if (i >= a.size() || i >= b.size() || std::memcmp(&a[i], &b[i], sizeof(CloudVertex)))
            return static_cast<int>(i);
    return -1;
}

// A line whose points crowd into few pixels, with intensities that differ
// between points sharing a pixel, so that the drawing order shows.
LineType crowdedLine(int pixels, int seed)
{
    std::vector<vxs::VxPt> pts;
    for (int i = 0; i < pixels; ++i)
        pts.push_back(pt(((i * 7) % 50) / 100.0 - 0.25, ((i * 3 + seed) % 40) / 100.0 - 0.2,
                         static_cast<uint32_t>(100 + (i * 37 + seed * 101) % 900)));
    return makeLine(std::move(pts));
}

void storeLimits(int perLine, int maxPoints)
{
    QSettings s;
    s.setValue("ThreeD/pointsPerLine", perLine);
    s.setValue("ThreeD/maxPoints", maxPoints);
}

} // namespace

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

    static std::unique_ptr<ThreeDView> shownView()
    {
        auto v = std::make_unique<ThreeDView>();
        v->resize(320, 240);
        v->show();
        if (!QTest::qWaitForWindowExposed(v.get()) ||
            !QTest::qWaitFor([&] { return v->glWidget()->isValid(); }))
            return nullptr;
        return v;
    }

    // The vertices drawn the plain way (one array, one draw call) with the
    // widget's shaders, camera and projection, in the widget's context.
    QImage drawContiguous(const std::vector<CloudVertex>& v) const
    {
        MyOpenGLWidget* w = gl();
        w->makeCurrent();
        QImage image;
        { // the GL objects go while the context is current
            QOpenGLExtraFunctions* f = w->context()->extraFunctions();
            QOpenGLFramebufferObject fbo(w->size());
            fbo.bind();
            f->glViewport(0, 0, w->width(), w->height());
            f->glClearColor(0.5f, 0.5f, 0.5f, 1.0f);
            f->glClear(GL_COLOR_BUFFER_BIT);
            QOpenGLShaderProgram p;
            p.addShaderFromSourceCode(QOpenGLShader::Vertex, MyOpenGLWidget::vertexShaderSource);
            p.addShaderFromSourceCode(QOpenGLShader::Fragment,
                                      MyOpenGLWidget::fragmentShaderSource);
            p.link();
            p.bind();
            QOpenGLVertexArrayObject vao;
            QOpenGLVertexArrayObject::Binder bound(&vao);
            QOpenGLBuffer buffer;
            buffer.create();
            buffer.bind();
            buffer.allocate(v.data(), static_cast<int>(v.size() * sizeof(CloudVertex)));
            for (int a = 0; a < 2; ++a) {
                p.enableAttributeArray(a);
                p.setAttributeBuffer(a, GL_FLOAT, 12 * a, 3, sizeof(CloudVertex));
            }
            QMatrix4x4 projection;
            projection.perspective(45.0f, w->width() / float(w->height()), 0.01f, 100.0f);
            projection.translate(0.0f, 0.0f, -2.0f);
            p.setUniformValue("modelToWorld", QMatrix4x4());
            p.setUniformValue("worldToCamera", w->getCamera().toMatrix());
            p.setUniformValue("cameraToView", projection);
            f->glDrawArrays(GL_POINTS, 0, static_cast<GLsizei>(v.size()));
            image = fbo.toImage().convertToFormat(QImage::Format_RGB32);
            buffer.destroy();
        }
        w->doneCurrent();
        return image;
    }

    // Waits until the widget stops painting (100 ms without a frame), for at
    // most 4 s; false if it keeps painting.
    static bool becomesIdle(QSignalSpy& frames)
    {
        for (int i = 0; i < 40; ++i) {
            frames.clear();
            QTest::qWait(100);
            if (frames.isEmpty())
                return true;
        }
        return false;
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
        view = shownView();
        QVERIFY(view);
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

    // Each line is thinned to about pointsPerLine points (0: not thinned); a
    // line that would pass maxPoints first drops as many of the oldest
    // vertices as it keeps of its count n / step, once. Lines taken one at a
    // time with a frame after each, and in one burst before a single frame,
    // give the picture of the contiguous array, and after every line the ring
    // holds its vertices in its order. The limits may change after some lines.
    void ringKeepsContiguousOrder_data()
    {
        QTest::addColumn<QVector<int>>("pixels");
        QTest::addColumn<QVector<int>>("limits"); // perLine, maxPoints[, at, perLine, maxPoints]
        QTest::addColumn<bool>("wraps");
        QTest::addColumn<int>("vertices");
        QTest::newRow("fewer than per line")
            << QVector<int>{600} << QVector<int>{1000, 100000} << false << 600;
        QTest::newRow("2500 gives step 2")
            << QVector<int>{2500} << QVector<int>{1000, 100000} << false << 1250;
        QTest::newRow("zero per line")
            << QVector<int>{300} << QVector<int>{0, 100000} << false << 300;
        QTest::newRow("trim oldest")
            << QVector<int>(3, 1000) << QVector<int>{1000, 2500} << true << 2000;
        QTest::newRow("equal lines")
            << QVector<int>(12, 100) << QVector<int>{1000, 350} << true << 300;
        QTest::newRow("varying lengths")
            << QVector<int>{300, 250, 400, 120, 333, 500, 77, 260, 410, 90, 350, 199}
            << QVector<int>{1000, 700} << true << 670;
        // Step 3 keeps 101 of 301 points but drops only 100: the cloud creeps.
        QTest::newRow("thinning remainder")
            << QVector<int>(15, 301) << QVector<int>{100, 350} << true << 315;
        QTest::newRow("growing lines") << QVector<int>{100, 150, 200, 250, 300, 350, 400, 450, 500}
                                       << QVector<int>{1000, 600} << true << 500;
        // The cloud stays at 1000 vertices, above the new limit.
        QTest::newRow("limits lowered")
            << QVector<int>(18, 200) << QVector<int>{1000, 1000, 6, 50, 300} << true << 1000;
        QTest::newRow("limits raised while wrapped")
            << QVector<int>(14, 200) << QVector<int>{100, 350, 7, 1000, 5000} << true << 1700;
    }
    void ringKeepsContiguousOrder()
    {
        QFETCH(QVector<int>, pixels);
        QFETCH(QVector<int>, limits);
        QFETCH(bool, wraps);
        const auto burst = shownView();
        QVERIFY(burst);
        ContiguousCloud plain;
        int perLine = limits[0], maxPoints = limits[1];
        bool wrapped = false;
        for (int l = 0; l < pixels.size(); ++l) {
            if (limits.size() > 2 && l == limits[2]) {
                perLine = limits[3];
                maxPoints = limits[4];
            }
            storeLimits(perLine, maxPoints);
            view->handleConfigChanged();
            burst->handleConfigChanged();
            const LineType line = crowdedLine(pixels[l], l);
            plain.add(*line, perLine, maxPoints, *view);
            view->updateNewLine(line);
            burst->updateNewLine(line);
            gl()->grabFramebuffer(); // a frame, and so an upload, after each line
            CloudRing::Range runs[2];
            wrapped |= gl()->getVertices().drawRanges(runs) == 2;
            QCOMPARE(firstDifference(gl()->getVertices().toVector(), plain.v), -1);
        }
        QCOMPARE(wrapped, wraps);
        QTEST(static_cast<int>(plain.v.size()), "vertices");
        const QImage stepwise = gl()->grabFramebuffer().convertToFormat(QImage::Format_RGB32);
        QCOMPARE(burst->glWidget()->grabFramebuffer().convertToFormat(QImage::Format_RGB32),
                 stepwise);
        QCOMPARE(drawContiguous(plain.v), stepwise);
        QVERIFY(pointsDrawn(stepwise.pixel(0, 0)) > 20);
    }

    // A change paints, then the widget stops painting until the next one.
    // While the left button (or any key) is held, frames keep coming and the
    // navigation step runs in each: a drag turns or pans, a held key flies,
    // but keys alone move nothing.
    void framesFollowChanges_data()
    {
        QTest::addColumn<QString>("change");
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<bool>("moves");
        for (const char* c : {"line", "home", "resize", "tap", "click"})
            QTest::newRow(c) << QString(c) << int(Qt::Key_Left) << 0 << false;
        QTest::newRow("drag turns") << "drag" << 0 << 0 << true;
        QTest::newRow("shift drag pans") << "drag" << 0 << int(Qt::ShiftModifier) << true;
        QTest::newRow("held button and plus") << "hold" << int(Qt::Key_Plus) << 0 << true;
        QTest::newRow("held plus alone") << "key" << int(Qt::Key_Plus) << 0 << false;
    }
    void framesFollowChanges()
    {
        QFETCH(QString, change);
        QFETCH(int, key);
        QFETCH(int, modifiers);
        const auto mods = Qt::KeyboardModifiers(modifiers);
        QSignalSpy frames(gl(), &QOpenGLWidget::frameSwapped);
        QVERIFY(becomesIdle(frames));
        const QMatrix4x4 before = gl()->getCamera().toMatrix();
        const QPoint at(100, 100), to(120, 110);
        const bool button = change == "drag" || change == "hold";
        const bool held = button || change == "key";
        if (change == "line")
            view->updateNewLine(crowdedLine(100, 1));
        else if (change == "home")
            view->handleHome();
        else if (change == "resize")
            view->resize(300, 200);
        else if (change == "tap")
            QTest::keyClick(gl(), Qt::Key(key));
        else if (change == "click")
            QTest::mouseClick(gl(), Qt::LeftButton);
        if (button)
            QTest::mousePress(gl(), Qt::LeftButton, mods, at);
        if (held && key)
            QTest::keyPress(gl(), Qt::Key(key));
        if (change == "drag") {
            QMouseEvent moved(QEvent::MouseMove, to, gl()->mapToGlobal(to), Qt::NoButton,
                              Qt::LeftButton, mods);
            QApplication::sendEvent(gl(), &moved);
        }
        QTRY_VERIFY(frames.count() >= (held ? 8 : 1));
        if (held && key)
            QTest::keyRelease(gl(), Qt::Key(key));
        if (button)
            QTest::mouseRelease(gl(), Qt::LeftButton, mods, to);
        QVERIFY(becomesIdle(frames));
        QFETCH(bool, moves);
        QCOMPARE(gl()->getCamera().toMatrix() != before, moves);
    }

    // Following, the camera keeps its rotation and its offset from the newest
    // line (the cloud holds only the newest line here); not following, it
    // stays put and the cloud leaves the frame. Following, Home shows the
    // newest line as it shows the first line otherwise, and following goes on.
    void follow_data()
    {
        QTest::addColumn<bool>("follow");
        QTest::addColumn<int>("lines");
        QTest::addColumn<QVector3D>("start");
        QTest::addColumn<float>("yaw");
        QTest::addColumn<bool>("inSight");
        QTest::newRow("still, first lines") << false << 20 << QVector3D() << 0.0f << true;
        QTest::newRow("still, cloud gone") << false << 600 << QVector3D() << 0.0f << false;
        QTest::newRow("following") << true << 600 << QVector3D() << 0.0f << true;
        QTest::newRow("following, turned and moved")
            << true << 900 << QVector3D(0.2f, 0.1f, 0.5f) << 15.0f << true;
        QTest::newRow("following, looking away")
            << true << 600 << QVector3D(-5.0f, 0.0f, 0.0f) << 0.0f << false;
    }
    void follow()
    {
        QFETCH(bool, follow);
        QFETCH(int, lines);
        QFETCH(QVector3D, start);
        QFETCH(float, yaw);
        storeLimits(1000, 100);
        view->handleConfigChanged();
        view->activateWindow();
        gl()->setFocus();
        QTRY_VERIFY(gl()->hasFocus());
        // The button, after Home, with its own icon.
        const QAction* button = view->findChild<QAction*>("actionFollow");
        QCOMPARE(view->toolBar()->actions().indexOf(const_cast<QAction*>(button)), 1);
        const QImage icon = button->icon().pixmap(24, 24).toImage();
        QVERIFY(viewtest::countPixels(icon, [](QRgb c) { return qAlpha(c) > 128; }) > 24);
        if (follow)
            QTest::keyClick(gl(), Qt::Key_F);
        QCOMPARE(button->isChecked(), follow);
        QCOMPARE(gl()->isFollowing(), follow);
        QCOMPARE(QSettings().value("ThreeD/follow", false).toBool(), follow);
        QCOMPARE(ThreeDView().glWidget()->isFollowing(), follow); // a new view reads it
        Camera3D& camera = gl()->getCamera();
        camera.setTranslation(start);
        const QQuaternion turn = QQuaternion::fromAxisAndAngle(0, 1, 0, yaw);
        camera.setRotation(turn);
        const QMatrix4x4 before = camera.toMatrix();
        const QRgb clear = gl()->grabFramebuffer().pixel(0, 0);
        for (int l = 0; l < lines; ++l)
            view->updateNewLine(crowdedLine(100, l));
        QTEST(pointsDrawn(clear) > 20, "inSight");
        QCOMPARE(camera.rotation(), turn);
        if (!follow) {
            QCOMPARE(camera.toMatrix(), before);
            return;
        }
        const float moved = MyOpenGLWidget::lineX(lines - 1) - MyOpenGLWidget::lineX(-1);
        QVERIFY((camera.translation() - start - QVector3D(moved, 0, 0)).length() < 1e-3f);

        view->handleHome();
        QVERIFY(gl()->isFollowing());
        QCOMPARE(camera.rotation(), QQuaternion());
        const float home = MyOpenGLWidget::lineX(lines - 1) - MyOpenGLWidget::lineX(0);
        QCOMPARE(camera.translation(), QVector3D(home, 0, 0));
        QVERIFY(pointsDrawn(clear) > 20);
        view->updateNewLine(crowdedLine(100, 0));
        QVERIFY(qAbs(camera.translation().x() - home - 1 / 250.0f) < 1e-5f);

        // F again: no longer following, the camera stays where it is.
        QTest::keyClick(gl(), Qt::Key_F);
        QVERIFY(!QSettings().value("ThreeD/follow").toBool());
        const QMatrix4x4 left = camera.toMatrix();
        view->updateNewLine(crowdedLine(100, 0));
        QCOMPARE(camera.toMatrix(), left);
    }
};

VIEW_TEST_MAIN(TstThreeDView, false)
#include "tst_threedview.moc"
