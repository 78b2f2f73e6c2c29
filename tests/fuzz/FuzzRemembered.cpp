// Decoding a remembered record from arbitrary bytes (a hand-edited, synced or older settings store),
// then validation of what was decoded.
#include "FuzzSupport.h"
#include "formats/RememberedFormats.h"

#include <QDataStream>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
    QDataStream in(bytes);
    VideoProps props;
    in >> props;
    if (in.status() == QDataStream::Ok) kavri::fuzz::checkValidated(props);
    return 0;
}
