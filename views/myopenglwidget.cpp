#include "views/myopenglwidget.h"

#include "stream/myline.h"
#include "views/basicview.h"
#include "views/input.h"

#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QOpenGLShaderProgram>
#include <algorithm>

namespace vxlindral {

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
    connect(&framePacer, &QTimer::timeout, this, [this] {
        frameClock.restart();
        QOpenGLWidget::update();
    });
}

void MyOpenGLWidget::scheduleFrame()
{
    const qint64 since = frameClock.isValid() ? frameClock.elapsed() : kFrameMs;
    if (since >= kFrameMs) {
        frameClock.restart();
        QOpenGLWidget::update();
    } else if (!framePacer.isActive()) {
        framePacer.start(static_cast<int>(kFrameMs - since));
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

    // Lines that arrived before the widget was first shown.
    if (!vertices.empty())
        writeBuffer();
}

void MyOpenGLWidget::resizeGL(int w, int h)
{
    projection.setToIdentity();
    projection.perspective(45.0f, w / float(h), 0.01f, 100.0f);
    projection.translate(0.0f, 0.0f, -2.0f);
}

void MyOpenGLWidget::paintGL()
{
    glClear(GL_COLOR_BUFFER_BIT);
    program->bind();
    program->setUniformValue(u_worldToCamera, camera.toMatrix());
    program->setUniformValue(u_cameraToView, projection);
    vertexArray.bind();
    program->setUniformValue(u_modelToWorld, transform.toMatrix());
    if (lineCount != 0)
        glDrawArrays(GL_POINTS, 0, static_cast<GLsizei>(vertices.size()));
    vertexArray.release();
    program->release();
}

void MyOpenGLWidget::addLine(vxlindral::LineType newLine)
{
    if (!newLine)
        return;
    const MyLine& line = *newLine;
    const int n = line.pixel;
    // A setting of 0 or less would divide by zero; such a line is not thinned.
    const int step = pointsPerLine > 0 ? std::max(n / pointsPerLine, 1) : 1;
    const int count = n / step;

    // Drop the oldest line's worth once; the cloud may stay above the limit
    // when lines grow.
    if (count > 0 && count + static_cast<long long>(vertices.size()) > maxPoints) {
        const std::size_t drop = std::min<std::size_t>(count, vertices.size());
        vertices.erase(vertices.begin(), vertices.begin() + static_cast<std::ptrdiff_t>(drop));
    }

    int minI = 65535;
    int maxI = 0;
    if (auto* view = qobject_cast<BasicView*>(parentWidget()))
        view->calculateRanges(&line, minI, maxI);
    const double r = (maxI - minI) / 210.0;
    const float xl = static_cast<float>(lineCount / 250.0 + 0.1);

    vertices.reserve(vertices.size() + static_cast<std::size_t>(count));
    for (int i = 0; i < n; i += step) {
        const vxs::VxPt& pt = line.points.at(static_cast<std::size_t>(i));
        // Unsigned difference: intensities below minI become very bright.
        const uint32_t d = pt.intensity - static_cast<uint32_t>(minI);
        double c = (d / r + 45.0) / 255.0;
        if (c > 255.0)
            c = 255.0;
        const float cf = static_cast<float>(c);
        vertices.push_back({xl, -static_cast<float>(pt.z), static_cast<float>(pt.y), cf, cf, cf});
    }
    ++lineCount;
    uploadVertices();
}

void MyOpenGLWidget::uploadVertices()
{
    if (!program)
        return; // not initialised yet: initializeGL uploads what has arrived
    makeCurrent();
    writeBuffer();
    doneCurrent();
}

void MyOpenGLWidget::writeBuffer()
{
    program->bind();
    vertexBuffer.create();
    vertexBuffer.bind();
    vertexBuffer.setUsagePattern(QOpenGLBuffer::StaticDraw);
    const int bytes = static_cast<int>(vertices.size() * sizeof(CloudVertex)) & ~7;
    vertexBuffer.allocate(vertices.data(), bytes);
    vertexBuffer.release();
    program->release();
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
    scheduleFrame();
}

void MyOpenGLWidget::keyPressEvent(QKeyEvent* event)
{
    if (event->isAutoRepeat())
        event->ignore();
    else
        Input::registerKeyPress(event->key());
}

void MyOpenGLWidget::keyReleaseEvent(QKeyEvent* event)
{
    if (event->isAutoRepeat())
        event->ignore();
    else
        Input::registerKeyRelease(event->key());
}

void MyOpenGLWidget::mousePressEvent(QMouseEvent* event)
{
    Input::startMouseAt(event->globalPos());
    Input::registerMousePress(event->button());
}

void MyOpenGLWidget::mouseReleaseEvent(QMouseEvent* event)
{
    Input::registerMouseRelease(event->button());
}

void MyOpenGLWidget::mouseMoveEvent(QMouseEvent* event)
{
    Input::setMousePosition(event->globalPos());
}

void MyOpenGLWidget::focusOutEvent(QFocusEvent* event)
{
    // A release that happens elsewhere would otherwise leave a key held.
    Input::reset();
    QOpenGLWidget::focusOutEvent(event);
}

} // namespace vxlindral
