#pragma once
#include "scanner/rawlineparser.h"

#include <memory>
#include <mutex>

namespace vxlindral {

// The one column layout of the process, shared by every line receiver: the
// layout is re-detected whenever a line's datatyp or mode differ from the
// last detection, and every line takes its own copy of it.
// Ownership: a process-wide singleton (instance()), never destroyed before
// exit. Threads: any; a short lock covers the check, the detection and the
// copy, so receivers of several ports may use it at the same time.
class GlobalLineParser
{
public:
    static GlobalLineParser& instance();

    // The mode name of the layout detected so far (null for an unknown mode).
    const char* modeName() const;

    // Brings the layout up to date for a line of (datatyp, mode, bpp) and
    // returns a private copy of it: `reuse` itself when that copy already has
    // the same layout (lines of one layout then share one copy that nobody
    // changes), else a new one. `previousModeName` receives the mode name as
    // it was before this line (the name shown with the line).
    std::shared_ptr<vx::RawLineParser> update(int datatyp, int mode, int bpp,
                                              const char** previousModeName,
                                              std::shared_ptr<vx::RawLineParser> reuse = {});

    // A copy of the current layout (tests, diagnostics).
    vx::RawLineParser snapshot() const;
    // Back to the start state: datatyp 0, mode 5, no columns (tests).
    void resetForTest();

private:
    GlobalLineParser() = default;
    mutable std::mutex lock;
    vx::RawLineParser parser;
};

} // namespace vxlindral
