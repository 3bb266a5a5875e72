#include "base/Store.h"

#include "base/AppIdentity.h"
#include "base/PathText.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QVariant>
#include <system_error>

namespace lumenvale::Store {

namespace {

// What was wrong with the file when it was read, and with its last write.
QString readProblem;
QString writeProblem;
QString reportedProblem;

QString currentProblem() {
    return writeProblem.isEmpty() ? readProblem : writeProblem;
}

std::optional<RecordingOptions> decodeStored(const QVariant& stored) {
    const auto type = stored.metaType().id();
    if (type != QMetaType::QString && type != QMetaType::QByteArray) {
        return std::nullopt;
    }
    const QByteArray text = stored.toByteArray();
    Result<RecordingOptions> decoded = decodeRecordingOptions(
        std::string_view(text.constData(), static_cast<size_t>(text.size())));
    if (!decoded) {
        return std::nullopt;
    }
    return std::move(decoded).value();
}

QSettings* openFile(Domain domain) {
    return new QSettings(domainFile(domain), QSettings::IniFormat);
}

QSettings* openDomainInForce() {
    if (isOverridden()) {
        QSettings* test = openFile(Domain::test);
        if (test->status() == QSettings::NoError) {
            readProblem = keepIfUnreadable(*test);
            return test;
        }
        delete test;
    }
    QSettings* standard = openFile(Domain::standard);
    readProblem = keepIfUnreadable(*standard);
    return standard;
}

} // namespace

std::optional<std::filesystem::path> testFolder() {
    const QString value = qEnvironmentVariable("APP_STORE");
    if (value.isEmpty()) {
        return std::nullopt;
    }
    const std::filesystem::path folder = toPath(value);
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    return folder;
}

bool isOverridden() {
    return testFolder().has_value();
}

QString domainFile(Domain domain) {
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    const QString name = QString::fromLatin1(applicationID) +
                         (domain == Domain::test ? QStringLiteral(".test") : QString());
    return QDir(folder).filePath(name + QStringLiteral(".conf"));
}

QSettings& defaults() {
    // Never destroyed: settings are read and written until the process ends.
    static QSettings* const domain = openDomainInForce();
    return *domain;
}

QSettings& standardDefaults() {
    static QSettings* const standard = openFile(Domain::standard);
    return *standard;
}

QString keepIfUnreadable(const QSettings& settings) {
    const QString file = settings.fileName();
    // Reading a value parses the file; only then does status() know of format errors.
    const QVariant options = settings.value(QLatin1String(optionsKey));
    const bool unreadable = settings.status() != QSettings::NoError ||
                            (options.isValid() && !decodeStored(options).has_value());
    if (!unreadable || !QFileInfo::exists(file)) {
        return {};
    }
    const QString kept = file + QStringLiteral(".unreadable");
    if (!QFileInfo::exists(kept)) {
        QFile::copy(file, kept);
    }
    return QStringLiteral("Lumenvale couldn’t read its settings and uses the defaults. The old "
                          "settings are kept in “%1”.")
        .arg(kept);
}

RecordingOptions loadOptions() {
    return decodeStored(defaults().value(QLatin1String(optionsKey))).value_or(RecordingOptions{});
}

bool save(const RecordingOptions& options) {
    const std::string json = encode(options);
    defaults().setValue(QLatin1String(optionsKey), QString::fromStdString(json));
    return sync();
}

bool sync() {
    QSettings& settings = defaults();
    settings.sync();
    // QSettings keeps the first error it ever met; a fresh handle on the same file
    // tries the pending write again and reports how this attempt went.
    const bool written =
        QSettings(settings.fileName(), QSettings::IniFormat).status() == QSettings::NoError;
    writeProblem = written ? QString()
                           : QStringLiteral("Lumenvale can’t save its settings in “%1”, so "
                                            "changes last until it quits.")
                                 .arg(QFileInfo(settings.fileName()).path());
    return written;
}

QString problem() {
    defaults();
    return currentProblem();
}

QString takeUnreportedProblem() {
    const QString now = problem();
    if (now == reportedProblem) {
        return {};
    }
    reportedProblem = now;
    return now;
}

} // namespace lumenvale::Store
