#include "language/json_stream.h"

#include <charconv>
#include <cmath>

namespace tavo {

namespace {

constexpr int maximumDepth = 256;

void appendUtf8(QByteArray& out, char32_t code)
{
    if (code < 0x80) {
        out.append(static_cast<char>(code));
    } else if (code < 0x800) {
        out.append(static_cast<char>(0xC0 | (code >> 6)));
        out.append(static_cast<char>(0x80 | (code & 0x3F)));
    } else if (code < 0x10000) {
        out.append(static_cast<char>(0xE0 | (code >> 12)));
        out.append(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
        out.append(static_cast<char>(0x80 | (code & 0x3F)));
    } else {
        out.append(static_cast<char>(0xF0 | (code >> 18)));
        out.append(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
        out.append(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
        out.append(static_cast<char>(0x80 | (code & 0x3F)));
    }
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

} // namespace

// Writer

void JsonWriter::separate()
{
    if (m_afterKey) {
        m_afterKey = false;
        return;
    }
    if (!m_first) {
        m_out.append(',');
    }
    m_first = false;
}

void JsonWriter::open(char bracket)
{
    separate();
    m_out.append(bracket);
    m_first = true;
}

void JsonWriter::close(char bracket)
{
    m_out.append(bracket);
    m_first = false;
}

void JsonWriter::key(QLatin1StringView name)
{
    separate();
    m_out.append('"');
    m_out.append(name.data(), name.size()); // keys are plain ASCII names
    m_out.append("\":", 2);
    m_afterKey = true;
}

void JsonWriter::key(const QString& name)
{
    separate();
    writeString(name);
    m_out.append(':');
    m_afterKey = true;
}

void JsonWriter::value(const QString& text)
{
    separate();
    writeString(text);
}

void JsonWriter::value(bool flag)
{
    separate();
    m_out.append(flag ? QByteArrayView("true") : QByteArrayView("false"));
}

void JsonWriter::value(double number)
{
    separate();
    if (!std::isfinite(number)) {
        m_out.append("null", 4); // JSON has no infinities; readers treat the field as bad
        return;
    }
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, number);
    m_out.append(buffer, result.ptr - buffer);
}

void JsonWriter::value(const QStringList& texts)
{
    beginArray();
    for (const QString& text : texts) {
        value(text);
    }
    endArray();
}

void JsonWriter::writeString(QStringView text)
{
    // Room for the worst case (every unit a six-byte escape), written through a raw pointer:
    // appending byte by byte is most of the cost of saving a large library.
    const qsizetype size = text.size();
    const qsizetype start = m_out.size();
    m_out.resize(start + size * 6 + 2);
    char* out = m_out.data() + start;
    auto escapeUnit = [&out](char16_t unit) {
        static const char hex[] = "0123456789abcdef";
        *out++ = '\\';
        *out++ = 'u';
        *out++ = hex[(unit >> 12) & 0xF];
        *out++ = hex[(unit >> 8) & 0xF];
        *out++ = hex[(unit >> 4) & 0xF];
        *out++ = hex[unit & 0xF];
    };
    auto utf8 = [&out](char32_t code) {
        if (code < 0x800) {
            *out++ = static_cast<char>(0xC0 | (code >> 6));
            *out++ = static_cast<char>(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            *out++ = static_cast<char>(0xE0 | (code >> 12));
            *out++ = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            *out++ = static_cast<char>(0x80 | (code & 0x3F));
        } else {
            *out++ = static_cast<char>(0xF0 | (code >> 18));
            *out++ = static_cast<char>(0x80 | ((code >> 12) & 0x3F));
            *out++ = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            *out++ = static_cast<char>(0x80 | (code & 0x3F));
        }
    };

    *out++ = '"';
    const char16_t* units = text.utf16();
    for (qsizetype i = 0; i < size; ++i) {
        const char16_t unit = units[i];
        if (unit >= 0x20 && unit < 0x80) {
            if (unit == u'"' || unit == u'\\') {
                *out++ = '\\';
            }
            *out++ = static_cast<char>(unit);
        } else if (unit < 0x20) {
            const char* named = nullptr;
            switch (unit) {
            case u'\n':
                named = "\\n";
                break;
            case u'\r':
                named = "\\r";
                break;
            case u'\t':
                named = "\\t";
                break;
            case u'\b':
                named = "\\b";
                break;
            case u'\f':
                named = "\\f";
                break;
            default:
                break;
            }
            if (named) {
                *out++ = named[0];
                *out++ = named[1];
            } else {
                escapeUnit(unit);
            }
        } else if (QChar::isHighSurrogate(unit) && i + 1 < size && QChar::isLowSurrogate(units[i + 1])) {
            utf8(QChar::surrogateToUcs4(unit, units[i + 1]));
            ++i;
        } else if (QChar::isSurrogate(unit)) {
            // A lone half of a pair has no UTF-8 form; the escape keeps the text exactly as it was.
            escapeUnit(unit);
        } else {
            utf8(unit);
        }
    }
    *out++ = '"';
    m_out.truncate(out - m_out.constData());
}

// Reader

void JsonReader::skipWhitespace()
{
    while (m_pos < m_data.size()) {
        const char c = m_data[m_pos];
        if (c != ' ' && c != '\n' && c != '\r' && c != '\t') {
            return;
        }
        ++m_pos;
    }
}

JsonReader::Type JsonReader::peek()
{
    if (m_failed) {
        return Type::Invalid;
    }
    skipWhitespace();
    if (m_pos >= m_data.size()) {
        return Type::End;
    }
    switch (m_data[m_pos]) {
    case 'n':
        return Type::Null;
    case 't':
    case 'f':
        return Type::Bool;
    case '"':
        return Type::String;
    case '[':
        return Type::Array;
    case '{':
        return Type::Object;
    case '-':
    case '0':
    case '1':
    case '2':
    case '3':
    case '4':
    case '5':
    case '6':
    case '7':
    case '8':
    case '9':
        return Type::Number;
    default:
        return Type::Invalid;
    }
}

bool JsonReader::expect(char c)
{
    skipWhitespace();
    if (m_failed || m_pos >= m_data.size() || m_data[m_pos] != c) {
        return fail();
    }
    ++m_pos;
    return true;
}

bool JsonReader::literal(QLatin1StringView word)
{
    if (m_data.sliced(m_pos).startsWith(QByteArrayView(word.data(), word.size()))) {
        m_pos += word.size();
        return true;
    }
    return fail();
}

bool JsonReader::beginArray()
{
    if (!expect('[')) {
        return false;
    }
    m_firstMember = true;
    return true;
}

bool JsonReader::nextElement()
{
    if (m_failed) {
        return false;
    }
    skipWhitespace();
    if (m_pos < m_data.size() && m_data[m_pos] == ']') {
        ++m_pos;
        m_firstMember = false;
        return false;
    }
    if (!m_firstMember && !expect(',')) {
        return false;
    }
    m_firstMember = false;
    return true;
}

bool JsonReader::beginObject()
{
    if (!expect('{')) {
        return false;
    }
    m_firstMember = true;
    return true;
}

std::optional<QByteArrayView> JsonReader::nextKey()
{
    if (m_failed) {
        return std::nullopt;
    }
    skipWhitespace();
    if (m_pos < m_data.size() && m_data[m_pos] == '}') {
        ++m_pos;
        m_firstMember = false;
        return std::nullopt;
    }
    if (!m_firstMember && !expect(',')) {
        return std::nullopt;
    }
    m_firstMember = false;
    QByteArrayView key;
    if (!expect('"') || !scanString(key) || !expect(':')) {
        fail();
        return std::nullopt;
    }
    return key;
}

bool JsonReader::scanString(QByteArrayView& raw)
{
    const qsizetype start = m_pos;
    m_ascii = true;
    // The common case: no escapes, so the text is a slice of the input.
    while (m_pos < m_data.size()) {
        const auto c = static_cast<unsigned char>(m_data[m_pos]);
        if (c == '"') {
            raw = m_data.sliced(start, m_pos - start);
            ++m_pos;
            return true;
        }
        if (c == '\\') {
            break;
        }
        if (c < 0x20) {
            return fail();
        }
        m_ascii = m_ascii && c < 0x80;
        ++m_pos;
    }
    m_ascii = false;
    m_unescaped.clear();
    m_unescaped.append(m_data.sliced(start, m_pos - start));
    while (m_pos < m_data.size()) {
        const char c = m_data[m_pos++];
        if (c == '"') {
            raw = m_unescaped;
            return true;
        }
        if (static_cast<unsigned char>(c) < 0x20) {
            return fail();
        }
        if (c != '\\') {
            m_unescaped.append(c);
            continue;
        }
        if (m_pos >= m_data.size()) {
            return fail();
        }
        const char escape = m_data[m_pos++];
        switch (escape) {
        case '"':
            m_unescaped.append('"');
            break;
        case '\\':
            m_unescaped.append('\\');
            break;
        case '/':
            m_unescaped.append('/');
            break;
        case 'b':
            m_unescaped.append('\b');
            break;
        case 'f':
            m_unescaped.append('\f');
            break;
        case 'n':
            m_unescaped.append('\n');
            break;
        case 'r':
            m_unescaped.append('\r');
            break;
        case 't':
            m_unescaped.append('\t');
            break;
        case 'u': {
            auto readUnit = [this](char32_t& unit) {
                if (m_pos + 4 > m_data.size()) {
                    return false;
                }
                unit = 0;
                for (int i = 0; i < 4; ++i) {
                    const int digit = hexValue(m_data[m_pos++]);
                    if (digit < 0) {
                        return false;
                    }
                    unit = unit * 16 + static_cast<char32_t>(digit);
                }
                return true;
            };
            char32_t unit = 0;
            if (!readUnit(unit)) {
                return fail();
            }
            if (QChar::isHighSurrogate(unit) && m_data.sliced(m_pos).startsWith("\\u")) {
                const qsizetype back = m_pos;
                m_pos += 2;
                char32_t low = 0;
                if (!readUnit(low)) {
                    return fail();
                }
                if (QChar::isLowSurrogate(low)) {
                    appendUtf8(m_unescaped,
                               QChar::surrogateToUcs4(static_cast<char16_t>(unit), static_cast<char16_t>(low)));
                    break;
                }
                m_pos = back;
            }
            if (QChar::isSurrogate(unit)) {
                // Kept as a marker the decoder turns back into the lone unit (see readString).
                m_unescaped.append('\xED');
                m_unescaped.append(static_cast<char>(0x80 | ((unit >> 6) & 0x3F)));
                m_unescaped.append(static_cast<char>(0x80 | (unit & 0x3F)));
                break;
            }
            appendUtf8(m_unescaped, unit);
            break;
        }
        default:
            return fail();
        }
    }
    return fail();
}

std::optional<QByteArrayView> JsonReader::readRawString()
{
    QByteArrayView raw;
    if (!expect('"') || !scanString(raw)) {
        return std::nullopt;
    }
    return raw;
}

std::optional<QString> JsonReader::readString()
{
    QByteArrayView raw;
    if (!expect('"') || !scanString(raw)) {
        return std::nullopt;
    }
    // A lone surrogate was written as "\uD8xx"; its three-byte form is not valid UTF-8, so it is
    // put back by hand rather than turned into a replacement character.
    if (raw.data() == m_unescaped.constData() && m_unescaped.contains('\xED')) {
        QString text;
        text.reserve(raw.size());
        qsizetype from = 0;
        for (qsizetype i = 0; i + 2 < raw.size(); ++i) {
            const auto byte = static_cast<unsigned char>(raw[i]);
            const auto next = static_cast<unsigned char>(raw[i + 1]);
            if (byte == 0xED && next >= 0xA0) {
                text += QString::fromUtf8(raw.sliced(from, i - from));
                const char16_t unit = static_cast<char16_t>(0xD000 | ((next & 0x3F) << 6) |
                                                            (static_cast<unsigned char>(raw[i + 2]) & 0x3F));
                text += QChar(unit);
                i += 2;
                from = i + 1;
            }
        }
        text += QString::fromUtf8(raw.sliced(from));
        return text;
    }
    // Most stored text is plain ASCII, which converts several times faster as Latin-1.
    return m_ascii ? QString::fromLatin1(raw) : QString::fromUtf8(raw);
}

std::optional<bool> JsonReader::readBool()
{
    if (peek() != Type::Bool) {
        fail();
        return std::nullopt;
    }
    if (m_data[m_pos] == 't') {
        return literal(QLatin1StringView("true")) ? std::optional<bool>(true) : std::nullopt;
    }
    return literal(QLatin1StringView("false")) ? std::optional<bool>(false) : std::nullopt;
}

std::optional<double> JsonReader::readNumber()
{
    if (peek() != Type::Number) {
        fail();
        return std::nullopt;
    }
    // JSON's grammar: -?(0|[1-9][0-9]*)(\.[0-9]+)?([eE][+-]?[0-9]+)?
    const qsizetype start = m_pos;
    auto digits = [this] {
        const qsizetype from = m_pos;
        while (m_pos < m_data.size() && m_data[m_pos] >= '0' && m_data[m_pos] <= '9') {
            ++m_pos;
        }
        return m_pos - from;
    };
    if (m_data[m_pos] == '-') {
        ++m_pos;
    }
    const qsizetype integerStart = m_pos;
    const qsizetype integerDigits = digits();
    if (integerDigits == 0 || (integerDigits > 1 && m_data[integerStart] == '0')) {
        fail();
        return std::nullopt;
    }
    if (m_pos < m_data.size() && m_data[m_pos] == '.') {
        ++m_pos;
        if (digits() == 0) {
            fail();
            return std::nullopt;
        }
    }
    if (m_pos < m_data.size() && (m_data[m_pos] == 'e' || m_data[m_pos] == 'E')) {
        ++m_pos;
        if (m_pos < m_data.size() && (m_data[m_pos] == '+' || m_data[m_pos] == '-')) {
            ++m_pos;
        }
        if (digits() == 0) {
            fail();
            return std::nullopt;
        }
    }
    double value = 0;
    const char* first = m_data.data() + start;
    const auto result = std::from_chars(first, m_data.data() + m_pos, value);
    if (result.ec != std::errc() || result.ptr != m_data.data() + m_pos) {
        fail();
        return std::nullopt;
    }
    return value;
}

std::optional<QStringList> JsonReader::readStringList()
{
    if (!beginArray()) {
        return std::nullopt;
    }
    QStringList texts;
    while (nextElement()) {
        std::optional<QString> text = readString();
        if (!text) {
            return std::nullopt;
        }
        texts.append(std::move(*text));
    }
    if (m_failed) {
        return std::nullopt;
    }
    return texts;
}

bool JsonReader::readNull()
{
    if (peek() != Type::Null) {
        return fail();
    }
    return literal(QLatin1StringView("null"));
}

bool JsonReader::skipValue()
{
    return skipValue(0);
}

bool JsonReader::skipValue(int depth)
{
    if (depth > maximumDepth) {
        return fail();
    }
    switch (peek()) {
    case Type::Null:
        return readNull();
    case Type::Bool:
        return readBool().has_value();
    case Type::Number:
        return readNumber().has_value();
    case Type::String: {
        QByteArrayView raw;
        return expect('"') && scanString(raw);
    }
    case Type::Array:
        if (!beginArray()) {
            return false;
        }
        while (nextElement()) {
            if (!skipValue(depth + 1)) {
                return false;
            }
        }
        return !m_failed;
    case Type::Object:
        if (!beginObject()) {
            return false;
        }
        while (nextKey()) {
            if (!skipValue(depth + 1)) {
                return false;
            }
        }
        return !m_failed;
    case Type::End:
    case Type::Invalid:
        return fail();
    }
    return fail();
}

bool JsonReader::atEnd()
{
    skipWhitespace();
    return !m_failed && m_pos == m_data.size();
}

} // namespace tavo
