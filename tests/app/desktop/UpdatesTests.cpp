// The updater against a real HTTP server of the test's own: which feed it asks for,
// what it offers, what it keeps pending, and how each failure reads.

#include "../AppTestSupport.h"
#include "base/Store.h"
#include "desktop/FeedServer.h"
#include "desktop/Updates.h"

#include <QSettings>
#include <QSignalSpy>
#include <QTest>
#include <functional>
#include <gtest/gtest.h>

namespace lumenvale::testing {
namespace {

using namespace std::chrono_literals;

constexpr int answerTimeoutMs = 5000; // only how long a broken updater is waited for
constexpr char feedPath[] = "/api/v1/products/lumenvale/appcast.xml";

std::string requested(const FeedServer& server) {
    return server.requests().join(QLatin1Char(' ')).toStdString();
}

struct HandResult {
    std::string text;
    std::string downloadPage;
};

HandResult checkByHand(Updates& updates) {
    QSignalSpy finished(&updates, &Updates::checkedByHand);
    updates.checkByHand();
    EXPECT_FALSE(updates.canCheck()); // while the check runs
    if (!finished.wait(answerTimeoutMs)) {
        ADD_FAILURE() << "no result";
        return {};
    }
    EXPECT_TRUE(updates.canCheck());
    return {finished.at(0).at(0).toString().toStdString(),
            finished.at(0).at(1).toUrl().toString().toStdString()};
}

void forgetUpdateSettings() {
    for (const char* key : {"updates.beta", "updates.automatic", "updates.lastCheck"}) {
        Store::standardDefaults().remove(QLatin1String(key));
    }
}

class UpdatesTest : public ::testing::Test {
  protected:
    void SetUp() override {
        forgetUpdateSettings();
        environment.set("LUMENVALE_UPDATE_HOST", server.host() + "/");
    }

    FeedServer server;
    ScopedEnvironment environment;
};

TEST_F(UpdatesTest, ScheduledCheckKeepsANewerReleasePendingUntilCheckedByHand) {
    const QByteArray current = Updates::currentVersion().toUtf8();
    server.serve(FeedServer::appcast(FeedServer::item("0.0.1") + FeedServer::item("1000.0.0") +
                                     FeedServer::item(current)));
    Updates updates;
    EXPECT_FALSE(updates.canCheck());
    QSignalSpy automaticChanged(&updates, &Updates::automaticallyChecksChanged);
    updates.setAutomaticallyChecks(true); // dropped before start()
    updates.checkByHand();                // nothing before start()
    EXPECT_FALSE(updates.automaticallyChecks());
    EXPECT_EQ(automaticChanged.count(), 0);

    updates.start();
    EXPECT_TRUE(updates.canCheck());
    EXPECT_FALSE(updates.nextCheckIn().has_value()); // automatic checks are off by default
    updates.setAutomaticallyChecks(true);
    updates.setAutomaticallyChecks(true);
    EXPECT_EQ(automaticChanged.count(), 1);
    // Never checked before, so the first scheduled check is due at once.
    ASSERT_TRUE(QTest::qWaitFor([&] { return !updates.pending().isEmpty(); }, answerTimeoutMs));
    EXPECT_EQ(updates.pending().toStdString(), "1000.0.0");
    EXPECT_EQ(requested(server), feedPath);
    ASSERT_TRUE(QTest::qWaitFor([&] { return updates.canCheck(); }, answerTimeoutMs));
    EXPECT_GT(updates.nextCheckIn(), 23h);

    // A second start changes nothing; a restart checks no earlier than a day later.
    updates.start();
    EXPECT_EQ(automaticChanged.count(), 1);
    EXPECT_GT(updates.nextCheckIn(), 23h);
    Updates restarted;
    restarted.start();
    EXPECT_TRUE(restarted.automaticallyChecks());
    EXPECT_GT(restarted.nextCheckIn(), 23h);

    const HandResult shown = checkByHand(updates);
    EXPECT_EQ(shown.text, "Lumenvale 1000.0.0 is available.");
    EXPECT_EQ(shown.downloadPage, "https://lumenvale.app/download/1000.0.0");
    EXPECT_TRUE(updates.pending().isEmpty()); // the user has seen it
    EXPECT_EQ(server.requests().size(), 2);

    for (const QByteArray& items :
         {FeedServer::item(current), FeedServer::item("0.0.1"), QByteArray()}) {
        server.serve(FeedServer::appcast(items));
        const HandResult upToDate = checkByHand(updates);
        EXPECT_EQ(upToDate.text, "You’re up to date.") << items.constData();
        EXPECT_TRUE(upToDate.downloadPage.empty());
    }
}

TEST_F(UpdatesTest, BetaVersionsComeFromTheBetaFeedAndTheSettingStaysInTheStandardFile) {
    server.serve(FeedServer::appcast(FeedServer::item("1000.0.0-beta.1", "beta") +
                                     FeedServer::item("0.0.1")));
    Updates updates;
    updates.start();
    EXPECT_EQ(updates.feedUrl().toString().toStdString(), server.host().toStdString() + feedPath);
    EXPECT_EQ(checkByHand(updates).text, "You’re up to date.");

    QSignalSpy betaChanged(&updates, &Updates::betaChanged);
    updates.setBeta(true);
    updates.setBeta(true);
    EXPECT_EQ(betaChanged.count(), 1);
    ASSERT_TRUE(Store::isOverridden());
    EXPECT_TRUE(QSettings(Store::domainFile(Store::Domain::standard), QSettings::IniFormat)
                    .value(QLatin1String(Store::updatesBetaKey))
                    .toBool());
    EXPECT_FALSE(Store::defaults().contains(QLatin1String(Store::updatesBetaKey)));

    const HandResult beta = checkByHand(updates);
    EXPECT_EQ(beta.text, "Lumenvale 1000.0.0-beta.1 is available.");
    EXPECT_EQ(beta.downloadPage, "https://lumenvale.app/download/1000.0.0-beta.1");
    EXPECT_EQ(requested(server), std::string(feedPath) + " " + feedPath + "?channel=beta");
}

TEST_F(UpdatesTest, FailuresReadAsSentencesAndLeaveNothingPending) {
    QByteArray closedHost; // nothing listens on its port any more
    {
        const FeedServer closed;
        closedHost = closed.host();
    }

    const struct {
        const char* name;
        std::function<void()> arrange;
        std::string text;
    } cases[] = {
        {"malformed feed", [&] { server.serve("<rss><channel><item><title>Lumen"); },
         "The update feed could not be read (line 1): Premature end of document."},
        {"not found", [&] { server.serve("gone", 404); },
         "The update server answered with an error (HTTP 404). Try again later."},
        {"unreachable", [&] { environment.set("LUMENVALE_UPDATE_HOST", closedHost); },
         "Lumenvale could not reach the update server. Check the network "
         "connection and try again."},
        {"stalled",
         [&] {
             environment.set("LUMENVALE_UPDATE_HOST", server.host());
             server.stall();
         },
         "The update server did not answer within 0.3 seconds. Try again later."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        c.arrange();
        forgetUpdateSettings();
        Updates updates(300ms);
        updates.start();
        // A scheduled check first (due at once): it fails without a word.
        QSignalSpy canCheckChanged(&updates, &Updates::canCheckChanged);
        updates.setAutomaticallyChecks(true);
        EXPECT_TRUE(QTest::qWaitFor([&] { return canCheckChanged.count() == 2; }, answerTimeoutMs));
        EXPECT_TRUE(updates.pending().isEmpty());

        const HandResult failed = checkByHand(updates);
        EXPECT_EQ(failed.text, c.text);
        EXPECT_TRUE(failed.downloadPage.empty());
        EXPECT_TRUE(updates.pending().isEmpty());
    }
}

} // namespace
} // namespace lumenvale::testing
