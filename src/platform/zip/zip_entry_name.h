#pragma once

#include <QString>

#include <optional>

namespace tavo {

// An entry name that passed the rules both the writer and the reader hold to.
struct ZipEntryName
{
    QString path;  // relative, '/'-separated, no trailing '/', NFC
    bool isFolder; // the raw name ended with '/'
};

// Checks a raw entry name: refuses empty names, absolute names (a leading '/' or a drive
// letter), backslashes (Windows tools mean them as separators, so "..\\x" would escape), empty,
// "." and ".." components. Returns the reason on failure.
std::optional<QString> zipEntryNameFault(const QString& raw);
std::optional<ZipEntryName> checkedZipEntryName(const QString& raw);

// The key under which two names count as the same file on a case-insensitive or normalising
// file system: NFC and case folded.
QString zipEntryKey(const QString& path);

} // namespace tavo
