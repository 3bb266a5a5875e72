#pragma once

#include <QColor>
#include <QDBusVariant>
#include <QObject>

namespace lumenvale {

// The application's light or dark look, following the desktop's colour scheme: the
// freedesktop appearance setting ("color-scheme" through the settings portal, followed
// live where a portal runs), else the lightness of the desktop's window colour. The
// environment variable LUMENVALE_COLOR_SCHEME ("light" or "dark") overrides both, for
// screenshots. Dark also gives the application a dark palette, so the standard
// controls follow.
//
// The colours views use: `window` (backgrounds), `text`, `secondaryText` (captions,
// shortcuts), `accent` (hover highlights), `recording` (the red of the status header),
// `success` (the green of "Allowed"), `divider` (hairlines and borders).
//
// Threads: the GUI thread.
class Theme : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool dark READ dark NOTIFY changed)
    Q_PROPERTY(QColor window READ window NOTIFY changed)
    Q_PROPERTY(QColor text READ text NOTIFY changed)
    Q_PROPERTY(QColor secondaryText READ secondaryText NOTIFY changed)
    Q_PROPERTY(QColor accent READ accent NOTIFY changed)
    Q_PROPERTY(QColor recording READ recording NOTIFY changed)
    Q_PROPERTY(QColor success READ success NOTIFY changed)
    Q_PROPERTY(QColor divider READ divider NOTIFY changed)

  public:
    enum class Scheme { light, dark };

    explicit Theme(QObject* parent = nullptr);

    bool dark() const { return scheme_ == Scheme::dark; }
    QColor window() const;
    QColor text() const;
    QColor secondaryText() const;
    QColor accent() const;
    QColor recording() const;
    QColor success() const;
    QColor divider() const;

  signals:
    void changed();

  private slots:
    // The portal's SettingChanged(namespace, key, value).
    void portalSettingChanged(const QString& group, const QString& key, const QDBusVariant& value);

  private:
    void apply(Scheme scheme);

    Scheme scheme_ = Scheme::light;
    bool applied_ = false;
};

} // namespace lumenvale
