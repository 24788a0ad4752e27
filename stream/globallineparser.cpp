#include "stream/globallineparser.h"

namespace vxlindral {

GlobalLineParser& GlobalLineParser::instance()
{
    static auto* parser = new GlobalLineParser;
    return *parser;
}

const char* GlobalLineParser::modeName() const
{
    std::lock_guard<std::mutex> guard(lock);
    return parser.modAsString();
}

std::shared_ptr<vx::RawLineParser>
GlobalLineParser::update(int datatyp, int mode, int bpp, const char** previousModeName,
                         std::shared_ptr<vx::RawLineParser> reuse)
{
    // Check, detection and copy form one step, so that a receiver of another
    // port cannot change the layout between this line's detection and its copy.
    std::lock_guard<std::mutex> guard(lock);
    if (previousModeName)
        *previousModeName = parser.modAsString();
    const auto m = static_cast<vx::RawLineParser::mod_t>(mode);
    if (parser.empty() || parser.datatyp() != datatyp || parser.mode() != m) {
        if (parser.detect(datatyp, m, false)) {
            if (bpp > parser.bytesPerPixel())
                parser.detect(datatyp, m, true);
        } else {
            parser.reset();
        }
    }
    if (reuse && reuse->sameLayout(parser))
        return reuse;
    return std::make_shared<vx::RawLineParser>(parser);
}

vx::RawLineParser GlobalLineParser::snapshot() const
{
    std::lock_guard<std::mutex> guard(lock);
    return parser;
}

void GlobalLineParser::resetForTest()
{
    std::lock_guard<std::mutex> guard(lock);
    parser = vx::RawLineParser();
}

} // namespace vxlindral
