#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QLatin1StringView>
#include <QSet>
#include <QString>
#include <QStringList>

#include <optional>

namespace tavo {

// Writes compact JSON straight into a byte buffer. The store writes libraries of a hundred
// thousand shortcuts; building a QJsonDocument first would take several times longer and twice
// the memory.
class JsonWriter
{
public:
    explicit JsonWriter(qsizetype reserve = 0) { m_out.reserve(reserve); }

    void beginArray() { open('['); }
    void endArray() { close(']'); }
    void beginObject() { open('{'); }
    void endObject() { close('}'); }

    void key(QLatin1StringView name);
    void key(const QString& name);
    void value(const QString& text);
    void value(bool flag);
    void value(double number);
    void value(const QStringList& texts);

    QByteArray take() { return std::move(m_out); }

private:
    void open(char bracket);
    void close(char bracket);
    void separate();
    void writeString(QStringView text);

    QByteArray m_out;
    bool m_first = true;
    bool m_afterKey = false;
};

// A pull parser over UTF-8 JSON, for decoding the store's files without a document in between.
// Every read checks the type of what stands next and fails, rather than converting, on anything
// else; once failed, the reader stays failed.
class JsonReader
{
public:
    enum class Type
    {
        Null,
        Bool,
        Number,
        String,
        Array,
        Object,
        End,
        Invalid
    };

    explicit JsonReader(QByteArrayView json)
        : m_data(json)
    {
    }

    Type peek();
    bool failed() const { return m_failed; }

    bool beginArray();
    // Before each element: true while one follows, false at the closing bracket (or on failure).
    bool nextElement();
    bool beginObject();
    // Before each member: its key, or nothing at the closing brace (or on failure). The view is
    // valid until the next call.
    std::optional<QByteArrayView> nextKey();

    std::optional<QString> readString();
    // A string's UTF-8 bytes with escapes resolved, valid until the next call.
    std::optional<QByteArrayView> readRawString();
    std::optional<bool> readBool();
    std::optional<double> readNumber();
    std::optional<QStringList> readStringList();
    bool readNull();
    bool skipValue();

    // True when nothing but whitespace is left, as a whole document must end.
    bool atEnd();

    bool fail()
    {
        m_failed = true;
        return false;
    }

private:
    void skipWhitespace();
    bool expect(char c);
    bool literal(QLatin1StringView word);
    // Decodes the string at the read position (after its opening quote) into UTF-8 with escapes
    // resolved; `raw` points into the input when the string held no escapes.
    bool scanString(QByteArrayView& raw);
    bool skipValue(int depth);

    QByteArrayView m_data;
    qsizetype m_pos = 0;
    QByteArray m_unescaped;
    bool m_failed = false;
    bool m_firstMember = false;
    bool m_ascii = false; // the last scanned string had no escapes and only ASCII
};

// Reads an optional member: null leaves the field absent, a value of the wrong type fails.
template<typename T, typename Read>
bool readOptional(JsonReader& reader, std::optional<T>& field, Read read)
{
    if (reader.peek() == JsonReader::Type::Null) {
        field.reset();
        return reader.readNull();
    }
    std::optional<T> value = read();
    if (!value) {
        return false;
    }
    field = std::move(*value);
    return true;
}

// Shares one copy of texts that repeat across many records (collection names, field names).
class StringPool
{
public:
    void intern(QString& text)
    {
        const auto known = m_texts.constFind(text);
        if (known != m_texts.constEnd()) {
            text = *known;
        } else {
            m_texts.insert(text);
        }
    }

private:
    QSet<QString> m_texts;
};

// Decodes a whole document that is one array, reading each element with `readItem` (which gets
// the reader positioned on the element). Nothing when the bytes are not such a document or one
// element does not decode.
template<typename T, typename ReadItem>
std::optional<QList<T>> readJsonArray(QByteArrayView json, ReadItem readItem)
{
    JsonReader reader(json);
    QList<T> items;
    if (!reader.beginArray()) {
        return std::nullopt;
    }
    while (reader.nextElement()) {
        std::optional<T> item = readItem(reader);
        if (!item) {
            return std::nullopt;
        }
        items.append(std::move(*item));
    }
    if (reader.failed() || !reader.atEnd()) {
        return std::nullopt;
    }
    return items;
}

} // namespace tavo
