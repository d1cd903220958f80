#include "language/triggers.h"

#include "language/text_utils.h"

#include <limits>

namespace tavo {

namespace {

// The suffixes a batch or a key lookup strips before comparing stems, in their order.
constexpr QLatin1StringView knownKeySuffixes[] = {
    QLatin1StringView(".media"), QLatin1StringView(".app"), QLatin1StringView(".ai"),
    QLatin1StringView(".web"),   QLatin1StringView(".gif"), QLatin1StringView(".e"),
};

constexpr char16_t batchSeparators[] = {u'!', u'&', u'%'};

bool holdsSeparator(QStringView text)
{
    for (const char16_t separator : batchSeparators) {
        if (text.contains(QChar(separator))) {
            return true;
        }
    }
    return false;
}

const QRegularExpression& trailingDigits()
{
    static const QRegularExpression pattern = unicodeRegex(QStringLiteral("\\d+$"));
    return pattern;
}

const QRegularExpression& onlyDigits()
{
    static const QRegularExpression pattern = unicodeRegex(QStringLiteral("^\\d+$"));
    return pattern;
}

// Keys prefix+start … prefix+end, stopping before the counter would overflow.
QStringList numberedKeys(const QString& prefix, qint64 start, qint64 end)
{
    QStringList keys;
    for (qint64 n = start;; ++n) {
        keys.append(u'/' + prefix + QString::number(n));
        if (n == end) {
            break;
        }
    }
    return keys;
}

std::optional<ShortcutBatchRequest> bangForm(const QString& body)
{
    const QString head = body.chopped(1);
    QString prefix = head;
    qint64 start = 1;
    const QRegularExpressionMatch digits = trailingDigits().match(head);
    if (digits.hasMatch() && digits.capturedLength() > 0) {
        if (const std::optional<qint64> number = parseInteger(digits.capturedView())) {
            prefix = head.left(digits.capturedStart());
            start = *number;
        }
    }
    if (prefix.isEmpty() || start <= 0) {
        return std::nullopt;
    }
    // Asking for the second of a series means the user wants the long run up to twenty.
    const qint64 span = start == 2 ? 18 : 9;
    const qint64 end =
        start > std::numeric_limits<qint64>::max() - span ? std::numeric_limits<qint64>::max() : start + span;
    return ShortcutBatchRequest{numberedKeys(prefix, start, end), batchLineSeparator};
}

std::optional<ShortcutBatchRequest> rangeForm(const QString& body)
{
    const qsizetype dots = body.indexOf(QLatin1String(".."));
    const QString left = body.left(dots);
    const std::optional<qint64> end = parseInteger(QStringView(body).mid(dots + 2));
    const QRegularExpressionMatch digits = trailingDigits().match(left);
    if (!end || !digits.hasMatch()) {
        return std::nullopt;
    }
    const std::optional<qint64> start = parseInteger(digits.capturedView());
    const QString prefix = left.left(digits.capturedStart());
    if (!start || *start < 1 || *end < *start || prefix.isEmpty()) {
        return std::nullopt;
    }
    // At most ten keys: a range is capped, not refused.
    const qint64 last = *end - *start > 9 ? *start + 9 : *end;
    return ShortcutBatchRequest{numberedKeys(prefix, *start, last), batchLineSeparator};
}

std::optional<ShortcutBatchRequest> listForm(const QString& body)
{
    QStringList parts;
    qsizetype from = 0;
    for (qsizetype i = 0; i < body.size(); ++i) {
        const char16_t c = body[i].unicode();
        if (c == u'!' || c == u'&' || c == u'%') {
            parts.append(body.mid(from, i - from));
            from = i + 1;
        }
    }
    parts.append(body.mid(from));
    if (parts.size() < 2 || parts.size() > 10) {
        return std::nullopt;
    }
    for (const QString& part : parts) {
        if (part.isEmpty()) {
            return std::nullopt;
        }
    }

    ShortcutBatchRequest request;
    request.separator = body.contains(u'%') ? QStringLiteral(" ") : batchLineSeparator;
    const QString firstKey = normalizedTrigger(parts.first());
    const std::optional<NumericKey> numeric = numericPrefixAndSuffix(firstKey);
    request.keys.append(firstKey);
    for (qsizetype i = 1; i < parts.size(); ++i) {
        const QString& part = parts[i];
        if (numeric && onlyDigits().match(part).hasMatch()) {
            request.keys.append(numeric->prefix + part + numeric->suffix);
            continue;
        }
        const QString key = part.trimmed();
        if (key.startsWith(u'\\')) {
            request.keys.append(u'/' + key.mid(1));
        } else if (key.startsWith(u'/')) {
            request.keys.append(key);
        } else {
            request.keys.append(u'/' + key);
        }
    }
    return request;
}

// The key in lower case without its slash and without one known suffix.
QString keyStem(const QString& key)
{
    QString stem = key.toLower();
    if (stem.startsWith(u'/') || stem.startsWith(u'\\')) {
        stem.remove(0, 1);
    }
    for (const QLatin1StringView suffix : knownKeySuffixes) {
        if (stem.endsWith(suffix)) {
            stem.chop(suffix.size());
            break;
        }
    }
    return stem;
}

} // namespace

StyledTrigger parseStyledTrigger(const QString& text)
{
    struct StyleSuffix
    {
        QLatin1StringView suffix;
        void (*apply)(ShortcutTextStyle&);
    };
    static constexpr StyleSuffix suffixes[] = {
        {QLatin1StringView("-medium"), [](ShortcutTextStyle& s) { s.size = 18; }},
        {QLatin1StringView("-high"), [](ShortcutTextStyle& s) { s.size = 24; }},
        {QLatin1StringView("-low"), [](ShortcutTextStyle& s) { s.size = 12; }},
        {QLatin1StringView("-b"), [](ShortcutTextStyle& s) { s.bold = true; }},
        {QLatin1StringView("-i"), [](ShortcutTextStyle& s) { s.italic = true; }},
        {QLatin1StringView("-u"), [](ShortcutTextStyle& s) { s.underline = true; }},
    };

    StyledTrigger result{text, {}};
    for (;;) {
        const StyleSuffix* found = nullptr;
        for (const StyleSuffix& candidate : suffixes) {
            if (result.base.endsWith(candidate.suffix, Qt::CaseInsensitive)) {
                found = &candidate;
                break;
            }
        }
        if (!found) {
            return result;
        }
        result.base.chop(found->suffix.size());
        found->apply(result.style);
    }
}

std::optional<ShortcutBatchRequest> parseBatchTrigger(const QString& text)
{
    const QString body = normalizedTrigger(text).mid(1);
    if (body.endsWith(u'!') && !holdsSeparator(QStringView(body).chopped(1))) {
        return bangForm(body);
    }
    if (body.contains(QLatin1String(".."))) {
        return rangeForm(body);
    }
    if (!holdsSeparator(body)) {
        return std::nullopt;
    }
    return listForm(body);
}

std::optional<NumericKey> numericPrefixAndSuffix(const QString& key)
{
    QString stem = key;
    QString suffix;
    for (const QLatin1StringView candidate : knownKeySuffixes) {
        if (stem.endsWith(candidate, Qt::CaseInsensitive)) {
            stem.chop(candidate.size());
            suffix = candidate;
            break;
        }
    }
    const QRegularExpressionMatch digits = trailingDigits().match(stem);
    if (!digits.hasMatch() || digits.capturedStart() == 0) {
        return std::nullopt;
    }
    return NumericKey{stem.left(digits.capturedStart()), suffix};
}

QList<Clip> resolveBatch(const ShortcutBatchRequest& request, const QList<Clip>& clips)
{
    QList<Clip> found;
    for (const QString& key : request.keys) {
        const QString normalized = normalizedTrigger(key);
        auto exact = std::find_if(clips.cbegin(), clips.cend(), [&](const Clip& clip) {
            return clip.key.compare(normalized, Qt::CaseInsensitive) == 0;
        });
        if (exact != clips.cend()) {
            found.append(*exact);
            continue;
        }

        const QString stem = keyStem(key);
        QList<const Clip*> sameStem;
        for (const Clip& clip : clips) {
            if (keyStem(clip.key) == stem) {
                sameStem.append(&clip);
            }
        }
        if (sameStem.isEmpty()) {
            continue;
        }
        const QString lowered = key.toLower();
        auto firstWhere = [&](auto predicate) -> const Clip* {
            for (const Clip* clip : sameStem) {
                if (predicate(*clip)) {
                    return clip;
                }
            }
            return nullptr;
        };
        const Clip* chosen = nullptr;
        if (lowered.endsWith(QLatin1String(".media"))) {
            chosen = firstWhere([](const Clip& c) { return !c.files.isEmpty(); });
        } else if (lowered.endsWith(QLatin1String(".web"))) {
            chosen = firstWhere([](const Clip& c) { return c.webURL.has_value(); });
        } else if (lowered.endsWith(QLatin1String(".app"))) {
            chosen = firstWhere([](const Clip& c) { return c.appBundleIdentifier || c.appPath; });
        }
        found.append(chosen ? *chosen : *sameStem.first());
    }
    return found;
}

} // namespace tavo
