#include "base/Store.h"

#include "base/AppIdentity.h"
#include "base/PathText.h"

#include <QDir>
#include <QStandardPaths>
#include <QVariant>
#include <system_error>

namespace lumenvale::Store {

namespace {

QSettings* openFile(Domain domain) {
    return new QSettings(domainFile(domain), QSettings::IniFormat);
}

QSettings* openDomainInForce() {
    if (isOverridden()) {
        QSettings* test = openFile(Domain::test);
        if (test->status() == QSettings::NoError) {
            return test;
        }
        delete test;
    }
    return openFile(Domain::standard);
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

RecordingOptions loadOptions() {
    const QVariant stored = defaults().value(QLatin1String(optionsKey));
    const auto type = stored.metaType().id();
    if (type != QMetaType::QString && type != QMetaType::QByteArray) {
        return RecordingOptions{};
    }
    const QByteArray text = stored.toByteArray();
    Result<RecordingOptions> decoded = decodeRecordingOptions(
        std::string_view(text.constData(), static_cast<size_t>(text.size())));
    return decoded ? std::move(decoded).value() : RecordingOptions{};
}

void save(const RecordingOptions& options) {
    const std::string json = encode(options);
    defaults().setValue(QLatin1String(optionsKey), QString::fromStdString(json));
    defaults().sync();
}

} // namespace lumenvale::Store
