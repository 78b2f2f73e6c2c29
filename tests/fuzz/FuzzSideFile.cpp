// The ".hdr" side file parser on arbitrary text, then validation of what it produced.
#include "FuzzSupport.h"
#include "formats/SideFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray text(reinterpret_cast<const char *>(data), qsizetype(size));
    VideoProps props;
    kavri::applySideFile(text, props);
    kavri::fuzz::checkValidated(props);
    return 0;
}
