// Every application area's tests run inside a Qt application: the recorder and the
// editor hand work to worker threads and take the results back through the event loop.
//
// Before anything reads the settings, the run is isolated: XDG_CONFIG_HOME points at
// a fresh folder (so the user's settings are never touched), APP_STORE at a test
// folder inside it (so the test settings file is in force and movies land there) and
// TMPDIR at another (so part files of other runs are never seen).
//
// The views' tests (LUMENVALE_TESTS_WIDGETS) run in a QApplication, as the tray
// application does: they make windows and menus on the session's display.

#ifdef LUMENVALE_TESTS_WIDGETS
#include <QApplication>
#endif
#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>
#include <QTimer>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    QTemporaryDir isolation(QDir::tempPath() + QStringLiteral("/lumenvale-recorder-tests-XXXXXX"));
    if (!isolation.isValid()) {
        return 1;
    }
    qputenv("XDG_CONFIG_HOME", isolation.filePath(QStringLiteral("config")).toLocal8Bit());
    qputenv("APP_STORE", isolation.filePath(QStringLiteral("store")).toLocal8Bit());
    const QString parts = isolation.filePath(QStringLiteral("tmp"));
    if (!QDir().mkpath(parts)) {
        return 1;
    }
    qputenv("TMPDIR", parts.toLocal8Bit());

#ifdef LUMENVALE_TESTS_WIDGETS
    // The build lists the tests without a display; listing them needs none.
    for (int index = 1; index < argc; ++index) {
        if (QByteArray(argv[index]) == "--gtest_list_tests") {
            qputenv("QT_QPA_PLATFORM", "offscreen");
        }
    }
    QApplication application(argc, argv);
#else
    QCoreApplication application(argc, argv);
#endif
    ::testing::InitGoogleTest(&argc, argv);
    int status = 1;
    QTimer::singleShot(0, &application, [&] {
        status = RUN_ALL_TESTS();
        QCoreApplication::exit(status);
    });
    QCoreApplication::exec();
    return status;
}
