#include "gui/snapshot/Snapshot.h"

#include "desktop/Permissions.h"
#include "gui/app/AppDelegate.h"
#include "recorder/ScreenRecorder.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSaveFile>
#include <QTimer>
#include <cstdio>
#include <functional>

namespace lumenvale::Snapshot {

namespace {

using View = Windows::View;
using Phase = RecorderPhase::Phase;

struct Page {
    const char* name;
    View view;
    int tab = -1; // the Settings tab to show
    Phase phase = Phase::idle;
};

const std::vector<Page>& allPages() {
    static const std::vector<Page> list{
        {"menu", View::menu},
        {"menu-recording", View::menu, -1, Phase::recording},
        {"settings-general", View::settings, 0},
        {"settings-shortcuts", View::settings, 1},
        {"settings-video", View::settings, 2},
        {"settings-audio", View::settings, 3},
        {"settings-permissions", View::settings, 4},
        {"welcome", View::welcome},
        {"about", View::about},
        {"update-check", View::updateCheck},
    };
    return list;
}

void complain(const QString& text) {
    std::fputs((text + QLatin1Char('\n')).toLocal8Bit().constData(), stderr);
    std::fflush(stderr);
}

bool inTmp(const QString& folder) {
    return !folder.isEmpty() && QDir::cleanPath(QFileInfo(folder).absoluteFilePath())
                                    .startsWith(QStringLiteral("/tmp/"));
}

// Every item with an object name, in window coordinates.
void probe(QQuickItem* item, QJsonArray& probes) {
    if (!item->objectName().isEmpty() && item->isVisible()) {
        const QRectF box = item->mapRectToScene(QRectF(0, 0, item->width(), item->height()));
        probes.append(QJsonObject{{QStringLiteral("name"), item->objectName()},
                                  {QStringLiteral("x"), box.x()},
                                  {QStringLiteral("y"), box.y()},
                                  {QStringLiteral("width"), box.width()},
                                  {QStringLiteral("height"), box.height()}});
    }
    for (QQuickItem* child : item->childItems()) {
        probe(child, probes);
    }
}

bool writeFile(const QString& path, const QByteArray& bytes) {
    QSaveFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.commit();
}

// One run through the pages, a page per turn of the event loop once its window has
// drawn.
class Runner : public QObject {
  public:
    Runner(AppDelegate& delegate, QDir folder, QStringList wanted, int scale,
           std::function<void(int)> finished)
        : delegate_(delegate), folder_(std::move(folder)), wanted_(std::move(wanted)),
          scale_(scale), finished_(std::move(finished)) {}

    void next() {
        while (index_ < allPages().size() && !wanted_.isEmpty() &&
               !wanted_.contains(QLatin1String(allPages()[index_].name))) {
            ++index_;
        }
        if (index_ >= allPages().size()) {
            finished_(failures_ == 0 ? 0 : 1);
            deleteLater();
            return;
        }
        const Page& page = allPages()[index_++];
        ScreenRecorder::shared().preview(page.phase, page.phase == Phase::idle ? 0.0 : 12.0);
        QQuickWindow* window = nullptr;
        if (page.view == View::menu) {
            delegate_.windows().showMenu(QRect(0, 0, 1, 1));
            window = delegate_.windows().window(View::menu);
        } else if (page.view == View::updateCheck) {
            delegate_.windows().showUpdateCheck(
                QStringLiteral("Lumenvale 1.2 is available."),
                QUrl(QStringLiteral("https://lumenvale.app/download")));
            window = delegate_.windows().window(View::updateCheck);
        } else {
            window = delegate_.windows().show(page.view);
        }
        if (window == nullptr) {
            fail(page, QStringLiteral("its window did not load"));
            return;
        }
        if (page.tab >= 0) {
            if (QObject* tabs = window->findChild<QObject*>(QStringLiteral("settingsTabs"))) {
                tabs->setProperty("currentIndex", page.tab);
            }
        }
        // Two frames: the first after the state change may still show the layout settling.
        QTimer::singleShot(500, this, [this, window, page] { capture(*window, page); });
    }

  private:
    void capture(QQuickWindow& window, const Page& page) {
        const QImage picture = window.grabWindow();
        const QString base = folder_.filePath(QLatin1String(page.name));
        if (picture.isNull() ||
            !picture.save(base + QStringLiteral("@%1x.png").arg(scale_), "PNG")) {
            fail(page, QStringLiteral("the window could not be saved as a picture"));
            return;
        }
        if (scale_ == 1) {
            QJsonArray probes;
            probe(window.contentItem(), probes);
            const QJsonObject layout{{QStringLiteral("page"), QLatin1String(page.name)},
                                     {QStringLiteral("width"), window.width()},
                                     {QStringLiteral("height"), window.height()},
                                     {QStringLiteral("probes"), probes}};
            if (!writeFile(base + QStringLiteral(".json"), QJsonDocument(layout).toJson())) {
                fail(page, QStringLiteral("its layout could not be written"));
                return;
            }
        }
        window.close();
        QTimer::singleShot(0, this, [this] { next(); });
    }

    void fail(const Page& page, const QString& why) {
        complain(QStringLiteral("SNAPSHOT ") + QLatin1String(page.name) + QStringLiteral(": ") +
                 why);
        ++failures_;
        QTimer::singleShot(0, this, [this] { next(); });
    }

    AppDelegate& delegate_;
    QDir folder_;
    QStringList wanted_;
    int scale_;
    std::function<void(int)> finished_;
    std::size_t index_ = 0;
    int failures_ = 0;
};

// The second pass: this program again, at twice the scale.
int renderDoubleScale() {
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_SCALE_FACTOR"), QStringLiteral("2"));
    environment.insert(QStringLiteral("LUMENVALE_SNAPSHOT_SCALE"), QStringLiteral("2"));
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::ForwardedChannels);
    child.start(QCoreApplication::applicationFilePath(), {});
    if (!child.waitForFinished(120'000) || child.exitStatus() != QProcess::NormalExit) {
        complain(QStringLiteral("SNAPSHOT: the pictures at twice the scale were not made."));
        return 1;
    }
    return child.exitCode();
}

} // namespace

QStringList pages() {
    QStringList names;
    for (const Page& page : allPages()) {
        names << QLatin1String(page.name);
    }
    return names;
}

void start(AppDelegate& delegate, std::function<void(int status)> finished) {
    if (!inTmp(qEnvironmentVariable("APP_STORE"))) {
        complain(QStringLiteral("SNAPSHOT refused: set APP_STORE to a folder in /tmp"));
        finished(1);
        return;
    }
    QDir folder(qEnvironmentVariable("APP_SNAPSHOT"));
    if (!folder.mkpath(QStringLiteral("."))) {
        complain(QStringLiteral("SNAPSHOT: the folder ") + folder.path() +
                 QStringLiteral(" could not be made."));
        finished(1);
        return;
    }
    QStringList wanted =
        qEnvironmentVariable("APP_SNAPSHOT_PAGES").split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (const QString& name : wanted) {
        if (!pages().contains(name)) {
            complain(QStringLiteral("SNAPSHOT: there is no page “") + name +
                     QStringLiteral("”. Pages: ") + pages().join(QStringLiteral(", ")));
            finished(1);
            return;
        }
    }
    // The welcome window and the Permissions tab show what the checks find here.
    Permissions::shared().refresh();
    const int scale = qEnvironmentVariableIntValue("LUMENVALE_SNAPSHOT_SCALE") == 2 ? 2 : 1;
    auto* runner = new Runner(delegate, folder, wanted, scale, [scale, finished](int status) {
        finished(status == 0 && scale == 1 ? renderDoubleScale() : status);
    });
    runner->setParent(&delegate);
    runner->next();
}

} // namespace lumenvale::Snapshot
