#include "app/linerecording.h"

#include "settings/settingskeys.h"

#include <QAction>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QSettings>
#include <QTextStream>
#include <QTimer>

namespace vxlindral {

LineRecording::LineRecording(QObject* parent) : QObject(parent) {}

void LineRecording::ask(QWidget* window, QAction* action, QSettings& settings,
                        const QString& startPath, int source, LineText lineText)
{
    const QString fileName =
        QFileDialog::getSaveFileName(window, tr("Save lines to file (startfile)"), startPath,
                                     QString(), nullptr, QFileDialog::Options());
    if (fileName.isEmpty())
        return;
    bool ok = false;
    const int ms = QInputDialog::getInt(window, tr("Recording"), tr("Time between lines [ms]"), 200,
                                        0, 60000, 1, &ok);
    if (!ok) {
        action->setChecked(false);
        return;
    }
    SettingsKeys::pathRecording.write(settings, QFileInfo(fileName).absoluteFilePath());
    start(fileName, ms, source, std::move(lineText));
}

void LineRecording::start(const QString& fileName, int intervalMs, int source, LineText lineText)
{
    stop();
    baseName = fileName;
    interval = intervalMs;
    part = 1;
    sourceKey = source;
    text = std::move(lineText);
    timer = new QTimer(this);
    connect(timer, &QTimer::timeout, this, &LineRecording::recordNow);
    timer->start(interval);
}

void LineRecording::stop()
{
    delete timer;
    timer = nullptr;
    sourceKey = 0;
}

void LineRecording::recordNow()
{
    const QString line = text();
    emit recorded(part);
    // One file per tick, whatever line is current.
    QFile file(baseName + QString("-part%1.cvs").arg(part));
    if (file.open(QIODevice::WriteOnly)) {
        QTextStream out(&file);
        out << line;
        out.flush();
        file.close();
    }
    ++part;
    if (timer)
        timer->start(interval);
}

} // namespace vxlindral
