// kavri-cli forget: drops FILE from the remembered formats, so that the next opening detects it afresh.
#include "cli/Commands.h"
#include "cli/Json.h"
#include "cli/SequenceOptions.h"
#include "formats/RememberedFormats.h"

namespace kavri::cli {

namespace {

int runForget(Context &ctx)
{
    // The file need not exist any more: forgetting a vanished file is a normal clean-up.
    const QString file = singleFileArgument(ctx.args);
    const QString key = rememberedKey(file);
    const bool present = lookupRemembered(file).has_value();
    if (present && !forgetRemembered(file))
        return ctx.fail(QStringLiteral("could not write the remembered formats to the settings store"));
    JsonObject o;
    o.add("file", file).add("key", key).add("forgotten", present);
    ctx.out << o.toString() << '\n';
    return kExitOk;
}

} // namespace

Command forgetCommand() { return {"forget", "FILE", "remove FILE from the remembered formats", {}, runForget}; }

} // namespace kavri::cli
