#include "exchange/key_conflicts.h"

#include "language/shortcut_record.h"

namespace tavo {

namespace {

// The first `size` UTF-16 units of `text`, one fewer when that would split a surrogate pair.
QString leftWhole(const QString& text, qsizetype size)
{
    if (size >= text.size()) {
        return text;
    }
    if (size > 0 && text.at(size - 1).isHighSurrogate()) {
        --size;
    }
    return text.left(size);
}

// The suffix `collection` gives its keys, in the spelling `key` ends with, or nothing.
qsizetype suffixLength(const QString& key, const QString& collection)
{
    const QString suffix = collectionSuffix(collection);
    if (suffix.isEmpty() || key.size() <= suffix.size() || !key.endsWith(suffix, Qt::CaseInsensitive)) {
        return 0;
    }
    return suffix.size();
}

} // namespace

TakenKeys::TakenKeys(const QList<Clip>& clips)
{
    m_keys.reserve(clips.size());
    for (const Clip& clip : clips) {
        insert(clip.key);
    }
}

QString keyWithinLimit(const QString& key, const QString& collection, qsizetype limit)
{
    if (key.size() <= limit) {
        return key;
    }
    const qsizetype suffix = suffixLength(key, collection);
    const QString stem = key.left(key.size() - suffix);
    return leftWhole(stem, qMax<qsizetype>(1, limit - suffix)) + key.right(suffix);
}

QString freeKey(const QString& key, const QString& collection, const TakenKeys& taken)
{
    if (!taken.contains(key)) {
        return key;
    }
    const qsizetype suffixSize = suffixLength(key, collection);
    const QString suffix = key.right(suffixSize);
    const QString stem = key.left(key.size() - suffixSize);
    for (qint64 n = 1;; ++n) {
        const QString number = u'-' + QString::number(n);
        const qsizetype room = qMax<qsizetype>(1, proposedKeyLimit - number.size() - suffixSize);
        const QString candidate = leftWhole(stem, room) + number + suffix;
        if (!taken.contains(candidate)) {
            return candidate;
        }
    }
}

} // namespace tavo
