#pragma once

#include <QString>

namespace tavo {

// The file name a download is saved under: the last component of the name the site suggests,
// without NUL and control characters, at most 255 bytes of UTF-8 (a whole character is never
// cut), and "download" when nothing usable is left, "." and ".." included.
QString downloadFileName(const QString& suggested);

// The first path in `folder` that names no file yet: `name` itself, then rounds of
// "<stem> (<n>).<extension>", n from 2, each round on the previous candidate ("a.pdf",
// "a (2).pdf", "a (2) (3).pdf"). A stem is shortened so that a name stays within 255 bytes.
QString uniqueDownloadPath(const QString& folder, const QString& name);

// Where downloads go: the desktop folder, or home when there is none. Never created.
QString downloadFolder();

} // namespace tavo
