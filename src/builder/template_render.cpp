#include "builder/template_render.h"

#include "builder/builder_command.h"

#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>

#include <cmath>
#include <vector>

namespace tavo {

namespace {

struct TokenMatch
{
    qsizetype start;
    qsizetype length;
    qsizetype nameStart;
    qsizetype nameLength;
};

// The matches of "\{\{([^}]+)\}\}", found without a regular expression: a run of non-"}" ends at
// the first "}", so there is nothing to backtrack, and a "{{" inside a run that found no closing
// "}}" cannot find one either. Linear on any text, including one a lone surrogate would make a
// regular expression refuse.
std::vector<TokenMatch> findTokens(QStringView text)
{
    std::vector<TokenMatch> matches;
    const qsizetype size = text.size();
    qsizetype i = 0;
    while (i + 1 < size) {
        if (text[i] != u'{' || text[i + 1] != u'{') {
            ++i;
            continue;
        }
        qsizetype j = i + 2;
        while (j < size && text[j] != u'}') {
            ++j;
        }
        if (j > i + 2 && j + 1 < size && text[j + 1] == u'}') {
            matches.push_back({i, j + 2 - i, i + 2, j - i - 2});
            i = j + 2;
        } else {
            i = std::max(j, i + 1);
        }
    }
    return matches;
}

// The values by key. Where two names share a key, the one written as the key itself wins: that is
// how a formula stores its result, so "GST" computed beats "GST" typed.
QHash<QString, QString> valuesByKey(const QString& details, const QString& context, const BuilderValues& values)
{
    QHash<QString, QString> byKey;
    byKey.reserve(values.size() + 2);
    QSet<QString> exact;
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        const QString key = builderTokenKey(it.key());
        if (key.isEmpty()) {
            continue;
        }
        const bool isExact = key == it.key();
        if (!isExact && exact.contains(key)) {
            continue;
        }
        if (isExact) {
            exact.insert(key);
        }
        byKey.insert(key, it.value());
    }
    byKey.insert(QStringLiteral("details"), details);
    byKey.insert(QStringLiteral("collections"), context);
    return byKey;
}

// The text a token becomes, or nothing when it stays as written.
std::optional<QString> tokenValue(const QString& token, QStringView name, const QHash<QString, QString>& byKey,
                                  const LiveTokenSources& sources)
{
    const auto found = byKey.constFind(builderTokenKey(name.toString()));
    if (found != byKey.cend()) {
        return *found;
    }
    const QString live = expandLiveTemplateTokens(token, sources);
    if (live != token) {
        return live;
    }
    return std::nullopt;
}

bool isLiveToken(const QString& token)
{
    return expandLiveTemplateTokens(token, {}) != token;
}

const RunStyle& styleAt(const QList<StyledRun>& runs, const std::vector<qsizetype>& starts, qsizetype position)
{
    static const RunStyle plain;
    if (runs.isEmpty()) {
        return plain;
    }
    const auto next = std::upper_bound(starts.cbegin(), starts.cend(), position);
    const qsizetype index = std::max<qsizetype>(0, (next - starts.cbegin()) - 1);
    return runs[std::min<qsizetype>(index, runs.size() - 1)].style;
}

// Appends the styled text of [from, to) of the runs.
void copyRange(const QList<StyledRun>& runs, const std::vector<qsizetype>& starts, qsizetype from, qsizetype to,
               QList<StyledRun>& out)
{
    if (from >= to) {
        return;
    }
    const auto next = std::upper_bound(starts.cbegin(), starts.cend(), from);
    for (qsizetype index = std::max<qsizetype>(0, (next - starts.cbegin()) - 1); index < runs.size(); ++index) {
        const qsizetype runStart = starts[index];
        const qsizetype runEnd = runStart + runs[index].text.size();
        if (runStart >= to) {
            break;
        }
        const qsizetype a = std::max(from, runStart);
        const qsizetype b = std::min(to, runEnd);
        if (a < b) {
            appendRun(out, runs[index].text.mid(a - runStart, b - a), runs[index].style);
        }
    }
}

QString lowerCode(const QString& key)
{
    static const QRegularExpression unsafe(QStringLiteral("[^a-z0-9_-]+"));
    QString code = key.toLower();
    code.replace(unsafe, QStringLiteral("-"));
    return code.left(20);
}

QString trimmedOfSlashes(const QString& key)
{
    qsizetype start = 0;
    qsizetype end = key.size();
    while (start < end && (key[start] == u'/' || key[start] == u'\\')) {
        ++start;
    }
    while (end > start && (key[end - 1] == u'/' || key[end - 1] == u'\\')) {
        --end;
    }
    return key.mid(start, end - start);
}

QString mediaNote(const QStringList& files)
{
    if (files.isEmpty()) {
        return {};
    }
    QStringList names;
    names.reserve(files.size());
    for (const QString& file : files) {
        names.append(QFileInfo(file).fileName());
    }
    return QStringLiteral(" [attached media: ") + names.join(QStringLiteral(", ")) + u']';
}

TavoError builderError(const QString& description)
{
    return TavoError{QStringLiteral("TavoBuilder"), 0, description};
}

} // namespace

QString renderLocalTemplate(const QString& templateText, const QString& predefinedDetails, const QString& context,
                            const BuilderValues& values, const LiveTokenSources& sources,
                            TemplateValueEscaping escaping)
{
    const std::vector<TokenMatch> matches = findTokens(templateText);
    if (matches.empty()) {
        return templateText;
    }
    const QHash<QString, QString> byKey = valuesByKey(predefinedDetails, context, values);
    QString result;
    result.reserve(templateText.size() * 2);
    qsizetype position = 0;
    for (const TokenMatch& match : matches) {
        result.append(QStringView(templateText).sliced(position, match.start - position));
        const QString token = templateText.mid(match.start, match.length);
        const std::optional<QString> value =
            tokenValue(token, QStringView(templateText).sliced(match.nameStart, match.nameLength), byKey, sources);
        if (!value) {
            result.append(token);
        } else if (escaping == TemplateValueEscaping::Html) {
            result.append(escapedHtml(*value, true));
        } else {
            result.append(*value);
        }
        position = match.start + match.length;
    }
    result.append(QStringView(templateText).sliced(position));
    return result;
}

StyledText renderAttributedTemplate(const StyledText& attributed, const QString& predefinedDetails,
                                    const QString& context, const BuilderValues& values,
                                    const LiveTokenSources& sources)
{
    const QString plain = attributed.plainText();
    const std::vector<TokenMatch> matches = findTokens(plain);
    if (matches.empty()) {
        return attributed;
    }
    std::vector<qsizetype> starts;
    starts.reserve(attributed.runs.size());
    qsizetype offset = 0;
    for (const StyledRun& run : attributed.runs) {
        starts.push_back(offset);
        offset += run.text.size();
    }

    const QHash<QString, QString> byKey = valuesByKey(predefinedDetails, context, values);
    StyledText result;
    result.defaultFamily = attributed.defaultFamily;
    qsizetype position = 0;
    for (const TokenMatch& match : matches) {
        copyRange(attributed.runs, starts, position, match.start, result.runs);
        const QString token = plain.mid(match.start, match.length);
        const std::optional<QString> value =
            tokenValue(token, QStringView(plain).sliced(match.nameStart, match.nameLength), byKey, sources);
        if (value) {
            appendRun(result.runs, *value, styleAt(attributed.runs, starts, match.start));
        } else {
            copyRange(attributed.runs, starts, match.start, match.start + match.length, result.runs);
        }
        position = match.start + match.length;
    }
    copyRange(attributed.runs, starts, position, plain.size(), result.runs);
    return result;
}

bool isFullHtmlDocument(const QString& text)
{
    const QString head = text.trimmed().left(9).toLower();
    return head.startsWith(QLatin1StringView("<html")) || head.startsWith(QLatin1StringView("<!doctype"));
}

QString builderHtmlAccent(const QString& templateStyle)
{
    return templateStyle == QLatin1StringView("Bill") || templateStyle == QLatin1StringView("Quotation")
               ? QStringLiteral("#6828d9")
               : QStringLiteral("#5421a8");
}

QString escapedHtml(const QString& text, bool quotes)
{
    QString escaped;
    escaped.reserve(text.size() + 16);
    for (const QChar c : text) {
        switch (c.unicode()) {
        case u'&':
            escaped.append(QLatin1StringView("&amp;"));
            break;
        case u'<':
            escaped.append(QLatin1StringView("&lt;"));
            break;
        case u'>':
            escaped.append(QLatin1StringView("&gt;"));
            break;
        case u'"':
            if (quotes) {
                escaped.append(QLatin1StringView("&quot;"));
            } else {
                escaped.append(c);
            }
            break;
        default:
            escaped.append(c);
        }
    }
    return escaped;
}

QString makeBuilderStandaloneHTML(const QString& content, const QString& title, const QString& accent)
{
    if (isFullHtmlDocument(content)) {
        return content;
    }
    const QString safeTitle = escapedHtml(title);
    return QStringLiteral("<!doctype html><html lang=\"en\"><head><meta charset=\"utf-8\"><meta name=\"viewport\" "
                          "content=\"width=device-width,initial-scale=1\"><title>") +
           safeTitle +
           QStringLiteral(
               "</title><style>body{font:16px/1.65 -apple-system,BlinkMacSystemFont,sans-serif;color:#242033;"
               "margin:0;background:#f7f4ff}.page{max-width:900px;margin:40px auto;padding:40px;background:#"
               "fff;border-radius:20px;box-shadow:0 12px 40px #28135a18}h1{color:") +
           accent +
           QStringLiteral("}pre{white-space:pre-wrap;font:inherit}@media(max-width:650px){.page{margin:12px;padding:"
                          "20px}}</style></head><body><main class=\"page\"><h1>") +
           safeTitle + QStringLiteral("</h1><pre>") + escapedHtml(content) +
           QStringLiteral("</pre></main></body></html>");
}

QString builderOutputFileName(const QString& key, const QString& extension, const QUuid& id)
{
    return (lowerCode(key) + u'-' + id.toString(QUuid::WithoutBraces) + u'.' + extension).toLower();
}

int pdfLinesPerPage(double fontSize)
{
    const double lineHeight = std::max(fontSize * 1.55, 14.0);
    if (!std::isfinite(lineHeight)) {
        return 1;
    }
    return std::max(1, int(std::floor(600.0 / lineHeight)));
}

QStringList invalidTemplateTokens(const QString& text, const QStringList& allowedKeys)
{
    QStringList invalid;
    for (const TokenMatch& match : findTokens(text)) {
        const QString token = text.mid(match.start, match.length);
        if (allowedKeys.contains(builderTokenKey(text.mid(match.nameStart, match.nameLength))) || isLiveToken(token) ||
            invalid.contains(token)) {
            continue;
        }
        invalid.append(token);
    }
    return invalid;
}

QString restrictTemplateTokens(const QString& text, const QStringList& allowedKeys)
{
    // Bracket placeholders a model wrote for a value the app has become tokens first, so the
    // brackets made below of tokens it lacks are never turned back.
    static const QRegularExpression bracket(QStringLiteral("\\[([^\\]]+)\\]"));
    QString bracketsDone;
    qsizetype position = 0;
    for (QRegularExpressionMatchIterator it = bracket.globalMatch(text); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        const QString key = builderTokenKey(match.captured(1));
        if (key.isEmpty() || !allowedKeys.contains(key)) {
            continue;
        }
        bracketsDone.append(QStringView(text).sliced(position, match.capturedStart() - position));
        bracketsDone.append(QStringLiteral("{{") + key + QStringLiteral("}}"));
        position = match.capturedEnd();
    }
    bracketsDone.append(QStringView(text).sliced(position));

    QString result;
    position = 0;
    for (const TokenMatch& match : findTokens(bracketsDone)) {
        result.append(QStringView(bracketsDone).sliced(position, match.start - position));
        const QString token = bracketsDone.mid(match.start, match.length);
        const QString name = bracketsDone.mid(match.nameStart, match.nameLength);
        if (allowedKeys.contains(builderTokenKey(name)) || isLiveToken(token)) {
            result.append(token);
        } else if (!name.trimmed().isEmpty()) {
            result.append(u'[' + name.trimmed() + u']');
        }
        position = match.start + match.length;
    }
    result.append(QStringView(bracketsDone).sliced(position));
    return result;
}

QString limitTemplateLines(const QString& text, int count)
{
    if (count <= 0) {
        return {};
    }
    QStringList lines;
    for (const QString& line : text.split(u'\n')) {
        const QString trimmed = line.trimmed();
        if (trimmed.isEmpty()) {
            continue;
        }
        if (lines.size() < count) {
            lines.append(trimmed);
        } else {
            lines.last() += u' ' + trimmed;
        }
    }
    return lines.join(u'\n');
}

QStringList allowedTemplateKeys(const QStringList& variables, const QString& calculations, int collectionSlots)
{
    QStringList keys;
    for (const QString& variable : variables) {
        const QString key = builderTokenKey(variable);
        if (!key.isEmpty()) {
            keys.append(key);
        }
    }
    keys.append(builderCalculationNames(calculations));
    for (int i = 1; i <= collectionSlots; ++i) {
        keys.append(QStringLiteral("collection") + QString::number(i));
    }
    keys.append(QStringLiteral("details"));
    keys.append(QStringLiteral("collections"));
    return keys;
}

QString resolvedCollectionValue(const CollectionRecord& record)
{
    QStringList filled;
    for (auto it = record.values.cbegin(); it != record.values.cend(); ++it) {
        if (!it.value().trimmed().isEmpty()) {
            filled.append(it.value());
        }
    }
    return record.name + QStringLiteral(": ") + filled.join(QStringLiteral(", ")) + mediaNote(record.files);
}

QString resolvedCollectionValue(const Clip& clip)
{
    return clip.name + QStringLiteral(": ") + clip.text + mediaNote(clip.files);
}

BuilderValues templateValueMap(const BuilderValues& typed, const QString& calculations, const QStringList& order,
                               const QMap<QString, QString>& chosen)
{
    BuilderValues values = resolveBuilderCalculations(calculations, typed).values;
    int index = 0;
    for (const QString& token : order) {
        if (!token.startsWith(formulaCollectionPrefix)) {
            continue;
        }
        ++index;
        const QString collection = token.mid(formulaCollectionPrefix.size());
        for (auto it = chosen.cbegin(); it != chosen.cend(); ++it) {
            if (it.key().compare(collection, Qt::CaseInsensitive) == 0) {
                values.insert(QStringLiteral("collection") + QString::number(index), it.value());
                break;
            }
        }
    }
    return values;
}

Result<BuilderRenderInput> resolveBuilderRenderInput(const CustomBuilderCommand& command, const QList<Clip>& clips,
                                                     const QList<CollectionRecord>& records,
                                                     const QString& calculations)
{
    BuilderRenderInput input;
    QStringList variableLines;
    QStringList recordBlocks;
    int collectionIndex = 0;
    const qsizetype slotCount = std::min(command.slotKinds.size(), command.slotNames.size());
    for (qsizetype slot = 0; slot < slotCount; ++slot) {
        const QString& name = command.slotNames[slot];
        const QString value = command.slotValues.value(slot);
        if (command.slotKinds[slot] != builderSlotCollection) {
            input.values.insert(name, value);
            variableLines.append(name + QStringLiteral(": ") + value);
            continue;
        }
        ++collectionIndex;
        const QString alias = value.trimmed();
        const CollectionRecord* found = nullptr;
        int recordCount = 0;
        for (const CollectionRecord& record : records) {
            if (record.collection.compare(name, Qt::CaseInsensitive) == 0 &&
                record.alias.compare(alias, Qt::CaseInsensitive) == 0) {
                found = &record;
                ++recordCount;
            }
        }
        if (recordCount > 1) {
            return builderError(QStringLiteral("The alias \u2018") + alias +
                                QStringLiteral("\u2019 matches multiple records in ") + name +
                                QStringLiteral(". Rename an alias so each record is unique, then try again."));
        }
        const QString slotKey = QStringLiteral("collection") + QString::number(collectionIndex);
        QString block = name + QStringLiteral(" record ") + alias + u':';
        if (found) {
            for (auto it = found->values.cbegin(); it != found->values.cend(); ++it) {
                block += u'\n' + it.key() + QStringLiteral(": ") + it.value();
                input.values.insert(it.key().toLower(), it.value());
            }
            input.references.append(found->files);
            input.values.insert(slotKey, resolvedCollectionValue(*found));
        } else {
            const Clip* clipFound = nullptr;
            int clipCount = 0;
            for (const Clip& clip : clips) {
                if (trimmedOfSlashes(clip.key).compare(alias, Qt::CaseInsensitive) == 0 && clipHasGroup(clip, name)) {
                    clipFound = &clip;
                    ++clipCount;
                }
            }
            if (clipCount > 1) {
                return builderError(QStringLiteral("The alias \u2018") + alias +
                                    QStringLiteral("\u2019 is ambiguous in ") + name +
                                    QStringLiteral(". Choose a unique record alias."));
            }
            if (!clipFound) {
                return builderError(QStringLiteral("No record with alias \u2018") + alias +
                                    QStringLiteral("\u2019 was found in ") + name +
                                    QStringLiteral(". Add or select the exact record, then try again."));
            }
            block += u'\n' + clipFound->text;
            input.references.append(clipFound->files);
            input.values.insert(slotKey, resolvedCollectionValue(*clipFound));
        }
        recordBlocks.append(block);
    }
    input.variableLines = variableLines.join(u'\n');
    input.recordLines = recordBlocks.join(QStringLiteral("\n\n"));
    input.context = input.recordLines;

    BuilderCalculationResult calculated = resolveBuilderCalculations(calculations, input.values);
    input.values = std::move(calculated.values);
    input.summary = std::move(calculated.summary);
    if (!input.summary.isEmpty()) {
        input.context += QStringLiteral("\n\nCalculated values:\n") + input.summary;
    }
    return input;
}

} // namespace tavo
