#pragma once

namespace vxlindral {

// How the process is set up around its QApplication, in one place for the
// program, the window tests and the benchmarks.
// Threads: main thread only, before and right after the application object
// is created.
class ApplicationSetup
{
public:
    // Before the QApplication exists: the 3D view needs a 3.3 core profile and
    // shared contexts, and the icons live in a static library and must be
    // registered explicitly.
    static void beforeApplication();
    // Right after it exists: the line type for queued calls, and the names
    // that place the settings store.
    static void afterApplication();
};

} // namespace vxlindral
