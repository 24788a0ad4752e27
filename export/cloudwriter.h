#pragma once
#include <QByteArray>
#include <QString>
#include <cstddef>
#include <cstdint>
#include <vector>

class QIODevice;

namespace vxlindral {

// Writes a point cloud as PLY (binary little-endian or text), PCD 0.7 (binary
// or text) or CSV, as a stream: the header with the point count, known up
// front, then the points in chunks of any size, so that no whole-cloud buffer
// is needed. finish() fails unless exactly the announced number of points
// came. Every format has the same columns: x, y, z (float), the gray value
// (0..255; PLY as red, green and blue, PCD as a packed rgb field), the raw
// intensity, the range in metres (float), the line's series number and the
// pixel index (unsigned 32-bit).
// Ownership: writes to a device it does not own, which must be open for
// writing and stay so until finish(). Threads: one thread at a time.
class CloudWriter
{
public:
    enum class Format
    {
        PlyBinary,
        PlyText,
        PcdBinary,
        PcdText,
        Csv,
    };

    struct Point
    {
        float x = 0.0f;
        float y = 0.0f;
        float z = 0.0f;
        uint8_t gray = 0;
        uint32_t intensity = 0;
        float range = 0.0f; // metres
        uint32_t series = 0;
        uint32_t pixel = 0;
    };

    // The format of a file name: .ply, .pcd or .csv (any case), the text
    // variant of PLY and PCD when `text` is set. False for other names.
    static bool formatOf(const QString& fileName, bool text, Format& format);

    CloudWriter(QIODevice& out, Format format, std::uint64_t pointCount);

    // A line of text that the header carries as a comment (PLY "comment",
    // PCD "#"; CSV: a "#" line after the column names, which numpy's loadtxt
    // and pandas' comment='#' pass over). Set before writeHeader().
    void setNote(const QByteArray& text) { note = text; }
    // The note that says whether the pixels without echo (range 0) are in.
    static QByteArray echoNote(bool keptNoEcho)
    {
        return keptNoEcho ? "every pixel, those without echo (range 0) too"
                          : "pixels without echo (range 0) left out";
    }

    // Each returns false once a write failed or the count is wrong; the
    // reason is then in errorString().
    bool writeHeader();
    bool writePoints(const Point* points, std::size_t n);
    bool finish();
    QString errorString() const { return error; }

private:
    bool put(const char* data, std::size_t n);
    bool fail(const QString& reason);
    // Put the points into `buffer` as text rows (PLY, PCD: blank-separated;
    // CSV: comma-separated) or as binary records.
    void appendText(const Point* points, std::size_t n, char separator);
    void appendBinary(const Point* points, std::size_t n);

    QIODevice& out;
    const Format format;
    const std::uint64_t announced;
    std::uint64_t written = 0;
    std::vector<char> buffer; // one chunk's bytes, reused
    QByteArray note;
    QString error;
};

} // namespace vxlindral
