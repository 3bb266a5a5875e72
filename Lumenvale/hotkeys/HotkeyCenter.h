#pragma once

#include "LumenvaleKit/Shortcuts.h"
#include "desktop/GlobalKeys.h"

#include <QObject>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>

namespace lumenvale {

class ScreenRecorder;

// The application's global shortcuts: the user's combination for each RecAction, held
// with the desktop so that it works whichever application is in front, and run against
// the recorder when pressed (runAction says what each does in each phase). It also
// lends Escape, without modifiers, to whoever must catch it while a picker or a
// countdown is up.
//
// Hotkey ids: an action's position in RecAction's order (screen 0, area 1, window 2,
// stop 3); the lent Escape key 100.
//
// Each action's combination is stored under storageKey(action) ("hotkey.screen", ...)
// as Combo JSON in the settings store; there are no default combinations. A stored
// text that does not decode counts as no shortcut and stays stored.
//
// "Register all", the one place that touches the actions' grabs, runs after load(),
// after every set() and whenever `suspended` is assigned: it lets go of every action
// grab and empties `inUse`; unless suspended it then grabs each action's combination
// in order, marking the action in use when the grab is refused or when the combination
// equals one of the desktop's own enabled shortcuts (which is grabbed all the same).
// While suspended, nothing is grabbed and nothing is marked.
//
// Threads: made, used and observed on the GUI thread; every property is assigned only
// when its value changes.
class HotkeyCenter : public QObject {
    Q_OBJECT
    Q_PROPERTY(lumenvale::HotkeyCenter::Combos combos READ combos NOTIFY combosChanged)
    Q_PROPERTY(lumenvale::HotkeyCenter::Actions inUse READ inUse NOTIFY inUseChanged)
    Q_PROPERTY(bool suspended READ suspended WRITE setSuspended NOTIFY suspendedChanged)
    Q_PROPERTY(bool offered READ offered CONSTANT)

  public:
    using Combos = std::map<RecAction, Combo>;
    using Actions = std::set<RecAction>;

    static constexpr std::uint32_t escapeID = 100;

    // `keys` is the desktop's seam (owned from here on); `recorder` what the actions
    // run on, which must outlive the center. Nothing is grabbed before load().
    HotkeyCenter(std::unique_ptr<GlobalKeys> keys, ScreenRecorder& recorder,
                 QObject* parent = nullptr);
    ~HotkeyCenter() override;

    // The application's center, on the session's global keys and the shared recorder;
    // created on first use and never destroyed.
    static HotkeyCenter& shared();

    // Whether the desktop lets shortcuts be held at all; where it does not, the user
    // binds the commands ("lumenvale screen", ...) in the desktop's keyboard settings.
    bool offered() const { return keys_->support() == GlobalKeys::Support::offered; }

    // Each action's shortcut; an action without one has no entry.
    const Combos& combos() const { return combos_; }
    // The actions whose combination could not be grabbed or equals a desktop shortcut.
    const Actions& inUse() const { return inUse_; }

    // Reads every action's combination from the store, then registers all.
    void load();
    // Sets (or, with nothing, clears) the action's shortcut, stores it (or removes its
    // key from the store) and registers all. Does not check that another action holds
    // the same combination: the shortcut field does, with owner().
    void set(std::optional<Combo> combo, RecAction action);
    // The action whose combination equals `combo`.
    std::optional<RecAction> owner(const Combo& combo) const;

    // True while a shortcut field records keys: then no action shortcut is grabbed, so
    // pressing one records it instead of starting a recording. Assigning registers all.
    bool suspended() const { return suspended_; }
    void setSuspended(bool suspended);

    // Lends Escape: until releaseEscape() or the next grabEscape(), pressing Escape
    // without modifiers anywhere runs `action`. The loan ignores `suspended`, and the
    // action shortcuts stay held meanwhile. A refused grab is not reported: Escape then
    // simply does not reach the caller from other applications.
    void grabEscape(std::function<void()> action);
    void releaseEscape();

    // Runs what the hotkey `id` stands for: the lent Escape's action (100), an action
    // against the recorder's phase (0 to 3), nothing for any other id.
    void fire(std::uint32_t id);
    // Types the action's shortcut on the keyboard as the user would, so that it arrives
    // the way a real press does (the self-test). False when the action has no shortcut
    // or the desktop cannot make key presses.
    bool press(RecAction action);

  signals:
    void combosChanged();
    void inUseChanged();
    void suspendedChanged();

  private:
    void registerAll();
    void run(RecAction action);
    void setInUse(Actions inUse);

    std::unique_ptr<GlobalKeys> keys_;
    ScreenRecorder& recorder_;
    Combos combos_;
    Actions inUse_;
    bool suspended_ = false;
    std::function<void()> escapeAction_;
};

} // namespace lumenvale
