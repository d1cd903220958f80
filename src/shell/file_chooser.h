#pragma once

#include <QString>
#include <QStringList>

class QWidget;

namespace tavo {

// What one open or save dialog asks.
struct FileRequest
{
    QString caption;       // also the dialog's message: "Choose an Tavo shortcut or collection package (.zip)."
    QString nameFilter;    // "Zip archives (*.zip)"
    QString suffix;        // "zip": added to a chosen save name without it
    QString suggestedName; // a save dialog's proposed file name
};

// The file dialogs behind one small interface, so widget tests answer them without a window.
// Dialogs start on the Desktop, then where the user last chose a file.
class FileChooser
{
public:
    virtual ~FileChooser() = default;

    // Empty when the user cancels.
    virtual QString openFile(QWidget* parent, const FileRequest& request) = 0;
    virtual QStringList openFiles(QWidget* parent, const FileRequest& request) = 0;
    virtual QString saveFile(QWidget* parent, const FileRequest& request) = 0;

    // The one chooser every screen uses; tests put their own in place (null restores dialogs).
    static FileChooser& instance();
    static void setInstance(FileChooser* chooser);
};

// `path` with ".<suffix>" added unless it already ends so (in any case).
QString withSuffix(const QString& path, const QString& suffix);

} // namespace tavo
