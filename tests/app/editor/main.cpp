// The editor model's tests run inside a Qt application: the model hands work to
// worker threads and takes the results back through the event loop.

#include <QCoreApplication>
#include <QTimer>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
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
