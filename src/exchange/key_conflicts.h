#pragma once

#include <QList>
#include <QSet>
#include <QString>

namespace tavo {

struct Clip;

// The keys a library already uses, compared ignoring case as triggers are matched.
class TakenKeys
{
public:
    TakenKeys() = default;
    explicit TakenKeys(const QList<Clip>& clips);

    bool contains(const QString& key) const { return m_keys.contains(key.toCaseFolded()); }
    void insert(const QString& key) { m_keys.insert(key.toCaseFolded()); }

private:
    QSet<QString> m_keys;
};

// Keys that the media tools and package imports propose stay within this many characters,
// the leading "/" and any collection suffix included.
inline constexpr qsizetype proposedKeyLimit = 20;

// `key` when no one uses it yet; otherwise the first free key with "-1", "-2", … added. The
// number goes before the suffix that `collection` gives its keys (/zoom.web in "Websites & URLs"
// becomes /zoom-1.web, which the editor keeps as it is), and the rest is cut so the whole key
// stays within 20 characters, keeping at least one character of the stem.
QString freeKey(const QString& key, const QString& collection, const TakenKeys& taken);

// `key` cut to `limit` characters without splitting a character, keeping the suffix of
// `collection` when the key ends with it.
QString keyWithinLimit(const QString& key, const QString& collection, qsizetype limit = proposedKeyLimit);

} // namespace tavo
