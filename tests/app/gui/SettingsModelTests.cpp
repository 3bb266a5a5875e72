// The Settings window's model: each change reaches the store at once, starting at login
// writes a valid autostart entry, and the microphone list follows the sound server.

#include "base/Store.h"
#include "desktop/Autostart.h"
#include "gui/settings/SettingsModel.h"
#include "recorder/ScreenRecorder.h"

#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QUrl>
#include <gtest/gtest.h>

namespace lumenvale {
namespace {

QStringList microphoneIDs(const SettingsModel& model) {
    QStringList ids;
    for (const QVariant& entry : model.microphones()) {
        ids.append(entry.toMap().value(QStringLiteral("id")).toString());
    }
    return ids;
}

QString pactl(const QStringList& arguments) {
    QProcess process;
    process.start(QStringLiteral("pactl"), arguments);
    process.waitForFinished(5000);
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

// Plugs in a microphone named `name` on the sound server; returns its module to unplug.
QString plugMicrophone(const QString& name) {
    return pactl({QStringLiteral("load-module"), QStringLiteral("module-remap-source"),
                  QStringLiteral("source_name=") + name,
                  QStringLiteral("master=lumenvale_mic_input.monitor")});
}

TEST(SettingsModel, EveryChangeIsStoredAtOnceAndNotified) {
    ScreenRecorder recorder;
    SettingsModel model(recorder);
    QSignalSpy changes(&model, &SettingsModel::optionsChanged);

    model.setFps(60);
    model.setCodec(QStringLiteral("hevc"));
    model.setCodec(QStringLiteral("vp9")); // not a codec: ignored
    model.setShowsClicks(true);
    model.setMicrophone(true);
    model.setMicrophoneID(QStringLiteral("usb-mic"));
    model.setBubbleDiameter(9000);
    model.setSaveFolder(QUrl::fromLocalFile(QStringLiteral("/tmp/Vidéos à voir")).toString());
    const RecordingOptions stored = Store::loadOptions();
    EXPECT_EQ(stored.fps, 60);
    EXPECT_EQ(stored.codec, Codec::hevc);
    EXPECT_TRUE(stored.showsClicks);
    EXPECT_TRUE(stored.microphone);
    EXPECT_EQ(stored.microphoneID, "usb-mic");
    EXPECT_EQ(stored.bubbleDiameter, 480);
    EXPECT_EQ(stored.folderPath, "/tmp/Vidéos à voir");
    EXPECT_EQ(changes.count(), 7);

    // The default source is stored as no source; a rate not offered is still listed.
    model.setMicrophoneID(QString());
    EXPECT_FALSE(Store::loadOptions().microphoneID.has_value());
    model.setFps(25);
    EXPECT_EQ(model.frameRates(), (QVariantList{24, 25, 30, 60}));
    // Options changed elsewhere reach the model's views.
    RecordingOptions options = recorder.options();
    options.countdown = !options.countdown;
    recorder.setOptions(options);
    EXPECT_EQ(model.countdown(), options.countdown);
    EXPECT_EQ(changes.count(), 10);
}

TEST(SettingsModel, StartingAtLoginWritesAValidEntryAndRemovesIt) {
    ScreenRecorder recorder;
    SettingsModel model(recorder);
    model.setStartAtLogin(true);
    EXPECT_TRUE(model.startAtLogin());
    EXPECT_TRUE(model.problem().isEmpty());
    QFile entry(Autostart::entryPath());
    ASSERT_TRUE(entry.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(entry.readAll());
    EXPECT_TRUE(text.contains(QStringLiteral("Exec=\"") + QCoreApplication::applicationFilePath()))
        << text.toStdString();
    const QString validator =
        QStandardPaths::findExecutable(QStringLiteral("desktop-file-validate"));
    if (!validator.isEmpty()) {
        QProcess validate;
        validate.start(validator, {Autostart::entryPath()});
        ASSERT_TRUE(validate.waitForFinished(10000));
        EXPECT_EQ(validate.exitCode(), 0) << validate.readAllStandardOutput().toStdString();
    }

    // Turned off in the desktop's own settings: read as off.
    entry.close();
    ASSERT_TRUE(entry.open(QIODevice::Append));
    entry.write("Hidden=true\n");
    entry.close();
    EXPECT_FALSE(Autostart::isEnabled());

    model.setStartAtLogin(false);
    EXPECT_FALSE(model.startAtLogin());
    EXPECT_FALSE(QFile::exists(Autostart::entryPath()));
}

TEST(SettingsModel, MicrophonesFollowTheSoundServerWhileWatched) {
    ScreenRecorder recorder;
    SettingsModel model(recorder);
    QSignalSpy lists(&model, &SettingsModel::microphonesChanged);
    model.setWatching(true);
    ASSERT_TRUE(lists.wait(5000));
    const QStringList before = microphoneIDs(model);
    EXPECT_EQ(before.first(), QString()); // the default source comes first
    EXPECT_TRUE(before.contains(QStringLiteral("lumenvale_mic"))) << before.join(' ').toStdString();
    for (const QString& id : before) {
        EXPECT_FALSE(id.endsWith(QStringLiteral(".monitor"))) << id.toStdString();
    }

    // Plugged in: appears; unplugged: goes.
    const QString module = plugMicrophone(QStringLiteral("lumenvale_plugged"));
    ASSERT_FALSE(module.isEmpty());
    ASSERT_TRUE(lists.wait(5000));
    EXPECT_TRUE(microphoneIDs(model).contains(QStringLiteral("lumenvale_plugged")));
    model.setMicrophoneID(QStringLiteral("lumenvale_plugged"));
    pactl({QStringLiteral("unload-module"), module});
    ASSERT_TRUE(lists.wait(5000));
    // The chosen one stays listed, marked as missing, so the choice is not lost.
    const QVariantMap last = model.microphones().last().toMap();
    EXPECT_EQ(last.value(QStringLiteral("id")).toString(), QStringLiteral("lumenvale_plugged"));
    EXPECT_TRUE(
        last.value(QStringLiteral("title")).toString().contains(QStringLiteral("not connected")));

    // Not watched: the list is left alone.
    model.setWatching(false);
    lists.clear();
    const QString unseen = plugMicrophone(QStringLiteral("lumenvale_unseen"));
    EXPECT_FALSE(lists.wait(3000));
    pactl({QStringLiteral("unload-module"), unseen});
    model.setMicrophoneID(QString());
}

} // namespace
} // namespace lumenvale
