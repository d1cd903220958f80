#pragma once

#include "language/rtf.h"
#include "language/triggers.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace tavo {

// The desktop's default sans family and its size in points. Without a GUI application (the
// command-line tool) there is no font database to ask: "Sans" and 13 points.
QString systemFontFamily();
double systemFontPointSize();

// "&" goes first, so the ampersands of the other entities stay as they are.
QString htmlEscaped(const QString& text);

// Batch rows as a one-column table, for editors and spreadsheets that paste HTML.
QString htmlTable(const QStringList& rows);

// Text pasted with a style: a span whose CSS carries the weight, slant, underline and size.
QString styledHtml(const QString& text, const ShortcutTextStyle& style, double pointSize);

// The same as one styled run, for the project's RTF writer (language/rtf.h).
StyledText styledRuns(const QString& text, const ShortcutTextStyle& style, const QString& family, double pointSize);

} // namespace tavo
