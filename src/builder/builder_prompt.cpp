#include "builder/builder_prompt.h"

#include "language/live_tokens.h"

namespace tavo {

namespace {

const QString requestMarker = QStringLiteral("-prompt-");

// A shortcut key as a command names it: without its slashes, in any case.
bool keyNames(const QString& key, const QString& alias)
{
    QString bare = key;
    while (bare.startsWith(u'/') || bare.startsWith(u'\\')) {
        bare.remove(0, 1);
    }
    return bare.compare(alias, Qt::CaseInsensitive) == 0;
}

} // namespace

std::optional<BuilderPromptDraft> builderPromptDraft(const QString& payload, const QList<Clip>& clips,
                                                     const QList<CollectionRecord>& records, const Defaults& defaults,
                                                     const LiveTokenSources& sources)
{
    const qsizetype marker = payload.indexOf(requestMarker);
    const QString command = marker < 0 ? payload : payload.left(marker);
    const QString request = marker < 0 ? QString() : payload.mid(marker + requestMarker.size()).replace(u'-', u' ');
    const std::optional<CustomBuilderCommand> parsed =
        customBuilderCommand(QLatin1Char('\\') + command, clips, records, defaults);
    if (!parsed) {
        return std::nullopt;
    }

    BuilderPromptDraft draft;
    const QString action = parsed->prompt.trimmed();
    QStringList lines{action.isEmpty() ? QStringLiteral("Create a %1.").arg(parsed->app) : action};
    const auto addPaths = [&draft](const QStringList& files) {
        for (const QString& file : files) {
            if (!draft.referencePaths.contains(file)) {
                draft.referencePaths << file;
            }
        }
    };
    for (qsizetype slot = 0; slot < parsed->slotKinds.size(); ++slot) {
        const QString name = parsed->slotNames.value(slot);
        const QString value = parsed->slotValues.value(slot);
        if (parsed->slotKinds[slot] == builderSlotVariable) {
            lines << (value.isEmpty() ? QStringLiteral("%1: [enter %1]").arg(name)
                                      : name + QStringLiteral(": ") + value);
            continue;
        }
        // A collection slot names a shortcut of that collection first, then one of its records.
        const auto clip = std::find_if(clips.begin(), clips.end(), [&](const Clip& candidate) {
            return keyNames(candidate.key, value) && candidate.allGroups().contains(name, Qt::CaseInsensitive);
        });
        if (clip != clips.end()) {
            lines << name + QStringLiteral(": ") + promptExpandTokens(clip->text, sources);
            addPaths(clip->files);
            continue;
        }
        const auto record = std::find_if(records.begin(), records.end(), [&](const CollectionRecord& candidate) {
            return candidate.collection.compare(name, Qt::CaseInsensitive) == 0 &&
                   candidate.alias.compare(value, Qt::CaseInsensitive) == 0;
        });
        if (record != records.end()) {
            QStringList values;
            for (const QString& field : record->values.values()) {
                if (!field.trimmed().isEmpty()) {
                    values << field;
                }
            }
            lines << name + QStringLiteral(": ") + values.join(QStringLiteral(", "));
            addPaths(record->files);
            continue;
        }
        lines << name + QStringLiteral(": ") + value;
    }
    draft.text = lines.join(u'\n');
    if (!request.trimmed().isEmpty()) {
        draft.text += QStringLiteral("\n\nUser request:\n") + request;
    }
    return draft;
}

} // namespace tavo
