#pragma once

#include "language/shortcut_record.h"
#include "store/collections.h"

#include <QHash>
#include <QObject>

#include <vector>

namespace tavo {

class DB;
class Defaults;

// The search behind the floating picker. Results come in scan order (shortcuts, then records),
// a page of five at a time: the scan tests five items a step and gives the event loop a turn
// between steps, so typing never waits on a large library. A newer search stops an older scan
// through `generation`, and an older scan never writes after a newer one began.
class PickerSearch : public QObject
{
    Q_OBJECT

public:
    static constexpr int pageSize = 5;
    static constexpr int stepSize = 5;

    explicit PickerSearch(Defaults* defaults = nullptr, QObject* parent = nullptr);

    QString value;
    QString category;   // "All categories": none
    QString collection; // "All collections": none
    bool showHiddenOnly = false;

    bool showHiddenCollections() const { return m_showHiddenCollections; }
    // Also remembered for the next start.
    void setShowHiddenCollections(bool show);

    const QList<Clip>& results() const { return m_results; }
    bool isLoading() const { return m_loading; }
    bool isExhausted() const { return m_exhausted; }

    // A new search for the current query and filters over what `db` holds now.
    void restart(const DB& db);
    // About one more page of results; the view asks when its last row comes into sight.
    void loadMore(const DB& db);
    bool matches(const Clip& clip) const;

signals:
    void resultsChanged();
    void stateChanged(); // loading or exhausted

private:
    void step(quint64 generation, qsizetype target);
    std::optional<Clip> itemAt(qsizetype position);
    bool passesFilters(const Clip& item);
    void setState(bool loading, bool exhausted);

    Defaults* m_defaults;
    bool m_showHiddenCollections = false;
    QList<Clip> m_clips; // what the scan walks: the store's lists when the search began
    QList<CollectionRecord> m_records;
    QStringList m_hidden;
    QList<CollectionDefinition> m_definitions;
    QList<Clip> m_results;
    bool m_loading = false;
    bool m_exhausted = false;
    qsizetype m_scanIndex = 0;
    quint64 m_generation = 0;

    std::optional<CategoryTest> m_categoryTest; // one per search: it learns each collection once
    // Shortcut keys by lower case, for a record to find its twin shortcut: filled as the scan
    // passes the shortcuts, which all come before the first record.
    std::vector<QMultiHash<QString, qsizetype>> m_clipsByKey;
    qsizetype m_indexedUpTo = 0;
};

// The key a batch query compares: lower case, without one leading slash or backslash and one
// trailing file-type suffix.
QString pickerShortKey(const QString& key);

} // namespace tavo
