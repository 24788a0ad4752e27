#include "export/cloudwriter.h"

#include <QFileInfo>
#include <QIODevice>
#include <algorithm>
#include <charconv>
#include <cstring>

namespace vxlindral {

namespace {

// Points formatted per device write: bounds the buffer (about 2 MiB of text).
constexpr std::size_t kChunk = 16384;
// Longest text of one point: at most ten numbers (PLY repeats the gray) of
// at most 15 characters, each with its separator.
constexpr std::size_t kMaxTextRow = 10 * 16;

constexpr std::size_t kPlyRecord = 3 * 4 + 3 + 4 * 4;
constexpr std::size_t kPcdRecord = 8 * 4;

// Properties other than coordinates, colours and intensity are named
// "scalar_...": that is how point-cloud editors (CloudCompare among them)
// recognise further per-point values and keep them as scalar fields, under
// the name without the prefix; other readers take the name as it stands.
const char* const kPlyProperties = "property float x\n"
                                   "property float y\n"
                                   "property float z\n"
                                   "property uchar red\n"
                                   "property uchar green\n"
                                   "property uchar blue\n"
                                   "property uint intensity\n"
                                   "property float scalar_range\n"
                                   "property uint scalar_series\n"
                                   "property uint scalar_pixel\n"
                                   "end_header\n";

const char* const kPcdFields = "FIELDS x y z rgb intensity range series pixel\n"
                               "SIZE 4 4 4 4 4 4 4 4\n"
                               "TYPE F F F F U F U U\n"
                               "COUNT 1 1 1 1 1 1 1 1\n";

// The gray value as PCD's packed colour: the word 0x00RRGGBB stored in a
// float field (so in text, too, it is written as that float).
float packedGray(uint8_t g)
{
    const uint32_t word = (uint32_t(g) << 16) | (uint32_t(g) << 8) | g;
    float f;
    std::memcpy(&f, &word, sizeof f);
    return f;
}

template <typename T> char* putRaw(char* p, T value)
{
    std::memcpy(p, &value, sizeof value); // little-endian host
    return p + sizeof value;
}

// Shortest text that reads back as the same value (floats: the same float).
template <typename T> char* putText(char* p, T value, char after)
{
    p = std::to_chars(p, p + 16, value).ptr;
    *p = after;
    return p + 1;
}

} // namespace

bool CloudWriter::formatOf(const QString& fileName, bool text, Format& format)
{
    const QString suffix = QFileInfo(fileName).suffix().toLower();
    if (suffix == QLatin1String("ply"))
        format = text ? Format::PlyText : Format::PlyBinary;
    else if (suffix == QLatin1String("pcd"))
        format = text ? Format::PcdText : Format::PcdBinary;
    else if (suffix == QLatin1String("csv"))
        format = Format::Csv;
    else
        return false;
    return true;
}

CloudWriter::CloudWriter(QIODevice& device, Format f, std::uint64_t pointCount)
    : out(device), format(f), announced(pointCount)
{
}

bool CloudWriter::fail(const QString& reason)
{
    if (error.isEmpty())
        error = reason;
    return false;
}

bool CloudWriter::put(const char* data, std::size_t n)
{
    if (!error.isEmpty())
        return false;
    if (out.write(data, static_cast<qint64>(n)) != static_cast<qint64>(n))
        return fail(out.errorString());
    return true;
}

bool CloudWriter::writeHeader()
{
    QByteArray header;
    const QByteArray count = QByteArray::number(static_cast<qulonglong>(announced));
    switch (format) {
    case Format::PlyBinary:
    case Format::PlyText:
        header = "ply\nformat ";
        header += format == Format::PlyBinary ? "binary_little_endian" : "ascii";
        header += " 1.0\ncomment Vx Lindral 3D view cloud\n";
        if (!note.isEmpty())
            header += "comment " + note + "\n";
        header += "element vertex " + count + "\n";
        header += kPlyProperties;
        break;
    case Format::PcdBinary:
    case Format::PcdText:
        header = "# .PCD v0.7 - Point Cloud Data file format\n";
        if (!note.isEmpty())
            header += "# " + note + "\n";
        header += "VERSION 0.7\n";
        header += kPcdFields;
        header +=
            "WIDTH " + count + "\nHEIGHT 1\nVIEWPOINT 0 0 0 1 0 0 0\nPOINTS " + count + "\nDATA ";
        header += format == Format::PcdBinary ? "binary\n" : "ascii\n";
        break;
    case Format::Csv:
        header = "x,y,z,gray,intensity,range,series,pixel\n";
        if (!note.isEmpty())
            header += "# " + note + "\n";
        break;
    }
    return put(header.constData(), static_cast<std::size_t>(header.size()));
}

bool CloudWriter::writePoints(const Point* points, std::size_t n)
{
    while (n > 0 && error.isEmpty()) {
        const std::size_t take = std::min(n, kChunk);
        if (written + take > announced)
            return fail(QStringLiteral("more points than the %1 announced").arg(announced));
        buffer.clear();
        switch (format) {
        case Format::PlyBinary:
        case Format::PcdBinary:
            appendBinary(points, take);
            break;
        case Format::PlyText:
        case Format::PcdText:
            appendText(points, take, ' ');
            break;
        case Format::Csv:
            appendText(points, take, ',');
            break;
        }
        if (!put(buffer.data(), buffer.size()))
            return false;
        written += take;
        points += take;
        n -= take;
    }
    return error.isEmpty();
}

bool CloudWriter::finish()
{
    if (error.isEmpty() && written != announced)
        return fail(QStringLiteral("%1 of the %2 points announced were written")
                        .arg(written)
                        .arg(announced));
    return error.isEmpty();
}

void CloudWriter::appendBinary(const Point* points, std::size_t n)
{
    const bool ply = format == Format::PlyBinary;
    buffer.resize(n * (ply ? kPlyRecord : kPcdRecord));
    char* p = buffer.data();
    for (const Point* pt = points; pt != points + n; ++pt) {
        p = putRaw(p, pt->x);
        p = putRaw(p, pt->y);
        p = putRaw(p, pt->z);
        if (ply) {
            std::memset(p, pt->gray, 3); // red, green, blue
            p += 3;
        } else {
            p = putRaw(p, packedGray(pt->gray));
        }
        p = putRaw(p, pt->intensity);
        p = putRaw(p, pt->range);
        p = putRaw(p, pt->series);
        p = putRaw(p, pt->pixel);
    }
}

void CloudWriter::appendText(const Point* points, std::size_t n, char sep)
{
    buffer.resize(n * kMaxTextRow);
    char* p = buffer.data();
    const bool ply = format == Format::PlyText;
    for (const Point* pt = points; pt != points + n; ++pt) {
        p = putText(p, pt->x, sep);
        p = putText(p, pt->y, sep);
        p = putText(p, pt->z, sep);
        if (ply) {
            p = putText(p, pt->gray, sep);
            p = putText(p, pt->gray, sep);
            p = putText(p, pt->gray, sep);
        } else if (format == Format::PcdText) {
            p = putText(p, packedGray(pt->gray), sep);
        } else {
            p = putText(p, pt->gray, sep);
        }
        p = putText(p, pt->intensity, sep);
        p = putText(p, pt->range, sep);
        p = putText(p, pt->series, sep);
        p = putText(p, pt->pixel, '\n');
    }
    buffer.resize(static_cast<std::size_t>(p - buffer.data()));
}

} // namespace vxlindral
