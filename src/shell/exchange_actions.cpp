#include "shell/exchange_actions.h"

#include "exchange/csv.h"
#include "exchange/profile_backup.h"
#include "exchange/shortcut_share.h"
#include "shell/file_chooser.h"
#include "shell/share_menu.h"
#include "store/accounts.h"
#include "store/profile_store.h"
#include "store/scorecard.h"

#include <QFileInfo>
#include <QFutureWatcher>
#include <QWidget>
#include <QtConcurrent>

namespace tavo {

namespace {

const QString zipFilter = QStringLiteral("Zip archives (*.zip)");

// Runs `work` on the pool and hands its value to `done` on `context`'s thread; nothing is
// called when `context` is gone by then.
template<typename Work, typename Done>
void runInBackground(QObject* context, Work work, Done done)
{
    using Value = decltype(work());
    auto* watcher = new QFutureWatcher<Value>(context);
    QObject::connect(watcher, &QFutureWatcher<Value>::finished, context, [watcher, done = std::move(done)] {
        watcher->deleteLater();
        done(watcher->result());
    });
    watcher->setFuture(QtConcurrent::run(std::move(work)));
}

} // namespace

ExchangeActions::ExchangeActions(DB& db, TavoAccountStore& accounts, QWidget* window)
    : QObject(window)
    , m_db(db)
    , m_accounts(accounts)
    , m_window(window)
{
}

bool ExchangeActions::begin(const QString& status)
{
    if (m_busy) {
        return false;
    }
    m_busy = true;
    emit busyChanged(true);
    emit notice(status);
    return true;
}

void ExchangeActions::end()
{
    m_busy = false;
    emit busyChanged(false);
}

void ExchangeActions::importSharedShortcut()
{
    if (m_busy) {
        return;
    }
    const QString file = FileChooser::instance().openFile(m_window, {ShareText::chooseCaption, zipFilter, {}, {}});
    if (file.isEmpty() || !begin(ShareText::importing)) {
        return;
    }
    const QString attachments = m_db.attachmentsDir();
    runInBackground(
        this, [file, attachments] { return TavoShortcutShare::importBundle(file, attachments); },
        [this](const Result<QList<Clip>>& imported) {
            if (!imported) {
                end();
                emit warning(ShareText::importFailed(imported.error().description));
                return;
            }
            // Busy until the library holds the package, so a second import waits for this one.
            const qsizetype count = imported->size();
            addImportedClips(m_db, imported.value(), this, [this, count](const std::optional<TavoError>& failed) {
                end();
                if (failed) {
                    emit warning(ShareText::importFailed(failed->description));
                    return;
                }
                emit notice(ShareText::imported(count));
            });
        });
}

void ExchangeActions::shareShortcuts(const QString& title, const QList<Clip>& clips, QWidget* anchor)
{
    if (clips.isEmpty()) {
        emit warning(ShareText::selectAtLeastOne);
        return;
    }
    if (!begin(ShareText::preparing(clips.size()))) {
        return;
    }
    QPointer<QWidget> at = anchor ? anchor : m_window.data();
    const qsizetype count = clips.size();
    runInBackground(
        this, [clips, title] { return TavoShortcutShare::makeArchive(clips, title); },
        [this, at, count](const Result<QString>& archive) {
            end();
            if (!archive) {
                emit warning(ShareText::prepareFailed(archive.error().description));
                return;
            }
            recordMetric(m_db.defaults(), m_accounts.currentUsername(), Metric::sharePackages, count);
            emit notice(ShareText::ready);
            auto* menu = new ShareMenu(*archive, m_window);
            menu->setAttribute(Qt::WA_DeleteOnClose);
            connect(menu, &ShareMenu::done, this, &ExchangeActions::notice);
            emit packageReady(*archive);
            const QWidget* place = at ? at.data() : m_window.data();
            menu->popup(place ? place->mapToGlobal(place->rect().center()) : QCursor::pos());
        });
}

void ExchangeActions::shareCollection(const QString& name, QWidget* anchor)
{
    if (name == ShareText::allCollections) {
        shareShortcuts(ShareText::allShortcutsTitle, m_db.clips(), anchor);
        return;
    }
    QList<Clip> members;
    for (const Clip& clip : m_db.clips()) {
        if (clip.allGroups().contains(name, Qt::CaseInsensitive)) {
            members << clip;
        }
    }
    shareShortcuts(name, members, anchor);
}

void ExchangeActions::exportProfileBackup()
{
    if (m_busy) {
        return;
    }
    const QString target = FileChooser::instance().saveFile(
        m_window, {QStringLiteral("Back up your profile"), zipFilter, QStringLiteral("zip"), suggestedBackupName()});
    if (target.isEmpty() || !begin(creatingBackupStatus)) {
        return;
    }
    makeProfileBackupInBackground(m_db, target, [this](const Result<QString>& status) {
        end();
        if (status) {
            emit notice(*status);
        } else {
            emit warning(status.error().description);
        }
    });
}

void ExchangeActions::importProfileBackup()
{
    if (m_busy) {
        return;
    }
    const QString archive = FileChooser::instance().openFile(
        m_window, {QStringLiteral("Choose a Tavo backup (.zip)."), zipFilter, QStringLiteral("zip"), {}});
    if (archive.isEmpty() || !begin(QStringLiteral("Restoring your backup…"))) {
        return;
    }
    restoreProfileBackupInBackground(m_db, archive, [this](const Result<QString>& status) {
        end();
        if (status) {
            emit notice(*status);
        } else {
            emit warning(status.error().description);
        }
    });
}

void ExchangeActions::exportCSV()
{
    if (m_busy) {
        return;
    }
    const QString target = FileChooser::instance().saveFile(
        m_window, {QStringLiteral("Export shortcuts as CSV"), QStringLiteral("CSV files (*.csv)"),
                   QStringLiteral("csv"), QStringLiteral("Tavo-Shortcuts.csv")});
    if (target.isEmpty() || !begin(QStringLiteral("Exporting shortcuts…"))) {
        return;
    }
    const QList<Clip> clips = m_db.clips();
    runInBackground(
        this, [clips, target] { return tavo::exportCSV(clips, target); },
        [this](const Result<QString>& status) {
            end();
            if (status) {
                emit notice(*status);
            } else {
                emit warning(status.error().description);
            }
        });
}

} // namespace tavo
