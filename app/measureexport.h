#pragma once
#include "app/stretchexport.h"
#include "measure/linemeasurer.h"

#include <QObject>
#include <QSaveFile>
#include <QString>
#include <cstdint>
#include <cstdio>
#include <memory>

class QTimer;

namespace vxrec {
class CaptureSource;
}

namespace vxlindral {

// Writes the measures of a region of every line of a stretch of a capture
// as CSV (File > "Export measurements ..."): the header, then one row per
// line, numbered as in the capture (the transport bar shows the number plus
// one). The lines are measured exactly as vxscanner-measure measures them,
// by the same LineMeasurer on a capture source of its own played as fast as
// possible, so that the window's file and the tool's output agree row for
// row. Rows are streamed to the file as they come; only one line is held.
// The target is a QSaveFile: a failure or cancel() leaves no file behind.
//
// Ownership: owned by the window's exports; owns its source, measurer and
// the file being written. Threads: GUI thread only; the source's receive
// thread measures the lines and writes the rows, and is joined before the
// file is committed or the object goes.
class MeasureExport : public QObject
{
    Q_OBJECT
public:
    MeasureExport(const QString& capturePath, uint16_t port, const StretchExport::Stretch& stretch,
                  double y0, double y1, const QString& target, QObject* parent = nullptr);
    ~MeasureExport() override;

    // Opens the capture and the target and begins. False, with the reason
    // in `error`, when either cannot be opened; `targetFailed` then says
    // whether it was the target.
    bool start(QString& error, bool& targetFailed);
    // Abandons the export: no file is left; finished(false, "") follows.
    void cancel();

    const QString& target() const { return targetPath; }
    // Rows written so far.
    uint64_t rows() const;

signals:
    // Done so far, 0 .. 1000, a few times a second.
    void progressed(int permille);
    // The export ended: `ok` with the file complete in place; otherwise
    // `reason` says why (empty when cancelled) and no file was left.
    void finished(bool ok, const QString& reason);

private:
    // On a timer: ends once every line of the stretch is measured, or the
    // source has handed out all it will.
    void check();
    void finish();
    void fail(const QString& reason);
    // Joins the receive thread and closes the stream on the file; whether
    // every row reached the file.
    bool stopMeasuring();

    const QString capturePath;
    const uint16_t port;
    const StretchExport::Stretch stretch;
    const double y0, y1;
    const QString targetPath;

    QSaveFile file;
    std::FILE* out = nullptr; // on a duplicate of the file's descriptor
    std::shared_ptr<vxrec::CaptureSource> source;
    std::unique_ptr<vxmeasure::LineMeasurer> measurer;
    QTimer* timer = nullptr;
    bool done = false;
    uint64_t lastRows = 0;
    int quietTicks = 0; // ticks the source stood still and no row came
    int lastPermille = -1;
};

} // namespace vxlindral
