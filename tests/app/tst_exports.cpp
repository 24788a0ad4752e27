// What the window hands to other programs: the 3D view's cloud (Edit menu and
// the view's tool bar) and pictures of every view (saved and copied), written
// through a temporary file so that a failure leaves no file behind; the
// measures of the lines a live port holds; and the new shortcuts, which must
// clash with none of the window's other actions.
#include "app/mainwindow.h"
#include "export/cloudwriter.h"
#include "models/streamdatamodel.h"
#include "views/basicview.h"
#include "views/cutview.h"
#include "views/flatview.h"
#include "views/myopenglwidget.h"
#include "views/threedview.h"
#include "windowtest.h"

#include <QtTest>
#include <QtWidgets>

using namespace vxlindral;
using windowtest::answer;
using windowtest::chooseFile;

Q_DECLARE_METATYPE(CloudWriter::Format)

class TestExports : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        QSettings().clear();
        window = std::make_unique<MainWindow>();
        window->show();
        window->activateWindow();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        QVERIFY(files.isValid());
    }
    void cleanup()
    {
        window.reset();
        warnings.clear();
        QCoreApplication::processEvents();
        for (const QString& f :
             QDir(files.path()).entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot))
            QFileInfo(files.filePath(f)).isDir() ? QDir(files.filePath(f)).removeRecursively()
                                                 : QFile::remove(files.filePath(f));
    }

    // The file holds exactly the cloud the view held when the command was
    // given (a line arriving while the dialog is open is not in it), in the
    // format the extension names (text for PLY and PCD when the text filter
    // was chosen; a name without extension gets the filter's). Only the
    // file is left in the folder, and its path is remembered.
    void exportCloud_data()
    {
        QTest::addColumn<bool>("toolBar");
        QTest::addColumn<QString>("filter");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("written");
        QTest::addColumn<CloudWriter::Format>("format");
        using F = CloudWriter::Format;
        QTest::newRow("menu, binary PLY") << false << "PLY binary (*.ply)"
                                          << "cloud.ply"
                                          << "cloud.ply" << F::PlyBinary;
        QTest::newRow("tool bar, PLY text") << true << "PLY text (*.ply)"
                                            << "cloud.ply"
                                            << "cloud.ply" << F::PlyText;
        QTest::newRow("no extension, PCD text") << false << "PCD text (*.pcd)"
                                                << "cloud"
                                                << "cloud.pcd" << F::PcdText;
        QTest::newRow("extension over filter") << true << "PLY text (*.ply)"
                                               << "cloud.csv"
                                               << "cloud.csv" << F::Csv;
    }
    void exportCloud()
    {
        QFETCH(bool, toolBar);
        QFETCH(QString, filter);
        QFETCH(QString, name);
        QFETCH(QString, written);
        QFETCH(CloudWriter::Format, format);
        for (int l = 0; l < 3; ++l)
            feed(2500);
        MyOpenGLWidget* gl = threeD()->glWidget();
        const std::vector<CloudVertex> vertices = gl->getVertices().toVector();
        const std::vector<CloudWriter::Point> held = gl->cloud();
        QCOMPARE(held.size(), std::size_t(3 * 1250));

        answer<QFileDialog>(true, [&](QFileDialog* dialog) {
            feed(2500);
            chooseFile(dialog, files.filePath(name), filter);
        });
        if (toolBar) {
            QAction* button = nullptr;
            for (QAction* a : threeD()->toolBar()->actions())
                button = a->text() == "Export cloud" ? a : button;
            QVERIFY(button);
            button->trigger();
        } else {
            action("actionExportCloud")->trigger();
        }
        QCOMPARE(gl->getLineCount(), 4);

        const QString path = files.filePath(written);
        QCOMPARE(QDir(files.path()).entryList(QDir::Files), QStringList{written});
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray bytes = file.readAll();
        QBuffer expected;
        expected.open(QIODevice::WriteOnly);
        CloudWriter writer(expected, format, held.size());
        writer.setNote(CloudWriter::echoNote(false));
        QVERIFY(writer.writeHeader() && writer.writePoints(held.data(), held.size()) &&
                writer.finish());
        QCOMPARE(bytes, expected.data());
        if (format == CloudWriter::Format::PlyBinary) {
            // The records hold the view's vertices, in drawing order.
            const int body = bytes.indexOf("end_header\n") + 11;
            QCOMPARE(bytes.size() - body, int(vertices.size()) * 31);
            for (std::size_t i = 0; i < vertices.size(); ++i) {
                float xyz[3];
                std::memcpy(xyz, bytes.constData() + body + i * 31, sizeof xyz);
                QVERIFY(xyz[0] == vertices[i].x && xyz[1] == vertices[i].y &&
                        xyz[2] == vertices[i].z);
            }
        }
        QCOMPARE(QSettings().value("Path/Last").toString(), QFileInfo(path).absoluteFilePath());
    }

    // A failed export leaves no file (and no temporary one) and says why in
    // the "Export failed" box, naming the file. Cancelling writes nothing
    // and says nothing.
    void exportFailures_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("warning");
        QTest::newRow("unknown type") << "cloud.txt"
                                      << "Export failed: Unknown cloud file type";
        QTest::newRow("folder missing") << "missing/cloud.ply"
                                        << "Export failed: Could not open file for writing";
        QTest::newRow("cancelled") << ""
                                   << "";
        QTest::newRow("no 3D view") << "-"
                                    << "Export failed: No 3D view is open.";
    }
    void exportFailures()
    {
        QFETCH(QString, name);
        QFETCH(QString, warning);
        feed(100);
        if (name == "-")
            closeAllViews();
        else
            answer<QFileDialog>(!name.isEmpty(), [&](QFileDialog* dialog) {
                chooseFile(dialog, files.filePath(name));
            });
        if (!warning.isEmpty())
            expectWarning();
        action("actionExportCloud")->trigger();
        QCOMPARE(warnings.join('|').section('\n', 0, 0), warning);
        if (!name.isEmpty() && name != "-")
            QVERIFY2(warnings.join('|').contains(QDir::toNativeSeparators(files.filePath(name))),
                     qPrintable(warnings.join('|')));
        QCOMPARE(QDir(files.path()).entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot),
                 QStringList());
        QVERIFY(!QSettings().contains("Path/Last"));
    }

    // Saved and copied, the image is what the active view shows: the cut
    // and gray views' pictures at their full size, the 3D view's frame
    // buffer, the numeric and info views as rendered below their tool bars.
    void viewImages_data()
    {
        QTest::addColumn<QString>("toggle");
        QTest::addColumn<QString>("view");
        QTest::newRow("cut") << "actionCut"
                             << "6101_3d";
        QTest::newRow("gray") << "actionGray"
                              << "6101_gray";
        QTest::newRow("numeric") << "actionNumeric"
                                 << "6101_num";
        QTest::newRow("info") << "actionInfo"
                              << "6101_cut";
        QTest::newRow("3D") << ""
                            << "6101_info";
    }
    void viewImages()
    {
        QFETCH(QString, toggle);
        QFETCH(QString, view);
        action("actionRealign")->trigger();
        if (!toggle.isEmpty())
            action(toggle.toLatin1())->trigger();
        auto* shown = window->findChild<BasicView*>(view);
        QVERIFY(shown);
        mdi()->setActiveSubWindow(shown);
        feed(300);
        feed(300);
        QCoreApplication::processEvents();
        const QImage picture = shown->picture().convertToFormat(QImage::Format_RGB32);
        QVERIFY(!picture.isNull());
        if (auto* gray = qobject_cast<FlatView*>(shown))
            QCOMPARE(picture.size(), gray->image().size());
        if (auto* cloud = qobject_cast<ThreeDView*>(shown))
            QCOMPARE(picture.size(), cloud->glWidget()->size() * cloud->devicePixelRatioF());

        answer<QFileDialog>(
            true, [&](QFileDialog* dialog) { chooseFile(dialog, files.filePath("view")); });
        action("actionSaveImage")->trigger();
        const QImage saved(files.filePath("view.png"), "PNG");
        QCOMPARE(saved.convertToFormat(QImage::Format_RGB32), picture);
        QCOMPARE(QDir(files.path()).entryList(QDir::Files), QStringList{"view.png"});

        // The status line's message can change the view's size by a pixel or
        // two: the copy is of the view as it is now.
        QCoreApplication::processEvents();
        const QImage now = shown->picture().convertToFormat(QImage::Format_RGB32);
        QGuiApplication::clipboard()->clear();
        action("actionCopyImage")->trigger();
        QCOMPARE(QGuiApplication::clipboard()->image().convertToFormat(QImage::Format_RGB32), now);
    }

    // Edit > "Export measurements ..." on a live port writes one row per line
    // the port still holds (its 10 newest), numbered as the receiver counted
    // them, with the measures of the cut view's region: here boxes 100 mm
    // wide whose height grows by a millimetre per line. Without a region or
    // a line, a box says so and no file is written.
    void exportHeldMeasurements_data()
    {
        QTest::addColumn<int>("lines");   // lines fed
        QTest::addColumn<bool>("region"); // a region is marked
        QTest::addColumn<QString>("warning");
        QTest::newRow("more lines than held") << 13 << true << "";
        QTest::newRow("fewer lines than held") << 4 << true << "";
        QTest::newRow("no region")
            << 4 << false << "Mark a region in a cut view of port 6101 first (Measure).";
        QTest::newRow("no line") << 0 << true << "Port 6101 holds no line yet.";
    }
    void exportHeldMeasurements()
    {
        QFETCH(int, lines);
        QFETCH(bool, region);
        QFETCH(QString, warning);
        constexpr uint32_t firstFrame = 500;
        action("actionCut")->trigger();
        auto* cut = window->findChild<CutView*>("6101_3d");
        QVERIFY(cut);
        // 1,000 points 1 mm apart on a belt at 0.5 m; a box over
        // -50 .. 50 mm, (10 + k) mm high on line k.
        for (int k = 0; k < lines; ++k) {
            vxlindral::LineType line = windowtest::makeLine(1000, uint32_t(k));
            for (std::size_t i = 0; i < line->points.size(); ++i) {
                vxs::VxPt& p = line->points[i];
                p.z = std::abs(p.y) <= 0.0505 ? 0.5 - (10 + k) / 1000.0 : 0.5;
            }
            line->frame = firstFrame + uint32_t(k);
            window->dataModel(6101)->setData(QModelIndex(), QVariant::fromValue(line));
        }
        QCoreApplication::processEvents();
        cut->setMeasureMode(region);
        if (region)
            cut->setMeasureRegion(0.2, -0.2);
        const QString target = files.filePath("held.csv");
        if (warning.isEmpty())
            answer<QFileDialog>(true, [&](QFileDialog* dialog) { chooseFile(dialog, target); });
        else
            expectWarning();
        QVERIFY(action("actionExportMeasurements")->isEnabled());
        action("actionExportMeasurements")->trigger();
        if (!warning.isEmpty()) {
            QCOMPARE(warnings.join('|').section('\n', 0, 0), "Export failed: " + warning);
            QVERIFY(!QFile::exists(target));
            return;
        }
        QFile file(target);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QStringList rows = QString::fromUtf8(file.readAll()).split('\n');
        QCOMPARE(rows.takeLast(), QString());
        const QStringList columns = rows.takeFirst().split(',');
        const int held = std::min(lines, 10);
        QCOMPARE(rows.size(), held);
        for (int r = 0; r < held; ++r) {
            const QStringList values = rows[r].split(',');
            const auto value = [&](const char* name) {
                return values.value(columns.indexOf(name)).toDouble();
            };
            const int k = lines - held + r;
            QCOMPARE(values.value(columns.indexOf("line")), QString::number(firstFrame + k));
            QCOMPARE(value("points"), 401.0);
            QCOMPARE(value("height_mm"), 10.0 + k);
            QCOMPARE(value("width_mm"), 100.0);
        }
    }

    // With every view open, none of the window's other actions (menus, tool
    // bars, the views' tool bars) has the shortcut of a new one.
    void newShortcutsClashWithNone()
    {
        for (const char* a : {"actionNumeric", "actionCut", "actionGray", "actionInfo"})
            action(a)->trigger();
        QCOMPARE(window->findChildren<BasicView*>().size(), 5);
        const QList<QAction*> all = window->findChildren<QAction*>();
        for (const char* name : {"actionExportCloud", "actionSaveImage", "actionCopyImage"}) {
            QAction* mine = action(name);
            QVERIFY(!mine->shortcut().isEmpty());
            for (QAction* other : all)
                QVERIFY2(other == mine || other->shortcut() != mine->shortcut(),
                         qPrintable(other->text() + " has " + mine->shortcut().toString()));
        }
    }

private:
    ThreeDView* threeD() const { return window->findChild<ThreeDView*>(); }
    QMdiArea* mdi() const { return window->findChild<QMdiArea*>("mdiArea"); }
    QAction* action(const char* name) const { return window->findChild<QAction*>(name); }
    // Answers the next warning box, keeping "title: text\ninformative text".
    void expectWarning()
    {
        answer<QMessageBox>(true, [this](QMessageBox* box) {
            warnings << box->windowTitle() + ": " + box->text() + '\n' + box->informativeText();
        });
    }
    void closeAllViews()
    {
        mdi()->closeAllSubWindows();
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(window->findChildren<BasicView*>().isEmpty());
    }
    void feed(int pixels) { windowtest::feed(*window, pixels); }

    std::unique_ptr<MainWindow> window;
    QStringList warnings;
    QTemporaryDir files;
};

int main(int argc, char* argv[])
{
    return runWindowTest<TestExports>(argc, argv);
}

#include "tst_exports.moc"
