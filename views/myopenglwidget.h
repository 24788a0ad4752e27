#pragma once
#include "stream/linetype.h"
#include "views/camera3d.h"
#include "views/transform3d.h"

#include <QElapsedTimer>
#include <QMatrix4x4>
#include <QOpenGLBuffer>
#include <QOpenGLFunctions>
#include <QOpenGLVertexArrayObject>
#include <QOpenGLWidget>
#include <QTimer>
#include <vector>

class QOpenGLShaderProgram;

namespace vxlindral {

// One vertex of the point cloud: position then colour, 24 bytes.
struct CloudVertex
{
    float x, y, z;
    float r, g, b;
};
static_assert(sizeof(CloudVertex) == 24, "vertex layout: 6 floats");

// The OpenGL 3.3 core widget of the 3D view: accumulates thinned lines into a
// point cloud (one line behind the other along x, gray by intensity) and flies
// a camera through it while the left mouse button is held.
// Ownership: child of its ThreeDView; owns its GL objects and vertex array.
// Threads: GUI thread only; addLine makes the widget's context current.
class MyOpenGLWidget : public QOpenGLWidget, protected QOpenGLFunctions
{
    Q_OBJECT
public:
    static const char* const vertexShaderSource;
    static const char* const fragmentShaderSource;

    explicit MyOpenGLWidget(QWidget* parent = nullptr);
    ~MyOpenGLWidget() override;

    void setPointsPerLine(int n) { pointsPerLine = n; }
    void setMaxPoints(int n) { maxPoints = n; }
    int getPointsPerLine() const { return pointsPerLine; }
    int getMaxPoints() const { return maxPoints; }
    int getLineCount() const { return lineCount; }
    const std::vector<CloudVertex>& getVertices() const { return vertices; }
    Camera3D& getCamera() { return camera; }

public slots:
    // The per-frame navigation step, then a repaint.
    void update();
    void addLine(vxlindral::LineType newLine);

protected:
    void initializeGL() override;
    void resizeGL(int w, int h) override;
    void paintGL() override;

    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    void teardownGL();
    void uploadVertices();
    void writeBuffer();
    // Requests the next frame, at most one per kFrameMs: without a vsynced
    // swap (virtual or software displays) the frame loop would otherwise spin
    // and starve the line intake on the same thread.
    void scheduleFrame();

    static constexpr int kFrameMs = 16;
    QElapsedTimer frameClock;
    QTimer framePacer;

    QOpenGLBuffer vertexBuffer{QOpenGLBuffer::VertexBuffer};
    QOpenGLVertexArrayObject vertexArray;
    QOpenGLShaderProgram* program = nullptr;
    QMatrix4x4 projection;
    Transform3D transform;
    int u_modelToWorld = -1;
    int u_worldToCamera = -1;
    int u_cameraToView = -1;
    Camera3D camera;
    int lineCount = 0;
    std::vector<CloudVertex> vertices;
    int pointsPerLine = 1000;
    int maxPoints = 100000;
};

} // namespace vxlindral
