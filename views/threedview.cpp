#include "views/threedview.h"

#include "settings/settingskeys.h"
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
    if (QToolBar* bar = toolBar()) {
        bar->setParent(this);
        layout()->addWidget(bar);
    }
    widget = new MyOpenGLWidget(this);
    readSettings();
    widget->setSizePolicy(QSizePolicy::MinimumExpanding, QSizePolicy::MinimumExpanding);
    layout()->addWidget(widget);
    widget->setFocusPolicy(Qt::StrongFocus);
    // A point picked on the cloud goes to the status line.
    connect(widget, &MyOpenGLWidget::pointPicked, this, &BasicView::updateStatusBar);
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

    fitAction = new QAction(QIcon(QStringLiteral(":/PixMaps/fit_cloud.svg")), tr("Fit"), this);
    fitAction->setObjectName(QStringLiteral("actionFit"));
    fitAction->setToolTip(tr("Frame the whole cloud (Ctrl+0)"));
    fitAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_0));
    fitAction->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    toolBarWidget->addAction(fitAction);
    addAction(fitAction);
    connect(fitAction, &QAction::triggered, this, &ThreeDView::handleFit);

    followAction = new QAction(QIcon(QStringLiteral(":/PixMaps/follow.svg")), tr("Follow"), this);
    followAction->setObjectName(QStringLiteral("actionFollow"));
    followAction->setToolTip(tr("Keep the newest line in sight (F)"));
    followAction->setCheckable(true);
    followAction->setShortcut(QKeySequence(Qt::Key_F));
    // F is an ordinary key: only while the focus is inside this view, which
    // therefore carries the action as well as its tool bar.
    followAction->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    toolBarWidget->addAction(followAction);
    addAction(followAction);
    // triggered: only the user's toggling is stored, not the settings read.
    connect(followAction, &QAction::triggered, this, &ThreeDView::handleFollow);

    exportAction =
        new QAction(QIcon(QStringLiteral(":/PixMaps/exportCloud.svg")), tr("Export cloud"), this);
    exportAction->setToolTip(tr("Save the cloud as PLY, PCD or CSV"));
    toolBarWidget->addAction(exportAction);
    connect(exportAction, &QAction::triggered, this, &ThreeDView::exportCloudRequested);
    return toolBarWidget;
}

QImage ThreeDView::picture()
{
    return widget->grabFramebuffer();
}

void ThreeDView::clearLines(uint64_t before)
{
    widget->clearLines(before);
}

void ThreeDView::holdFrames(bool on)
{
    BasicView::holdFrames(on);
    widget->holdFrames(on);
}

int ThreeDView::reachBack() const
{
    return widget->reachBack();
}

void ThreeDView::readSettings()
{
    QSettings settings;
    widget->setPointsPerLine(SettingsKeys::pointsPerLine.read(settings));
    widget->setMaxPoints(SettingsKeys::maxPoints.read(settings));
    const bool follow = SettingsKeys::follow.read(settings);
    followAction->setChecked(follow);
    applyFollow(follow);
}

void ThreeDView::applyFollow(bool on)
{
    // Following keeps the camera's offset from the newest line: from a
    // camera that had already lost the cloud it would never show it.
    const bool turnedOn = on && !widget->isFollowing();
    widget->setFollow(on);
    if (turnedOn)
        handleHome();
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
    camera.setTranslation(widget->homeTranslation());
    camera.setRotation(QQuaternion::fromAxisAndAngle(QVector3D(0.0f, 0.0f, 1.0f), 0.0f));
    widget->setFraming(ViewFraming::Home);
}

void ThreeDView::handleFit()
{
    widget->setFraming(ViewFraming::Fit);
}

void ThreeDView::handleFollow(bool on)
{
    applyFollow(on);
    QSettings settings;
    SettingsKeys::follow.write(settings, on);
}

} // namespace vxlindral
