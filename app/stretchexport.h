#pragma once
#include "export/cloudwriter.h"
#include "line/linetype.h"
#include "scanner/vxpt.h"

#include <QObject>
#include <QSaveFile>
#include <QString>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

class QTimer;

namespace vxrec {
class CaptureSource;
}

namespace vxlindral {

class MyLine;
class StreamDataController;
class StreamDataModel;

// Writes every point of a stretch of a capture's lines to a cloud file (File
// > "Export lines as cloud ..."): not thinned, with the 3D view's columns,
// x spacing and grays, line k of the capture at the x the 3D view gives the
// k-th line of a capture played from its start.
//
// The lines take the road a played capture's lines take: a capture source of
// its own on the file (as fast as possible, never dropping), a controller and
// model of its own (decoding exactly as the views' lines are decoded), and
// each line the model takes in is turned into points on the GUI thread. The
// file's header states the point count, so the stretch goes by twice: once
// counting the points, once writing them. Only one line's points and the
// writer's chunk are held, whatever the stretch's length. The target is a
// QSaveFile: a failure or cancel() leaves no file behind.
//
// Ownership: owned by the main window; owns its source, controller, model and
// the file being written. Threads: GUI thread only; the controller's receive
// thread decodes the lines and is stopped before the object goes.
class StretchExport : public QObject
{
    Q_OBJECT
public:
    // Where the stretch lies in the capture (from the capture's index).
    struct Stretch
    {
        uint64_t first = 0;   // number of the first line in the file (0-based)
        uint64_t count = 0;   // lines in the stretch
        uint64_t offset = 0;  // where the first line's first datagram starts
        uint64_t prelude = 0; // where the file header before it begins, or no prelude
    };

    StretchExport(const QString& capturePath, uint16_t port, const Stretch& stretch,
                  const QString& target, CloudWriter::Format format, QObject* parent = nullptr);
    ~StretchExport() override;

    // Opens the capture and the target and begins. False, with the reason
    // in `error`, when either cannot be opened; `targetFailed` then says
    // whether it was the target.
    bool start(QString& error, bool& targetFailed);
    // Abandons the export: no file is left; finished(false, "") follows.
    void cancel();

    const QString& target() const { return targetPath; }
    // Points written so far.
    uint64_t pointsWritten() const { return written; }

    // Whether the pixels without echo (range 0) are written too; they are
    // left out unless set before start().
    void setKeepNoEcho(bool keep) { keepNoEcho = keep; }
    // The points of one line of the capture, every pixel (with `keepNoEcho`;
    // else those with a range), as the 3D view would place and colour them
    // for the capture's `lineNumber`-th line.
    static void linePoints(const MyLine& line, uint64_t lineNumber,
                           std::vector<CloudWriter::Point>& out, bool keepNoEcho = true);
    // A pixel that measured something: its range is not 0 (no echo).
    static bool hasEcho(const vxs::VxPt& pt) { return pt.range != 0; }

signals:
    // Done so far, 0 .. 1000, a few times a second.
    void progressed(int permille);
    // The export ended: `ok` with the file complete in place; otherwise
    // `reason` says why (empty when cancelled) and no file was left.
    void finished(bool ok, const QString& reason);

private:
    enum class Pass
    {
        Counting,
        Writing,
        Done,
    };

    // Plays the stretch once more from its first line.
    bool beginPass(QString& error);
    void takeLine(const LineType& line);
    // On a timer: ends the pass once every line of the stretch came.
    void check();
    void endPass();
    void fail(const QString& reason);
    void stopReceiving();

    const QString capturePath;
    const uint16_t port;
    bool keepNoEcho = false;
    const Stretch stretch;
    const QString targetPath;
    const CloudWriter::Format format;

    std::shared_ptr<StreamDataModel> model;
    std::shared_ptr<StreamDataController> controller;
    std::shared_ptr<vxrec::CaptureSource> source;
    QSaveFile file;
    std::optional<CloudWriter> writer;
    QTimer* timer = nullptr;
    Pass pass = Pass::Counting;
    uint64_t linesTaken = 0;                // lines of this pass taken in
    uint64_t linesCounted = 0;              // lines the counting pass took in
    uint64_t total = 0;                     // points the counting pass found
    uint64_t written = 0;                   // points written
    int quietTicks = 0;                     // ticks the source stood still with nothing on its way
    std::vector<CloudWriter::Point> points; // one line's, reused
    int lastPermille = -1;
};

} // namespace vxlindral
