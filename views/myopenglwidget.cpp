#include "views/myopenglwidget.h"

#include "line/myline.h"
#include "views/basicview.h"
#include "views/input.h"

#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QOpenGLShaderProgram>
#include <QtMath>
#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>

namespace vxlindral {

namespace {

// How far following moves the camera along x over the first `lines` lines:
// the float steps addLine makes, added one by one as it adds them.
float followedX(int lines)
{
    float x = 0.0f;
    for (int i = 0; i < lines; ++i)
        x += LinePoints::lineX(i) - LinePoints::lineX(i - 1);
    return x;
}

} // namespace

const char* const MyOpenGLWidget::vertexShaderSource =
    "#version 330\n"
    "layout(location = 0) in vec3 position;\n"
    "layout(location = 1) in vec3 color;\n"
    "out vec4 vColor;\n"
    "\n"
    "uniform mat4 modelToWorld;\n"
    "uniform mat4 worldToCamera;\n"
    "uniform mat4 cameraToView;\n"
    "\n"
    "void main(void)\n"
    "{\n"
    "   gl_Position = cameraToView * worldToCamera * modelToWorld * vec4(position, 1.0);\n"
    "   vColor = vec4(color, 1.0);\n"
    "   gl_PointSize = 1.0f;\n"
    "}";

const char* const MyOpenGLWidget::fragmentShaderSource = "#version 330\n"
                                                         "in vec4 vColor;\n"
                                                         "out vec4 fColor;\n"
                                                         "void main(void)\n"
                                                         "{\n"
                                                         "   fColor = vColor;\n"
                                                         "}";

MyOpenGLWidget::MyOpenGLWidget(QWidget* parent) : QOpenGLWidget(parent)
{
    framePacer.setSingleShot(true);
    connect(&framePacer, &QTimer::timeout, this, [this] { QOpenGLWidget::update(); });
}

void MyOpenGLWidget::requestFrame()
{
    if (framePending)
        return;
    if (held) {
        heldRequest = true;
        return;
    }
    framePending = true;
    const qint64 since = frameClock.isValid() ? frameClock.nsecsElapsed() : kFrameNs;
    if (since >= kFrameNs)
        QOpenGLWidget::update();
    else
        framePacer.start(static_cast<int>((kFrameNs - since + 999999) / 1000000));
}

void MyOpenGLWidget::holdFrames(bool on)
{
    held = on;
    if (on && framePacer.isActive()) {
        // A frame asked for before, not yet begun, waits as well.
        framePacer.stop();
        framePending = false;
        heldRequest = true;
    }
    if (!on && heldRequest) {
        heldRequest = false;
        requestFrame();
    }
}

MyOpenGLWidget::~MyOpenGLWidget()
{
    teardownGL();
}

void MyOpenGLWidget::teardownGL()
{
    if (!program)
        return;
    makeCurrent();
    vertexArray.destroy();
    vertexBuffer.destroy();
    delete program;
    program = nullptr;
    doneCurrent();
}

void MyOpenGLWidget::initializeGL()
{
    initializeOpenGLFunctions();
    glEnable(GL_PROGRAM_POINT_SIZE);
    connect(this, &QOpenGLWidget::frameSwapped, this, &MyOpenGLWidget::update,
            Qt::UniqueConnection);
    // OpenGL clamps the alpha of 2.0 to 1.0.
    glClearColor(0.5f, 0.5f, 0.5f, 2.0f);

    program = new QOpenGLShaderProgram();
    program->addShaderFromSourceCode(QOpenGLShader::Vertex, vertexShaderSource);
    program->addShaderFromSourceCode(QOpenGLShader::Fragment, fragmentShaderSource);
    program->link();
    program->bind();
    u_modelToWorld = program->uniformLocation("modelToWorld");
    u_worldToCamera = program->uniformLocation("worldToCamera");
    u_cameraToView = program->uniformLocation("cameraToView");

    vertexBuffer.create();
    vertexBuffer.bind();
    vertexBuffer.setUsagePattern(QOpenGLBuffer::DynamicDraw);
    vertexArray.create();
    vertexArray.bind();
    program->enableAttributeArray(0);
    program->enableAttributeArray(1);
    program->setAttributeBuffer(0, GL_FLOAT, 0, 3, sizeof(CloudVertex));
    program->setAttributeBuffer(1, GL_FLOAT, 12, 3, sizeof(CloudVertex));
    vertexArray.release();
    vertexBuffer.release();
    program->release();

    // A new buffer: the first frame uploads every vertex taken in so far.
    vertices.markReallocated();
}

void MyOpenGLWidget::resizeGL(int w, int h)
{
    framingStale = true;
    projection.setToIdentity();
    projection.perspective(kFieldOfView, w / float(h), 0.01f, 100.0f);
    projection.translate(0.0f, 0.0f, -kEyeBehind);
}

void MyOpenGLWidget::paintGL()
{
    // Whatever asked for this frame is shown by it; later changes ask anew.
    framePending = false;
    frameClock.restart();
    // The widget's own framing is decided here, once per frame.
    applyFraming();
    glClear(GL_COLOR_BUFFER_BIT);
    program->bind();
    uploadChanges();
    program->setUniformValue(u_worldToCamera, camera.toMatrix());
    program->setUniformValue(u_cameraToView, projection);
    vertexArray.bind();
    program->setUniformValue(u_modelToWorld, transform.toMatrix());
    if (lineCount != 0) {
        // Oldest first, so that where points overlap the newer one wins.
        CloudRing::Range runs[2];
        const int n = vertices.drawRanges(runs);
        for (int r = 0; r < n; ++r)
            glDrawArrays(GL_POINTS, static_cast<GLint>(runs[r].first),
                         static_cast<GLsizei>(runs[r].count));
    }
    vertexArray.release();
    program->release();
    emit frameDrawn(lineCount);
}

void MyOpenGLWidget::uploadChanges()
{
    const CloudVertex* data = vertices.data();
    constexpr int stride = static_cast<int>(sizeof(CloudVertex));
    vertexBuffer.bind();
    if (vertices.reallocated()) {
        vertexBuffer.allocate(data, static_cast<int>(vertices.capacity()) * stride);
    } else {
        CloudRing::Range runs[2];
        const int n = vertices.changedRanges(runs);
        for (int r = 0; r < n; ++r)
            vertexBuffer.write(static_cast<int>(runs[r].first) * stride, data + runs[r].first,
                               static_cast<int>(runs[r].count) * stride);
    }
    vertexBuffer.release();
    vertices.markUploaded();
}

void MyOpenGLWidget::addLine(vxlindral::LineType newLine)
{
    if (!newLine)
        return;
    const MyLine& line = *newLine;
    const int n = line.pixel;
    newestPixels = n;
    // A setting of 0 or less would divide by zero; such a line is not thinned.
    const int step = pointsPerLine > 0 ? std::max(n / pointsPerLine, 1) : 1;
    const int count = n / step;

    // Drop the oldest line's worth once; the cloud may stay above the limit
    // when lines grow.
    if (count > 0 && count + static_cast<long long>(vertices.size()) > maxPoints)
        vertices.dropFront(static_cast<std::size_t>(count));

    // Outside a view the range is left as it starts (65535 .. 0).
    const LinePoints::Range range = qobject_cast<BasicView*>(parentWidget())
                                        ? LinePoints::rangeOf(line)
                                        : LinePoints::Range{65535, -65535 / 210.0};
    const float xl = LinePoints::lineX(lineCount);

    if (n > 0)
        vertices.reserveBack(static_cast<std::size_t>((n - 1) / step + 1));
    for (int i = 0; i < n; i += step) {
        const vxs::VxPt& pt = line.points.at(static_cast<std::size_t>(i));
        const LinePoints::Point p = LinePoints::point(pt, xl, range);
        vertices.push({p.x, p.y, p.z, p.colour, p.colour, p.colour},
                      {pt.intensity, static_cast<float>(pt.range), line.series,
                       static_cast<uint32_t>(i), static_cast<uint32_t>(lineCount)});
    }
    ++lineCount;
    framingStale = true;
    if (follow)
        camera.translate(
            QVector3D((xl - LinePoints::lineX(lineCount - 2)) * modelScale(), 0.0f, 0.0f));
    requestFrame();
}

void MyOpenGLWidget::clearLines(uint64_t before)
{
    const int taken = static_cast<int>(std::min<uint64_t>(before, INT_MAX));
    vertices.clear();
    if (follow) {
        // Untouched by the user, the camera stands at followedX(lineCount):
        // the offset is exactly 0 and the camera lands where the whole
        // stream would have put it.
        QVector3D t = camera.translation();
        t.setX(t.x() + (followedX(taken) - followedX(lineCount)) * modelScale());
        camera.setTranslation(t);
    }
    lineCount = taken;
    framingStale = true;
    requestFrame();
}

int MyOpenGLWidget::reachBack() const
{
    const int n = newestPixels > 0 ? newestPixels : std::max(pointsPerLine, 1);
    const int step = pointsPerLine > 0 ? std::max(n / pointsPerLine, 1) : 1;
    const long long kept = (n - 1) / step + 1;
    const long long lines = (std::max(maxPoints, 0) + kept - 1) / kept + 1;
    return static_cast<int>(std::min<long long>(lines, INT_MAX));
}

std::vector<CloudWriter::Point> MyOpenGLWidget::cloud() const
{
    std::vector<CloudWriter::Point> out(vertices.size());
    for (std::size_t i = 0; i < out.size(); ++i) {
        const CloudVertex& v = vertices[i];
        const CloudSource& from = vertices.source(i);
        out[i] = {v.x,        v.y,         v.z,       LinePoints::gray8(v.r), from.intensity,
                  from.range, from.series, from.pixel};
    }
    return out;
}

namespace {

QMatrix4x4 projectionFor(int w, int h, float fieldOfView, float eyeBehind)
{
    QMatrix4x4 p;
    p.perspective(fieldOfView, h > 0 ? w / float(h) : 1.0f, 0.01f, 100.0f);
    p.translate(0.0f, 0.0f, -eyeBehind);
    return p;
}

} // namespace

void MyOpenGLWidget::setFraming(ViewFraming f)
{
    framing = f;
    fitPending = f == ViewFraming::Fit;
    if (f == ViewFraming::Home)
        transform.setScale(QVector3D(1.0f, 1.0f, 1.0f));
    framingStale = true;
    requestFrame();
}

bool MyOpenGLWidget::autoFrame(QVector3D& cameraAt, float& scale) const
{
    const std::size_t n = vertices.size();
    if (framing == ViewFraming::User || n == 0)
        return false;
    // The cloud's extent along the camera's right, up and backward axes,
    // measured from the newest line while following.
    const QQuaternion r = camera.rotation();
    const QVector3D axes[3] = {r.rotatedVector(QVector3D(1.0f, 0.0f, 0.0f)),
                               r.rotatedVector(QVector3D(0.0f, 1.0f, 0.0f)),
                               r.rotatedVector(QVector3D(0.0f, 0.0f, 1.0f))};
    const QVector3D origin(follow && lineCount > 0 ? LinePoints::lineX(lineCount - 1) : 0.0f, 0.0f,
                           0.0f);
    float lo[3] = {FLT_MAX, FLT_MAX, FLT_MAX};
    float hi[3] = {-FLT_MAX, -FLT_MAX, -FLT_MAX};
    for (std::size_t i = 0; i < n; ++i) {
        // A point that measured nothing lies at the scanner's position.
        if (vertices.source(i).range == 0.0f)
            continue;
        const CloudVertex& v = vertices[i];
        const QVector3D p = QVector3D(v.x, v.y, v.z) - origin;
        for (int a = 0; a < 3; ++a) {
            const float d = QVector3D::dotProduct(p, axes[a]);
            lo[a] = std::min(lo[a], d);
            hi[a] = std::max(hi[a], d);
        }
    }
    if (lo[0] > hi[0])
        return false;
    const float aspect = height() > 0 ? float(width()) / float(height()) : 1.0f;
    if (!fitPending) {
        // The points as the camera and the model scale of now show them (at
        // most some 20,000 of them, evenly spread over the cloud). The frame
        // stays while the picture shows at least a tenth of the points that
        // measured something and they span a tenth of it: a camera
        // standing inside the scene (the street seen from the scanner, the
        // road running out under it) keeps its view.
        const float shown = modelScale();
        QMatrix4x4 view;
        view.rotate(r.conjugated());
        view.translate(-camera.translation());
        view.scale(shown);
        const QMatrix4x4 m = projectionFor(width(), height(), kFieldOfView, kEyeBehind) * view;
        const std::size_t stride = std::max<std::size_t>(1, n / 20000);
        std::size_t measured = 0, seen = 0;
        float x0 = FLT_MAX, x1 = -FLT_MAX, y0 = FLT_MAX, y1 = -FLT_MAX;
        for (std::size_t i = 0; i < n; i += stride) {
            if (vertices.source(i).range == 0.0f)
                continue;
            ++measured;
            const CloudVertex& v = vertices[i];
            const QVector4D clip = m * QVector4D(v.x, v.y, v.z, 1.0f);
            if (!(clip.w() > 0.0f))
                continue;
            const float x = clip.x() / clip.w(), y = clip.y() / clip.w(), z = clip.z() / clip.w();
            if (std::fabs(x) > 1.0f || std::fabs(y) > 1.0f || std::fabs(z) > 1.0f)
                continue;
            ++seen;
            x0 = std::min(x0, x), x1 = std::max(x1, x), y0 = std::min(y0, y), y1 = std::max(y1, y);
        }
        // Normalised device coordinates span 2: a tenth of the picture is 0.2.
        if (seen * 10 >= measured && (x1 - x0 >= 0.2f || y1 - y0 >= 0.2f))
            return false;
    }
    for (int a = 0; a < 3; ++a)
        snapOutward(lo[a], hi[a]);
    // A few units across, so that the depth range and the flying speed suit
    // every scene; powers of two keep the steps exact.
    constexpr float kFrameSize = 4.0f;
    const float largest = std::max({hi[0] - lo[0], hi[1] - lo[1], hi[2] - lo[2]});
    scale = largest > 0.0f
                ? std::exp2(std::clamp(std::round(std::log2(kFrameSize / largest)), -20.0f, 20.0f))
                : 1.0f;
    // The eye looks along -backward; the near side of the extent must fit
    // the picture, the rest of the cloud lies behind it and appears smaller.
    constexpr float kMargin = 1.1f;
    const float tanHalf = std::tan(qDegreesToRadians(kFieldOfView / 2.0f));
    const float halfWidth = scale * (hi[0] - lo[0]) / 2.0f;
    const float halfHeight = scale * (hi[1] - lo[1]) / 2.0f;
    const float distance =
        std::max(kMargin * std::max(halfHeight / tanHalf, halfWidth / (tanHalf * aspect)), 0.1f);
    const QVector3D eye = origin * scale + axes[0] * (scale * (lo[0] + hi[0]) / 2.0f) +
                          axes[1] * (scale * (lo[1] + hi[1]) / 2.0f) +
                          axes[2] * (scale * hi[2] + distance);
    cameraAt = eye - axes[2] * kEyeBehind;
    return true;
}

void MyOpenGLWidget::applyFraming()
{
    if (framing == ViewFraming::User || !framingStale)
        return;
    framingStale = false;
    QVector3D at;
    float scale = 1.0f;
    if (!autoFrame(at, scale))
        return;
    fitPending = false;
    camera.setTranslation(at);
    transform.setScale(QVector3D(scale, scale, scale));
}

void MyOpenGLWidget::takeOverFraming()
{
    framingStale = true;
    applyFraming();
    framing = ViewFraming::User;
    fitPending = false;
}

void MyOpenGLWidget::update()
{
    Input::update();
    if (Input::buttonPressed(Qt::LeftButton)) {
        const QPoint delta = Input::mouseDelta();
        QVector3D t;
        if (QApplication::keyboardModifiers() & Qt::ShiftModifier) {
            t = -(camera.right() * delta.x()) + camera.up() * delta.y();
        } else {
            camera.rotate(-0.5f * delta.x(), camera.up());
            camera.rotate(-0.5f * delta.y(), camera.right());
        }
        if (Input::keyPressed(Qt::Key_Plus))
            t += camera.forward();
        if (Input::keyPressed(Qt::Key_Minus))
            t -= camera.forward();
        if (Input::keyPressed(Qt::Key_Right))
            t -= camera.right();
        if (Input::keyPressed(Qt::Key_Left))
            t += camera.right();
        if (Input::keyPressed(Qt::Key_Up))
            t -= camera.up();
        if (Input::keyPressed(Qt::Key_Down))
            t += camera.up();
        camera.translate(0.5f * t);
    }
    // Held keys and buttons keep the frames (and so the navigation) going;
    // two more frames after the last release empty the table.
    if (!Input::idle())
        requestFrame();
}

void MyOpenGLWidget::keyPressEvent(QKeyEvent* event)
{
    if (event->isAutoRepeat()) {
        event->ignore();
        return;
    }
    Input::registerKeyPress(event->key());
    requestFrame();
}

void MyOpenGLWidget::keyReleaseEvent(QKeyEvent* event)
{
    if (event->isAutoRepeat()) {
        event->ignore();
        return;
    }
    Input::registerKeyRelease(event->key());
    requestFrame();
}

bool MyOpenGLWidget::pointAt(const QPoint& at, std::size_t& index) const
{
    // The camera and the model scale as the frame draws them.
    QMatrix4x4 view;
    view.rotate(camera.rotation().conjugated());
    view.translate(-camera.translation());
    view.scale(modelScale());
    const QMatrix4x4 m = projectionFor(width(), height(), kFieldOfView, kEyeBehind) * view;
    const float halfW = float(width()) / 2.0f, halfH = float(height()) / 2.0f;
    const float reach = float(kPickRadius * kPickRadius);
    float best = FLT_MAX;
    float bestDepth = FLT_MAX;
    bool found = false;
    for (std::size_t i = 0; i < vertices.size(); ++i) {
        const CloudVertex& v = vertices[i];
        const QVector4D clip = m * QVector4D(v.x, v.y, v.z, 1.0f);
        if (!(clip.w() > 0.0f))
            continue;
        const float z = clip.z() / clip.w();
        if (std::fabs(z) > 1.0f)
            continue; // outside the depth range: not drawn
        // Normalised device coordinates to widget pixels (y runs down).
        const float dx = (clip.x() / clip.w() + 1.0f) * halfW - (float(at.x()) + 0.5f);
        const float dy = (1.0f - clip.y() / clip.w()) * halfH - (float(at.y()) + 0.5f);
        const float d = dx * dx + dy * dy;
        if (d > reach)
            continue;
        // The nearest; among points equally near the click, the one in front.
        if (d < best - 0.25f || (d <= best + 0.25f && z < bestDepth)) {
            best = std::min(best, d);
            bestDepth = z;
            index = i;
            found = true;
        }
    }
    return found;
}

QString MyOpenGLWidget::pointText(std::size_t i) const
{
    const CloudVertex& v = vertices[i];
    const CloudSource& from = vertices.source(i);
    return QStringLiteral("x: %1 m y: %2 m z: %3 m range: %4 m intensity: %5 line: %6 pixel: %7")
        .arg(double(v.x), 0, 'f', 3)
        .arg(double(v.y), 0, 'f', 3)
        .arg(double(v.z), 0, 'f', 3)
        .arg(double(from.range), 0, 'f', 3)
        .arg(from.intensity)
        .arg(from.line)
        .arg(from.pixel);
}

void MyOpenGLWidget::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton)
        pressedAt = event->pos();
    // The left button turns and flies the camera: from here on the user
    // frames, starting from what the widget shows.
    if (event->button() == Qt::LeftButton)
        takeOverFraming();
    Input::startMouseAt(event->globalPos());
    Input::registerMousePress(event->button());
    requestFrame();
}

void MyOpenGLWidget::mouseReleaseEvent(QMouseEvent* event)
{
    Input::registerMouseRelease(event->button());
    // A click (no drag) picks the point under the pointer.
    std::size_t picked = 0;
    if (event->button() == Qt::LeftButton &&
        (event->pos() - pressedAt).manhattanLength() <= kClickSlop && pointAt(event->pos(), picked))
        emit pointPicked(pointText(picked));
    requestFrame();
}

void MyOpenGLWidget::mouseMoveEvent(QMouseEvent* event)
{
    Input::setMousePosition(event->globalPos());
    requestFrame();
}

void MyOpenGLWidget::focusOutEvent(QFocusEvent* event)
{
    // A release that happens elsewhere would otherwise leave a key held.
    Input::reset();
    QOpenGLWidget::focusOutEvent(event);
}

} // namespace vxlindral
