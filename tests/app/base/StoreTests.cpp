// The settings store: where settings and the test folder live, how bad stored options
// load, and that what is saved comes back equal.

#include "../AppTestSupport.h"
#include "LumenvaleKit/RecordingOptions.h"
#include "Probe.h"
#include "base/PathText.h"
#include "base/Store.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace lumenvale::testing {
namespace {

TEST(StoreTestFolder, AbsentOrEmptyIsNoOverrideAndAMissingFolderIsMadeOnAccess) {
    ScopedEnvironment environment;
    environment.unset("APP_STORE");
    EXPECT_FALSE(Store::testFolder().has_value());
    EXPECT_FALSE(Store::isOverridden());
    environment.set("APP_STORE", "");
    EXPECT_FALSE(Store::testFolder().has_value());
    EXPECT_FALSE(Store::isOverridden());

    QTemporaryDir root;
    ASSERT_TRUE(root.isValid());
    const QString folder = root.filePath(QStringLiteral("a/b/c store"));
    environment.set("APP_STORE", folder.toLocal8Bit());
    const std::optional<std::filesystem::path> first = Store::testFolder();
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(*first, toPath(folder));
    EXPECT_TRUE(QFileInfo(folder).isDir());
    EXPECT_TRUE(Store::isOverridden());
    EXPECT_EQ(Store::testFolder(), first) << "found existing the second time: no error";
}

TEST(StoreDomain, OverriddenRunWritesToTheTestFileOnly) {
    // The run is overridden from the start (see main.cpp), so the test domain is in force.
    ASSERT_TRUE(Store::isOverridden());
    EXPECT_EQ(Store::defaults().fileName(), Store::domainFile(Store::Domain::test));
    EXPECT_NE(Store::domainFile(Store::Domain::test), Store::domainFile(Store::Domain::standard));

    Store::defaults().setValue(QLatin1String(Store::welcomeShownKey), true);
    Store::defaults().setValue(QStringLiteral("hotkey.area"), QStringLiteral("{\"keyCode\":0}"));
    Store::defaults().sync();
    // "updates.beta" stays in the standard file even now.
    Store::standardDefaults().setValue(QLatin1String(Store::updatesBetaKey), true);
    Store::standardDefaults().sync();

    QSettings standard(Store::domainFile(Store::Domain::standard), QSettings::IniFormat);
    EXPECT_FALSE(standard.contains(QLatin1String(Store::welcomeShownKey)));
    EXPECT_FALSE(standard.contains(QStringLiteral("hotkey.area")));
    EXPECT_TRUE(standard.value(QLatin1String(Store::updatesBetaKey)).toBool());
    QSettings test(Store::domainFile(Store::Domain::test), QSettings::IniFormat);
    EXPECT_TRUE(test.value(QLatin1String(Store::welcomeShownKey)).toBool());
    EXPECT_FALSE(test.contains(QLatin1String(Store::updatesBetaKey)));
}

// Which texts fail to decode is the core's (RecordingOptions tests); here, that a
// failure of any kind, or no text at all, loads the defaults and keeps what is stored.
TEST(StoreOptions, UnusableStoredValuesLoadAsTheDefaults) {
    const QVariant unusable[] = {QVariant(), QVariant(QStringLiteral("not json at all")),
                                 QVariant(QStringLiteral("{\"fps\": \"thirty\"}")), QVariant(42)};
    for (const QVariant& value : unusable) {
        SCOPED_TRACE(value.toString().toStdString());
        if (value.isValid()) {
            Store::defaults().setValue(QLatin1String(Store::optionsKey), value);
        } else {
            Store::defaults().remove(QLatin1String(Store::optionsKey));
        }
        EXPECT_EQ(Store::loadOptions(), RecordingOptions{});
        // The bad value stays until a save replaces it.
        EXPECT_EQ(Store::defaults().value(QLatin1String(Store::optionsKey)), value);
    }
}

TEST(StoreOptions, SavedOptionsLoadEqualAndAreStoredAsText) {
    // Every field's coding is the core's; here, text the settings file must escape.
    RecordingOptions options;
    options.fps = 60;
    options.microphoneID = "alsa_input.usb-Mic, \"Pro\"";
    options.folderPath = "/tmp/Vidéos; = [films]";
    Store::save(options);
    EXPECT_EQ(Store::loadOptions(), options);

    // Written at once, as UTF-8 JSON text that reads back from a fresh handle.
    QSettings fresh(Store::domainFile(Store::Domain::test), QSettings::IniFormat);
    const QString stored = fresh.value(QLatin1String(Store::optionsKey)).toString();
    EXPECT_EQ(stored.toStdString(), encode(options));
    const std::string file = readFile(toPath(Store::domainFile(Store::Domain::test)));
    EXPECT_NE(file.find("Vidéos"), std::string::npos) << file;
    EXPECT_EQ(file.find("@ByteArray"), std::string::npos) << file;
}

// A settings file cut short anywhere, or holding another type under "options", loads
// as the defaults; the file is kept beside itself for the user, once, byte for byte.
TEST(StoreDamage, ADamagedFileIsKeptAndTheDefaultsAreUsed) {
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    const QString path = folder.filePath(QStringLiteral("damaged.conf"));
    RecordingOptions stored;
    stored.fps = 60;
    stored.folderPath = "/tmp/films";
    {
        QSettings settings(path, QSettings::IniFormat);
        settings.setValue(QLatin1String(Store::optionsKey), QString::fromStdString(encode(stored)));
        settings.setValue(QStringLiteral("hotkey.area"), QStringLiteral("{\"keyCode\":0}"));
        settings.setValue(QLatin1String(Store::welcomeShownKey), true);
    }
    const QByteArray whole = QByteArray::fromStdString(readFile(toPath(path)));
    ASSERT_FALSE(whole.isEmpty());

    std::vector<QByteArray> damaged;
    for (qsizetype length = 0; length < whole.size(); ++length) {
        damaged.push_back(whole.left(length));
    }
    damaged.push_back("[General]\noptions=42\n");
    damaged.push_back("[General]\noptions=a, b\n");
    damaged.push_back("[General]\noptions=\"{\\\"fps\\\": [30]}\"\n");
    for (const QByteArray& bytes : damaged) {
        SCOPED_TRACE(bytes.toStdString());
        QFile::remove(path + QStringLiteral(".unreadable"));
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(bytes);
        file.close();

        const QSettings settings(path, QSettings::IniFormat);
        const QString problem = Store::keepIfUnreadable(settings);
        const QVariant options = settings.value(QLatin1String(Store::optionsKey));
        const bool decodes =
            options.isValid() && decodeRecordingOptions(options.toString().toStdString()).ok();
        if (settings.status() == QSettings::NoError && (!options.isValid() || decodes)) {
            // A readable file whose options are absent or whole: nothing to tell.
            EXPECT_TRUE(problem.isEmpty());
            EXPECT_FALSE(QFileInfo::exists(path + QStringLiteral(".unreadable")));
            continue;
        }
        EXPECT_TRUE(problem.contains(QStringLiteral("uses the defaults"))) << problem.toStdString();
        const auto kept = toPath(path + QStringLiteral(".unreadable"));
        ASSERT_TRUE(std::filesystem::exists(kept));
        EXPECT_EQ(readFile(kept), bytes.toStdString());
        // A second look keeps the first copy.
        file.open(QIODevice::WriteOnly | QIODevice::Truncate);
        // (Longer than any cut: QSettings caches files by time and size.)
        file.write("[General]\noptions=" + QByteArray(whole.size(), 'x') + "\n");
        file.close();
        const QSettings again(path, QSettings::IniFormat);
        EXPECT_FALSE(Store::keepIfUnreadable(again).isEmpty());
        EXPECT_EQ(readFile(kept), bytes.toStdString());
    }
}

// A settings file that cannot be written is told once, keeps the settings of the run,
// and is forgotten when writing works again.
TEST(StoreDamage, AnUnwritableFileIsToldOnceAndRecovers) {
    const QString file = Store::defaults().fileName();
    RecordingOptions options;
    options.fps = 24;
    ASSERT_TRUE(Store::save(options));
    Store::takeUnreportedProblem();

    // A folder where the file should be: no write can succeed, even for root.
    ASSERT_TRUE(QFile::remove(file));
    ASSERT_TRUE(QDir().mkdir(file));
    options.fps = 50;
    EXPECT_FALSE(Store::save(options));
    EXPECT_EQ(Store::loadOptions().fps, 50);
    const QString problem = Store::takeUnreportedProblem();
    EXPECT_TRUE(problem.contains(QStringLiteral("can’t save its settings")))
        << problem.toStdString();
    EXPECT_FALSE(Store::save(options));
    EXPECT_TRUE(Store::takeUnreportedProblem().isEmpty());

    ASSERT_TRUE(QDir().rmdir(file));
    EXPECT_TRUE(Store::save(options));
    EXPECT_TRUE(Store::problem().isEmpty());
    const QSettings written(file, QSettings::IniFormat);
    const auto reread = decodeRecordingOptions(
        written.value(QLatin1String(Store::optionsKey)).toString().toStdString());
    ASSERT_TRUE(reread.ok());
    EXPECT_EQ(reread->fps, 50);
}

} // namespace
} // namespace lumenvale::testing
