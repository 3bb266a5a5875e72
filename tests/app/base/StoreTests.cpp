// The settings store: where settings and the test folder live, how bad stored options
// load, and that what is saved comes back equal.

#include "LumenvaleKit/RecordingOptions.h"
#include "base/PathText.h"
#include "base/Store.h"

#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace lumenvale {
namespace {

// Sets APP_STORE for one test and puts the run's value back afterwards.
class AppStoreVariable {
  public:
    AppStoreVariable() : saved_(qgetenv("APP_STORE")) {}
    ~AppStoreVariable() { qputenv("APP_STORE", saved_); }
    void set(const QByteArray& value) { qputenv("APP_STORE", value); }
    void unset() { qunsetenv("APP_STORE"); }

  private:
    QByteArray saved_;
};

QString readFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return QString::fromUtf8(file.readAll());
}

TEST(StoreTestFolder, AbsentOrEmptyMeansNotOverridden) {
    AppStoreVariable variable;
    variable.unset();
    EXPECT_FALSE(Store::testFolder().has_value());
    EXPECT_FALSE(Store::isOverridden());
    variable.set("");
    EXPECT_FALSE(Store::testFolder().has_value());
    EXPECT_FALSE(Store::isOverridden());
}

TEST(StoreTestFolder, MissingFolderIsCreatedWithItsParentsOnAccess) {
    QTemporaryDir root;
    ASSERT_TRUE(root.isValid());
    const QString folder = root.filePath(QStringLiteral("a/b/c store"));
    AppStoreVariable variable;
    variable.set(folder.toLocal8Bit());
    ASSERT_FALSE(QFileInfo::exists(folder));

    const std::optional<std::filesystem::path> first = Store::testFolder();
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(*first, toPath(folder));
    EXPECT_TRUE(QFileInfo(folder).isDir());
    EXPECT_TRUE(Store::isOverridden());
    // A second access finds it existing; that is no error.
    EXPECT_EQ(Store::testFolder(), first);
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

TEST(StoreOptions, UnusableStoredValuesLoadAsTheDefaults) {
    const QVariant unusable[] = {
        QVariant(),                                        // nothing stored
        QVariant(QStringLiteral("not json at all")),       // not JSON
        QVariant(QStringLiteral("{\"fps\": \"thirty\"}")), // a field of the wrong type
        QVariant(QStringLiteral("{\"codec\": \"vp9\"}")),  // an unknown codec
        QVariant(QStringLiteral("[1, 2, 3]")),             // not an object
        QVariant(QStringLiteral("{\"fps\": 30")),          // cut off
        QVariant(42),                                      // not text
    };
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
    RecordingOptions options;
    options.fps = 60;
    options.codec = Codec::hevc;
    options.showsPointer = false;
    options.showsClicks = true;
    options.countdown = false;
    options.systemAudio = false;
    options.microphone = true;
    options.microphoneID = "alsa_input.usb-Mic, \"Pro\"";
    options.camera = true;
    options.bubbleDiameter = 240;
    options.bubbleFrame = Rect{10.5, 20, 240, 240};
    options.folderPath = "/tmp/Vidéos; = [films]";
    Store::save(options);
    EXPECT_EQ(Store::loadOptions(), options);

    // Written at once, as UTF-8 JSON text that reads back from a fresh handle.
    QSettings fresh(Store::domainFile(Store::Domain::test), QSettings::IniFormat);
    const QString stored = fresh.value(QLatin1String(Store::optionsKey)).toString();
    EXPECT_EQ(stored.toStdString(), encode(options));
    const QString file = readFile(Store::domainFile(Store::Domain::test));
    EXPECT_TRUE(file.contains(QStringLiteral("Vidéos"))) << file.toStdString();
    EXPECT_FALSE(file.contains(QStringLiteral("@ByteArray"))) << file.toStdString();
}

} // namespace
} // namespace lumenvale
