// Placeholder bodies; the store is being written.
#include "formats/RememberedFormats.h"

namespace kavri {

void registerFormatTypes() {}
std::optional<VideoProps> lookupRemembered(const QString &) { return std::nullopt; }
void storeRemembered(VideoProps &) {}
bool forgetRemembered(const QString &) { return false; }
void pruneRememberedOnce() {}

} // namespace kavri
