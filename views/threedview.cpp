#include "views/threedview.h"

#include "views/myopenglwidget.h"

#include <QAction>
#include <QIcon>
#include <QLayout>
#include <QSettings>
#include <QToolBar>

namespace vxlindral {

ThreeDView::ThreeDView(QWidget* parent) : BasicView(parent)
{
    setWindowTitle(tr("3D"));
    setWindowIcon(QIcon(QStringLiteral(":/PixMaps/threed.svg")));
    setAttribute(Qt::WA_DeleteOnClose);
    if (QToolBar* bar = toolBar()) {
        bar->setParent(this);
        layout()->addWidget(bar);
    }
    widget = new MyOpenGLWidget(this);
    readSettings();
    widget->setSizePolicy(QSizePolicy::MinimumExpanding, QSizePolicy::MinimumExpanding);
    layout()->addWidget(widget);
    widget->setFocusPolicy(Qt::StrongFocus);
}

ThreeDView::~ThreeDView() = default;

QToolBar* ThreeDView::toolBar()
{
    if (toolBarWidget)
        return toolBarWidget;
    toolBarWidget = new QToolBar(this);
    homeAction = new QAction(QIcon(QStringLiteral(":/PixMaps/zoom_home.svg")), tr("Home"), this);
    homeAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_H));
    toolBarWidget->addAction(homeAction);
    connect(homeAction, &QAction::triggered, this, &ThreeDView::handleHome);
    return toolBarWidget;
}

void ThreeDView::readSettings()
{
    QSettings settings;
    widget->setPointsPerLine(settings.value(QStringLiteral("ThreeD/pointsPerLine"), 1000).toInt());
    widget->setMaxPoints(settings.value(QStringLiteral("ThreeD/maxPoints"), 100000).toInt());
}

void ThreeDView::updateNewLine(vxlindral::LineType newLine)
{
    widget->addLine(std::move(newLine));
}

void ThreeDView::handleConfigChanged()
{
    readSettings();
}

void ThreeDView::handleHome()
{
    Camera3D& camera = widget->getCamera();
    camera.setTranslation(QVector3D(0.0f, 0.0f, 0.0f));
    camera.setRotation(QQuaternion::fromAxisAndAngle(QVector3D(0.0f, 0.0f, 1.0f), 0.0f));
    widget->requestFrame();
}

} // namespace vxlindral
