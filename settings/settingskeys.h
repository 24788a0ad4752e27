#pragma once
#include <QByteArray>
#include <QSettings>
#include <QString>
#include <QVariant>

// Every key of the settings store, written once: its name, its type and the
// default its readers use. The settings dialog edits most of them; the main
// window and the 3D view read and write through it. A header only, in a layer
// of its own below the views and the dialogs, which both use it.
//
// Two keys have two entries: a new stream opens the 3D view and no cut view
// when nothing is stored, while the settings dialog offers the cut view and
// not the 3D view. Accepting the dialog unchanged therefore switches new
// streams to the cut view. The mismatch is intended and kept.
//
// Threads: the entries are constants, readable from any thread; read() and
// write() use the QSettings object given, on that object's thread.
class SettingsKeys
{
public:
    template <typename T> struct Key
    {
        const char* name;
        T fallback;

        T read(const QSettings& settings) const
        {
            return settings.value(QLatin1String(name), QVariant::fromValue(fallback))
                .template value<T>();
        }
        void write(QSettings& settings, const T& value) const
        {
            settings.setValue(QLatin1String(name), QVariant::fromValue(value));
        }
    };

    // What the connection dialog offers; the window always opens 6101/6102.
    static inline const Key<uint> portLine{"Ports/Line", 6101u};
    static inline const Key<uint> portStatus{"Ports/Status", 6102u};
    // Where the export and recording file dialogs open.
    static inline const Key<QString> pathLast{"Path/Last", QStringLiteral("/")};
    static inline const Key<QString> pathRecording{"Path/Recording", QStringLiteral("/")};
    // The folder the capture recording's dialog opens in; empty: the home folder.
    static inline const Key<QString> pathCapture{"Path/Capture", QString()};

    // The default views of a newly opened stream, as the stream reads them ...
    static inline const Key<bool> viewGray{"View/Gray", false};
    static inline const Key<bool> viewStatistic{"View/Statistic", false};
    static inline const Key<bool> viewNumeric{"View/Numeric", false};
    static inline const Key<bool> viewCutOnOpen{"View/Cut", false};
    static inline const Key<bool> viewThreeDOnOpen{"View/ThreeD", true};
    // ... and the two the settings dialog reads with other defaults.
    static inline const Key<bool> viewCutInDialog{"View/Cut", true};
    static inline const Key<bool> viewThreeDInDialog{"View/ThreeD", false};

    // The 3D view: points drawn per line, points kept, following the newest line.
    static inline const Key<int> pointsPerLine{"ThreeD/pointsPerLine", 1000};
    static inline const Key<int> maxPoints{"ThreeD/maxPoints", 100000};
    static inline const Key<bool> follow{"ThreeD/follow", true};

    // Cloud exports: whether points without echo (range 0) are written too.
    static inline const Key<bool> keepNoEcho{"Export/keepNoEcho", false};
    // The main window's size, place and state (QWidget::saveGeometry), as it
    // was when it last closed; empty before the first close.
    static inline const Key<QByteArray> windowGeometry{"Window/geometry", QByteArray()};
};
