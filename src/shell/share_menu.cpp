#include "shell/share_menu.h"

#include "shell/file_chooser.h"
#include "shell/ui/design.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QMimeData>
#include <QProcess>
#include <QUrl>

namespace tavo {

ShareMenu::ShareMenu(const QString& file, QWidget* parent)
    : QMenu(parent)
    , m_file(file)
{
    setObjectName(QStringLiteral("shareMenu"));
    design::name(this, QStringLiteral("Share package"));
    addAction(design::icon(QStringLiteral("folder-open")), QStringLiteral("Open containing folder"), this, [this] {
        if (!QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(m_file).absolutePath()))) {
            emit done(QStringLiteral("Could not open the folder."));
        }
    });
    addAction(design::icon(QStringLiteral("edit-copy")), QStringLiteral("Copy file"), this, [this] {
        QGuiApplication::clipboard()->setMimeData(fileMimeData(m_file));
        emit done(QStringLiteral("Copied %1.").arg(QFileInfo(m_file).fileName()));
    });
    addAction(design::icon(QStringLiteral("mail-message-new")), QStringLiteral("Send by email…"), this, [this] {
        if (!QProcess::startDetached(QStringLiteral("xdg-email"), {QStringLiteral("--attach"), m_file})) {
            emit done(QStringLiteral("Could not open an email program."));
        }
    });
    addAction(design::icon(QStringLiteral("document-save-as")), QStringLiteral("Save a copy…"), this,
              &ShareMenu::saveCopy);
}

QMimeData* ShareMenu::fileMimeData(const QString& file)
{
    auto* data = new QMimeData;
    const QUrl url = QUrl::fromLocalFile(QFileInfo(file).absoluteFilePath());
    data->setUrls({url});
    data->setData(QStringLiteral("x-special/gnome-copied-files"), "copy\n" + url.toEncoded());
    return data;
}

void ShareMenu::saveCopy()
{
    const QString name = QFileInfo(m_file).fileName();
    const QString target = FileChooser::instance().saveFile(
        parentWidget(), {QStringLiteral("Save a copy of the package"), QStringLiteral("Zip archives (*.zip)"),
                         QStringLiteral("zip"), name});
    if (target.isEmpty()) {
        return;
    }
    // A copy over an existing file: the dialog asked, so the old one goes first.
    QFile::remove(target);
    emit done(QFile::copy(m_file, target) ? QStringLiteral("Saved a copy to %1").arg(QFileInfo(target).fileName())
                                          : QStringLiteral("Could not save a copy to %1").arg(target));
}

} // namespace tavo
