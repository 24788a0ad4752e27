#pragma once
// Runs a QtTest object in a process set up the way the program sets itself
// up, with private settings under a temporary XDG_CONFIG_HOME (so a first
// start opens only the 3D view); and the helpers the window tests share.
#include "app/applicationsetup.h"
#include "app/mainwindow.h"
#include "line/linetype.h"
#include "line/myline.h"
#include "models/streamdatamodel.h"

#include <QApplication>
#include <QDialog>
#include <QFileDialog>
#include <QLineEdit>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>
#include <cstring>
#include <functional>
#include <memory>
#include <tuple>

template <typename Test> int runWindowTest(int argc, char* argv[])
{
    QTemporaryDir config;
    qputenv("XDG_CONFIG_HOME", config.path().toLocal8Bit());
    vxlindral::ApplicationSetup::beforeApplication();
    QApplication app(argc, argv);
    vxlindral::ApplicationSetup::afterApplication();
    Test test;
    return QTest::qExec(&test, argc, argv);
}

namespace windowtest {

// A main window on fresh settings, shown; null when it was never exposed.
inline std::unique_ptr<MainWindow> freshWindow()
{
    QSettings().clear();
    auto window = std::make_unique<MainWindow>();
    window->show();
    if (!QTest::qWaitForWindowExposed(window.get()))
        window.reset();
    return window;
}

// The view of `kind` (MainWindow's view kinds) of a port or capture key.
template <typename V> V* view(const MainWindow& window, int key, int kind)
{
    return window.findChild<V*>(MainWindow::viewNamePattern(kind).arg(key));
}

// Answers the next dialog of type W as soon as it shows (a modal dialog
// blocks the caller inside exec()): `f` reads or fills it, then it is
// accepted or, with `accept` false, rejected. A dialog that may not come at
// all needs an `owner` that ends the wait with it, lest a later dialog meet a
// `f` whose references are gone.
template <typename W>
void answer(bool accept, std::function<void(W*)> f = {}, QObject* owner = nullptr)
{
    auto* timer = new QTimer(owner);
    timer->setInterval(10);
    QObject::connect(timer, &QTimer::timeout, [timer, accept, f] {
        for (QWidget* w : QApplication::topLevelWidgets()) {
            auto* dialog = qobject_cast<W*>(w);
            if (!dialog || !dialog->isVisible())
                continue;
            timer->stop();
            timer->deleteLater();
            if (f)
                f(dialog);
            // (QFileDialog's own accept() is protected.)
            accept ? static_cast<QDialog*>(dialog)->accept() : dialog->reject();
            return;
        }
    });
    timer->start();
}

// Picks a file (and a filter) in a file dialog. selectFile() leaves the name
// field alone while it has the focus, and accepting with an empty name keeps
// the dialog open: the name is typed into the field as well.
inline void chooseFile(QFileDialog* dialog, const QString& path, const QString& filter = {})
{
    if (!filter.isEmpty())
        dialog->selectNameFilter(filter);
    dialog->selectFile(path);
    dialog->findChild<QLineEdit*>("fileNameEdit")->setText(path);
}

// A line of `pixels` records in the peak layout of `datatyp` (2: range and
// intensity; 4 adds quality and echo width): range 1000 + i + v, intensity
// 100 + i + 2 v, where v = number (i % 61 + 1) % 1000 varies with the line's
// `number` (0 for line 0); an eight-word header starting with the number.
inline vxlindral::LineType makeLine(int pixels, uint32_t number = 0, int datatyp = 2)
{
    auto line = std::make_shared<vxlindral::MyLine>();
    line->parser = std::make_shared<vx::RawLineParser>();
    line->parser->detect(datatyp, vx::RawLineParser::MOD_PEAK, false);
    const int bpp = line->parser->bytesPerPixel();
    line->pixel = pixels;
    line->flags = 8;
    const uint32_t header[8] = {number, 0, 0, 10 * number, 3, 500, 230, 200};
    line->header.assign(reinterpret_cast<const uint8_t*>(header),
                        reinterpret_cast<const uint8_t*>(header) + sizeof header);
    line->data.assign(std::size_t(pixels) * bpp, 0);
    line->points.resize(pixels);
    for (int i = 0; i < pixels; ++i) {
        const uint32_t v = number * uint32_t(i % 61 + 1) % 1000;
        const uint32_t range = 1000 + i + v, intensity = 100 + i + 2 * v;
        uint8_t* record = line->data.data() + std::size_t(i) * bpp;
        std::memcpy(record, &range, 3);
        std::memcpy(record + 3, &intensity, 2);
        if (bpp >= 8) {
            record[5] = uint8_t(number);
            std::memcpy(record + 6, &i, 2);
        }
        vxs::VxPt& p = line->points[i];
        p.intensity = intensity;
        p.range = p.z = range / 10000.0;
        p.y = (i - pixels / 2) * 0.001;
        p.valid = 1;
    }
    auto s = line->parser->calc(reinterpret_cast<const char*>(line->data.data()), pixels);
    std::tie(line->avr, line->sdev, line->min, line->max) = std::tie(s.avr, s.sdev, s.min, s.max);
    return line;
}

// Hands a line of `pixels` and a text to port 6101's model as the receiver
// does, and lets the queued deliveries run.
inline void feed(MainWindow& window, int pixels)
{
    const std::shared_ptr<vxlindral::StreamDataModel> model = window.dataModel(6101);
    model->emitStatistic(QStringLiteral("pixel %1\n").arg(pixels));
    model->setData(QModelIndex(), QVariant::fromValue(makeLine(pixels)));
    QCoreApplication::processEvents();
}

// What a table shows: its shape, column headers and every cell, as text.
inline QStringList tableTexts(const QAbstractItemModel* m)
{
    QStringList t{QString::number(m->rowCount()), QString::number(m->columnCount())};
    for (int c = 0; c < m->columnCount(); ++c)
        t << m->headerData(c, Qt::Horizontal).toString();
    for (int r = 0; r < m->rowCount(); ++r)
        for (int c = 0; c < m->columnCount(); ++c)
            t << m->data(m->index(r, c)).toString();
    return t;
}

} // namespace windowtest
