#include "engine/expansion_plan.h"

#include "engine/inline_commands.h"

#include "language/math_expression.h"
#include "language/triggers.h"

#include <algorithm>

namespace tavo {

namespace {

QString trimmedOf(const QString& text, QStringView characters)
{
    qsizetype from = 0;
    qsizetype to = text.size();
    while (from < to && characters.contains(text[from])) {
        ++from;
    }
    while (to > from && characters.contains(text[to - 1])) {
        --to;
    }
    return text.mid(from, to - from);
}

bool inMediaCollection(const Clip& clip)
{
    const QStringList groups = clip.allGroups();
    return std::any_of(groups.cbegin(), groups.cend(), [](const QString& group) {
        const QString name = group.trimmed().toLower();
        return name == QLatin1String("sound & media") || name == QLatin1String("media files");
    });
}

} // namespace

std::shared_ptr<const BuilderCommandSnapshot> builderSnapshotFor(const Defaults& defaults,
                                                                 const ExpansionLibrary& library)
{
    if (library.showHidden || library.hiddenCollections.isEmpty()) {
        return BuilderCommandSnapshot::read(defaults, library.clips, library.records);
    }
    QList<Clip> clips;
    for (const Clip& clip : library.clips) {
        if (isClipVisible(clip, library.hiddenCollections)) {
            clips.append(clip);
        }
    }
    QList<CollectionRecord> records;
    for (const CollectionRecord& record : library.records) {
        if (!library.hiddenCollections.contains(record.collection, Qt::CaseInsensitive)) {
            records.append(record);
        }
    }
    return BuilderCommandSnapshot::read(defaults, clips, records);
}

std::shared_ptr<const ExpansionIndex> ExpansionIndex::build(const QList<Clip>& clips,
                                                            const QList<CollectionRecord>& records)
{
    auto index = std::make_shared<ExpansionIndex>();
    index->clips = clips;
    index->records = records;
    index->clipsByKey.reserve(clips.size());
    for (qsizetype at = 0; at < clips.size(); ++at) {
        index->clipsByKey[clips.at(at).key.toCaseFolded()].append(at);
    }
    for (qsizetype at = 0; at < records.size(); ++at) {
        index->recordsByAlias[records.at(at).alias.toCaseFolded()].append(at);
    }
    return index;
}

bool ExpansionIndex::indexes(const QList<Clip>& otherClips, const QList<CollectionRecord>& otherRecords) const
{
    // The lists kept here are shared with the store's: a change there detaches it from them.
    return clips.constData() == otherClips.constData() && clips.size() == otherClips.size() &&
           records.constData() == otherRecords.constData() && records.size() == otherRecords.size();
}

bool isEndingSuffix(const QString& suffix)
{
    return suffix == QLatin1String(" ") || suffix == QLatin1String("\n") || suffix == QLatin1String("\r");
}

ExpansionPlan planForClip(const Clip& clip, const QString& suffix, const ShortcutTextStyle& style)
{
    ExpansionPlan plan;
    plan.clip = clip;
    if (clip.defaultMediaArticle && clip.files.isEmpty()) {
        plan.kind = ExpansionPlan::Kind::DefaultMedia;
        return plan;
    }
    if (clip.webURL) {
        plan.kind = ExpansionPlan::Kind::Website;
        return plan;
    }
    if (clip.appBundleIdentifier || clip.appPath) {
        plan.kind = ExpansionPlan::Kind::Launch;
        return plan;
    }
    if (clip.text.isEmpty() && clip.files.isEmpty()) {
        plan.kind = ExpansionPlan::Kind::Nothing;
        return plan;
    }

    const bool mediaWanted = clip.text.isEmpty() || inMediaCollection(clip) || clip.directMediaPaste.value_or(false);
    plan.kind = ExpansionPlan::Kind::Paste;
    if (mediaWanted && !clip.files.isEmpty()) {
        plan.paste = ClipboardRequest{clip, false, true, {}, {}, {}, false};
    } else {
        // The ending key goes back in with the text: "\ty " leaves the expansion and a space.
        Clip withSuffix = clip;
        withSuffix.text += suffix;
        plan.paste = ClipboardRequest{withSuffix, true, false, style, {}, {}, false};
    }
    return plan;
}

ExpansionPlan planExpansion(const QString& trigger, const QString& suffix, const ExpansionLibrary& library)
{
    ExpansionPlan plan;
    const QString command = trigger.trimmed();
    if (parseInlineCommand(command, suffix)) {
        plan.kind = ExpansionPlan::Kind::InlineCommand;
        plan.command = command;
        plan.suffix = suffix;
        return plan;
    }

    // Parsed against the snapshot: nothing on this path reads a setting.
    const auto builderPlan = [&](const QString& text, bool mayGenerate) -> std::optional<ExpansionPlan> {
        if (!library.builder) {
            return std::nullopt;
        }
        std::optional<CustomBuilderCommand> builder = library.builder->command(text);
        if (!builder) {
            return std::nullopt;
        }
        ExpansionPlan found;
        found.kind = ExpansionPlan::Kind::BuilderCommand;
        found.command = text;
        found.suffix = suffix;
        found.generates = mayGenerate && builder->isComplete();
        found.builder = std::move(*builder);
        return found;
    };
    if (isEndingSuffix(suffix)) {
        if (std::optional<ExpansionPlan> found = builderPlan(command, true)) {
            return *found;
        }
    }

    // The decision runs between a key and its paste: no copy of a large library unless a batch
    // needs the list.
    const auto visible = [&](const Clip& clip) {
        return library.showHidden || library.hiddenCollections.isEmpty() ||
               isClipVisible(clip, library.hiddenCollections);
    };

    if (MathExpression::looksLikeExpression(trigger)) {
        if (const std::optional<double> value = MathExpression::evaluate(trigger)) {
            const QString result = MathExpression::formatted(*value);
            Clip calculation;
            calculation.key = QStringLiteral("= ") + result;
            calculation.name = QStringLiteral("Calculation result");
            calculation.text = result + suffix;
            calculation.group = QStringLiteral("Calculator");
            calculation.directMediaPaste = false;
            calculation.isMathResult = true;
            plan.kind = ExpansionPlan::Kind::Calculation;
            plan.paste = ClipboardRequest{calculation, true, false, {}, {}, {}, false};
            return plan;
        }
    }

    if (const std::optional<ShortcutBatchRequest> batch = parseBatchTrigger(trigger)) {
        QList<Clip> resolved = resolveBatch(
            *batch, library.showHidden ? library.clips
                                       : filterShortcutClips(library.clips, library.hiddenCollections, QString(),
                                                             allCollectionsName, allCollectionsName, false));
        if (!resolved.isEmpty()) {
            plan.kind = ExpansionPlan::Kind::Batch;
            plan.batch = std::move(resolved);
            plan.separator = batch->separator;
            return plan;
        }
    }

    const StyledTrigger styled = parseStyledTrigger(trigger);
    const QString key = normalizedTrigger(styled.base);
    const QString bare = trimmedOf(styled.base, u"/\\ ");

    const ExpansionIndex* index = library.index.get();
    const CollectionRecord* onlyRecord = nullptr;
    int recordCount = 0;
    const auto countRecord = [&](const CollectionRecord& record) {
        if (record.alias.compare(bare, Qt::CaseInsensitive) != 0 || bare.isEmpty()) {
            return;
        }
        if (!library.showHidden && library.hiddenCollections.contains(record.collection, Qt::CaseInsensitive)) {
            return;
        }
        onlyRecord = &record;
        ++recordCount;
    };
    if (index) {
        for (const qsizetype at : index->recordsByAlias.value(bare.toCaseFolded())) {
            countRecord(library.records.at(at));
        }
    } else {
        std::for_each(library.records.cbegin(), library.records.cend(), countRecord);
    }
    if (recordCount == 1) {
        ExpansionPlan recordPlan = planForClip(clipForRecord(*onlyRecord), suffix, styled.style);
        recordPlan.fromRecord = true;
        return recordPlan;
    }

    const auto matches = [&](const Clip& clip) {
        return clip.key.compare(key, Qt::CaseInsensitive) == 0 && visible(clip);
    };
    if (index) {
        for (const qsizetype at : index->clipsByKey.value(key.toCaseFolded())) {
            if (matches(library.clips.at(at))) {
                return planForClip(library.clips.at(at), suffix, styled.style);
            }
        }
    } else if (const auto found = std::find_if(library.clips.cbegin(), library.clips.cend(), matches);
               found != library.clips.cend()) {
        return planForClip(*found, suffix, styled.style);
    }
    // Ended by a tab or punctuation: the card shows, but nothing is made without a look at it.
    if (std::optional<ExpansionPlan> builder = builderPlan(trigger, false)) {
        return *builder;
    }
    return plan; // NoMatch
}

} // namespace tavo
