#pragma once

#include <QString>

#include <functional>

class QWidget;

namespace tavo {

// Where the bookmark import's file dialog opens: Google Chrome's settings folder when there is
// one, else Chromium's, else the home folder.
QString chromeImportFolder();

// Asks for the bookmark file to import, starting in `folder`; empty when the user cancels.
using ChooseBookmarkFile = std::function<QString(QWidget* parent, const QString& folder)>;

// The desktop's file dialog for it, titled "Import Google Chrome bookmarks".
QString chooseBookmarkFileInDialog(QWidget* parent, const QString& folder);

} // namespace tavo
