#pragma once

#include "language/shortcut_record.h"

#include <QFutureWatcher>
#include <QTimer>
#include <QWidget>

#include <functional>
#include <memory>
#include <optional>

class QAction;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QMenu;
class QPushButton;
class QStackedWidget;
class QTableView;

namespace tavo {

class DB;
class EmptyState;
class ShortcutTableModel;

// The shortcut list of a section ("My shortcuts", "Live & dynamic", ...): searched, filtered and
// sorted off the main thread, shown 50 to a page, with selection, deletion and the way into the
// editor.
class ShortcutListPage : public QWidget
{
    Q_OBJECT

public:
    static constexpr int pageSize = 50;
    // A search runs in the event-loop turn after the keystroke: keys that arrive together make
    // one search, and keys typed while a search is running make one more, with the newest text,
    // since a run waits for the one in flight and only the newest waiting run starts.
    static constexpr int searchDelayMs = 0;

    explicit ShortcutListPage(DB& db, QWidget* parent = nullptr);

    void setSection(const QString& section);
    QString section() const { return m_section; }

    // Runs the filter again for the section and the chosen collection; a run that a newer one
    // overtook is dropped.
    void refreshVisibleClips();
    bool isFiltering() const { return m_filtering; }
    // Forgets what is shown, and any run on its way: nothing of a signed-out account stays.
    void clear();

    QString query() const;
    void setQuery(const QString& query);
    // Ctrl+F: the cursor goes into the search field, its text selected.
    void focusSearch();

    // Orders the whole list by a ShortcutTableModel column (key, name or collection); -1 keeps
    // the library's order. The order holds across refreshes until changed.
    void sortBy(int column, Qt::SortOrder order);
    int sortColumn() const { return m_sortColumn; }
    Qt::SortOrder sortOrder() const { return m_sortOrder; }

    // The whole filtered list, in its order; copies, so for tests and small lists.
    QList<Clip> visibleClips() const;
    qsizetype visibleCount() const { return m_positions.size(); }
    // How many shortcuts the section lists without the search.
    qsizetype totalCount() const { return m_total; }
    QList<Clip> pagedClips() const;
    int currentPage() const { return m_page; }
    int pageCount() const;
    void setCurrentPage(int page);

    // Asks, then deletes; the texts are the confirmations of the list.
    void deleteSelected();
    // Asks about `clips` (one: by its key), then deletes them; the picker's rows come here too.
    void confirmAndDelete(const QList<Clip>& clips);
    // Moves the selection to chosen collections, or adds them, through a small sheet.
    void moveSelected();
    // One rename rule over the selection, checked against the whole library first.
    void renameSelected();
    QList<Clip> selectedClips() const;
    // The shortcut the keyboard or the context menu acts on: the current row when selected.
    std::optional<Clip> currentClip() const;
    void editCurrent();
    // Puts the current shortcut's text on the clipboard.
    void copyCurrentText();

    // The collection a new shortcut made from this list's empty state goes into.
    QString newShortcutGroup() const;

    // For tests only: called on the worker with the run's query before each filter run, so a test
    // can hold one run back while a newer one overtakes it.
    static void setWorkerHookForTesting(std::function<void(const QString& query)> hook);

signals:
    void editRequested(const Clip& clip);
    void noticeRequested(const QString& text);
    // The selected shortcuts, to be shared as a package.
    void shareRequested(const QList<Clip>& clips);
    // The empty state's "New shortcut": the window opens the editor with `group` preset.
    void newShortcutRequested(const QString& group);
    void filtered(); // a run's result is on screen

protected:
    void changeEvent(QEvent* event) override;

private:
    // The whole library in the chosen order, made once and kept while the library and the order
    // stay: a search then only picks its matches out of it, instead of sorting them again.
    struct SortedLibrary
    {
        QList<Clip> source; // held, so the positions keep their meaning
        int column = -1;
        Qt::SortOrder order = Qt::AscendingOrder;
        QList<qsizetype> positions;

        bool fits(const QList<Clip>& clips, int sortColumn, Qt::SortOrder sortOrder) const
        {
            return source.constData() == clips.constData() && source.size() == clips.size() && column == sortColumn &&
                   order == sortOrder;
        }
    };

    struct FilterRun
    {
        quint64 generation = 0;
        QString query;
        QList<Clip> source; // the library the positions point into
        QList<qsizetype> positions;
        qsizetype total = -1; // not counted when only the query changed
        std::shared_ptr<const SortedLibrary> sorted;
    };

    void runFilter();
    static std::shared_ptr<const SortedLibrary> sortedLibrary(const QList<Clip>& clips, int column,
                                                              Qt::SortOrder order);
    void takeResult();
    void showPage();
    void showCounts();
    void updateEmptyState();
    void updateActions();
    void applyLook();
    void applyPalette();
    void showContextMenu(const QPoint& position);
    void deleteClips(const QSet<QUuid>& ids);

    DB& m_db;
    QString m_section = QStringLiteral("My shortcuts");
    // The shown list as positions in the library it was filtered from: a hundred thousand
    // positions are made and freed in no time, a hundred thousand copies of clips are not.
    QList<Clip> m_source;
    QList<qsizetype> m_positions;
    QString m_shownQuery; // the search the shown list answers
    std::shared_ptr<const SortedLibrary> m_sorted;
    qsizetype m_total = 0;
    // Set by a change other than the query: the next run counts the section's total again.
    bool m_totalStale = true;
    bool m_hasResult = false;
    int m_page = 0;
    int m_sortColumn = -1;
    Qt::SortOrder m_sortOrder = Qt::AscendingOrder;
    quint64 m_generation = 0;
    bool m_filtering = false;
    QFutureWatcher<FilterRun> m_watcher;
    QTimer m_searchTimer;

    QLineEdit* m_search;
    QComboBox* m_collection;
    QComboBox* m_category;
    QCheckBox* m_showHidden;
    QLabel* m_count;
    QTableView* m_view;
    ShortcutTableModel* m_model;
    EmptyState* m_noMatch;
    EmptyState* m_emptySection;
    QStackedWidget* m_stack;
    QPushButton* m_previous;
    QPushButton* m_next;
    QLabel* m_pageLabel;
    QPushButton* m_deleteSelected;
    QPushButton* m_moveSelected;
    QPushButton* m_renameSelected;
    QMenu* m_menu;
    QAction* m_editAction;
    QAction* m_copyAction;
    QAction* m_moveAction;
    QAction* m_deleteAction;
};

} // namespace tavo
