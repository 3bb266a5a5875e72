// Reading the update feed and choosing the release to offer.

#include "desktop/Appcast.h"

#include <gtest/gtest.h>

namespace lumenvale {
namespace {

QByteArray feed(const QByteArray& channel) {
    return "<?xml version=\"1.0\"?><rss version=\"2.0\" "
           "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel>" +
           channel + "</channel></rss>";
}

TEST(Appcast, ReleaseOfferedForEachChannel) {
    const Appcast appcast = *AppcastReading::parse(feed(R"(
        <link>https://lumenvale.app/</link>
        <item><title>Old</title><sparkle:version>0.0.5</sparkle:version>
              <link>https://lumenvale.app/old</link></item>
        <item><title>Two</title><link>javascript:alert(1)</link>
              <enclosure url="https://lumenvale.app/2.deb" sparkle:version="2.0.0"
                         sparkle:shortVersionString="2.0"/></item>
        <item><title>Also two</title><sparkle:version>2</sparkle:version></item>
        <item><title>Beta</title><sparkle:version>3.0.0-beta.1</sparkle:version>
              <sparkle:channel>beta</sparkle:channel></item>
        <item><title>Nightly</title><sparkle:version>9</sparkle:version>
              <sparkle:channel>nightly</sparkle:channel></item>
        <item><title>No version</title><link>https://lumenvale.app/x</link></item>
        <item><title>Unreadable</title><sparkle:version>latest</sparkle:version></item>
        <unknown><nested/></unknown>)"));
    ASSERT_EQ(appcast.items.size(), 6); // the item without a version is left out
    EXPECT_EQ(appcast.link, QUrl(QStringLiteral("https://lumenvale.app/")));

    const struct {
        const char* current;
        UpdateChannel channel;
        const char* offered; // title; nullptr for none
        const char* displayVersion;
        const char* page;
    } cases[] = {
        // The first of two equal versions; the enclosure's attributes and address.
        {"1.0", UpdateChannel::release, "Two", "2.0", "https://lumenvale.app/2.deb"},
        {"0.0.1", UpdateChannel::release, "Two", "2.0", "https://lumenvale.app/2.deb"},
        {"2.0.0", UpdateChannel::release, nullptr, "", ""},
        {"2.0.1-rc.1", UpdateChannel::release, nullptr, "", ""},
        {"1.0", UpdateChannel::beta, "Beta", "3.0.0-beta.1", "https://lumenvale.app/"},
        {"3.0.0", UpdateChannel::beta, nullptr, "", ""},
        {"not a version", UpdateChannel::release, nullptr, "", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.current);
        const auto offered =
            AppcastReading::newerRelease(appcast, QString::fromUtf8(c.current), c.channel);
        ASSERT_EQ(offered.has_value(), c.offered != nullptr);
        if (offered) {
            EXPECT_EQ(offered->title.toStdString(), c.offered);
            EXPECT_EQ(offered->displayVersion.toStdString(), c.displayVersion);
            EXPECT_EQ(offered->downloadPage.toString().toStdString(), c.page);
        }
    }
}

TEST(Appcast, FeedsThatCannotBeReadSaySo) {
    const std::pair<QByteArray, const char*> cases[] = {
        {"", "The update feed could not be read (line 1): Premature end of document."},
        {"<html><body>Sign in</body></html>", "The update feed is not an RSS feed."},
        {"<rss version=\"2.0\"></rss>", "The update feed lists no releases: it has no channel."},
        {"<rss><channel><item><sparkle:version>2</sparkle:version></item></channel></rss>",
         "The update feed could not be read (line 1): Namespace prefix 'sparkle' not declared"},
        {feed("<item><title>A <b>bold</b> title</title></item>"),
         "The update feed could not be read (line 1): Expected character data."},
        {feed("") + "<rss/>",
         "The update feed could not be read (line 1): Extra content at end of document."},
    };
    for (const auto& [text, message] : cases) {
        const Result<Appcast> read = AppcastReading::parse(text);
        ASSERT_FALSE(read.ok()) << text.constData();
        EXPECT_EQ(read.error(), message);
    }
}

} // namespace
} // namespace lumenvale
