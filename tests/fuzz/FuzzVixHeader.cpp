// The in-file header parser, as the start of a longer file and as a whole file, then validation.
#include "FuzzSupport.h"
#include "formats/VixHeader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    for (bool wholeFile : {false, true}) {
        VideoProps props;
        if (kavri::parseVixHeader(bytes, wholeFile, props)) kavri::fuzz::checkValidated(props);
    }
    return 0;
}
