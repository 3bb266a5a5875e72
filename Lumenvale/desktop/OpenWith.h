#pragma once

#include <QString>
#include <QStringList>
#include <vector>

// The applications the desktop lists for a kind of file (their XDG desktop entries'
// MimeType), for an "Open With" menu where no portal offers the desktop's own chooser.
//
// Threads: any; each call reads the entries afresh.
namespace lumenvale::OpenWith {

struct Application {
    QString name;     // as the entry names it for menus
    QStringList exec; // the entry's command line, field codes still in it
};

// The applications for `mimeType` (e.g. "video/mp4") from the applications folders of
// XDG_DATA_HOME and XDG_DATA_DIRS, sorted by name; an entry in an earlier folder hides
// one with the same file name in a later one; hidden and NoDisplay entries are left out.
std::vector<Application> applicationsFor(const QString& mimeType);

// Starts `application` on `file` (detached); false when it could not be started.
bool open(const Application& application, const QString& file);

} // namespace lumenvale::OpenWith
