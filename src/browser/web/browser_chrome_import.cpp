#include "browser/web/browser_chrome_import.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QLabel>
#include <QStandardPaths>

namespace tavo {

QString chromeImportFolder()
{
    // Chrome and Chromium keep their profiles in the user's configuration folder.
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    for (const QString& name : {QStringLiteral("google-chrome"), QStringLiteral("chromium")}) {
        const QString folder = config + u'/' + name;
        if (QFileInfo(folder).isDir()) {
            return folder;
        }
    }
    return QDir::homePath();
}

QString chooseBookmarkFileInDialog(QWidget* parent, const QString& folder)
{
    QFileDialog dialog(parent, QStringLiteral("Import Google Chrome bookmarks"), folder,
                       QStringLiteral("Bookmarks (*.html *.htm *.json Bookmarks);;All files (*)"));
    dialog.setFileMode(QFileDialog::ExistingFile);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    // Qt's own dialog has room for a line on what to choose; a desktop's dialog shows the title only.
    if (auto* grid = qobject_cast<QGridLayout*>(dialog.layout())) {
        auto* message = new QLabel(
            QStringLiteral("Choose Chrome\u2019s exported bookmarks HTML, or a Chrome profile\u2019s Bookmarks file."),
            &dialog);
        message->setWordWrap(true);
        grid->addWidget(message, grid->rowCount(), 0, 1, grid->columnCount());
    }
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) {
        return QString();
    }
    return dialog.selectedFiles().constFirst();
}

} // namespace tavo
