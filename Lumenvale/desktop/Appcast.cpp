#include "desktop/Appcast.h"

#include "LumenvaleKit/SoftwareVersion.h"

#include <QXmlStreamReader>

namespace lumenvale::AppcastReading {

namespace {

const QString sparkleNamespace =
    QStringLiteral("http://www.andymatuschak.org/xml-namespaces/sparkle");

bool isPlain(const QXmlStreamReader& reader, QLatin1String name) {
    return reader.namespaceUri().isEmpty() && reader.name() == name;
}

bool isSparkle(const QXmlStreamReader& reader, QLatin1String name) {
    return reader.namespaceUri() == sparkleNamespace && reader.name() == name;
}

// The feed says where to send the user; only web pages are opened.
QUrl webPage(const QString& text) {
    const QUrl url(text.trimmed(), QUrl::StrictMode);
    const bool web =
        url.scheme() == QLatin1String("https") || url.scheme() == QLatin1String("http");
    return url.isValid() && web && !url.host().isEmpty() ? url : QUrl();
}

AppcastItem readItem(QXmlStreamReader& reader) {
    AppcastItem item;
    QString enclosureVersion;
    QString enclosureDisplayVersion;
    QUrl enclosureUrl;
    while (reader.readNextStartElement()) {
        if (isPlain(reader, QLatin1String("title"))) {
            item.title = reader.readElementText().trimmed();
        } else if (isPlain(reader, QLatin1String("link"))) {
            item.downloadPage = webPage(reader.readElementText());
        } else if (isSparkle(reader, QLatin1String("version"))) {
            item.version = reader.readElementText().trimmed();
        } else if (isSparkle(reader, QLatin1String("shortVersionString"))) {
            item.displayVersion = reader.readElementText().trimmed();
        } else if (isSparkle(reader, QLatin1String("channel"))) {
            item.channel = reader.readElementText().trimmed();
        } else if (isPlain(reader, QLatin1String("enclosure"))) {
            const QXmlStreamAttributes attributes = reader.attributes();
            enclosureUrl = webPage(attributes.value(QLatin1String("url")).toString());
            enclosureVersion =
                attributes.value(sparkleNamespace, QLatin1String("version")).toString().trimmed();
            enclosureDisplayVersion =
                attributes.value(sparkleNamespace, QLatin1String("shortVersionString"))
                    .toString()
                    .trimmed();
            reader.skipCurrentElement();
        } else {
            reader.skipCurrentElement();
        }
    }
    if (item.version.isEmpty()) {
        item.version = enclosureVersion;
    }
    if (item.displayVersion.isEmpty()) {
        item.displayVersion = enclosureDisplayVersion;
    }
    if (item.displayVersion.isEmpty()) {
        item.displayVersion = item.version;
    }
    if (item.downloadPage.isEmpty()) {
        item.downloadPage = enclosureUrl;
    }
    return item;
}

void readChannel(QXmlStreamReader& reader, Appcast& appcast) {
    while (reader.readNextStartElement()) {
        if (isPlain(reader, QLatin1String("item"))) {
            AppcastItem item = readItem(reader);
            if (!item.version.isEmpty()) {
                appcast.items.append(std::move(item));
            }
        } else if (isPlain(reader, QLatin1String("link"))) {
            appcast.link = webPage(reader.readElementText());
        } else {
            reader.skipCurrentElement();
        }
    }
}

bool follows(UpdateChannel channel, const QString& itemChannel) {
    return itemChannel.isEmpty() ||
           (channel == UpdateChannel::beta && itemChannel == QLatin1String("beta"));
}

} // namespace

Result<Appcast> parse(const QByteArray& feed) {
    QXmlStreamReader reader(feed);
    Appcast appcast;
    bool hasChannel = false;
    if (reader.readNextStartElement()) {
        if (!isPlain(reader, QLatin1String("rss"))) {
            return DecodeError{"The update feed is not an RSS feed."};
        }
        while (reader.readNextStartElement()) {
            if (isPlain(reader, QLatin1String("channel"))) {
                hasChannel = true;
                readChannel(reader, appcast);
            } else {
                reader.skipCurrentElement();
            }
        }
    }
    // Whatever follows the document must be nothing but comments and white space.
    while (!reader.atEnd()) {
        reader.readNext();
    }
    if (reader.hasError()) {
        return DecodeError{QStringLiteral("The update feed could not be read (line %1): %2")
                               .arg(reader.lineNumber())
                               .arg(reader.errorString())
                               .toStdString()};
    }
    if (!hasChannel) {
        return DecodeError{"The update feed lists no releases: it has no channel."};
    }
    return appcast;
}

std::optional<AppcastItem> newerRelease(const Appcast& appcast, const QString& currentVersion,
                                        UpdateChannel channel) {
    const Result<SoftwareVersion> current = SoftwareVersion::parse(currentVersion.toStdString());
    if (!current) {
        return std::nullopt;
    }
    const AppcastItem* newest = nullptr;
    std::optional<SoftwareVersion> newestVersion;
    for (const AppcastItem& item : appcast.items) {
        Result<SoftwareVersion> version = SoftwareVersion::parse(item.version.toStdString());
        if (!follows(channel, item.channel) || !version) {
            continue;
        }
        if (!newestVersion || *version > *newestVersion) {
            newest = &item;
            newestVersion = std::move(version).value();
        }
    }
    if (newest == nullptr || !(*newestVersion > *current)) {
        return std::nullopt;
    }
    AppcastItem offered = *newest;
    if (offered.downloadPage.isEmpty()) {
        offered.downloadPage = appcast.link;
    }
    return offered;
}

} // namespace lumenvale::AppcastReading
