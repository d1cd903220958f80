#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace tavo {

class JsonReader;
class JsonWriter;

// One shortcut as a package carries it: the record without its identity, and its media by the
// file names inside its own Media folder instead of paths.
struct TavoSharedShortcut
{
    QString key;
    QString name;
    QString text;
    QString group;
    QStringList media;
    std::optional<bool> directMediaPaste;
    std::optional<QStringList> groups;
    std::optional<QString> appBundleIdentifier;
    std::optional<QString> appPath;
    std::optional<QString> webURL;
    std::optional<QString> defaultMediaArticle;

    QByteArray toJsonBytes() const;
    // Nothing unless the bytes are one object with every required key, each of its type.
    static std::optional<TavoSharedShortcut> fromJsonBytes(QByteArrayView json);

    bool operator==(const TavoSharedShortcut&) const = default;
};

// The shortcuts of a collection package with its title and an asking price.
struct TavoSharedShortcutBundle
{
    QString title;
    QList<TavoSharedShortcut> shortcuts;
    std::optional<double> priceINR;

    QByteArray toJsonBytes() const;
    static std::optional<TavoSharedShortcutBundle> fromJsonBytes(QByteArrayView json);

    bool operator==(const TavoSharedShortcutBundle&) const = default;
};

void writeSharedShortcut(JsonWriter& writer, const TavoSharedShortcut& shortcut);
std::optional<TavoSharedShortcut> readSharedShortcut(JsonReader& reader);

} // namespace tavo
