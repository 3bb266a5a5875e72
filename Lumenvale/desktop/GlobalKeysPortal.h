#pragma once

#include "desktop/GlobalKeys.h"
#include "desktop/Keyboard.h"

#include <QDBusMessage>
#include <QString>
#include <QTimer>
#include <QVariantMap>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace lumenvale {

// Global shortcuts on a Wayland desktop, through the desktop portal's
// org.freedesktop.portal.GlobalShortcuts: one portal session holds every combination
// of this object, bound together with BindShortcuts, each with its combination as the
// preferred trigger; the desktop settles the real triggers (it may ask the user) and
// reports presses with its Activated signal, which comes back here as pressed(id).
//
// Ids 0 to 3 are the RecActions' hotkey ids (Shortcuts.h) and are bound with the
// action's name as the description the desktop shows. The portal binds a whole set at
// once, so grab() and release() only note the change: the set is bound anew, in a fresh
// session, once the event loop turns, and only when it differs from the one bound. A
// key without modifiers (Escape lent to a picker) is refused: the desktop would ask the
// user about it each time a picker opens. What the desktop refuses later is written to
// standard error, where the tray application writes its notices too.
//
// Threads: the GUI thread; the session bus's answers and signals arrive there.
class GlobalKeysPortal final : public GlobalKeys {
    Q_OBJECT

  public:
    // Whether the session bus's desktop portal offers GlobalShortcuts: its "version"
    // property can be read. Asks the bus (waits at most two seconds).
    static bool offered();

    explicit GlobalKeysPortal(std::unique_ptr<Keyboard> keyboard, QObject* parent = nullptr);
    ~GlobalKeysPortal() override;

    Grab grab(std::uint32_t id, Combo combo) override;
    void release(std::uint32_t id) override;
    std::vector<Combo> systemShortcuts() override { return {}; }
    bool press(Combo) override { return false; }

    // The portal's trigger text of a combination, e.g. "CTRL+SHIFT+r" (modifiers CTRL,
    // ALT, SHIFT, LOGO, then the key's name as xkbcommon spells it); `character` is
    // what the key types in the current layout. Nothing when the key has no name.
    static std::optional<QString> triggerOf(Combo combo,
                                            const std::optional<std::string>& character);

  private slots:
    void onResponse(const QDBusMessage& message);
    void onActivated(const QDBusMessage& message);

  private:
    using Answer = std::function<void(uint response, const QVariantMap& results)>;

    void rebind();
    void bind();
    void closeSession();
    // Calls the portal's `method` whose last argument is options with a handle token;
    // `answer` gets the request's Response.
    void request(const QString& method, QList<QVariant> arguments, QVariantMap options,
                 Answer answer);
    void report(const QString& problem) const;

    std::unique_ptr<Keyboard> keyboard_;
    std::map<std::uint32_t, Combo> wanted_;
    std::map<std::uint32_t, Combo> bound_;
    QString session_;
    std::map<QString, Answer> pending_; // by request object path
    std::uint64_t generation_ = 0;      // a newer rebind makes older answers moot
    std::uint64_t tokens_ = 0;
    QTimer rebindTimer_;
};

} // namespace lumenvale
