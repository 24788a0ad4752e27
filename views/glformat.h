#pragma once

namespace vxlindral {

// Installs the process defaults the 3D view needs: an OpenGL 3.3 core profile
// surface format (depth 24, stencil 8) and shared OpenGL contexts. Call it
// before the QApplication object exists (main and the GUI tests do).
// Threads: main thread, before Qt starts.
class GlFormat
{
public:
    static void installDefault();
};

} // namespace vxlindral
