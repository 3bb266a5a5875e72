#pragma once

#include "LumenvaleKit/Result.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QUrl>
#include <optional>

namespace lumenvale {

// One release in the update feed.
struct AppcastItem {
    QString title;
    // What the running version is compared with: <sparkle:version>, else the
    // enclosure's sparkle:version attribute. Written like LUMENVALE_VERSION.
    QString version;
    // What the user sees: <sparkle:shortVersionString> (or that enclosure attribute),
    // else the version.
    QString displayVersion;
    // The page to open for this release: the item's <link>, else the enclosure's url.
    // Only http and https addresses are kept; anything else reads as none.
    QUrl downloadPage;
    // <sparkle:channel>; empty for a release offered to everyone.
    QString channel;
};

// The update feed: a Sparkle appcast, that is an RSS 2.0 document whose <channel>
// holds one <item> per release, with Sparkle's elements and attributes in the
// namespace http://www.andymatuschak.org/xml-namespaces/sparkle.
struct Appcast {
    QList<AppcastItem> items; // in the feed's order
    QUrl link;                // the channel's <link> (http or https only)
};

enum class UpdateChannel { release, beta };

namespace AppcastReading {

// Reads a feed. Fails with a sentence when the text is not well-formed XML or not an
// RSS document with a channel. Items without any version are left out; other
// elements are ignored.
Result<Appcast> parse(const QByteArray& feed);

// The release to offer: among the items whose channel the user follows (no channel;
// "beta" too on the beta channel) and whose version reads as a version number, the
// newest, when it is newer than `currentVersion`; nothing otherwise. Its download page
// is the channel's link when the item names none.
std::optional<AppcastItem> newerRelease(const Appcast& appcast, const QString& currentVersion,
                                        UpdateChannel channel);

} // namespace AppcastReading
} // namespace lumenvale
