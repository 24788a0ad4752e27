#include "viewtestsupport.h"

#include <QIcon>
#include <QImage>
#include <QPixmap>

class TstIcons : public QObject
{
    Q_OBJECT
private slots:
    void iconLoads_data()
    {
        QTest::addColumn<QString>("name");
        const QString names = QStringLiteral(
            "about.svg connect.svg datainfo.svg exit.svg exportCloud.svg exportLine.svg filter.svg "
            "fit_cloud.svg follow.svg gray.svg grid.svg info.svg line.png measure.svg numeric.png "
            "pause.svg pointsize1.svg pointsize2.svg pointsize3.svg pointsize4.svg pointsize5.svg "
            "record.svg settings.svg threed.svg topview.svg zoom_fit.svg zoom_home.svg "
            "zoom_minus.svg zoom_plus.svg");
        for (const QString& n : names.split(' '))
            QTest::newRow(qPrintable(n)) << n;
    }
    // A missing SVG image plugin still gives a non-null QIcon, so count the
    // drawn pixels.
    void iconLoads()
    {
        QFETCH(QString, name);
        const QImage img = QIcon(":/PixMaps/" + name)
                               .pixmap(24, 24)
                               .toImage()
                               .convertToFormat(QImage::Format_ARGB32);
        QVERIFY(viewtest::countPixels(img, [](QRgb c) { return qAlpha(c) > 128; }) > 24);
    }
};

VIEW_TEST_MAIN(TstIcons, true)
#include "tst_icons.moc"
