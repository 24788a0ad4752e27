#include "views/myopenglwidget.h"

#include <QOpenGLShaderProgram>

namespace vxlindral {

const char* const MyOpenGLWidget::vertexShaderSource = "";
const char* const MyOpenGLWidget::fragmentShaderSource = "";

MyOpenGLWidget::MyOpenGLWidget(QWidget* parent) : QOpenGLWidget(parent) {}
MyOpenGLWidget::~MyOpenGLWidget() = default;
void MyOpenGLWidget::update()
{
    QOpenGLWidget::update();
}
void MyOpenGLWidget::addLine(vxlindral::LineType) {}
void MyOpenGLWidget::initializeGL() {}
void MyOpenGLWidget::resizeGL(int, int) {}
void MyOpenGLWidget::paintGL() {}
void MyOpenGLWidget::keyPressEvent(QKeyEvent* e)
{
    QOpenGLWidget::keyPressEvent(e);
}
void MyOpenGLWidget::keyReleaseEvent(QKeyEvent* e)
{
    QOpenGLWidget::keyReleaseEvent(e);
}
void MyOpenGLWidget::mousePressEvent(QMouseEvent* e)
{
    QOpenGLWidget::mousePressEvent(e);
}
void MyOpenGLWidget::mouseReleaseEvent(QMouseEvent* e)
{
    QOpenGLWidget::mouseReleaseEvent(e);
}
void MyOpenGLWidget::mouseMoveEvent(QMouseEvent* e)
{
    QOpenGLWidget::mouseMoveEvent(e);
}
void MyOpenGLWidget::focusOutEvent(QFocusEvent* e)
{
    QOpenGLWidget::focusOutEvent(e);
}
void MyOpenGLWidget::teardownGL() {}
void MyOpenGLWidget::uploadVertices() {}

} // namespace vxlindral
