#pragma once
#include "export/cloudwriter.h"
#include "line/linetype.h"
#include "views/camera3d.h"
#include "views/cloudring.h"
#include "views/linepoints.h"
#include "views/transform3d.h"
#include "views/viewframing.h"

#include <QElapsedTimer>
#include <QMatrix4x4>
#include <QOpenGLBuffer>
#include <QOpenGLFunctions>
#include <QOpenGLVertexArrayObject>
#include <QOpenGLWidget>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <cstdint>

class QOpenGLShaderProgram;

namespace vxlindral {

// The OpenGL 3.3 core widget of the 3D view: accumulates thinned lines into a
// point cloud (one line behind the other along x, gray by intensity) and flies
// a camera through it while the left mouse button is held. While following,
// each new line moves the camera along x by as much as the newest line moved,
// so the camera keeps its rotation and its offset from the newest line.
// It paints only when something changed (cloud, camera, input, size), at most
// one frame per kFrameNs; addLine only updates the vertex ring, and the next
// frame uploads what changed.
// Ownership: child of its ThreeDView; owns its GL objects and vertex ring.
// Threads: GUI thread only.
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
    const CloudRing& getVertices() const { return vertices; }
    // The cloud as drawn now, oldest vertex first: each vertex's position,
    // the gray it is drawn with (its colour as the 8-bit colour buffer keeps
    // it) and its source.
    std::vector<CloudWriter::Point> cloud() const;
    Camera3D& getCamera() { return camera; }
    void setFollow(bool on)
    {
        follow = on;
        framingStale = true;
    }
    bool isFollowing() const { return follow; }
    // Where Home puts the camera: the origin, or while following the place
    // from which the newest line looks as the first line does from the origin.
    QVector3D homeTranslation() const
    {
        return follow && lineCount > 0 ? QVector3D(LinePoints::lineX(lineCount - 1) - LinePoints::lineX(0), 0.0f, 0.0f)
                                       : QVector3D();
    }
    // Who frames the cloud: the widget (Home, Fit: see ViewFraming) or the
    // user, who takes it over by pressing the left button in the widget
    // (the button that turns and flies the camera). Home also sets the model
    // scale back to 1 (the caller puts the camera home); Fit asks the next
    // frame for a fit, whatever the camera shows.
    ViewFraming framingMode() const { return framing; }
    void setFraming(ViewFraming f);
    // The model transform's scale (the same on every axis).
    float modelScale() const { return transform.scale().x(); }
    // Whether the widget, framing the cloud by itself, frames it anew now,
    // and with which camera translation and model scale (keeping the
    // camera's rotation). The present camera and scale stay while the
    // picture (within the depth range) shows at least a tenth of the
    // cloud's points and those span at least a tenth of its width or height,
    // and unless Fit asked for a fit. A fit: the extent (while following,
    // relative to the newest line), snapped outward per axis to a grid of at
    // most an eighth of it (powers of two), is scaled by a power of two to a
    // few units (so that any scene from centimetres to hundreds of metres
    // lies well within the projection's depth range and the camera flies at
    // a usable speed), centred, and backed off until its near side fits the
    // field of view with a margin of 10 %. Points that measured nothing
    // (range 0, at the scanner) do not count. False, with the arguments
    // untouched, when the frame stays, the user frames or no point measured
    // anything. Reads every vertex: paintGL calls it once per frame, only
    // when the cloud, the follow state, the size or the framing changed.
    bool autoFrame(QVector3D& cameraAt, float& scale) const;
    // The vertex (logical index) drawn nearest to `at` in widget pixels,
    // within kPickRadius pixels; among points equally near, the one in front.
    // False when none is. Projects every vertex: for a click, not per frame.
    bool pointAt(const QPoint& at, std::size_t& index) const;
    // The values of the i-th vertex as the status line shows them: its
    // position (as Export cloud writes it), range, intensity, line and pixel.
    QString pointText(std::size_t i) const;
    // Empties the cloud and counts `before` lines as taken in, so that the
    // next lines get the x positions they have in the whole stream. While
    // following, the camera keeps its offset from the newest line: moved as
    // taking in `before` lines from the first would have moved it (the same
    // float steps, one per line), so that replayed lines are seen exactly as
    // in the whole stream.
    void clearLines(uint64_t before);
    // Lines whose points can still be in the cloud: maxPoints over the points
    // a line keeps after thinning (the newest line's, or pointsPerLine before
    // any), rounded up, plus one for an oldest line partly dropped. Follows
    // the settings as they are when asked.
    int reachBack() const;
    // Asks for a frame showing the current state: at once when the previous
    // frame is at least kFrameNs old, else when it will be. Call it after
    // changing what the widget shows from outside (the camera, for instance).
    void requestFrame();
    // While held, frames asked for wait, and the newest is drawn when
    // released (see FrameSync::hold); other paints still happen.
    void holdFrames(bool on);

signals:
    // A click on the cloud (press and release of the left button without a
    // drag) picked a point: its values (pointText).
    void pointPicked(const QString& text);
    // A frame was drawn, showing this many lines.
    void frameDrawn(int lines);

public slots:
    // The per-frame navigation step (run after every frame); asks for the
    // next frame while a key or button is in the input table.
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
    // Applies autoFrame() when the cloud, the size or the framing changed.
    void applyFraming();
    // The user turns or flies the camera from what the widget shows.
    void takeOverFraming();
    // Brings the GL buffer up to the vertex ring: the changed slots, or
    // everything after the ring's storage grew.
    void uploadChanges();

    // At most 60 frames per second: without a vsynced swap (virtual or
    // software displays) frames would otherwise follow each other as fast as
    // the lines arrive and starve the line intake on the same thread.
    static constexpr qint64 kFrameNs = 1000000000 / 60 + 1;
    // The projection: vertical field of view (degrees), and how far behind
    // the camera's position the eye is.
    static constexpr int kPickRadius = 6; // pixels around a click
    static constexpr int kClickSlop = 3;  // a press and release this near is a click
    QPoint pressedAt;                     // where the left button went down
    static constexpr float kFieldOfView = 45.0f;
    static constexpr float kEyeBehind = 2.0f;
    QElapsedTimer frameClock; // since the last frame started painting
    QTimer framePacer;
    bool framePending = false;
    bool held = false;
    bool heldRequest = false; // a frame was asked for while held

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
    int newestPixels = 0; // pixel count of the newest line taken in
    bool follow = false;
    ViewFraming framing = ViewFraming::Home;
    bool fitPending = false;  // Fit: the next frame fits, whatever it shows
    bool framingStale = true; // autoFrame() may give another frame
    CloudRing vertices;
    int pointsPerLine = 1000;
    int maxPoints = 100000;
};

} // namespace vxlindral
