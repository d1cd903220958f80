#pragma once

#include <QString>

namespace tavo {

// The file name an archive may give a media file: its last path component (either separator),
// in NFC, cut to fit the 255 bytes of a Linux file name without splitting a character. Empty for
// "", "." and "..", which name no file: an archive cannot write outside its target through it.
QString reducedMediaName(const QString& named);

} // namespace tavo
