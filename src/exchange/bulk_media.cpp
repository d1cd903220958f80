#include "exchange/bulk_media.h"

#include "exchange/key_conflicts.h"

#include <QFileInfo>
#include <QRegularExpression>

namespace tavo {

QString BulkMediaText::created(qsizetype count, const QString& group)
{
    return QStringLiteral("Created %1 media shortcuts in %2. Type each shortcut to paste its file.")
        .arg(count)
        .arg(group);
}

QString bulkMediaDraftKey(const QString& fileName)
{
    static const QRegularExpression unsafe(QStringLiteral("[^a-z0-9_-]+"));
    QString stem = QFileInfo(fileName).completeBaseName().toLower();
    stem.replace(unsafe, QStringLiteral("-"));
    while (stem.startsWith(u'-')) {
        stem.remove(0, 1);
    }
    while (stem.endsWith(u'-')) {
        stem.chop(1);
    }
    if (stem.isEmpty()) {
        stem = QStringLiteral("media");
    }
    return QString(u'/' + stem).left(proposedKeyLimit);
}

BulkMediaDraft bulkMediaDraft(const QString& mediaPath)
{
    BulkMediaDraft draft;
    draft.mediaPath = mediaPath;
    draft.shortcut = bulkMediaDraftKey(QFileInfo(mediaPath).fileName());
    draft.name = QFileInfo(mediaPath).completeBaseName();
    return draft;
}

BulkMediaSave saveBulkMedia(const QList<BulkMediaDraft>& drafts, const QString& group, const QList<Clip>& existing)
{
    const QString collection = group.trimmed().isEmpty() ? QStringLiteral("Imported") : group.trimmed();
    TakenKeys taken(existing);
    BulkMediaSave result;
    result.clips.reserve(drafts.size());
    for (const BulkMediaDraft& draft : drafts) {
        Clip clip;
        const QString key =
            keyWithinLimit(collectionTrigger(normalizedTrigger(draft.shortcut), collection), collection);
        clip.key = freeKey(key, collection, taken);
        taken.insert(clip.key);
        clip.name = draft.name.trimmed().isEmpty() ? clip.key : draft.name.trimmed();
        clip.text = QString();
        clip.group = collection;
        clip.files = {draft.mediaPath};
        clip.directMediaPaste = true;
        result.clips.append(std::move(clip));
    }
    result.status = BulkMediaText::created(result.clips.size(), collection);
    return result;
}

} // namespace tavo
