#pragma once
#include "views/basicview.h"

class QAction;

namespace vxlindral {

class MyOpenGLWidget;

// The 3D view: the incoming lines accumulated into a point cloud shown by an
// OpenGL widget; "ThreeD/pointsPerLine", "ThreeD/maxPoints" and "ThreeD/follow"
// are read when the view is built and on every handleConfigChanged(). The
// tool bar holds Home, Fit (Ctrl+0) and the checkable Follow (F), the two
// shortcuts only while the view has the focus; toggling Follow by the user
// stores "ThreeD/follow". Turning Follow on, by the user or the settings,
// first brings the newest line into view as Home does while following. Its
// "Export cloud" button asks the window to export this view's cloud.
// Ownership: the GL widget and the tool bar are children of the view.
// Threads: GUI thread only.
class ThreeDView : public BasicView
{
    Q_OBJECT
public:
    explicit ThreeDView(QWidget* parent = nullptr);
    ~ThreeDView() override;

    QToolBar* toolBar() override;
    // The frame buffer as the view last drew it, at its size.
    QImage picture() override;
    // MyOpenGLWidget::clearLines and reachBack.
    void clearLines(uint64_t before) override;
    int reachBack() const override;
    // Also holds the GL widget's own frames.
    void holdFrames(bool on) override;
    MyOpenGLWidget* glWidget() const { return widget; }

signals:
    // The user pressed "Export cloud" in the view's tool bar.
    void exportCloudRequested();

public slots:
    void updateNewLine(vxlindral::LineType newLine) override;
    void handleConfigChanged() override;
    // Camera back home (MyOpenGLWidget::homeTranslation), no rotation; the
    // cloud and the follow state stay. The widget frames the cloud again,
    // from there: home stays while it shows the cloud (ViewFraming).
    void handleHome();
    // The widget fits the whole cloud at its next frame, keeping the
    // camera's rotation, and keeps it framed from then on
    // (MyOpenGLWidget::autoFrame), until the user turns or flies.
    void handleFit();
    // Follows the newest line or stops following, and stores the choice.
    void handleFollow(bool on);

private:
    void readSettings();
    // Follows or stops following; turning it on goes Home first.
    void applyFollow(bool on);

    MyOpenGLWidget* widget = nullptr;
    QAction* homeAction = nullptr;
    QAction* fitAction = nullptr;
    QAction* followAction = nullptr;
    QAction* exportAction = nullptr;
};

} // namespace vxlindral
