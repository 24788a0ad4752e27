// The cloud writer's files as other programs read them: Open3D reads PLY and
// PCD (also after PCL's tools converted them to the other format and back),
// numpy reads CSV; all of them must find the points that were written. The
// programs are installed by scripts/install-deps.sh; a missing one fails the
// test. Also the writer's refusals: a wrong point count, a failing device.
#include "export/cloudwriter.h"

#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>
#include <cstring>
#include <vector>

using vxlindral::CloudWriter;
using Format = CloudWriter::Format;

Q_DECLARE_METATYPE(CloudWriter::Format)

namespace {

// More points than the writer formats at once, with values that catch
// narrowing and sign mistakes: negative and tiny coordinates, the whole gray
// range, unsigned values above 2^31.
std::vector<CloudWriter::Point> samplePoints(std::size_t n)
{
    std::vector<CloudWriter::Point> pts(n);
    for (std::size_t i = 0; i < n; ++i) {
        CloudWriter::Point& p = pts[i];
        p.x = static_cast<float>(i / 1000 / 250.0 + 0.1);
        p.y = -0.5f + static_cast<float>(i % 997) * 1.003e-3f;
        p.z = (i % 7 == 0) ? 1e-5f * static_cast<float>(i % 13)
                           : 0.3f - static_cast<float>(i) * 1e-6f;
        p.gray = static_cast<uint8_t>(i * 37);
        p.intensity = static_cast<uint32_t>(i * 2654435761u);
        p.range = 0.25f + static_cast<float>(i % 4096) / 3.0f;
        p.series = 4000000000u + static_cast<uint32_t>(i / 1000);
        p.pixel = static_cast<uint32_t>(i % 1000) * 2;
    }
    return pts;
}

// The points as packed records for the Python checker.
QByteArray records(const std::vector<CloudWriter::Point>& pts)
{
    QByteArray out;
    for (const CloudWriter::Point& p : pts) {
        char r[29];
        std::memcpy(r, &p.x, 12);
        r[12] = static_cast<char>(p.gray);
        std::memcpy(r + 13, &p.intensity, 4);
        std::memcpy(r + 17, &p.range, 4);
        std::memcpy(r + 21, &p.series, 4);
        std::memcpy(r + 25, &p.pixel, 4);
        out.append(r, sizeof r);
    }
    return out;
}

// Runs a program to its end; its output, or why it could not run.
bool run(const QString& program, const QStringList& args, QString& output)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(program, args);
    const bool ok =
        p.waitForFinished(120000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
    output = p.error() == QProcess::FailedToStart
                 ? program + " is missing (scripts/install-deps.sh installs pcl-tools and "
                             "python3-open3d)"
                 : QString::fromLocal8Bit(p.readAll());
    return ok;
}

} // namespace

class TstCloudWriter : public QObject
{
    Q_OBJECT
private:
    QTemporaryDir dir;

    QString write(const QString& name, Format format, const std::vector<CloudWriter::Point>& pts)
    {
        const QString path = dir.filePath(name);
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly))
            return QString();
        CloudWriter writer(file, format, pts.size());
        bool ok = writer.writeHeader();
        // Chunks of every size: one point, a few, more than one formatting
        // round, the rest.
        std::size_t done = 0;
        for (std::size_t chunk : {std::size_t(1), std::size_t(999), std::size_t(17000)}) {
            const std::size_t take = std::min(chunk, pts.size() - done);
            ok = ok && writer.writePoints(pts.data() + done, take);
            done += take;
        }
        ok = ok && writer.writePoints(pts.data() + done, pts.size() - done) && writer.finish();
        return ok ? path : QString();
    }

    // Converts with one of PCL's tools, which must report every point.
    void pclConvert(const QString& tool, const QString& from, const QString& to, int points)
    {
        QStringList args{from, to};
        if (tool == "pcl_pcd2ply")
            args.prepend("0"), args.prepend("-use_camera"); // a plain vertex list
        QString out;
        QVERIFY2(run("/usr/bin/" + tool, args, out), qPrintable(out));
        const QRegularExpression loaded(QStringLiteral(R"(Loading .*: (\d+) points)"));
        const QRegularExpressionMatch m = loaded.match(out);
        QVERIFY2(m.hasMatch(), qPrintable(out));
        QCOMPARE(m.captured(1).toInt(), points);
    }

private slots:
    void readByOtherPrograms_data()
    {
        QTest::addColumn<Format>("format");
        QTest::addColumn<QString>("name");
        QTest::newRow("PLY binary") << Format::PlyBinary << "cloud.ply";
        QTest::newRow("PLY text") << Format::PlyText << "cloud.ply";
        QTest::newRow("PCD binary") << Format::PcdBinary << "cloud.pcd";
        QTest::newRow("PCD text") << Format::PcdText << "cloud.pcd";
        QTest::newRow("CSV") << Format::Csv << "cloud.csv";
    }
    void readByOtherPrograms()
    {
        QFETCH(Format, format);
        QFETCH(QString, name);
        const int n = 20000;
        const std::vector<CloudWriter::Point> pts = samplePoints(n);
        const QString path = write(name, format, pts);
        QVERIFY(!path.isEmpty());
        QFile expected(dir.filePath("expected.bin"));
        QVERIFY(expected.open(QIODevice::WriteOnly));
        expected.write(records(pts));
        expected.close();

        QStringList checks{expected.fileName()};
        if (name.endsWith(".csv")) {
            checks << "numpy:" + path;
        } else {
            // PLY -> PCD -> PLY, or PCD -> PLY -> PCD, by PCL.
            const bool ply = name.endsWith(".ply");
            const QString there = dir.filePath(ply ? "pcl.pcd" : "pcl.ply");
            const QString back = dir.filePath(ply ? "back.ply" : "back.pcd");
            pclConvert(ply ? "pcl_ply2pcd" : "pcl_pcd2ply", path, there, n);
            pclConvert(ply ? "pcl_pcd2ply" : "pcl_ply2pcd", there, back, n);
            checks << "open3d:" + path << "open3d:" + there << "open3d:" + back;
            if (ply)
                checks << "cloudcompare:" + path;
        }
        QString out;
        const QString script = QFINDTESTDATA("checkcloud.py");
        QVERIFY2(run("/usr/bin/python3", QStringList{script} + checks, out), qPrintable(out));
        qInfo().noquote() << out.trimmed();
    }

    // The count is announced before the points: too few or too many points
    // are refused, and so is a device that fails, with the device's reason.
    void refusals_data()
    {
        QTest::addColumn<int>("announced");
        QTest::addColumn<int>("given");
        QTest::addColumn<bool>("fullDevice");
        QTest::addColumn<QString>("reason");
        QTest::newRow("fewer") << 10 << 9 << false << "9 of the 10 points";
        QTest::newRow("more") << 10 << 11 << false << "more points than the 10";
        QTest::newRow("device full") << 10 << 10 << true << "space";
    }
    void refusals()
    {
        QFETCH(int, announced);
        QFETCH(int, given);
        QFETCH(bool, fullDevice);
        QFETCH(QString, reason);
        QFile file(fullDevice ? "/dev/full" : dir.filePath("refused.ply"));
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        const std::vector<CloudWriter::Point> pts = samplePoints(std::size_t(given));
        CloudWriter writer(file, Format::PlyBinary, std::uint64_t(announced));
        const bool ok =
            writer.writeHeader() && writer.writePoints(pts.data(), pts.size()) && writer.finish();
        QVERIFY(!ok);
        QVERIFY2(writer.errorString().contains(reason), qPrintable(writer.errorString()));
    }

    void formatOf_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("text");
        QTest::addColumn<bool>("known");
        QTest::addColumn<Format>("format");
        QTest::newRow("ply") << "/a/b.ply" << false << true << Format::PlyBinary;
        QTest::newRow("PLY text") << "b.PLY" << true << true << Format::PlyText;
        QTest::newRow("pcd") << "x.y.pcd" << false << true << Format::PcdBinary;
        QTest::newRow("pcd text") << "x.pcd" << true << true << Format::PcdText;
        QTest::newRow("csv, text ignored") << "x.csv" << true << true << Format::Csv;
        QTest::newRow("other") << "x.txt" << false << false << Format::Csv;
        QTest::newRow("none") << "ply" << false << false << Format::Csv;
    }
    void formatOf()
    {
        QFETCH(QString, name);
        QFETCH(bool, text);
        Format format = Format::Csv;
        QTEST(CloudWriter::formatOf(name, text, format), "known");
        QTEST(format, "format");
    }
};

QTEST_GUILESS_MAIN(TstCloudWriter)
#include "tst_cloudwriter.moc"
