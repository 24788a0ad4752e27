#pragma once
#include "capture/capturerecorder.h"
#include "scanner/streamcounters.h"
#include "stream/linequeue.h"

#include <QLabel>
#include <QString>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <vector>

class QTimer;

namespace vxlindral {

// The health of every open line port at a glance, one short entry per port
// side by side ("6101: 1,998 lines/s, 0 dropped"), refreshed twice a second.
// The rate is the number of lines the port's model took in since the
// previous refresh over the time that really passed (a late refresh does not
// inflate it); "dropped" is the lines lost since the port was opened (see
// dropped()). The tool tip lists every counter by cause for each port, and
// those of a capture being recorded from it.
// Numbers are grouped by thousands with ',' whatever the user's locale.
//
// The label knows nothing of the window: it asks `source` for the counters of
// the ports that are open now, so a port that was stopped simply disappears,
// and tests can hand it counters without sockets.
//
// Ownership: owned by its parent widget; owns its refresh timer. Threads: GUI
// thread only; `source` is called there (the counters it reads are atomic).
class StreamHealthLabel : public QLabel
{
    Q_OBJECT
public:
    // The counters of one open port.
    struct Port
    {
        int port = 0;
        LineQueue::Counters handover;      // hand-over to the GUI thread
        strmsocket::StreamCounters socket; // the line socket and reassembly
        // The capture being recorded from the port, if any.
        std::optional<vxrec::CaptureRecorder::Status> recording;
        // For a capture played back: its name and place, shown instead of
        // the port and its rate ("scan.pcapng: 00:12.345 / 01:40.000, line
        // 2,345 of 20,000").
        QString place;
        QString name; // the capture's file name, which the tool tip names
    };
    // The open ports now, in the order they are to be shown.
    using Source = std::function<std::vector<Port>()>;
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    static constexpr int refreshMs = 500;

    // `clock` defaults to the steady clock. The timer starts at once; the
    // text is empty until the first refresh.
    explicit StreamHealthLabel(Source source, QWidget* parent = nullptr, Clock clock = Clock());

    // The lines of a port a user would call lost: given up undecoded because
    // the backlog was full, or dropped by the hand-over's memory bound (the
    // viewer stayed behind for too long), datagrams the kernel
    // dropped (the socket's buffer overflowed) and messages given up
    // incomplete (datagrams of a line went missing). Lines discarded on
    // purpose while frozen are not counted.
    static uint64_t dropped(const Port& port);
    // `n` with ',' between groups of three digits: "1,234,567".
    static QString grouped(uint64_t n);

public slots:
    // Reads the counters now and updates text and tool tip.
    void refresh();
    // Updates only the places of the captures being played, keeping the
    // rates of the last refresh: the window calls it whenever a place
    // changes, so that the status line and the transport bar show the same
    // line at the same time.
    void refreshPlaces();

signals:
    // After each refresh that changed the text.
    void textUpdated();

private:
    struct Previous
    {
        uint64_t taken = 0;
        std::chrono::steady_clock::time_point at;
    };
    // Lines per second since the previous refresh of `port`; 0 the first time
    // a port is seen and after its counters restarted.
    uint64_t rate(const Port& port, std::chrono::steady_clock::time_point now);
    static QString details(const Port& port);

    const Source source;
    const Clock clock;
    QTimer* timer;
    std::map<int, Previous> previous; // by port, the ports of the last refresh
    std::map<int, QString> entries;   // by port, each port's text of the last refresh
    // The label's text from the ports' entries (place or rate), in order.
    void showEntries(const std::vector<Port>& ports);
};

} // namespace vxlindral
