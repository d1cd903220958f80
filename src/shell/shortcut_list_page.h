#pragma once

#include "language/shortcut_record.h"

#include <QFutureWatcher>
#include <QWidget>

class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;
class QTableWidget;

namespace tavo {

class DB;

// The shortcut list of a section ("My shortcuts", "Live & dynamic", ...): filtered off the main
// thread, shown 50 to a page, with selection, deletion and the way into the editor.
class ShortcutListPage : public QWidget
{
    Q_OBJECT

public:
    static constexpr int pageSize = 50;

    explicit ShortcutListPage(DB& db, QWidget* parent = nullptr);

    void setSection(const QString& section);
    QString section() const { return m_section; }

    // Runs the filter again for the section and the chosen collection; a run that a newer one
    // overtook is dropped.
    void refreshVisibleClips();
    bool isFiltering() const { return m_filtering; }
    // Forgets what is shown, and any run on its way: nothing of a signed-out account stays.
    void clear();

    const QList<Clip>& visibleClips() const { return m_cache; }
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

signals:
    void editRequested(const Clip& clip);
    void noticeRequested(const QString& text);
    void filtered(); // a run's result is on screen

private:
    void showPage();
    void deleteClips(const QSet<QUuid>& ids);

    DB& m_db;
    QString m_section = QStringLiteral("My shortcuts");
    QList<Clip> m_cache;
    int m_page = 0;
    quint64 m_generation = 0;
    bool m_filtering = false;
    QFutureWatcher<std::pair<quint64, QList<Clip>>> m_watcher;

    QLabel* m_title;
    QComboBox* m_collection;
    QComboBox* m_category;
    QCheckBox* m_showHidden;
    QTableWidget* m_table;
    QPushButton* m_previous;
    QPushButton* m_next;
    QLabel* m_pageLabel;
    QPushButton* m_deleteSelected;
    QPushButton* m_moveSelected;
    QPushButton* m_renameSelected;
};

} // namespace tavo
