#include "builder/builder_command.h"

#include "builder/builder_app.h"
#include "store/defaults.h"

#include <QJsonArray>

#include <algorithm>
#include <vector>

namespace tavo {

namespace {

const QString variableEntry = QStringLiteral("Variable:");
const QString collectionEntry = QStringLiteral("Collection:");

// The name of an order entry of `kind` ("Variable: amount" gives "amount"), or nothing.
std::optional<QString> orderEntryName(const QString& entry, const QString& kind)
{
    if (!entry.startsWith(kind)) {
        return std::nullopt;
    }
    return entry.mid(kind.size()).trimmed();
}

bool containsIgnoringCase(const QStringList& names, const QString& name)
{
    return names.contains(name, Qt::CaseInsensitive);
}

// The names the order lists of `kind`, in its order, that exist in `names`; `names` itself when
// the order lists none of that kind.
QStringList orderedNames(const QStringList& names, const QStringList& order, const QString& kind)
{
    QStringList listed;
    for (const QString& entry : order) {
        if (const std::optional<QString> name = orderEntryName(entry, kind)) {
            listed.append(*name);
        }
    }
    if (listed.isEmpty()) {
        return names;
    }
    QStringList kept;
    for (const QString& name : listed) {
        if (containsIgnoringCase(names, name)) {
            kept.append(name);
        }
    }
    return kept;
}

QString trimmedOfSlashes(const QString& key)
{
    qsizetype start = 0;
    qsizetype end = key.size();
    auto isSlash = [](QChar c) { return c == u'/' || c == u'\\'; };
    while (start < end && isSlash(key[start])) {
        ++start;
    }
    while (end > start && isSlash(key[end - 1])) {
        --end;
    }
    return key.mid(start, end - start);
}

int aliasWordCount(const QString& alias)
{
    int count = 0;
    bool inPiece = false;
    for (QChar c : alias) {
        if (c == u'-') {
            inPiece = false;
        } else if (!inPiece) {
            inPiece = true;
            ++count;
        }
    }
    return std::max(count, 1);
}

// The backtracking fill of the slotCount. Failed (token, slot) pairs are remembered: without that, a
// hostile command (many collection slotCount, many alias lengths) takes exponential time, and this runs
// while a key is held.
class SlotFiller
{
public:
    SlotFiller(const QStringList& tokens, const BuilderCommandApp& app, const QHash<QString, BuilderAliasSet>& aliases)
        : m_tokens(tokens)
        , m_app(app)
        , m_aliases(aliases)
        , m_values(app.slotKinds.size())
        , m_failed((tokens.size() + 1) * (app.slotKinds.size() + 1), false)
        , m_capacity(app.slotKinds.size() + 1, 0)
    {
        // The most tokens the slots from each one on can take: a search with more left must fail,
        // so it ends at once instead of trying every split.
        for (qsizetype slot = app.slotKinds.size() - 1; slot >= 0; --slot) {
            qsizetype most = 1;
            if (app.slotKinds[slot] == builderSlotCollection) {
                const auto found = aliases.constFind(app.slotNames[slot].toLower());
                if (found != aliases.constEnd() && !found->wordCounts.isEmpty()) {
                    most = std::max<qsizetype>(1, found->wordCounts.first());
                }
            }
            m_capacity[slot] = m_capacity[slot + 1] + most;
        }
    }

    bool fill() { return consume(0, 0); }
    QStringList values() const { return m_values; }

private:
    bool consume(qsizetype token, qsizetype slot)
    {
        const qsizetype slotCount = m_app.slotKinds.size();
        if (slot == slotCount) {
            return token == m_tokens.size();
        }
        if (token >= m_tokens.size()) {
            // A partial command: the slotCount not reached stay empty, whatever a failed try left.
            for (qsizetype rest = slot; rest < slotCount; ++rest) {
                m_values[rest].clear();
            }
            return true;
        }
        if (m_tokens.size() - token > m_capacity[slot]) {
            return false;
        }
        const qsizetype memo = token * (slotCount + 1) + slot;
        if (m_failed[memo]) {
            return false;
        }
        const bool done = tryAt(token, slot);
        if (!done) {
            m_failed[memo] = true;
        }
        return done;
    }

    bool tryAt(qsizetype token, qsizetype slot)
    {
        if (m_app.slotKinds[slot] == builderSlotCollection) {
            const auto found = m_aliases.constFind(m_app.slotNames[slot].toLower());
            if (found != m_aliases.constEnd()) {
                for (const int count : found->wordCounts) {
                    if (token + count > m_tokens.size()) {
                        continue;
                    }
                    QString joined = m_tokens[token];
                    for (qsizetype next = token + 1; next < token + count; ++next) {
                        joined += u'-';
                        joined += m_tokens[next];
                    }
                    if (found->lowerAliases.contains(joined.toLower())) {
                        m_values[slot] = joined;
                        if (consume(token + count, slot + 1)) {
                            return true;
                        }
                    }
                }
            }
        }
        // A variable, or an alias not found: one token, judged later.
        m_values[slot] = m_tokens[token];
        return consume(token + 1, slot + 1);
    }

    const QStringList& m_tokens;
    const BuilderCommandApp& m_app;
    const QHash<QString, BuilderAliasSet>& m_aliases;
    QStringList m_values;
    std::vector<bool> m_failed;
    std::vector<qsizetype> m_capacity;
};

} // namespace

bool CustomBuilderCommand::isComplete() const
{
    if (slotValues.size() != slotKinds.size()) {
        return false;
    }
    return std::all_of(slotValues.cbegin(), slotValues.cend(),
                       [](const QString& value) { return !value.trimmed().isEmpty(); });
}

QJsonObject CustomBuilderCommand::toJson() const
{
    auto array = [](const QStringList& texts) { return QJsonArray::fromStringList(texts); };
    return QJsonObject{
        {QStringLiteral("app"), app},
        {QStringLiteral("prefix"), prefix},
        {QStringLiteral("fields"), array(fields)},
        {QStringLiteral("values"), array(values)},
        {QStringLiteral("collections"), array(collections)},
        {QStringLiteral("collectionValues"), array(collectionValues)},
        {QStringLiteral("slotKinds"), array(slotKinds)},
        {QStringLiteral("slotNames"), array(slotNames)},
        {QStringLiteral("slotValues"), array(slotValues)},
        {QStringLiteral("outputCollections"), array(outputCollections)},
        {QStringLiteral("prompt"), prompt},
        {QStringLiteral("richTextData"),
         richTextData ? QJsonValue(QString::fromLatin1(richTextData->toBase64())) : QJsonValue()},
        {QStringLiteral("details"), details},
        {QStringLiteral("assetPath"), assetPath},
        {QStringLiteral("template"), templateStyle},
        {QStringLiteral("format"), format},
        {QStringLiteral("fontSize"), fontSize},
        {QStringLiteral("bold"), bold},
        {QStringLiteral("italic"), italic},
        {QStringLiteral("underline"), underline},
        {QStringLiteral("fontColor"), fontColor},
        {QStringLiteral("key"), key},
        {QStringLiteral("isComplete"), isComplete()},
    };
}

QStringList splitBuilderCommand(const QString& text)
{
    QStringList tokens;
    QString current;
    bool quoted = false;
    bool escaped = false;
    for (const QChar c : text) {
        if (escaped) {
            current += c;
            escaped = false;
        } else if (c == u'\\' && quoted) {
            escaped = true;
        } else if (c == u'"') {
            quoted = !quoted;
        } else if (c == u'-' && !quoted) {
            tokens.append(current);
            current.clear();
        } else {
            current += c;
        }
    }
    tokens.append(current);
    return tokens;
}

QString quoteBuilderValue(const QString& text)
{
    const bool needsQuotes = std::any_of(text.cbegin(), text.cend(),
                                         [](QChar c) { return c == u'-' || c == u'"' || c == u'\\' || c.isSpace(); });
    if (!needsQuotes) {
        return text;
    }
    QString quoted;
    quoted.reserve(text.size() + 2);
    quoted += u'"';
    for (const QChar c : text) {
        if (c == u'"' || c == u'\\') {
            quoted += u'\\';
        }
        quoted += c;
    }
    quoted += u'"';
    return quoted;
}

QString builderFormatCode(const QString& label)
{
    const QString lower = label.toLower();
    if (lower == u"image") {
        return QStringLiteral("img");
    }
    for (const char* code : {"pdf", "whatsapp", "email", "html", "video"}) {
        if (lower == QLatin1StringView(code)) {
            return lower;
        }
    }
    return QStringLiteral("text");
}

std::optional<QString> builderFormatForWord(const QString& word)
{
    static const QList<std::pair<QLatin1StringView, QString>> words = {
        {QLatin1StringView("img"), QStringLiteral("Image")},
        {QLatin1StringView("image"), QStringLiteral("Image")},
        {QLatin1StringView("pdf"), QStringLiteral("PDF")},
        {QLatin1StringView("text"), QStringLiteral("Text")},
        {QLatin1StringView("txt"), QStringLiteral("Text")},
        {QLatin1StringView("whatsapp"), QStringLiteral("WhatsApp")},
        {QLatin1StringView("wa"), QStringLiteral("WhatsApp")},
        {QLatin1StringView("email"), QStringLiteral("Email")},
        {QLatin1StringView("mail"), QStringLiteral("Email")},
        {QLatin1StringView("html"), QStringLiteral("HTML")},
        {QLatin1StringView("web"), QStringLiteral("HTML")},
        {QLatin1StringView("video"), QStringLiteral("Video")},
        {QLatin1StringView("vid"), QStringLiteral("Video")},
    };
    for (const auto& [typed, label] : words) {
        if (word.compare(typed, Qt::CaseInsensitive) == 0) {
            return label;
        }
    }
    return std::nullopt;
}

BuilderCommandApp BuilderCommandApp::read(const Defaults& defaults, const QString& app)
{
    auto text = [&](const QString& setting) { return defaults.string(builderKey(setting, app)); };
    auto firstText = [&](const QString& first, const QString& then, const QString& fallback) {
        return text(first).value_or(text(then).value_or(fallback));
    };
    auto flag = [&](const QString& first, const QString& then) {
        if (const std::optional<bool> saved = defaults.boolean(builderKey(first, app))) {
            return *saved;
        }
        return defaults.boolean(builderKey(then, app)).value_or(false);
    };

    BuilderCommandApp result;
    result.name = app;
    result.prefix = builderPrefix(defaults, app);
    const QString variablesText = text(QStringLiteral("Variables")).value_or(QString());
    const QString collectionsText = text(QStringLiteral("Collections")).value_or(QString());
    QStringList variables = builderListItems(variablesText);
    const QStringList collections = builderListItems(collectionsText);
    QStringList order = defaults.stringList(builderKey(QStringLiteral("FormulaOrder"), app)).value_or(QStringList());
    result.prompt = firstText(QStringLiteral("DefaultPrompt"), QStringLiteral("Prompt"), QString());
    if (hasLegacyBillSchema(result.prefix, variablesText, collectionsText)) {
        // Read as the migration would leave it; the store is changed only by a writer.
        variables = {QStringLiteral("Amount")};
        order.clear();
        const std::optional<QString> defaultPrompt = text(QStringLiteral("DefaultPrompt"));
        const QString working = text(QStringLiteral("Prompt")).value_or(QString());
        result.prompt = defaultPrompt ? (*defaultPrompt == legacyBillPrompt ? migratedBillPrompt : *defaultPrompt)
                                      : (working == legacyBillPrompt ? migratedBillPrompt : working);
    }
    result.variables = orderedNames(variables, order, variableEntry);
    result.collections = orderedNames(collections, order, collectionEntry);
    result.formulaOrder = order;
    if (order.isEmpty()) {
        for (const QString& name : result.collections) {
            result.slotKinds.append(builderSlotCollection);
            result.slotNames.append(name);
        }
        for (const QString& name : result.variables) {
            result.slotKinds.append(builderSlotVariable);
            result.slotNames.append(name);
        }
    } else {
        for (const QString& entry : order) {
            if (const std::optional<QString> name = orderEntryName(entry, collectionEntry)) {
                if (containsIgnoringCase(result.collections, *name)) {
                    result.slotKinds.append(builderSlotCollection);
                    result.slotNames.append(*name);
                }
            } else if (const std::optional<QString> variable = orderEntryName(entry, variableEntry)) {
                if (containsIgnoringCase(result.variables, *variable)) {
                    result.slotKinds.append(builderSlotVariable);
                    result.slotNames.append(*variable);
                }
            }
        }
    }
    result.outputCollections = builderListItems(text(QStringLiteral("OutputCollections")).value_or(QString()));
    result.format = text(QStringLiteral("Format")).value_or(QStringLiteral("PDF"));
    result.details = firstText(QStringLiteral("DefaultDetails"), QStringLiteral("Details"), QString());
    result.assetPath = firstText(QStringLiteral("DefaultAsset"), QStringLiteral("Asset"), QString());
    result.templateStyle = firstText(QStringLiteral("FinalTemplate"), QStringLiteral("Template"), modernTemplateStyle);
    const double size = defaults.number(builderKey(QStringLiteral("DefaultFontSize"), app)).value_or(0);
    result.fontSize = size == 0 ? 11 : size;
    result.bold = flag(QStringLiteral("DefaultBold"), QStringLiteral("Bold"));
    result.italic = flag(QStringLiteral("DefaultItalic"), QStringLiteral("Italic"));
    result.underline = flag(QStringLiteral("DefaultUnderline"), QStringLiteral("Underline"));
    result.fontColor =
        firstText(QStringLiteral("DefaultFontColor"), QStringLiteral("FontColor"), QStringLiteral("Ink"));
    result.richTextData = defaults.bytes(builderKey(QStringLiteral("DefaultRTF"), app));
    if (!result.richTextData) {
        result.richTextData = defaults.bytes(builderKey(QStringLiteral("TemplateRTF"), app));
    }
    return result;
}

BuilderCommandSnapshot::BuilderCommandSnapshot(QList<BuilderCommandApp> apps, const QList<Clip>& clips,
                                               const QList<CollectionRecord>& records)
    : m_apps(std::move(apps))
{
    for (const BuilderCommandApp& app : m_apps) {
        for (qsizetype slot = 0; slot < app.slotKinds.size(); ++slot) {
            if (app.slotKinds[slot] == builderSlotCollection) {
                m_aliases.insert(app.slotNames[slot].toLower(), BuilderAliasSet());
            }
        }
    }
    if (m_aliases.isEmpty()) {
        return;
    }
    auto add = [](BuilderAliasSet& set, const QString& alias) {
        set.lowerAliases.insert(alias.toLower());
        const int count = aliasWordCount(alias);
        if (!set.wordCounts.contains(count)) {
            set.wordCounts.append(count);
        }
    };
    // Membership as allGroups has it, without building that list for each of many clips.
    // Collection names repeat across clips: each spelling is looked up once.
    QHash<QString, BuilderAliasSet*> bySpelling;
    auto addToGroup = [&](const QString& group, const Clip& clip) {
        auto known = bySpelling.constFind(group);
        if (known == bySpelling.constEnd()) {
            const auto found = m_aliases.find(group.toLower());
            known = bySpelling.insert(group, found != m_aliases.end() ? &*found : nullptr);
        }
        if (*known) {
            add(**known, trimmedOfSlashes(clip.key));
        }
    };
    for (const Clip& clip : clips) {
        addToGroup(clip.group, clip);
        if (clip.groups) {
            for (const QString& group : *clip.groups) {
                addToGroup(group, clip);
            }
        }
    }
    for (const CollectionRecord& record : records) {
        const auto found = m_aliases.find(record.collection.toLower());
        if (found != m_aliases.end()) {
            add(*found, record.alias);
        }
    }
    for (BuilderAliasSet& set : m_aliases) {
        std::sort(set.wordCounts.begin(), set.wordCounts.end(), std::greater<int>());
    }
}

std::shared_ptr<const BuilderCommandSnapshot>
BuilderCommandSnapshot::read(const Defaults& defaults, const QList<Clip>& clips, const QList<CollectionRecord>& records)
{
    QList<BuilderCommandApp> apps;
    for (const QString& name : builderAppNames(defaults)) {
        apps.append(BuilderCommandApp::read(defaults, name));
    }
    return std::make_shared<const BuilderCommandSnapshot>(std::move(apps), clips, records);
}

std::optional<CustomBuilderCommand> BuilderCommandSnapshot::command(const QString& typed) const
{
    QString text = typed.trimmed();
    if (text.startsWith(u'\\') || text.startsWith(u'/')) {
        text.remove(0, 1);
    }
    if (text.isEmpty()) {
        return std::nullopt;
    }
    for (const BuilderCommandApp& app : m_apps) {
        const qsizetype length = app.prefix.size();
        if (length == 0 || text.size() < length) {
            continue;
        }
        const bool whole = text.size() == length;
        if (!whole && text[length] != u'-') {
            continue;
        }
        if (QStringView(text).left(length).compare(app.prefix, Qt::CaseInsensitive) != 0) {
            continue;
        }
        const QString rest = whole ? QString() : text.mid(length + 1);
        QStringList tokens = rest.isEmpty() ? QStringList() : splitBuilderCommand(rest);
        const qsizetype slotCount = app.slotKinds.size();
        QString format = app.format;
        if (!tokens.isEmpty() && tokens.size() > slotCount) {
            if (const std::optional<QString> named = builderFormatForWord(tokens.last())) {
                format = *named;
                tokens.removeLast();
            }
        }
        SlotFiller filler(tokens, app, m_aliases);
        if (!filler.fill()) {
            continue;
        }
        CustomBuilderCommand command;
        command.app = app.name;
        command.prefix = app.prefix;
        command.slotKinds = app.slotKinds;
        command.slotNames = app.slotNames;
        command.slotValues = filler.values();
        command.key = app.prefix;
        for (qsizetype slot = 0; slot < slotCount; ++slot) {
            const QString& value = command.slotValues[slot];
            if (app.slotKinds[slot] == builderSlotCollection) {
                command.collections.append(app.slotNames[slot]);
                command.collectionValues.append(value);
            } else {
                command.fields.append(app.slotNames[slot]);
                command.values.append(value);
            }
            if (!value.isEmpty()) {
                command.key += u'-';
                command.key += value;
            }
        }
        command.outputCollections = app.outputCollections;
        command.prompt = app.prompt;
        command.richTextData = app.richTextData;
        command.details = app.details;
        command.assetPath = app.assetPath;
        command.templateStyle = app.templateStyle;
        command.format = format;
        command.fontSize = app.fontSize;
        command.bold = app.bold;
        command.italic = app.italic;
        command.underline = app.underline;
        command.fontColor = app.fontColor;
        return command;
    }
    return std::nullopt;
}

std::optional<CustomBuilderCommand> customBuilderCommand(const QString& text, const QList<Clip>& clips,
                                                         const QList<CollectionRecord>& records,
                                                         const Defaults& defaults)
{
    return BuilderCommandSnapshot::read(defaults, clips, records)->command(text);
}

} // namespace tavo
