#pragma once

namespace vxlindral {

// Registers the compiled-in icons under ":/PixMaps/". The resource object
// sits in a static library, where nothing else would pull it into the
// program: main calls this once before the first icon is used (calling it more
// than once is harmless). Threads: main thread.
class IconResources
{
public:
    static void init();
};

} // namespace vxlindral
