#include "app/streamhealthlabel.h"

#include <QStringList>
#include <QTimer>
#include <cmath>
#include <utility>

namespace vxlindral {

using std::chrono::steady_clock;

StreamHealthLabel::StreamHealthLabel(Source ports, QWidget* parent, Clock now)
    : QLabel(parent), source(std::move(ports)),
      clock(now ? std::move(now) : Clock([] { return steady_clock::now(); })),
      timer(new QTimer(this))
{
    setTextFormat(Qt::PlainText);
    // Precise: a stopped or frozen stream reads 0 lines/s two refreshes later,
    // not a timer's slack after that.
    timer->setTimerType(Qt::PreciseTimer);
    connect(timer, &QTimer::timeout, this, &StreamHealthLabel::refresh);
    timer->start(refreshMs);
}

uint64_t StreamHealthLabel::dropped(const Port& p)
{
    return p.socket.backlogDrops + p.handover.droppedMemory + p.socket.kernelDrops +
           p.socket.incompleteMessages;
}

QString StreamHealthLabel::grouped(uint64_t n)
{
    // The digits, then a ',' before every further group of three.
    const QString digits = QString::number(static_cast<qulonglong>(n));
    QString out;
    out.reserve(digits.size() + digits.size() / 3);
    for (int i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0)
            out += QLatin1Char(',');
        out += digits[i];
    }
    return out;
}

uint64_t StreamHealthLabel::rate(const Port& p, steady_clock::time_point now)
{
    const uint64_t taken = p.handover.linesTaken;
    auto it = previous.find(p.port);
    if (it == previous.end()) {
        previous.emplace(p.port, Previous{taken, now});
        return 0;
    }
    Previous& before = it->second;
    const double seconds = std::chrono::duration<double>(now - before.at).count();
    // Fewer lines than before: the port was opened anew (its counters
    // restarted); start over from here.
    const uint64_t result =
        taken >= before.taken && seconds > 0
            ? static_cast<uint64_t>(std::llround((taken - before.taken) / seconds))
            : 0;
    before = Previous{taken, now};
    return result;
}

QString StreamHealthLabel::details(const Port& p)
{
    const LineQueue::Counters& h = p.handover;
    const strmsocket::StreamCounters& s = p.socket;
    const std::pair<const char*, uint64_t> rows[] = {
        {"dropped by the backlog bound", s.backlogDrops},
        {"dropped by the memory bound", h.droppedMemory},
        {"stream texts dropped", h.textsDropped},
        {"lines waiting undecoded", s.backlogMessages},
        {"lines waiting decoded", h.linesWaiting},
        {"kernel drops (datagrams)", s.kernelDrops},
        {"malformed datagrams", s.malformedDatagrams},
        {"incomplete messages", s.incompleteMessages},
        {"discarded while frozen", s.pausedDiscards},
        {"callback errors", s.callbackErrors},
    };
    QString text = p.name.isEmpty() ? QStringLiteral("Port %1").arg(p.port) : p.name;
    for (const auto& row : rows)
        text += QStringLiteral("\n%1: %2").arg(QLatin1String(row.first), grouped(row.second));
    const uint64_t buffer = s.receiveBufferSize > 0 ? uint64_t(s.receiveBufferSize) : 0;
    text += QStringLiteral("\nreceive buffer: %1 bytes").arg(grouped(buffer));
    if (const auto& r = p.recording) {
        text += QStringLiteral("\nrecording: %1 datagrams, %2 lines, %3 bytes written, %4 not "
                               "recorded (the disk fell behind)")
                    .arg(grouped(r->datagrams), grouped(r->lines), grouped(r->written),
                         grouped(r->notRecorded));
    }
    return text;
}

void StreamHealthLabel::refresh()
{
    const steady_clock::time_point now = clock();
    const std::vector<Port> ports = source();

    QStringList tips;
    std::map<int, Previous> seen;
    entries.clear();
    for (const Port& p : ports) {
        entries[p.port] = p.place.isEmpty() ? QStringLiteral("%1: %2 lines/s, %3 dropped")
                                                  .arg(p.port)
                                                  .arg(grouped(rate(p, now)), grouped(dropped(p)))
                                            : p.place;
        tips << details(p);
        seen.insert(*previous.find(p.port));
    }
    // Ports no longer open are forgotten: opened again, they start afresh.
    previous = std::move(seen);
    setToolTip(tips.join(QStringLiteral("\n\n")));
    showEntries(ports);
}

void StreamHealthLabel::refreshPlaces()
{
    const std::vector<Port> ports = source();
    for (const Port& p : ports) {
        if (!p.place.isEmpty())
            entries[p.port] = p.place;
        else if (entries.find(p.port) == entries.end())
            return; // a port new since the last refresh: the next one shows it
    }
    showEntries(ports);
}

void StreamHealthLabel::showEntries(const std::vector<Port>& ports)
{
    QStringList shown;
    for (const Port& p : ports)
        shown << entries[p.port];
    const QString text = shown.join(QStringLiteral(" | "));
    if (text != this->text()) {
        setText(text);
        emit textUpdated();
    }
}

} // namespace vxlindral
