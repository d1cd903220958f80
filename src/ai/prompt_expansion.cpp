#include "ai/prompt_expansion.h"

#include <QHash>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <map>

namespace tavo {

namespace {

const QLatin1StringView typeSuffixes[] = {QLatin1StringView(".media"), QLatin1StringView(".app"),
                                          QLatin1StringView(".ai"),    QLatin1StringView(".web"),
                                          QLatin1StringView(".gif"),   QLatin1StringView(".e")};

const QString mediaOnlyBody = QStringLiteral("(Use the attached media reference.)");
const QString moreEntriesLine = QStringLiteral("• (Collection has more entries; showing the first 60.)");

enum class EntryKind
{
    Shortcut,
    Record,
    Collection
};

// What a token stands for, before anything of it is built: most entries are never mentioned.
struct EntrySource
{
    QString token;
    EntryKind kind;
    qsizetype index; // into the clips, the records or the collections
};

struct CollectionMembers
{
    QString name; // as first met
    QList<qsizetype> clips;
    QList<qsizetype> records;
};

struct Entry
{
    QString label;
    QString expansion;
    QStringList paths;
};

struct Mention
{
    qsizetype start;
    qsizetype end;
    qsizetype entry; // into the sorted entry sources
};

QRegularExpression mentionPattern(const QString& token)
{
    return QRegularExpression(QStringLiteral("(?<![A-Za-z0-9_])(?:\\\\|/)?") + QRegularExpression::escape(token) +
                                  QStringLiteral("(?:\\.(?:media|app|ai|web|gif|e))?(?![A-Za-z0-9_])"),
                              QRegularExpression::CaseInsensitiveOption);
}

QString shortcutBody(const Clip& clip, const LiveTokenSources& sources)
{
    const QString body = promptExpandTokens(clip.text, sources).trimmed();
    if (body.isEmpty() && !clip.files.isEmpty()) {
        return mediaOnlyBody;
    }
    return body;
}

void appendPathsOnce(QStringList& paths, QSet<QString>& seen, const QStringList& more)
{
    for (const QString& path : more) {
        if (!seen.contains(path)) {
            seen.insert(path);
            paths.append(path);
        }
    }
}

Entry shortcutEntry(const Clip& clip, const LiveTokenSources& sources)
{
    return Entry{QStringLiteral("Saved shortcut · ") + clip.name,
                 clip.name + QStringLiteral(":\n") + shortcutBody(clip, sources), clip.files};
}

Entry recordEntry(const CollectionRecord& record, const LiveTokenSources& sources)
{
    QStringList lines;
    for (auto it = record.values.cbegin(); it != record.values.cend(); ++it) { // QMap: keys sorted
        lines.append(it.key() + QStringLiteral(": ") + promptExpandTokens(it.value(), sources));
    }
    return Entry{QStringLiteral("Saved record · ") + record.name,
                 record.name + QStringLiteral(":\n") + lines.join(u'\n'), record.files};
}

Entry collectionEntry(const CollectionMembers& members, const QList<Clip>& clips,
                      const QList<CollectionRecord>& records, const LiveTokenSources& sources)
{
    const qsizetype total = members.clips.size() + members.records.size();
    QStringList lines;
    QStringList paths;
    QSet<QString> seen;
    for (const qsizetype i : members.clips) {
        const Clip& clip = clips.at(i);
        // Bodies past the shown lines are never read, but their media still travel.
        if (lines.size() < promptCollectionMaxLines) {
            lines.append(QStringLiteral("• ") + promptCanonicalAlias(clip.key) + QStringLiteral(": ") +
                         shortcutBody(clip, sources));
        }
        appendPathsOnce(paths, seen, clip.files);
    }
    for (const qsizetype i : members.records) {
        const CollectionRecord& record = records.at(i);
        if (lines.size() < promptCollectionMaxLines) {
            QStringList values;
            for (auto it = record.values.cbegin(); it != record.values.cend(); ++it) {
                values.append(it.key() + QStringLiteral(": ") + it.value());
            }
            lines.append(QStringLiteral("• ") + promptCanonicalAlias(record.alias) + QStringLiteral(": ") +
                         values.join(QStringLiteral("; ")));
        }
        appendPathsOnce(paths, seen, record.files);
    }
    if (total > promptCollectionMaxLines) {
        lines.append(moreEntriesLine);
    }
    return Entry{members.name, members.name + QStringLiteral(":\n") + lines.join(u'\n'), paths};
}

// Whether [start, end) meets a range already taken; `taken` maps starts to ends, none overlapping.
bool intersectsTaken(const std::map<qsizetype, qsizetype>& taken, qsizetype start, qsizetype end)
{
    auto after = taken.lower_bound(end);
    if (after == taken.begin()) {
        return false;
    }
    --after; // the last range starting before `end`; earlier ones end before it starts
    return after->second > start;
}

} // namespace

QString promptCanonicalAlias(const QString& text)
{
    QString alias = text.trimmed().toLower();
    if (alias.startsWith(u'/') || alias.startsWith(u'\\')) {
        alias.remove(0, 1);
    }
    for (const QLatin1StringView suffix : typeSuffixes) {
        if (alias.endsWith(suffix)) {
            alias.chop(suffix.size());
            break;
        }
    }
    return alias;
}

PromptShortcutExpansion expandPromptShortcutMentions(const QString& text, const QList<Clip>& clips,
                                                     const QList<CollectionRecord>& records,
                                                     const LiveTokenSources& sources)
{
    PromptShortcutExpansion result{text, {}, {}};

    // The entries' tokens, a later entry taking the place of an earlier one of the same token:
    // shortcuts, then records, then collections.
    QHash<QString, EntrySource> byToken;
    byToken.reserve(clips.size() + records.size());
    QList<CollectionMembers> collections;
    QHash<QString, qsizetype> collectionByToken;
    const auto memberOf = [&](const QString& name) -> CollectionMembers* {
        const QString token = name.toLower();
        if (token.trimmed().isEmpty()) {
            return nullptr;
        }
        auto found = collectionByToken.constFind(token);
        if (found == collectionByToken.cend()) {
            found = collectionByToken.insert(token, collections.size());
            collections.append(CollectionMembers{name, {}, {}});
        }
        return &collections[*found];
    };
    for (qsizetype i = 0; i < clips.size(); ++i) {
        const Clip& clip = clips.at(i);
        if (!clip.key.isEmpty()) {
            const QString token = promptCanonicalAlias(clip.key);
            if (!token.isEmpty()) {
                byToken.insert(token, EntrySource{token, EntryKind::Shortcut, i});
            }
        }
        for (const QString& group : clip.allGroups()) {
            if (CollectionMembers* members = memberOf(group)) {
                members->clips.append(i);
            }
        }
    }
    for (qsizetype i = 0; i < records.size(); ++i) {
        const QString token = promptCanonicalAlias(records.at(i).alias);
        if (!token.isEmpty()) {
            byToken.insert(token, EntrySource{token, EntryKind::Record, i});
        }
        if (CollectionMembers* members = memberOf(records.at(i).collection)) {
            members->records.append(i);
        }
    }
    for (auto it = collectionByToken.cbegin(); it != collectionByToken.cend(); ++it) {
        byToken.insert(it.key(), EntrySource{it.key(), EntryKind::Collection, it.value()});
    }
    if (byToken.isEmpty()) {
        return result;
    }

    // A mention matches its token ignoring case, so a token absent from the case-folded text can
    // have none; only the rest get a pattern.
    const QString foldedText = text.toCaseFolded();
    QList<EntrySource> candidates;
    for (const EntrySource& source : std::as_const(byToken)) {
        if (foldedText.contains(source.token.toCaseFolded())) {
            candidates.append(source);
        }
    }
    // Longest token first, so that a token inside a longer one never takes its place.
    std::sort(candidates.begin(), candidates.end(), [](const EntrySource& a, const EntrySource& b) {
        return a.token.size() != b.token.size() ? a.token.size() > b.token.size() : a.token < b.token;
    });

    std::map<qsizetype, qsizetype> taken;
    QList<Mention> mentions;
    for (qsizetype e = 0; e < candidates.size(); ++e) {
        const QRegularExpression pattern = mentionPattern(candidates.at(e).token);
        if (!pattern.isValid()) {
            continue;
        }
        QRegularExpressionMatchIterator matches = pattern.globalMatch(text);
        while (matches.hasNext()) {
            const QRegularExpressionMatch match = matches.next();
            const qsizetype start = match.capturedStart();
            const qsizetype end = match.capturedEnd();
            if (!intersectsTaken(taken, start, end)) {
                taken.emplace(start, end);
                mentions.append(Mention{start, end, e});
            }
        }
    }
    if (mentions.isEmpty()) {
        return result;
    }
    std::sort(mentions.begin(), mentions.end(), [](const Mention& a, const Mention& b) { return a.start < b.start; });

    // Entries are built for what is mentioned alone, in order of first mention.
    QHash<qsizetype, Entry> used;
    QSet<QString> seenPaths;
    QString expanded;
    qsizetype copied = 0;
    for (const Mention& mention : std::as_const(mentions)) {
        auto entry = used.constFind(mention.entry);
        if (entry == used.cend()) {
            const EntrySource& source = candidates.at(mention.entry);
            Entry built;
            switch (source.kind) {
            case EntryKind::Shortcut:
                built = shortcutEntry(clips.at(source.index), sources);
                break;
            case EntryKind::Record:
                built = recordEntry(records.at(source.index), sources);
                break;
            case EntryKind::Collection:
                built = collectionEntry(collections.at(source.index), clips, records, sources);
                break;
            }
            entry = used.insert(mention.entry, built);
            if (result.labels.size() < promptExpansionMaxLabels && !result.labels.contains(entry->label)) {
                result.labels.append(entry->label);
            }
            appendPathsOnce(result.paths, seenPaths, entry->paths);
        }
        expanded += QStringView(text).mid(copied, mention.start - copied);
        expanded += entry->expansion; // literal: a "$1" in a shortcut stays as it is
        copied = mention.end;
    }
    expanded += QStringView(text).mid(copied);
    result.text = expanded;
    return result;
}

} // namespace tavo
