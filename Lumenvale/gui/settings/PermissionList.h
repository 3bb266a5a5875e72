#pragma once

#include "desktop/Permissions.h"

#include <QObject>
#include <QString>
#include <QVariantList>

namespace lumenvale {

// The Settings window's Permissions tab: one row per capture permission, in the order
// screen, microphone, camera, following Permissions::shared() as its polling finds
// changes. A row is {kind, title, held, detail, action}: `detail` says what the check
// found in the user's words; `action` is the button that helps, "Open Sound Settings"
// when the desktop has a sound settings application and the microphone is missing,
// "Check Again" for any other missing permission, empty for a held one.
//
// Threads: the GUI thread.
class PermissionList : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantList rows READ rows NOTIFY rowsChanged)

  public:
    explicit PermissionList(QObject* parent = nullptr);

    QVariantList rows() const;

    // The row's button: opens the sound settings (microphone, when known) or checks
    // again. `kind` is the row's kind as named there ("screen", "microphone", "camera").
    Q_INVOKABLE void help(const QString& kind);

    // The first sound settings application found on PATH, as a program and its
    // arguments; empty when none is installed.
    static QStringList soundSettingsCommand();

  signals:
    void rowsChanged();

  private:
    QString detail(Permissions::Kind kind, bool held) const;
};

} // namespace lumenvale
