#pragma once

#include <QMenu>

class QMimeData;

namespace tavo {

// What can be done with a file Tavo just made (a shortcut package): open its folder, put the
// file on the clipboard for a file manager or chat, attach it to an email, or keep a copy
// somewhere. Each action says how it went through `done`.
class ShareMenu : public QMenu
{
    Q_OBJECT

public:
    ShareMenu(const QString& file, QWidget* parent = nullptr);

    // The clipboard form of a file: a URI list, and GNOME's form so file managers paste it.
    static QMimeData* fileMimeData(const QString& file);

signals:
    void done(const QString& notice);

private:
    void saveCopy();

    QString m_file;
};

} // namespace tavo
