// Cloud writer figures: points per second written to a file in lines of
// 2,048 points (as a capture's lines would come), for each format, beside a
// floor measured in the same run: fwrite of the same number of binary PLY
// bytes from a buffer filled once. The binary PLY row also goes through
// QSaveFile, as the window writes it. Each figure is the best of three runs
// (a shared machine adds stalls); the files go to a temporary folder.
// Usage: bench_cloudwriter [million points (default 4)]
#include "export/cloudwriter.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QSaveFile>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

using vxlindral::CloudWriter;

namespace {

constexpr std::size_t kLine = 2048;
constexpr std::size_t kPlyRecord = 31;

// One line's points, reused for every line (the writer does not care).
std::vector<CloudWriter::Point> linePoints()
{
    std::vector<CloudWriter::Point> pts(kLine);
    for (std::size_t i = 0; i < kLine; ++i)
        pts[i] = {0.1f,       -0.5f + i * 4.9e-4f, 0.25f + (i % 100) * 1e-3f,
                  uint8_t(i), uint32_t(i * 13),    1.0f + i * 1e-4f,
                  123456,     uint32_t(i)};
    return pts;
}

// Best seconds of three runs of `run`.
double best(const std::function<bool()>& run)
{
    double seconds = 1e9;
    for (int r = 0; r < 3; ++r) {
        QElapsedTimer t;
        t.start();
        if (!run())
            return -1.0;
        seconds = std::min(seconds, t.nsecsElapsed() * 1e-9);
    }
    return seconds;
}

void report(const char* what, double seconds, std::size_t points, qint64 bytes)
{
    if (seconds < 0) {
        std::printf("%-26s failed\n", what);
        return;
    }
    std::printf("%-26s %8.2f M points/s %8.1f MB/s %7.3f s\n", what, points / seconds * 1e-6,
                bytes / seconds * 1e-6, seconds);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const double millions = argc > 1 ? std::atof(argv[1]) : 4.0;
    const std::size_t lines = std::max<std::size_t>(1, std::size_t(millions * 1e6) / kLine);
    const std::size_t points = lines * kLine;
    QTemporaryDir dir;
    const std::vector<CloudWriter::Point> line = linePoints();
    std::printf("%zu points in %zu lines of %zu\n", points, lines, kLine);

    // Floor: the binary PLY bytes of one line, written line by line.
    const std::vector<char> bytes(kLine * kPlyRecord, 'x');
    const QByteArray floorPath = dir.filePath("floor.ply").toLocal8Bit();
    const double floor = best([&] {
        FILE* f = std::fopen(floorPath.constData(), "wb");
        bool ok = f != nullptr;
        for (std::size_t l = 0; ok && l < lines; ++l)
            ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
        return f && std::fclose(f) == 0 && ok;
    });
    report("floor: fwrite", floor, points, qint64(points * kPlyRecord));

    const auto writeAll = [&](QIODevice& out, CloudWriter::Format format) {
        CloudWriter writer(out, format, points);
        bool ok = writer.writeHeader();
        for (std::size_t l = 0; ok && l < lines; ++l)
            ok = writer.writePoints(line.data(), line.size());
        return ok && writer.finish();
    };
    struct Row
    {
        const char* name;
        CloudWriter::Format format;
        const char* file;
    };
    for (const Row& row : {Row{"PLY binary", CloudWriter::Format::PlyBinary, "c.ply"},
                           Row{"PCD binary", CloudWriter::Format::PcdBinary, "c.pcd"},
                           Row{"PLY text", CloudWriter::Format::PlyText, "t.ply"},
                           Row{"PCD text", CloudWriter::Format::PcdText, "t.pcd"},
                           Row{"CSV", CloudWriter::Format::Csv, "c.csv"}}) {
        QFile file(dir.filePath(row.file));
        const double s = best([&] {
            return file.open(QIODevice::WriteOnly) && writeAll(file, row.format) &&
                   (file.close(), file.error() == QFile::NoError);
        });
        report(row.name, s, points, file.size());
    }
    QSaveFile save(dir.filePath("s.ply"));
    const double s = best([&] {
        return save.open(QIODevice::WriteOnly) && writeAll(save, CloudWriter::Format::PlyBinary) &&
               save.commit();
    });
    report("PLY binary via QSaveFile", s, points, QFile(dir.filePath("s.ply")).size());
    return 0;
}
