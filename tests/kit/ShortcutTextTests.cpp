#include "LumenvaleKit/ShortcutText.h"

#include <gtest/gtest.h>

namespace lumenvale {
namespace {

using ShortcutText::Binding;

constexpr std::int64_t ctrl = Mods::control, alt = Mods::option, shift = Mods::shift,
                       super = Mods::command;

TEST(ShortcutText, GnomeAccelerators) {
    const struct {
        const char* text;
        std::optional<Binding> binding;
    } cases[] = {
        {"<Super>l", Binding{Mods(super), "l"}},
        {"<Primary><Shift>Page_Up", Binding{Mods(ctrl | shift), "Page_Up"}},
        {"<control><ALT>Delete", Binding{Mods(ctrl | alt), "Delete"}},
        {"<Mod4><Mod1>F4", Binding{Mods(super | alt), "F4"}},
        {"<Super>Above_Tab", Binding{Mods(super), "grave"}},
        {"Print", Binding{Mods(), "Print"}},
        {"<Hyper>a", std::nullopt},
        {"<Meta>a", std::nullopt},
        {"<Super>", std::nullopt},
        {"<Super", std::nullopt},
        {"<Bogus>a", std::nullopt},
        {"disabled", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ShortcutText::fromGnome(c.text), c.binding) << c.text;
    }
}

TEST(ShortcutText, GsettingsListingKeepsEveryAcceleratorOfStringValues) {
    const char* listing =
        "org.gnome.desktop.wm.keybindings close ['<Alt>F4']\n"
        "org.gnome.desktop.wm.keybindings lower @as []\n"
        "org.gnome.desktop.wm.keybindings switch-applications ['<Super>Tab', '<Alt>Tab']\n"
        "org.gnome.desktop.wm.keybindings minimize ['disabled']\n"
        "org.gnome.settings-daemon.plugins.media-keys screensaver '<Super>l'\r\n"
        "org.gnome.settings-daemon.plugins.media-keys volume-step 6\n"
        "org.gnome.settings-daemon.plugins.media-keys help \"<Super>question\"\n"
        "garbage line\n"
        "org.gnome.x y ['<Super>unterminated";
    EXPECT_EQ(ShortcutText::fromGsettingsListing(listing),
              (std::vector<Binding>{{Mods(alt), "F4"},
                                    {Mods(super), "Tab"},
                                    {Mods(alt), "Tab"},
                                    {Mods(super), "l"},
                                    {Mods(super), "question"}}));
}

TEST(ShortcutText, KdeSequences) {
    const struct {
        const char* text;
        std::optional<Binding> binding;
    } cases[] = {
        {"Meta+L", Binding{Mods(super), "l"}},
        {"Ctrl+Alt+Del", Binding{Mods(ctrl | alt), "Delete"}},
        {"Meta+Shift+PgUp", Binding{Mods(super | shift), "Prior"}},
        {"Alt+F4", Binding{Mods(alt), "F4"}},
        {"Ctrl++", Binding{Mods(ctrl), "+"}},
        {"Meta+,", Binding{Mods(super), ","}},
        {"Volume Up", Binding{Mods(), "XF86AudioRaiseVolume"}},
        {"Print", Binding{Mods(), "Print"}},
        {"Num+5", std::nullopt},
        {"Ctrl+K, Ctrl+C", std::nullopt},
        {"Ctrl+Alt+", std::nullopt},
        {"none", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ShortcutText::fromKde(c.text), c.binding) << c.text;
    }
}

TEST(ShortcutText, KdeGlobalShortcutsFileKeepsTheActiveShortcuts) {
    const char* file = "[ksmserver]\n"
                       "_k_friendly_name=Session Management\n"
                       "Lock Session=Meta+L\\tScreensaver,Meta+L\\tScreensaver,Lock Session\n"
                       "Log Out=Ctrl+Alt+Del,none,Log Out\n"
                       "\n"
                       "# a comment\n"
                       "[kwin]\n"
                       "Window Close=none,Alt+F4,Close Window\n"
                       "Zoom Out=Meta+,,Meta+-,Zoom Out\n"
                       "Walk Through Windows=Alt+Tab\tMeta+Tab,Alt+Tab,Walk Through Windows\n";
    EXPECT_EQ(ShortcutText::fromKdeGlobalShortcuts(file),
              (std::vector<Binding>{{Mods(super), "l"},
                                    {Mods(), "XF86ScreenSaver"},
                                    {Mods(ctrl | alt), "Delete"},
                                    {Mods(super), ","},
                                    {Mods(alt), "Tab"},
                                    {Mods(super), "Tab"}}));
}

} // namespace
} // namespace lumenvale
