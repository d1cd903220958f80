#pragma once

#include "browser/browser_records.h"

#include <QByteArrayView>
#include <QList>
#include <QString>

namespace tavo {

inline const QString chromeImportsCollection = QStringLiteral("Chrome imports");
inline const QString chromeImportNote = QStringLiteral("Imported from Google Chrome");

// Bookmark files larger than this are refused before they are read.
inline constexpr qint64 maximumBookmarkFileSize = qint64(64) * 1024 * 1024;

// Whether `text` reads as a URL at all (any scheme, or none): the bookmark parsers keep such
// addresses, script ones included, and drop the rest.
bool parsesAsURL(const QString& text);

// Chrome's bookmarks exported as HTML: each link in its innermost folder (a heading followed by
// a list), or in "Chrome imports" outside any folder.
QList<TavoSavedSite> parseChromeHTML(const QString& text);

// A Chrome profile's `Bookmarks` JSON file. Walked without recursion, so no nesting depth can
// exhaust the stack. Empty when the file is not a JSON object with an object under "roots".
QList<TavoSavedSite> parseChromeJSON(QByteArrayView data);

// Whether a file's first bytes and name say it is the JSON form.
bool looksLikeChromeJSON(const QString& fileName, QByteArrayView data);

} // namespace tavo
