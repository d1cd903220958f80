#pragma once

#include "language/shortcut_record.h"

#include <QObject>
#include <QPointer>

class QWidget;

namespace tavo {

class DB;
class TavoAccountStore;

// The window's ways of carrying shortcuts in and out: packages, backups and CSV files. Archive
// and file work runs on the thread pool; the library is changed once, on the main thread, when
// the work is done. Each action reports through `notice` with the texts the user reads.
class ExchangeActions : public QObject
{
    Q_OBJECT

public:
    ExchangeActions(DB& db, TavoAccountStore& accounts, QWidget* window);

    void importSharedShortcut();
    // Packages `clips` under `title` and offers the share menu at `anchor` (the window when null).
    void shareShortcuts(const QString& title, const QList<Clip>& clips, QWidget* anchor = nullptr);
    // A collection's shortcuts under its name; "All collections" shares every shortcut.
    void shareCollection(const QString& name, QWidget* anchor = nullptr);
    void exportProfileBackup();
    void importProfileBackup();
    void exportCSV();

    // Whether an archive is being made or read: the actions that start one wait.
    bool isBusy() const { return m_busy; }

signals:
    void notice(const QString& text);
    void warning(const QString& text);
    void busyChanged(bool busy);
    // A package is ready: the share menu is open for it (tests pick an action from it).
    void packageReady(const QString& file);

private:
    bool begin(const QString& status);
    void end();

    DB& m_db;
    TavoAccountStore& m_accounts;
    QPointer<QWidget> m_window;
    bool m_busy = false;
};

} // namespace tavo
