#pragma once
#include "views/basicview.h"

class QAction;

namespace vxlindral {

class MyOpenGLWidget;

// The 3D view: the incoming lines accumulated into a point cloud shown by an
// OpenGL widget; "ThreeD/pointsPerLine" and "ThreeD/maxPoints" are read when
// the view is built and on every handleConfigChanged().
// Ownership: the GL widget and the tool bar are children of the view.
// Threads: GUI thread only.
class ThreeDView : public BasicView
{
    Q_OBJECT
public:
    explicit ThreeDView(QWidget* parent = nullptr);
    ~ThreeDView() override;

    QToolBar* toolBar() override;
    MyOpenGLWidget* glWidget() const { return widget; }

public slots:
    void updateNewLine(vxlindral::LineType newLine) override;
    void handleConfigChanged() override;
    void handleHome();

private:
    void readSettings();

    MyOpenGLWidget* widget = nullptr;
    QAction* homeAction = nullptr;
};

} // namespace vxlindral
