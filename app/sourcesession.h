#pragma once
#include "app/streamhealthlabel.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <memory>

namespace vxlindral {

class BasicView;
class StreamDataController;
class StreamDataModel;

// One source of lines in the window: a live line port (this class) or a
// capture being played (CaptureSession). It owns the source's model and
// controller and builds the source's views, wired to the model; it knows
// what an action on the source means (freeze, the line to export, stop).
// The window keeps one session per key (a port number, or a capture's key
// above every port) and routes each action to the session it acts on.
//
// Ownership: owns the model and controller (shared pointers: a controller
// holds its model, tests and benchmarks read both); the views it builds are
// owned by the MDI area (each deletes itself when closed), the session only
// remembers them. Threads: GUI thread only; lines reach the model from the
// controller's receive thread through the hand-over queue.
class SourceSession : public QObject
{
    Q_OBJECT
public:
    // A session under `key`; `name` titles its views (" : name"), empty for
    // a live port. The model and controller are made at once.
    SourceSession(int key, const QString& name, QObject* parent);
    ~SourceSession() override;

    int key() const { return sourceKey; }
    const QString& name() const { return sourceName; }
    // Null once the source was stopped.
    std::shared_ptr<StreamDataModel> model() const { return dataModel; }
    std::shared_ptr<StreamDataController> controller() const { return dataController; }

    // Opens the live port's socket; false when it cannot be bound (the model
    // and controller stay, so the port counts as opened).
    bool openPort(int portLine, int portStatus);
    // Stops the stream and lets go of the model and controller; the socket
    // closes with the controller once nothing else holds it.
    void stopStream();

    // Builds the view of `kind` (ViewFactory's kinds) for this source,
    // parented to `parent`, and wires it to the model: lines (queued) to the
    // cut, gray, 3D and numeric views, the statistics and error texts to the
    // info view. Without a model the view is built but gets nothing.
    BasicView* createView(int kind, QWidget* parent);
    // The views built for this source that are still there.
    QList<BasicView*> views() const;

    // Freezing: a live port discards the lines that arrive meanwhile.
    virtual void freeze(bool on);
    // The text of the current line; empty without a model.
    QString lineText() const;
    // How many of the newest lines the model and the views can show.
    int reachBack() const;
    // The source's entry of the health label; false once it was stopped.
    virtual bool health(StreamHealthLabel::Port& entry) const;

signals:
    // The last of the session's views was closed by the user.
    void lastViewClosed();

protected:
    std::shared_ptr<StreamDataModel> dataModel;
    std::shared_ptr<StreamDataController> dataController;

private:
    int sourceKey;
    QString sourceName;
    QList<QPointer<BasicView>> built;
};

} // namespace vxlindral
