#include "exchange/shared_shortcut.h"

#include "language/json_stream.h"

namespace tavo {

namespace {

void writeOptional(JsonWriter& writer, QLatin1StringView key, const std::optional<QString>& value)
{
    if (value) {
        writer.key(key);
        writer.value(*value);
    }
}

} // namespace

void writeSharedShortcut(JsonWriter& writer, const TavoSharedShortcut& shortcut)
{
    writer.beginObject();
    writer.key(QLatin1StringView("key"));
    writer.value(shortcut.key);
    writer.key(QLatin1StringView("name"));
    writer.value(shortcut.name);
    writer.key(QLatin1StringView("text"));
    writer.value(shortcut.text);
    writer.key(QLatin1StringView("group"));
    writer.value(shortcut.group);
    writer.key(QLatin1StringView("media"));
    writer.value(shortcut.media);
    // Absent optionals are left out rather than written as null.
    if (shortcut.directMediaPaste) {
        writer.key(QLatin1StringView("directMediaPaste"));
        writer.value(*shortcut.directMediaPaste);
    }
    if (shortcut.groups) {
        writer.key(QLatin1StringView("groups"));
        writer.value(*shortcut.groups);
    }
    writeOptional(writer, QLatin1StringView("appBundleIdentifier"), shortcut.appBundleIdentifier);
    writeOptional(writer, QLatin1StringView("appPath"), shortcut.appPath);
    writeOptional(writer, QLatin1StringView("webURL"), shortcut.webURL);
    writeOptional(writer, QLatin1StringView("defaultMediaArticle"), shortcut.defaultMediaArticle);
    writer.endObject();
}

std::optional<TavoSharedShortcut> readSharedShortcut(JsonReader& reader)
{
    if (!reader.beginObject()) {
        return std::nullopt;
    }
    TavoSharedShortcut shortcut;
    enum Required : unsigned
    {
        Key = 1,
        Name = 2,
        Text = 4,
        Group = 8,
        Media = 16,
        All = 31
    };
    unsigned found = 0;
    auto required = [&](QString& field, Required bit) {
        std::optional<QString> value = reader.readString();
        if (!value) {
            return false;
        }
        field = std::move(*value);
        found |= bit;
        return true;
    };
    auto text = [&] { return reader.readString(); };
    auto flag = [&] { return reader.readBool(); };
    auto list = [&] { return reader.readStringList(); };

    while (const std::optional<QByteArrayView> key = reader.nextKey()) {
        bool ok = true;
        if (*key == "key") {
            ok = required(shortcut.key, Key);
        } else if (*key == "name") {
            ok = required(shortcut.name, Name);
        } else if (*key == "text") {
            ok = required(shortcut.text, Text);
        } else if (*key == "group") {
            ok = required(shortcut.group, Group);
        } else if (*key == "media") {
            std::optional<QStringList> media = reader.readStringList();
            ok = media.has_value();
            if (ok) {
                shortcut.media = std::move(*media);
                found |= Media;
            }
        } else if (*key == "directMediaPaste") {
            ok = readOptional(reader, shortcut.directMediaPaste, flag);
        } else if (*key == "groups") {
            ok = readOptional(reader, shortcut.groups, list);
        } else if (*key == "appBundleIdentifier") {
            ok = readOptional(reader, shortcut.appBundleIdentifier, text);
        } else if (*key == "appPath") {
            ok = readOptional(reader, shortcut.appPath, text);
        } else if (*key == "webURL") {
            ok = readOptional(reader, shortcut.webURL, text);
        } else if (*key == "defaultMediaArticle") {
            ok = readOptional(reader, shortcut.defaultMediaArticle, text);
        } else {
            ok = reader.skipValue(); // a key of a newer version
        }
        if (!ok) {
            reader.fail();
            return std::nullopt;
        }
    }
    if (reader.failed() || found != All) {
        return std::nullopt;
    }
    return shortcut;
}

QByteArray TavoSharedShortcut::toJsonBytes() const
{
    JsonWriter writer;
    writeSharedShortcut(writer, *this);
    return writer.take();
}

std::optional<TavoSharedShortcut> TavoSharedShortcut::fromJsonBytes(QByteArrayView json)
{
    JsonReader reader(json);
    std::optional<TavoSharedShortcut> shortcut = readSharedShortcut(reader);
    return shortcut && reader.atEnd() ? shortcut : std::nullopt;
}

QByteArray TavoSharedShortcutBundle::toJsonBytes() const
{
    JsonWriter writer(qsizetype(shortcuts.size()) * 256);
    writer.beginObject();
    writer.key(QLatin1StringView("title"));
    writer.value(title);
    writer.key(QLatin1StringView("shortcuts"));
    writer.beginArray();
    for (const TavoSharedShortcut& shortcut : shortcuts) {
        writeSharedShortcut(writer, shortcut);
    }
    writer.endArray();
    if (priceINR) {
        writer.key(QLatin1StringView("priceINR"));
        writer.value(*priceINR);
    }
    writer.endObject();
    return writer.take();
}

std::optional<TavoSharedShortcutBundle> TavoSharedShortcutBundle::fromJsonBytes(QByteArrayView json)
{
    JsonReader reader(json);
    if (!reader.beginObject()) {
        return std::nullopt;
    }
    TavoSharedShortcutBundle bundle;
    bool hasTitle = false;
    bool hasShortcuts = false;
    while (const std::optional<QByteArrayView> key = reader.nextKey()) {
        bool ok = true;
        if (*key == "title") {
            std::optional<QString> title = hasTitle ? std::nullopt : reader.readString();
            ok = title.has_value();
            if (ok) {
                bundle.title = std::move(*title);
                hasTitle = true;
            }
        } else if (*key == "shortcuts") {
            // A second list would add to the first rather than stand for it.
            ok = !hasShortcuts && reader.beginArray();
            while (ok && reader.nextElement()) {
                std::optional<TavoSharedShortcut> shortcut = readSharedShortcut(reader);
                ok = shortcut.has_value();
                if (ok) {
                    bundle.shortcuts.append(std::move(*shortcut));
                }
            }
            ok = ok && !reader.failed();
            hasShortcuts = ok;
        } else if (*key == "priceINR") {
            ok = readOptional(reader, bundle.priceINR, [&] { return reader.readNumber(); });
        } else {
            ok = reader.skipValue();
        }
        if (!ok) {
            return std::nullopt;
        }
    }
    if (reader.failed() || !hasTitle || !hasShortcuts || !reader.atEnd()) {
        return std::nullopt;
    }
    return bundle;
}

} // namespace tavo
