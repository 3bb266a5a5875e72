#pragma once

#include <QObject>
#include <QSet>
#include <QTimer>
#include <chrono>

namespace lumenvale {

// Which of the three capture permissions the application holds. On Linux there is
// nothing to ask the user for: a permission is "held" when the system can provide it.
//   screen      X11: the display offers MIT-SHM and Composite
//   microphone  a reachable PulseAudio server with at least one non-monitor source
//   camera      a readable V4L2 capture device
// A request therefore answers with the current check.
//
// Threads: the GUI thread. The microphone check talks to the sound server and may
// block for up to two seconds when the server does not answer.
class Permissions : public QObject {
    Q_OBJECT
    Q_PROPERTY(QSet<lumenvale::Permissions::Kind> granted READ granted NOTIFY grantedChanged)

  public:
    enum class Kind { screen, microphone, camera };
    Q_ENUM(Kind)

    // Created on first use, never destroyed.
    static Permissions& shared();

    QSet<Kind> granted() const { return granted_; }

    // Checks all three again, in the order screen, microphone, camera; `granted` is
    // assigned only when the set changed. The first call starts the polling that keeps
    // `granted` current for as long as the application runs.
    void refresh();
    // How often refresh() runs by itself: every 1.5 s while a permission is missing and
    // the permissions are shown (the user is likely setting one up), every 20 s
    // otherwise, so that a machine without a camera is not asked all day. Zero before
    // the first refresh().
    std::chrono::milliseconds pollingInterval() const;
    // Whether a window shows the permissions now (Settings, the welcome window).
    void setShown(bool shown);
    // Whether the screen can be captured now.
    bool requestScreen();
    // Whether the microphone or camera can be used now.
    bool request(Kind kind);

    // The checks themselves.
    static bool check(Kind kind);
    // Tests only: LUMENVALE_SYNTHETIC_CAMERA=1 puts a drawn pattern in the camera's
    // place, and the camera counts as present.
    static bool syntheticCamera();

  signals:
    void grantedChanged();

  private:
    Permissions() = default;
    void update(Kind kind, bool held);
    // Keeps one repeating timer at the interval `granted` calls for; a timer already at
    // that interval runs on undisturbed.
    void schedule();

    QSet<Kind> granted_;
    bool shown_ = false;
    QTimer timer_;
};

} // namespace lumenvale
