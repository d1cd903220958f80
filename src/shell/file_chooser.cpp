#include "shell/file_chooser.h"

#include "platform/user_folders.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>

namespace tavo {

namespace {

class DialogChooser final : public FileChooser
{
public:
    QString openFile(QWidget* parent, const FileRequest& request) override
    {
        return remember(QFileDialog::getOpenFileName(parent, request.caption, startFolder(), request.nameFilter));
    }

    QStringList openFiles(QWidget* parent, const FileRequest& request) override
    {
        const QStringList files =
            QFileDialog::getOpenFileNames(parent, request.caption, startFolder(), request.nameFilter);
        if (!files.isEmpty()) {
            remember(files.first());
        }
        return files;
    }

    QString saveFile(QWidget* parent, const FileRequest& request) override
    {
        const QString proposed = QDir(startFolder()).filePath(request.suggestedName);
        const QString chosen = QFileDialog::getSaveFileName(parent, request.caption, proposed, request.nameFilter);
        return chosen.isEmpty() ? QString() : remember(withSuffix(chosen, request.suffix));
    }

private:
    QString startFolder() const { return m_lastFolder.isEmpty() ? desktopFolder() : m_lastFolder; }

    QString remember(const QString& chosen)
    {
        if (!chosen.isEmpty()) {
            m_lastFolder = QFileInfo(chosen).absolutePath();
        }
        return chosen;
    }

    QString m_lastFolder;
};

FileChooser* g_chooser = nullptr;

} // namespace

FileChooser& FileChooser::instance()
{
    static DialogChooser dialogs;
    return g_chooser ? *g_chooser : dialogs;
}

void FileChooser::setInstance(FileChooser* chooser)
{
    g_chooser = chooser;
}

QString withSuffix(const QString& path, const QString& suffix)
{
    if (path.isEmpty() || suffix.isEmpty() || path.endsWith(QLatin1Char('.') + suffix, Qt::CaseInsensitive)) {
        return path;
    }
    return path + QLatin1Char('.') + suffix;
}

} // namespace tavo
