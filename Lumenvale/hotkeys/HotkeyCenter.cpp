#include "hotkeys/HotkeyCenter.h"

#include "LumenvaleKit/KeyNames.h"
#include "base/Store.h"
#include "desktop/Desktop.h"
#include "recorder/RecActionRun.h"
#include "recorder/ScreenRecorder.h"

#include <QVariant>
#include <algorithm>

namespace lumenvale {

namespace {

QString settingsKey(RecAction action) {
    return QString::fromStdString(storageKey(action));
}

std::uint32_t idOf(RecAction action) {
    return static_cast<std::uint32_t>(hotkeyID(action));
}

std::optional<Combo> storedCombo(RecAction action) {
    const QVariant stored = Store::defaults().value(settingsKey(action));
    const auto type = stored.metaType().id();
    if (type != QMetaType::QString && type != QMetaType::QByteArray) {
        return std::nullopt;
    }
    const QByteArray text = stored.toByteArray();
    Result<Combo> decoded =
        decodeCombo(std::string_view(text.constData(), static_cast<std::size_t>(text.size())));
    return decoded ? std::optional<Combo>(std::move(decoded).value()) : std::nullopt;
}

} // namespace

HotkeyCenter::HotkeyCenter(std::unique_ptr<GlobalKeys> keys, ScreenRecorder& recorder,
                           QObject* parent)
    : QObject(parent), keys_(std::move(keys)), recorder_(recorder) {
    connect(keys_.get(), &GlobalKeys::pressed, this, &HotkeyCenter::fire);
}

HotkeyCenter::~HotkeyCenter() = default;

HotkeyCenter& HotkeyCenter::shared() {
    static HotkeyCenter* const center =
        new HotkeyCenter(Desktop::makeGlobalKeys(), ScreenRecorder::shared());
    return *center;
}

void HotkeyCenter::load() {
    Combos loaded;
    for (const RecAction action : allRecActions) {
        if (const std::optional<Combo> combo = storedCombo(action)) {
            loaded.emplace(action, *combo);
        }
    }
    if (loaded != combos_) {
        combos_ = std::move(loaded);
        emit combosChanged();
    }
    registerAll();
}

void HotkeyCenter::set(std::optional<Combo> combo, RecAction action) {
    const auto before = combos_.find(action);
    const bool changed =
        combo ? before == combos_.end() || before->second != *combo : before != combos_.end();
    if (combo) {
        combos_[action] = *combo;
        Store::defaults().setValue(settingsKey(action), QString::fromStdString(encode(*combo)));
    } else {
        combos_.erase(action);
        Store::defaults().remove(settingsKey(action));
    }
    Store::sync();
    if (changed) {
        emit combosChanged();
    }
    registerAll();
}

std::optional<RecAction> HotkeyCenter::owner(const Combo& combo) const {
    for (const auto& [action, held] : combos_) {
        if (held == combo) {
            return action;
        }
    }
    return std::nullopt;
}

void HotkeyCenter::setSuspended(bool suspended) {
    const bool changed = suspended != suspended_;
    suspended_ = suspended;
    registerAll();
    if (changed) {
        emit suspendedChanged();
    }
}

void HotkeyCenter::registerAll() {
    for (const RecAction action : allRecActions) {
        keys_->release(idOf(action));
    }
    if (suspended_) {
        setInUse({});
        return;
    }
    const std::vector<Combo> system =
        combos_.empty() ? std::vector<Combo>{} : keys_->systemShortcuts();
    Actions inUse;
    for (const auto& [action, combo] : combos_) {
        const bool grabbed = keys_->grab(idOf(action), combo) == GlobalKeys::Grab::ok;
        const bool desktops = std::find(system.begin(), system.end(), combo) != system.end();
        if (!grabbed || desktops) {
            inUse.insert(action);
        }
    }
    setInUse(std::move(inUse));
}

void HotkeyCenter::setInUse(Actions inUse) {
    if (inUse != inUse_) {
        inUse_ = std::move(inUse);
        emit inUseChanged();
    }
}

void HotkeyCenter::grabEscape(std::function<void()> action) {
    keys_->release(escapeID);
    escapeAction_ = std::move(action);
    keys_->grab(escapeID, Combo{KeyNames::escape, Mods()});
}

void HotkeyCenter::releaseEscape() {
    keys_->release(escapeID);
    escapeAction_ = nullptr;
}

bool HotkeyCenter::press(RecAction action) {
    const auto found = combos_.find(action);
    return found != combos_.end() && keys_->press(found->second);
}

void HotkeyCenter::fire(std::uint32_t id) {
    if (id == escapeID) {
        if (escapeAction_) {
            const std::function<void()> action = escapeAction_; // it may end the loan
            action();
        }
        return;
    }
    if (const std::optional<RecAction> action = recActionFromHotkeyID(id)) {
        run(*action);
    }
}

void HotkeyCenter::run(RecAction action) {
    runAction(action, recorder_);
}

} // namespace lumenvale
