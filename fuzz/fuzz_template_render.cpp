#include "builder/template_render.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

// The template is the text up to the first NUL; the rest gives "key=value" lines, the first two
// of which are the details and the context. Both renderers must give the same text, and the
// output can only grow by one value (at most the longest value or a live token's) per token.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString input = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const qsizetype nul = input.indexOf(QChar(0));
    const QString templateText = nul < 0 ? input : input.left(nul);
    const QStringList lines = nul < 0 ? QStringList() : input.mid(nul + 1).split(u'\n');

    const QString details = lines.value(0);
    const QString context = lines.value(1);
    tavo::BuilderValues values;
    qsizetype longest = std::max(details.size(), context.size());
    for (qsizetype i = 2; i < lines.size(); ++i) {
        const qsizetype equals = lines[i].indexOf(u'=');
        values.insert(lines[i].left(equals), equals < 0 ? QString() : lines[i].mid(equals + 1));
        longest = std::max(longest, equals < 0 ? 0 : lines[i].size() - equals - 1);
    }

    tavo::LiveTokenSources sources;
    sources.now = [] { return QDateTime(QDate(2025, 1, 5), QTime(20, 7, 42), Qt::UTC); };
    sources.locale = "en_US";

    const QString plain = tavo::renderLocalTemplate(templateText, details, context, values, sources);

    // Runs of varied lengths and two styles, so tokens cross run boundaries.
    tavo::StyledText styled;
    tavo::RunStyle bold;
    bold.bold = true;
    qsizetype position = 0;
    for (int piece = 1; position < templateText.size(); ++piece) {
        const qsizetype length = std::min<qsizetype>(piece % 7 + 1, templateText.size() - position);
        styled.runs.append({templateText.mid(position, length), piece % 2 ? bold : tavo::RunStyle()});
        position += length;
    }
    const QString rich = tavo::renderAttributedTemplate(styled, details, context, values, sources).plainText();

    // {{uuid}} is new on every expansion; every other token fills the same in both.
    if (!templateText.contains(QLatin1StringView("uuid"), Qt::CaseInsensitive) && rich != plain) {
        __builtin_trap();
    }
    const qsizetype tokens = templateText.count(QLatin1StringView("{{"));
    const qsizetype liveLongest = 128;
    if (plain.size() > templateText.size() + tokens * std::max(longest, liveLongest)) {
        __builtin_trap();
    }
    return 0;
}
