#include "recorder/StartupRecovery.h"

#include "LumenvaleMedia/Recovery.h"
#include "base/AppIdentity.h"
#include "base/PathText.h"

#include <QDir>
#include <QThread>

namespace lumenvale::StartupRecovery {

void run(const std::filesystem::path& saveFolder, QObject* context,
         std::function<void(Report)> done) {
    const std::filesystem::path partsFolder = toPath(QDir::tempPath());
    QThread* thread = QThread::create([saveFolder, partsFolder, context, done = std::move(done)] {
        Report report;
        try {
            RecoveryResult result = Recovery::recoverAll(partsFolder, saveFolder);
            for (const Recording& recording : result.recovered) {
                report.notices << QString::fromUtf8(Recovery::notice(recording));
            }
            for (const std::string& failure : result.failures) {
                report.notices << QString::fromUtf8(failure);
            }
            report.recovered = std::move(result.recovered);
        } catch (const std::exception& error) {
            report.notices << QString::fromUtf8(error.what());
        }
        QMetaObject::invokeMethod(
            context, [done, report = std::move(report)] { done(report); }, Qt::QueuedConnection);
    });
    thread->setObjectName(QString::fromLatin1(applicationID) + QStringLiteral(".recovery"));
    QObject::connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    thread->start();
}

} // namespace lumenvale::StartupRecovery
