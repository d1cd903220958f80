#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <functional>
#include <optional>

namespace tavo {

class Pasteboard;

// Where live tokens take their values from. The clock and the locale are injectable so the
// values can be checked; by default the current moment and the process's locale are used.
struct LiveTokenSources
{
    const Pasteboard* pasteboard = nullptr; // read for {{clipboard}}; none gives an empty text
    std::function<QDateTime()> now;         // read once per token; empty means the real clock
    QByteArray locale;                      // ICU locale name; empty means the process's locale
};

// The three variants of the {{token}} replacer. They differ in the tokens they know; an unknown
// token stays in the text as written.

// For pasted expansions. `clipboardValue`, when given, stands for the clipboard, which the
// caller read before clearing it.
QString expandTokens(const QString& text, const std::optional<QString>& clipboardValue,
                     const LiveTokenSources& sources);

// For templates rendered into documents.
QString expandLiveTemplateTokens(const QString& text, const LiveTokenSources& sources);

// For prompts and batches: no {{timestamp}}, {{unix}} or {{worldclock:…}}.
QString promptExpandTokens(const QString& text, const LiveTokenSources& sources);

} // namespace tavo
