#include "desktop/FinishSound.h"

#include "base/AppIdentity.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QStringList>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <numbers>
#include <optional>
#include <string>
#include <vector>

namespace lumenvale::FinishSound {

namespace {

struct Command {
    QString program;
    QStringList arguments;
};

void appendLittleEndian(std::string& bytes, std::uint32_t value, int size) {
    for (int i = 0; i < size; ++i) {
        bytes.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
    }
}

// A short two-note chime, 48 kHz mono 16-bit PCM in a WAV container.
std::string chimeWav() {
    constexpr int sampleRate = 48000;
    constexpr double noteSeconds = 0.12;
    constexpr double tailSeconds = 0.25;
    constexpr std::array<double, 2> notesHz{1318.51, 1760.0};
    const int noteSamples = static_cast<int>(noteSeconds * sampleRate);
    const int totalSamples = noteSamples + static_cast<int>(tailSeconds * sampleRate);
    std::vector<double> mix(static_cast<std::size_t>(totalSamples), 0.0);
    for (std::size_t note = 0; note < notesHz.size(); ++note) {
        const int begin = static_cast<int>(note) * noteSamples;
        for (int i = begin; i < totalSamples; ++i) {
            const double t = static_cast<double>(i - begin) / sampleRate;
            const double envelope = std::exp(-t * 14.0) * std::min(1.0, t * 400.0);
            mix[static_cast<std::size_t>(i)] +=
                0.3 * envelope * std::sin(2 * std::numbers::pi * notesHz[note] * t);
        }
    }
    std::string pcm;
    for (double sample : mix) {
        const auto value =
            static_cast<std::int16_t>(std::lround(std::clamp(sample, -1.0, 1.0) * 32767));
        appendLittleEndian(pcm, static_cast<std::uint16_t>(value), 2);
    }
    std::string wav = "RIFF";
    appendLittleEndian(wav, static_cast<std::uint32_t>(36 + pcm.size()), 4);
    wav += "WAVEfmt ";
    appendLittleEndian(wav, 16, 4);         // format chunk size
    appendLittleEndian(wav, 1, 2);          // PCM
    appendLittleEndian(wav, 1, 2);          // mono
    appendLittleEndian(wav, sampleRate, 4); // sample rate
    appendLittleEndian(wav, sampleRate * 2, 4);
    appendLittleEndian(wav, 2, 2);  // block align
    appendLittleEndian(wav, 16, 2); // bits per sample
    wav += "data";
    appendLittleEndian(wav, static_cast<std::uint32_t>(pcm.size()), 4);
    return wav + pcm;
}

QString themeSoundFile() {
    const QStringList folders =
        QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation);
    for (const QString& folder : folders) {
        for (const char* name : {"complete.oga", "complete.ogg", "complete.wav"}) {
            const QString file = QDir(folder).filePath(
                QStringLiteral("sounds/freedesktop/stereo/") + QLatin1String(name));
            if (QFileInfo::exists(file)) {
                return file;
            }
        }
    }
    return {};
}

QString ownChimeFile() {
    const QString folder =
        QDir(QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation))
            .filePath(QString::fromLatin1(applicationID));
    const QString file = QDir(folder).filePath(QStringLiteral("complete.wav"));
    if (QFileInfo::exists(file)) {
        return file;
    }
    QDir().mkpath(folder);
    std::ofstream out(QFile::encodeName(file).toStdString(), std::ios::binary | std::ios::trunc);
    const std::string wav = chimeWav();
    out.write(wav.data(), static_cast<std::streamsize>(wav.size()));
    return out.good() ? file : QString();
}

std::optional<Command> chooseCommand() {
    if (!QStandardPaths::findExecutable(QStringLiteral("canberra-gtk-play")).isEmpty()) {
        return Command{
            QStringLiteral("canberra-gtk-play"),
            {QStringLiteral("--id=complete"), QStringLiteral("--description=Recording saved")}};
    }
    if (QStandardPaths::findExecutable(QStringLiteral("paplay")).isEmpty()) {
        return std::nullopt;
    }
    QString file = themeSoundFile();
    if (file.isEmpty()) {
        file = ownChimeFile();
    }
    if (file.isEmpty()) {
        return std::nullopt;
    }
    return Command{QStringLiteral("paplay"), {file}};
}

} // namespace

void play() {
    static const std::optional<Command> command = chooseCommand();
    if (command) {
        // The player's complaints (a sound server going away mid-sound) are not ours to
        // print among the application's notices.
        QProcess player;
        player.setProgram(command->program);
        player.setArguments(command->arguments);
        player.setStandardOutputFile(QProcess::nullDevice());
        player.setStandardErrorFile(QProcess::nullDevice());
        player.startDetached();
    }
}

} // namespace lumenvale::FinishSound
