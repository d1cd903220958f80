#include "picker/picker_search.h"

#include "language/math_expression.h"
#include "language/triggers.h"
#include "store/collections.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QTimer>

namespace tavo {

namespace {

const QString showHiddenKey = QStringLiteral("tavoPickerShowHiddenCollections");
constexpr qsizetype keyChunkSize = 4096;

} // namespace

QString pickerShortKey(const QString& key)
{
    QString shortKey = key.toLower();
    if (shortKey.startsWith(u'/') || shortKey.startsWith(u'\\')) {
        shortKey.remove(0, 1);
    }
    for (const QLatin1StringView suffix :
         {QLatin1StringView(".media"), QLatin1StringView(".app"), QLatin1StringView(".ai"), QLatin1StringView(".web"),
          QLatin1StringView(".gif"), QLatin1StringView(".e")}) {
        if (shortKey.endsWith(suffix)) {
            shortKey.chop(suffix.size());
            break;
        }
    }
    return shortKey;
}

PickerSearch::PickerSearch(Defaults* defaults, QObject* parent)
    : QObject(parent)
    , category(allCategoriesName)
    , collection(allCollectionsName)
    , m_defaults(defaults)
    , m_showHiddenCollections(defaults && defaults->flag(showHiddenKey))
{
}

void PickerSearch::setShowHiddenCollections(bool show)
{
    m_showHiddenCollections = show;
    if (m_defaults) {
        m_defaults->setBoolean(showHiddenKey, show);
    }
}

void PickerSearch::setState(bool loading, bool exhausted)
{
    if (loading != m_loading || exhausted != m_exhausted) {
        m_loading = loading;
        m_exhausted = exhausted;
        emit stateChanged();
    }
}

void PickerSearch::restart(const DB& db)
{
    ++m_generation; // a scan on its way sees this and stops
    // The scan walks a copy (the lists are shared, so it costs nothing): positions stay valid
    // whatever the store does meanwhile. A change of the store starts a new search.
    m_clips = db.clips();
    m_records = db.collectionRecords();
    m_hidden = db.hiddenCollections();
    m_definitions = db.collectionDefinitions();
    m_results.clear();
    m_categoryTest.reset();
    m_clipsByKey.clear();
    m_indexedUpTo = 0;
    m_scanIndex = 0;
    setState(false, false);
    if (MathExpression::looksLikeExpression(value)) {
        emit resultsChanged(); // the old rows go before the answer comes
        if (const std::optional<double> number = MathExpression::evaluate(value)) {
            const QString formatted = MathExpression::formatted(*number);
            Clip result;
            result.key = QStringLiteral("= ") + formatted;
            result.name = QStringLiteral("Calculation result");
            result.text = formatted;
            result.group = QStringLiteral("Calculator");
            result.directMediaPaste = false;
            result.isMathResult = true;
            m_results.append(result);
        }
        emit resultsChanged();
        setState(false, true);
        return;
    }
    emit resultsChanged();
    loadMore(db);
}

void PickerSearch::loadMore(const DB& db)
{
    if (m_exhausted || m_loading) {
        return;
    }
    const quint64 generation = ++m_generation;
    setState(true, false);
    const qsizetype target = m_results.size() + pageSize;
    Q_UNUSED(db) // the scan goes on over the copy restart() took
    QTimer::singleShot(0, this, [this, generation, target] { step(generation, target); });
}

void PickerSearch::step(quint64 generation, qsizetype target)
{
    if (generation != m_generation) {
        return; // a newer search owns the results now
    }
    const qsizetype total = m_clips.size() + m_records.size();
    if (m_indexedUpTo < m_clips.size() &&
        (m_clipsByKey.empty() || m_clipsByKey.back().size() > keyChunkSize - stepSize)) {
        // A fresh chunk of the key index takes a turn of its own: its allocation costs more
        // than five tests.
        m_clipsByKey.emplace_back().reserve(keyChunkSize);
        QTimer::singleShot(0, this, [this, generation, target] { step(generation, target); });
        return;
    }
    if (m_results.size() < target && m_scanIndex < total) {
        const qsizetype end = qMin(m_scanIndex + stepSize, total);
        const qsizetype before = m_results.size();
        for (qsizetype position = m_scanIndex; position < end; ++position) {
            if (std::optional<Clip> item = itemAt(position); item && passesFilters(*item)) {
                m_results.append(std::move(*item));
            }
        }
        m_scanIndex = end;
        if (m_results.size() != before) {
            emit resultsChanged();
        }
        if (m_results.size() < target && m_scanIndex < total) {
            // The event loop runs what is waiting (a key, a paint) before the next five.
            QTimer::singleShot(0, this, [this, generation, target] { step(generation, target); });
            return;
        }
    }
    setState(false, m_scanIndex >= total);
}

std::optional<Clip> PickerSearch::itemAt(qsizetype position)
{
    const QList<Clip>& clips = m_clips;
    if (position < clips.size()) {
        // The shortcuts are indexed as the scan passes them, so that reaching the records costs
        // no step more than its five tests.
        if (position == m_indexedUpTo) {
            // In chunks of a bounded size, made ready by step(): one growing table would stop a
            // step for a rehash of every key seen so far.
            m_clipsByKey.back().insert(clips.at(position).key.toLower(), position);
            ++m_indexedUpTo;
        }
        return clips.at(position);
    }
    const CollectionRecord& record = m_records.at(position - clips.size());
    Clip item = clipForRecord(record);
    item.key = u'/' + record.alias;
    // A shortcut with the record's key in the record's collection stands for it.
    const QString folded = item.key.toLower();
    for (const QMultiHash<QString, qsizetype>& chunk : m_clipsByKey) {
        for (auto it = chunk.constFind(folded); it != chunk.constEnd() && it.key() == folded; ++it) {
            if (*it < clips.size() && clipHasGroup(clips.at(*it), record.collection)) {
                return std::nullopt;
            }
        }
    }
    return item;
}

bool PickerSearch::passesFilters(const Clip& item)
{
    if (showHiddenOnly) {
        const bool isHidden = std::any_of(m_hidden.cbegin(), m_hidden.cend(),
                                          [&](const QString& name) { return clipHasGroup(item, name); });
        if (!isHidden) {
            return false;
        }
    } else if (!m_showHiddenCollections && !isClipVisible(item, m_hidden)) {
        return false;
    }
    if (category != allCategoriesName) {
        if (!m_categoryTest) {
            m_categoryTest.emplace(category, m_definitions);
        }
        if (!(*m_categoryTest)(item)) {
            return false;
        }
    }
    if (collection != allCollectionsName && !clipHasGroup(item, collection)) {
        return false;
    }
    return matches(item);
}

bool PickerSearch::matches(const Clip& clip) const
{
    const QString query = value.trimmed();
    if (query.isEmpty()) {
        return true;
    }
    if (const std::optional<ShortcutBatchRequest> batch = parseBatchTrigger(query)) {
        const QString shortKey = pickerShortKey(clip.key);
        return std::any_of(batch->keys.cbegin(), batch->keys.cend(),
                           [&](const QString& key) { return pickerShortKey(key) == shortKey; });
    }
    const QString base = parseStyledTrigger(query).base;
    if (base.isEmpty()) {
        return false; // a style alone names nothing
    }
    return clip.key.contains(base, Qt::CaseInsensitive) || clip.name.contains(base, Qt::CaseInsensitive) ||
           clip.text.contains(base, Qt::CaseInsensitive);
}

} // namespace tavo
