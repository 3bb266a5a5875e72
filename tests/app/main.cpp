// Every application area's tests run inside a Qt application: the recorder and the
// editor hand work to worker threads and take the results back through the event loop.
//
// Before anything reads the settings, the run is isolated: XDG_CONFIG_HOME points at
// a fresh folder (so the user's settings are never touched), APP_STORE at a test
// folder inside it (so the test settings file is in force and movies land there) and
// TMPDIR at another (so part files of other runs are never seen).

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

    QCoreApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    int status = 1;
    QTimer::singleShot(0, &application, [&] {
        status = RUN_ALL_TESTS();
        QCoreApplication::exit(status);
    });
    QCoreApplication::exec();
    return status;
}
