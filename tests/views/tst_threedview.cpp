#include "views/linepoints.h"
#include "views/myopenglwidget.h"
#include "views/threedview.h"
#include "viewtestsupport.h"

#include <QAction>
#include <QHash>
#include <QOpenGLBuffer>
#include <QOpenGLContext>
#include <QOpenGLExtraFunctions>
#include <QOpenGLFramebufferObject>
#include <QOpenGLShaderProgram>
#include <QOpenGLVertexArrayObject>
#include <QSettings>
#include <QSignalSpy>
#include <algorithm>
#include <cmath>
#include <functional>
#include <type_traits>

using namespace vxlindral;

namespace {

// The cloud as one contiguous array from whose front the oldest vertices are
// erased, drawn with one call: the form whose picture the ring must keep.
// A line is thinned to every (n / perLine)th point (every point when perLine
// is 0); one that would pass maxPoints first drops as many of the oldest
// vertices as it keeps of its count n / step, once. A vertex is (lines / 250
// + 0.1, -z, y), gray from the line's intensity range. Beside it, the points
// an export must write: the vertex, its gray as drawn, and its source.
struct ContiguousCloud
{
    std::vector<CloudVertex> v;
    std::vector<CloudWriter::Point> exported;
    int lines = 0;
    void add(const MyLine& line, int perLine, int maxPoints, BasicView& view)
    {
        const int n = line.pixel, step = perLine > 0 ? std::max(n / perLine, 1) : 1;
        if (n / step > 0 && n / step + int(v.size()) > maxPoints) {
            const std::ptrdiff_t drop = std::min<std::ptrdiff_t>(n / step, v.size());
            v.erase(v.begin(), v.begin() + drop);
            exported.erase(exported.begin(), exported.begin() + drop);
        }
        int minI = 65535, maxI = 0;
        view.calculateRanges(&line, minI, maxI);
        const float x = float(lines++ / 250.0 + 0.1);
        for (int i = 0; i < n; i += step) {
            const vxs::VxPt& p = line.points[std::size_t(i)];
            const double gray = (p.intensity - uint32_t(minI)) / ((maxI - minI) / 210.0) + 45.0;
            const auto c = float(std::min(gray / 255.0, 255.0));
            v.push_back({x, -float(p.z), float(p.y), c, c, c});
            const auto drawn = uint8_t(std::lround(std::min(c, 1.0f) * 255));
            exported.push_back({x, -float(p.z), float(p.y), drawn, p.intensity, float(p.range),
                                line.series, uint32_t(i)});
        }
    }
};

template <typename T> QByteArray bytes(const std::vector<T>& v)
{
    // Point has padding: compare its fields only.
    QByteArray out;
    for (const T& e : v) {
        if constexpr (std::is_same_v<T, CloudWriter::Point>) {
            const float f[] = {e.x, e.y, e.z, e.range};
            const uint32_t u[] = {e.gray, e.intensity, e.series, e.pixel};
            out.append(reinterpret_cast<const char*>(f), sizeof f);
            out.append(reinterpret_cast<const char*>(u), sizeof u);
        } else {
            out.append(reinterpret_cast<const char*>(&e), sizeof e);
        }
    }
    return out;
}

// A line whose points crowd into few pixels, with intensities that differ
// between points sharing a pixel, so that the drawing order shows.
LineType crowdedLine(int pixels, int seed)
{
    std::vector<vxs::VxPt> pts;
    for (int i = 0; i < pixels; ++i) {
        pts.push_back(viewtest::pt(((i * 7) % 50) / 100.0 - 0.25,
                                   ((i * 3 + seed) % 40) / 100.0 - 0.2,
                                   uint32_t(100 + (i * 37 + seed * 101) % 900)));
        pts.back().range = 0.5 + i * 1e-4 + seed;
    }
    LineType line = viewtest::makeLine(std::move(pts));
    line->series = 3000000000u + uint32_t(seed);
    return line;
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
        return viewtest::countPixels(viewtest::rgb(gl()->grabFramebuffer()),
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
    // widget's shaders, camera and projection, in the widget's context (left
    // current, so that the GL objects go while it is).
    QImage drawContiguous(const std::vector<CloudVertex>& v) const
    {
        MyOpenGLWidget* w = gl();
        w->makeCurrent();
        QOpenGLExtraFunctions* f = w->context()->extraFunctions();
        QOpenGLFramebufferObject fbo(w->size());
        fbo.bind();
        f->glViewport(0, 0, w->width(), w->height());
        f->glClearColor(0.5f, 0.5f, 0.5f, 1.0f);
        f->glClear(GL_COLOR_BUFFER_BIT);
        QOpenGLShaderProgram p;
        p.addShaderFromSourceCode(QOpenGLShader::Vertex, MyOpenGLWidget::vertexShaderSource);
        p.addShaderFromSourceCode(QOpenGLShader::Fragment, MyOpenGLWidget::fragmentShaderSource);
        p.link();
        p.bind();
        QOpenGLVertexArrayObject vao;
        QOpenGLVertexArrayObject::Binder bound(&vao);
        QOpenGLBuffer buffer;
        buffer.create();
        buffer.bind();
        buffer.allocate(v.data(), int(v.size() * sizeof(CloudVertex)));
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
        f->glDrawArrays(GL_POINTS, 0, GLsizei(v.size()));
        return viewtest::rgb(fbo.toImage());
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

    // Lines taken one at a time with a frame after each, and in one burst
    // before a single frame, give the picture of the contiguous array, and
    // after every line the ring holds its vertices in its order, and the
    // cloud to export holds them with their gray and sources. The limits
    // may change after some lines.
    void ringKeepsContiguousOrder_data()
    {
        using V = QVector<int>;
        QTest::addColumn<V>("pixels");
        QTest::addColumn<V>("limits"); // perLine, maxPoints[, from line, perLine, maxPoints]
        QTest::addColumn<bool>("wraps");
        QTest::addColumn<int>("vertices");
        QTest::newRow("zero per line") << V{300} << V{0, 100000} << false << 300;
        QTest::newRow("equal lines") << V(12, 100) << V{1000, 350} << true << 300;
        QTest::newRow("varying lengths")
            << V{300, 250, 400, 120, 333, 500, 77, 260, 410, 90, 350, 199} << V{1000, 700} << true
            << 670;
        // Step 3 keeps 101 of 301 points but drops only 100: the cloud creeps.
        QTest::newRow("thinning remainder") << V(15, 301) << V{100, 350} << true << 315;
        // The cloud stays at 1000 vertices, above the new limit.
        QTest::newRow("limits lowered") << V(18, 200) << V{1000, 1000, 6, 50, 300} << true << 1000;
        QTest::newRow("limits raised while wrapped")
            << V(14, 200) << V{100, 350, 7, 1000, 5000} << true << 1700;
    }
    void ringKeepsContiguousOrder()
    {
        QFETCH(QVector<int>, pixels);
        QFETCH(QVector<int>, limits);
        const auto burst = shownView();
        QVERIFY(burst);
        ContiguousCloud plain;
        bool wrapped = false;
        for (int l = 0; l < pixels.size(); ++l) {
            const int* now = limits.data() + (limits.size() > 2 && l >= limits[2] ? 3 : 0);
            QSettings settings;
            settings.setValue("ThreeD/pointsPerLine", now[0]);
            settings.setValue("ThreeD/maxPoints", now[1]);
            view->handleConfigChanged();
            burst->handleConfigChanged();
            const LineType line = crowdedLine(pixels[l], l);
            plain.add(*line, now[0], now[1], *view);
            view->updateNewLine(line);
            burst->updateNewLine(line);
            gl()->grabFramebuffer(); // a frame, and so an upload, after each line
            const CloudRing& ring = gl()->getVertices();
            wrapped |= ring.start() + ring.size() > ring.capacity();
            QCOMPARE(bytes(ring.toVector()), bytes(plain.v));
            QCOMPARE(bytes(gl()->cloud()), bytes(plain.exported));
        }
        QTEST(wrapped, "wraps");
        QTEST(int(plain.v.size()), "vertices");
        const QImage stepwise = viewtest::rgb(gl()->grabFramebuffer());
        QCOMPARE(viewtest::rgb(burst->glWidget()->grabFramebuffer()), stepwise);
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
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<bool>("moves");
        for (const char* c : {"line", "home", "resize", "click"})
            QTest::newRow(c) << QString(c) << 0 << false;
        QTest::newRow("drag turns") << "button drag" << 0 << true;
        QTest::newRow("shift drag pans") << "button drag" << int(Qt::ShiftModifier) << true;
        QTest::newRow("held button and plus") << "button plus" << 0 << true;
        QTest::newRow("held plus alone") << "plus" << 0 << false;
    }
    void framesFollowChanges()
    {
        QFETCH(QString, change);
        QFETCH(int, modifiers);
        const auto mods = Qt::KeyboardModifiers(modifiers);
        // A still camera: following, a line moves it.
        QSettings().setValue("ThreeD/follow", false);
        view->handleConfigChanged();
        QSignalSpy frames(gl(), &QOpenGLWidget::frameSwapped);
        QVERIFY(becomesIdle(frames));
        const QMatrix4x4 before = gl()->getCamera().toMatrix();
        const QPoint at(100, 100), to(120, 110);
        const bool button = change.contains("button"), plus = change.contains("plus");
        const QHash<QString, std::function<void()>> once{
            {"line", [&] { view->updateNewLine(crowdedLine(100, 1)); }},
            {"home", [&] { view->handleHome(); }},
            {"resize", [&] { view->resize(300, 200); }},
            {"click", [&] { QTest::mouseClick(gl(), Qt::LeftButton); }}};
        if (once.contains(change))
            once[change]();
        if (button)
            QTest::mousePress(gl(), Qt::LeftButton, mods, at);
        if (plus)
            QTest::keyPress(gl(), Qt::Key_Plus);
        if (change.contains("drag")) {
            QMouseEvent moved(QEvent::MouseMove, to, gl()->mapToGlobal(to), Qt::NoButton,
                              Qt::LeftButton, mods);
            QApplication::sendEvent(gl(), &moved);
        }
        QTRY_VERIFY(frames.count() >= (button || plus ? 8 : 1));
        if (plus)
            QTest::keyRelease(gl(), Qt::Key_Plus);
        if (button)
            QTest::mouseRelease(gl(), Qt::LeftButton, mods, to);
        QVERIFY(becomesIdle(frames));
        QFETCH(bool, moves);
        QCOMPARE(gl()->getCamera().toMatrix() != before, moves);
    }

    // With the user's camera (the widget no longer frames by itself):
    // following, the camera keeps its rotation and its offset from the newest
    // line (the cloud holds only the newest line here); not following, it
    // stays put and the cloud leaves the frame. Home turns the camera back
    // and puts it at the origin, or, following, where it shows the newest
    // line as the origin shows the first, and hands the framing back to the
    // widget, which fits a cloud that home does not show; following goes on.
    // F toggles following and stores it for new views; turning it off moves
    // nothing, turning it on goes Home.
    void follow_data()
    {
        QTest::addColumn<bool>("follow");
        QTest::addColumn<int>("lines");
        QTest::addColumn<QVector3D>("start");
        QTest::addColumn<float>("yaw");
        QTest::addColumn<bool>("inSight");
        QTest::newRow("still, first lines") << false << 20 << QVector3D() << 10.0f << true;
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
        QSettings().setValue("ThreeD/maxPoints", 100);
        QSettings().setValue("ThreeD/follow", false);
        view->handleConfigChanged();
        view->activateWindow();
        gl()->setFocus();
        QTRY_VERIFY(gl()->hasFocus());
        if (follow)
            QTest::keyClick(gl(), Qt::Key_F);
        QCOMPARE(ThreeDView().glWidget()->isFollowing(), follow); // a new view reads it
        Camera3D& camera = gl()->getCamera();
        camera.setTranslation(start);
        const QQuaternion turn = QQuaternion::fromAxisAndAngle(0, 1, 0, yaw);
        camera.setRotation(turn);
        gl()->setFraming(ViewFraming::User); // as if the user had put the camera there
        const QRgb clear = gl()->grabFramebuffer().pixel(0, 0);
        // The camera's distance from (x, start's y and z), moved along by n
        // lines while following.
        const auto expectX = [&](float x, int n) {
            const float step = follow ? LinePoints::lineX(n) - LinePoints::lineX(0) : 0;
            return (camera.translation() - QVector3D(x + step, start.y(), start.z())).length();
        };
        for (int l = 0; l < lines; ++l)
            view->updateNewLine(crowdedLine(100, l));
        QTEST(pointsDrawn(clear) > 20, "inSight");
        QCOMPARE(camera.rotation(), turn);
        QVERIFY(expectX(start.x(), lines) < 1e-3f);

        view->handleHome();
        QCOMPARE(camera.rotation(), QQuaternion());
        start = QVector3D();
        QVERIFY(expectX(0, lines - 1) < 1e-5f);
        // Home hands the framing back: the cloud is in sight again, seen from
        // home where home shows it, else fitted.
        QCOMPARE(gl()->framingMode(), ViewFraming::Home);
        QVERIFY(pointsDrawn(clear) > 20);
        QCOMPARE(expectX(0, lines - 1) < 1e-5f, follow || lines < 100);
        // From home, as the user's camera again.
        view->handleHome();
        gl()->setFraming(ViewFraming::User);
        view->updateNewLine(crowdedLine(100, 0));
        QVERIFY(expectX(0, lines) < 1e-5f);
        const QVector3D before = camera.translation();
        QTest::keyClick(gl(), Qt::Key_F);
        QCOMPARE(QSettings().value("ThreeD/follow", false).toBool(), !follow);
        QCOMPARE(camera.translation(),
                 follow ? before
                        : QVector3D(LinePoints::lineX(lines) - LinePoints::lineX(0), 0, 0));
    }

    // A view built without a stored choice follows. Turning Follow on, by the
    // button, by F or by the settings, brings back a cloud that had already
    // left the picture (camera turned and moved away), and keeps it there.
    void followTurnedOn_data()
    {
        QTest::addColumn<int>("how"); // 0 button, 1 F, 2 settings
        QTest::newRow("button") << 0;
        QTest::newRow("F") << 1;
        QTest::newRow("settings") << 2;
    }
    void followTurnedOn()
    {
        QFETCH(int, how);
        QVERIFY(gl()->isFollowing());
        QSettings().setValue("ThreeD/maxPoints", 300);
        QSettings().setValue("ThreeD/follow", false);
        view->handleConfigChanged();
        QVERIFY(!gl()->isFollowing());
        Camera3D& camera = gl()->getCamera();
        camera.setRotation(QQuaternion::fromAxisAndAngle(0, 1, 0, 30));
        gl()->setFraming(ViewFraming::User);
        const QRgb clear = gl()->grabFramebuffer().pixel(0, 0);
        for (int l = 0; l < 600; ++l)
            view->updateNewLine(crowdedLine(100, l));
        QVERIFY(pointsDrawn(clear) < 5);

        view->activateWindow();
        gl()->setFocus();
        QTRY_VERIFY(gl()->hasFocus());
        if (how == 0) {
            view->findChild<QAction*>("actionFollow")->trigger();
        } else if (how == 1) {
            QTest::keyClick(gl(), Qt::Key_F);
        } else {
            QSettings().setValue("ThreeD/follow", true);
            view->handleConfigChanged();
        }
        QVERIFY(gl()->isFollowing());
        QCOMPARE(camera.rotation(), QQuaternion());
        QVERIFY(pointsDrawn(clear) > 50);
        for (int l = 0; l < 300; ++l)
            view->updateNewLine(crowdedLine(100, l));
        QVERIFY(pointsDrawn(clear) > 50);
    }

    // Framing the cloud by itself, the widget keeps its camera and model
    // scale while a tenth of the cloud lies inside the picture and spans a
    // tenth of it,
    // and fits the cloud again when it leaves the picture or shrinks below a
    // tenth. It decides once per frame, on the cloud the frame draws: lines
    // taken in between two frames decide nothing. The cloud is the newest
    // line here: a square of points across the view.
    void keepsItsFrame_data()
    {
        QTest::addColumn<QVector3D>("between"); // y, z and size of a line before `next`; size 0: none
        QTest::addColumn<QVector3D>("next");
        QTest::addColumn<bool>("refits");
        const QVector3D none;
        QTest::newRow("moved a little") << none << QVector3D(0.05f, 5.0f, 1.0f) << false;
        QTest::newRow("smaller, above a tenth") << none << QVector3D(0.0f, 5.0f, 0.5f) << false;
        QTest::newRow("shrunk below a tenth") << none << QVector3D(0.0f, 5.0f, 0.02f) << true;
        QTest::newRow("left the picture") << none << QVector3D(0.0f, 8.0f, 1.0f) << true;
        // Half of it still shown: a camera inside the scene sees data run out
        // of the picture (the road under the scanner) and keeps its view.
        QTest::newRow("half past the border") << none << QVector3D(0.5f, 5.0f, 1.0f) << false;
        QTest::newRow("away and back between two frames")
            << QVector3D(0.0f, 40.0f, 1.0f) << QVector3D(0.05f, 5.0f, 1.0f) << false;
        QTest::newRow("back between two frames, then away")
            << QVector3D(0.05f, 5.0f, 1.0f) << QVector3D(0.0f, 40.0f, 1.0f) << true;
    }
    void keepsItsFrame()
    {
        QFETCH(QVector3D, between);
        QFETCH(QVector3D, next);
        QFETCH(bool, refits);
        QSettings().setValue("ThreeD/maxPoints", 100);
        QSettings().setValue("ThreeD/follow", false);
        view->handleConfigChanged();
        const auto square = [](const QVector3D& at) {
            std::vector<vxs::VxPt> pts;
            for (int i = 0; i < 100; ++i)
                pts.push_back(viewtest::pt(at.x() + at.z() * ((i % 10) / 9.0 - 0.5),
                                           at.y() + at.z() * ((i / 10) / 9.0 - 0.5), 500));
            return viewtest::makeLine(std::move(pts));
        };
        const Camera3D& camera = gl()->getCamera();
        const QRgb clear = gl()->grabFramebuffer().pixel(0, 0);
        // 5 m below the home camera: a fit.
        view->updateNewLine(square(QVector3D(0.0f, 5.0f, 1.0f)));
        gl()->grabFramebuffer();
        QCOMPARE(gl()->framingMode(), ViewFraming::Home);
        QVERIFY(camera.translation() != gl()->homeTranslation());
        const QVector3D fitted = camera.translation();
        const float scale = gl()->modelScale();
        if (between.z() > 0.0f)
            view->updateNewLine(square(between));
        view->updateNewLine(square(next));
        QVERIFY(pointsDrawn(clear) > 20);
        QCOMPARE(camera.translation() != fitted || gl()->modelScale() != scale, refits);
    }

    // A click on the cloud shows the point under it in the status line: its
    // position, range, intensity, line and pixel. A click beside every
    // point, or a drag, shows nothing.
    void pickPoint_data()
    {
        QTest::addColumn<QPoint>("offset"); // of the press from the point's pixel
        QTest::addColumn<QPoint>("drag");   // from press to release
        QTest::addColumn<bool>("picks");
        QTest::newRow("on the point") << QPoint(0, 0) << QPoint(0, 0) << true;
        QTest::newRow("a few pixels beside") << QPoint(3, -2) << QPoint(1, 0) << true;
        QTest::newRow("beside every point") << QPoint(15, 0) << QPoint(0, 0) << false;
        QTest::newRow("a drag") << QPoint(0, 0) << QPoint(10, 0) << false;
    }
    void pickPoint()
    {
        QFETCH(QPoint, offset);
        QFETCH(QPoint, drag);
        QFETCH(bool, picks);
        QSettings().setValue("ThreeD/follow", false);
        view->handleConfigChanged();
        // A column of points 2 m ahead of the scanner, 0.2 m apart; the
        // fourth (pixel 3) at 0.1 m up, 0.1 m from the scanner's axis.
        std::vector<vxs::VxPt> pts;
        for (int k = 0; k < 7; ++k)
            pts.push_back(viewtest::pt(0.0, -0.7 + 0.2 * k, uint32_t(100 + k)));
        pts[3].range = 2.5; // as the scanner reported it
        view->updateNewLine(viewtest::makeLine(std::move(pts)));
        gl()->grabFramebuffer();
        // Where the frame drew pixel 3, the widget's way.
        QMatrix4x4 projection;
        projection.perspective(45.0f, gl()->width() / float(gl()->height()), 0.01f, 100.0f);
        projection.translate(0.0f, 0.0f, -2.0f);
        QMatrix4x4 model;
        model.scale(gl()->modelScale());
        const CloudVertex& v = gl()->getVertices()[3];
        const QVector3D ndc =
            (projection * gl()->getCamera().toMatrix() * model).map(QVector3D(v.x, v.y, v.z));
        const QPoint at(int((ndc.x() + 1.0f) / 2.0f * gl()->width()),
                        int((1.0f - ndc.y()) / 2.0f * gl()->height()));
        QVERIFY(gl()->rect().contains(at));

        QSignalSpy status(view.get(), &BasicView::updateStatusBar);
        QTest::mousePress(gl(), Qt::LeftButton, Qt::NoModifier, at + offset);
        QTest::mouseRelease(gl(), Qt::LeftButton, Qt::NoModifier, at + offset + drag);
        QCOMPARE(status.count(), picks ? 1 : 0);
        if (picks)
            QCOMPARE(status.at(0).at(0).toString(),
                     QStringLiteral("x: %1 m y: 0.100 m z: 0.000 m range: 2.500 m "
                                    "intensity: 103 line: 0 pixel: 3")
                         .arg(double(v.x), 0, 'f', 3));
    }

    // Fit keeps the camera's rotation and frames the whole cloud: every
    // vertex lands inside the picture, and the cloud spans a good part of
    // its width or height. Following keeps the framing; an empty cloud
    // leaves the camera where it is. Ctrl+0 in the view is Fit.
    void fit_data()
    {
        QTest::addColumn<int>("lines");
        QTest::addColumn<float>("yaw");
        QTest::addColumn<float>("pitch");
        QTest::addColumn<QVector3D>("start");
        QTest::newRow("empty") << 0 << 0.0f << 0.0f << QVector3D(1, 2, 3);
        QTest::newRow("from Home") << 400 << 0.0f << 0.0f << QVector3D();
        QTest::newRow("from afar, turned")
            << 400 << 70.0f << -25.0f << QVector3D(-30.0f, 10.0f, 40.0f);
        QTest::newRow("looking along the lines") << 300 << 90.0f << 0.0f << QVector3D(3, 0, 0);
    }
    void fit()
    {
        QFETCH(int, lines);
        QFETCH(float, yaw);
        QFETCH(float, pitch);
        QFETCH(QVector3D, start);
        QSettings().setValue("ThreeD/maxPoints", 20000);
        view->handleConfigChanged();
        for (int l = 0; l < lines; ++l)
            view->updateNewLine(crowdedLine(100, l));
        Camera3D& camera = gl()->getCamera();
        const QQuaternion turn = QQuaternion::fromEulerAngles(pitch, yaw, 0.0f); // about x, then y
        camera.setRotation(turn);
        camera.setTranslation(start);
        view->activateWindow();
        gl()->setFocus();
        QTRY_VERIFY(gl()->hasFocus());
        QTest::keyClick(gl(), Qt::Key_0, Qt::ControlModifier);
        QCOMPARE(camera.rotation(), turn);
        if (lines == 0) {
            QCOMPARE(camera.translation(), start);
            return;
        }
        // Normalised device coordinates of every vertex, the widget's way,
        // as its next frame shows them.
        const auto extent = [&] {
            view->picture();
            QMatrix4x4 projection;
            projection.perspective(45.0f, gl()->width() / float(gl()->height()), 0.01f, 100.0f);
            projection.translate(0.0f, 0.0f, -2.0f);
            QMatrix4x4 model;
            model.scale(gl()->modelScale());
            const QMatrix4x4 m = projection * camera.toMatrix() * model;
            float largest = 0.0f;
            const CloudRing& ring = gl()->getVertices();
            for (std::size_t i = 0; i < ring.size(); ++i) {
                const QVector3D ndc = m.map(QVector3D(ring[i].x, ring[i].y, ring[i].z));
                largest = std::max({largest, std::fabs(ndc.x()), std::fabs(ndc.y())});
            }
            return largest;
        };
        const float fitted = extent();
        QVERIFY2(fitted > 0.5f && fitted <= 1.0f, qPrintable(QString::number(fitted)));
        for (int l = 0; l < 100; ++l)
            view->updateNewLine(crowdedLine(100, l));
        QVERIFY2(std::fabs(extent() - fitted) < 0.1f, qPrintable(QString::number(extent())));
    }
};

VIEW_TEST_MAIN(TstThreeDView, false)
#include "tst_threedview.moc"
