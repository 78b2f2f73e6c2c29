// Test entry point: a Qt application object and a settings store in a temporary directory, so no test
// ever reads or writes the user's own settings.
#include "formats/Settings.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

#ifdef KAVRI_TEST_GUI
#include <QApplication>
using TestApp = QApplication;
#else
#include <QCoreApplication>
using TestApp = QCoreApplication;
#endif

int main(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    QTemporaryDir settingsDir;
    if (!settingsDir.isValid()) return 3;
    qputenv(kavri::settings::kConfigDirEnv, settingsDir.path().toLocal8Bit());
    // Widgets are tested headless, also when CTest lists the tests (it passes no environment then).
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    TestApp app(argc, argv);
    kavri::settings::initSettingsStore();
    return RUN_ALL_TESTS();
}
