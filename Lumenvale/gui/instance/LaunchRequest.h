#pragma once

#include "LumenvaleKit/Shortcuts.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <variant>

namespace lumenvale {

// What one launch of `lumenvale` without a command-line tool asks of the application.
// The running application does it; a later launch hands its request to the running
// one (AppInstance) and ends.

// `lumenvale`: bring the application up. A running one already is: nothing new shows.
struct ActivateRequest {
    friend bool operator==(const ActivateRequest&, const ActivateRequest&) = default;
};

// `lumenvale screen|area|window|stop`: run the action as its shortcut would
// (runAction), for desktops without global shortcuts, whose users bind the command.
struct ActionRequest {
    RecAction action = RecAction::screen;
    friend bool operator==(const ActionRequest&, const ActionRequest&) = default;
};

// `lumenvale FILE...`: open each movie in the editor. Always absolute file URLs.
struct OpenRequest {
    QList<QUrl> files;
    friend bool operator==(const OpenRequest&, const OpenRequest&) = default;
};

using LaunchRequest = std::variant<ActivateRequest, ActionRequest, OpenRequest>;

// The request in the words after "lumenvale" (no command-line tool among them), or a
// sentence saying why they are none:
//   nothing                        activate
//   one of screen, area, window, stop, alone
//                                  that action
//   FILE...                        open them; relative paths are resolved against
//                                  `workingFolder`, "file:" URLs are taken as they are
// A first word is a FILE when it is a "file:" URL, holds a '/' or a '.', or names
// something in `workingFolder`; every word after a FILE is a FILE too. Anything else
// (a bare word, an option) is refused, so a mistyped command does not open the editor.
std::variant<LaunchRequest, QString> parseLaunch(const QStringList& words,
                                                 const QString& workingFolder);

} // namespace lumenvale
