#include "app/OS_application.h"
#include "formats/Settings.h"

int main(int argc, char **argv)
{
    kavri::settings::initSettingsStore();
    int rc = 0;
    {
        OS_application app(argc, argv);
        rc = app.exec();
    }
    return rc;
}
