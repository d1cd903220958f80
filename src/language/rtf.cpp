#include "language/rtf.h"

#include <QHash>
#include <QSet>

#include <algorithm>

namespace tavo {

namespace {

constexpr char16_t lineSeparator = 0x2028;
// Deeper groups are read as skipped: real documents nest a few levels, hostile ones thousands.
constexpr int maxGroupDepth = 64;
// A control word's parameter is a 16-bit number in RTF; longer digit runs are cut, not overflowed.
constexpr int maxParameterDigits = 10;
constexpr int maxControlWordLetters = 32;

QString withNewlines(QString text)
{
    text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    text.replace(u'\r', u'\n');
    return text;
}

void appendRtfText(QByteArray& out, const QString& text)
{
    for (const QChar c : text) {
        const char16_t unit = c.unicode();
        switch (unit) {
        case u'\\':
            out += "\\\\";
            break;
        case u'{':
            out += "\\{";
            break;
        case u'}':
            out += "\\}";
            break;
        case u'\n':
            out += "\\par ";
            break;
        case u'\t':
            out += "\\tab ";
            break;
        case lineSeparator:
            out += "\\line ";
            break;
        default:
            if (unit < 0x20) {
                break; // other control characters have no meaning in a paragraph
            }
            if (unit < 0x80) {
                out += char(unit);
                break;
            }
            // RTF reads the number as a signed 16-bit value; each half of a surrogate pair goes
            // on its own, as word processors write them.
            out += "\\u" + QByteArray::number(unit > 0x7fff ? int(unit) - 0x10000 : int(unit)) + '?';
        }
    }
}

int halfPoints(double points)
{
    return std::clamp(int(points * 2 + 0.5), 1, 32767);
}

// Control words that move from `from` to `to`; empty when nothing changes.
QByteArray styleChange(const RunStyle& from, const RunStyle& to, const QList<QString>& fonts,
                       const QList<TextColor>& colors)
{
    QByteArray out;
    RunStyle current = from;
    // Only \plain takes a size back to the reader's default.
    if (from.pointSize && !to.pointSize) {
        out += "\\plain\\f0";
        current = RunStyle();
    }
    if (current.family != to.family) {
        out += "\\f" + QByteArray::number(to.family.isEmpty() ? 0 : fonts.indexOf(to.family));
    }
    if (current.pointSize != to.pointSize && to.pointSize) {
        out += "\\fs" + QByteArray::number(halfPoints(*to.pointSize));
    }
    if (current.bold != to.bold) {
        out += to.bold ? "\\b" : "\\b0";
    }
    if (current.italic != to.italic) {
        out += to.italic ? "\\i" : "\\i0";
    }
    if (current.underline != to.underline) {
        out += to.underline ? "\\ul" : "\\ulnone";
    }
    if (current.strikethrough != to.strikethrough) {
        out += to.strikethrough ? "\\strike" : "\\strike0";
    }
    if (current.color != to.color) {
        // Entry 0 of the colour table is the automatic colour.
        out += "\\cf" + QByteArray::number(to.color ? colors.indexOf(*to.color) + 1 : 0);
    }
    return out;
}

// Windows code page 1252 at 0x80 to 0x9f; the rest of the byte range is Latin-1. Undefined
// bytes read as U+FFFD.
char16_t fromCp1252(uchar byte)
{
    static constexpr char16_t high[32] = {0x20ac, 0xfffd, 0x201a, 0x0192, 0x201e, 0x2026, 0x2020, 0x2021,
                                          0x02c6, 0x2030, 0x0160, 0x2039, 0x0152, 0xfffd, 0x017d, 0xfffd,
                                          0xfffd, 0x2018, 0x2019, 0x201c, 0x201d, 0x2022, 0x2013, 0x2014,
                                          0x02dc, 0x2122, 0x0161, 0x203a, 0x0153, 0xfffd, 0x017e, 0x0178};
    return byte >= 0x80 && byte < 0xa0 ? high[byte - 0x80] : char16_t(byte);
}

enum class Destination
{
    Text,
    FontTable,
    ColorTable,
    Skip
};

struct GroupState
{
    Destination destination = Destination::Text;
    bool bold = false;
    bool italic = false;
    bool underline = false;
    bool strikethrough = false;
    int halfPoints = 0; // 0: default
    int colorIndex = 0;
    int fontIndex = -1; // -1: the document's default
    int unicodeSkip = 1;
};

const QSet<QByteArray>& skippedDestinations()
{
    static const QSet<QByteArray> words = {"stylesheet",
                                           "info",
                                           "pict",
                                           "object",
                                           "header",
                                           "headerl",
                                           "headerr",
                                           "headerf",
                                           "footer",
                                           "footerl",
                                           "footerr",
                                           "footerf",
                                           "footnote",
                                           "fldinst",
                                           "listtable",
                                           "listoverridetable",
                                           "rsidtbl",
                                           "themedata",
                                           "colorschememapping",
                                           "latentstyles",
                                           "datastore",
                                           "xmlnstbl",
                                           "filetbl",
                                           "revtbl",
                                           "generator",
                                           "pgdsctbl",
                                           "mmathPr",
                                           "private",
                                           "nonshppict",
                                           "shppict",
                                           "bkmkstart",
                                           "bkmkend",
                                           "annotation",
                                           "atnid",
                                           "atnauthor",
                                           "txe",
                                           "xe",
                                           "tc",
                                           "ftnsep",
                                           "ftnsepc",
                                           "ftncn",
                                           "aftnsep",
                                           "aftnsepc",
                                           "aftncn",
                                           "template",
                                           "userprops",
                                           "docvar",
                                           "operator",
                                           "title",
                                           "subject",
                                           "author",
                                           "keywords",
                                           "comment",
                                           "doccomm",
                                           "company",
                                           "category",
                                           "buptim",
                                           "creatim",
                                           "revtim",
                                           "printim",
                                           "hlinkbase",
                                           "objdata",
                                           "blipuid",
                                           "sp",
                                           "sn",
                                           "sv",
                                           "panose",
                                           "falt",
                                           "fname"};
    return words;
}

class RtfReader
{
public:
    explicit RtfReader(const QByteArray& rtf)
        : m_in(rtf)
    {
    }

    StyledText read()
    {
        m_stack.append(GroupState());
        m_pos = 0;
        while (m_pos < m_in.size()) {
            const char c = m_in.at(m_pos++);
            if (c == '{') {
                openGroup();
            } else if (c == '}') {
                if (!closeGroup()) {
                    break; // the document's own group has ended
                }
            } else if (c == '\\') {
                readControl();
            } else if (c == '\r' || c == '\n') {
                // Line ends in the file are for its writer's convenience, not text.
            } else {
                if (m_skipDepth == 0 && (uchar(c) >= 0x20 || c == '\t')) {
                    addChar(fromCp1252(uchar(c)));
                }
                m_groupStart = false;
            }
        }
        m_result.defaultFamily = m_fonts.value(m_defaultFont);
        return m_result;
    }

private:
    GroupState& state() { return m_stack.last(); }

    void openGroup()
    {
        if (m_skipDepth > 0 || m_stack.size() >= maxGroupDepth) {
            ++m_skipDepth;
            return;
        }
        m_stack.append(m_stack.last());
        m_groupStart = true;
    }

    bool closeGroup()
    {
        m_groupStart = false;
        if (m_skipDepth > 0) {
            --m_skipDepth;
            return true;
        }
        if (state().destination == Destination::FontTable) {
            finishFont();
        }
        m_stack.removeLast();
        return m_stack.size() > 1;
    }

    void readControl()
    {
        if (m_pos >= m_in.size()) {
            return;
        }
        const char c = m_in.at(m_pos);
        if (!isLetter(c)) {
            ++m_pos;
            readControlSymbol(c);
            return;
        }
        const qsizetype wordStart = m_pos;
        while (m_pos < m_in.size() && isLetter(m_in.at(m_pos))) {
            ++m_pos;
        }
        // No real word is this long; a longer one is read whole and known as nothing.
        const QByteArray word = m_in.mid(wordStart, std::min<qsizetype>(m_pos - wordStart, maxControlWordLetters + 1));
        std::optional<int> parameter;
        bool negative = false;
        if (m_pos < m_in.size() && m_in.at(m_pos) == '-') {
            negative = true;
            ++m_pos;
        }
        qint64 number = 0;
        int digits = 0;
        while (m_pos < m_in.size() && isDigit(m_in.at(m_pos))) {
            if (digits < maxParameterDigits) {
                number = number * 10 + (m_in.at(m_pos) - '0');
            }
            ++digits;
            ++m_pos;
        }
        if (digits > 0) {
            number = std::min<qint64>(number, 0x7fffffff);
            parameter = int(negative ? -number : number);
        }
        if (m_pos < m_in.size() && m_in.at(m_pos) == ' ') {
            ++m_pos; // the delimiter belongs to the word
        }
        controlWord(word, parameter);
    }

    static bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
    static bool isDigit(char c) { return c >= '0' && c <= '9'; }

    static int hexValue(char c)
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

    void readControlSymbol(char c)
    {
        const bool atGroupStart = m_groupStart;
        m_groupStart = false;
        if (c == '*') {
            // An ignorable destination: a reader that does not know it skips the group.
            if (atGroupStart && m_skipDepth == 0) {
                state().destination = Destination::Skip;
            }
            return;
        }
        if (m_skipDepth > 0) {
            if (c == '\'') {
                m_pos = std::min(m_pos + 2, m_in.size());
            }
            return;
        }
        switch (c) {
        case '\\':
        case '{':
        case '}':
            addChar(char16_t(c));
            break;
        case '\'': {
            const int high = m_pos < m_in.size() ? hexValue(m_in.at(m_pos)) : -1;
            const int low = m_pos + 1 < m_in.size() ? hexValue(m_in.at(m_pos + 1)) : -1;
            if (high < 0 || low < 0) {
                return;
            }
            m_pos += 2;
            addChar(fromCp1252(uchar(high * 16 + low)));
            break;
        }
        case '~':
            addChar(0x00a0);
            break;
        case '_':
            addChar(0x2011);
            break;
        case '\n':
        case '\r':
            addChar(u'\n');
            break;
        default:
            break; // \- optional hyphen, \| and \: formula marks
        }
    }

    void controlWord(const QByteArray& word, std::optional<int> parameter)
    {
        const bool atGroupStart = m_groupStart;
        m_groupStart = false;
        if (word == "bin") {
            // Raw bytes follow: never read them as RTF.
            m_pos = std::min<qsizetype>(m_pos + std::max(parameter.value_or(0), 0), m_in.size());
            return;
        }
        if (m_skipDepth > 0) {
            return;
        }
        GroupState& s = state();
        if (s.destination == Destination::Skip) {
            return;
        }
        if (atGroupStart) {
            if (word == "fonttbl") {
                s.destination = Destination::FontTable;
                m_fontName.clear();
                return;
            }
            if (word == "colortbl") {
                s.destination = Destination::ColorTable;
                m_color = {};
                m_colorSet = false;
                return;
            }
            if (skippedDestinations().contains(word)) {
                s.destination = Destination::Skip;
                return;
            }
        }
        const int value = parameter.value_or(1);
        if (word == "u") {
            if (!parameter) {
                return; // a cut-off escape has no character
            }
            if (value < -0x8000 || value > 0x10ffff) {
                // No character: only the fallback stays out.
            } else if (value > 0xffff) {
                // Some writers give a character beyond the 16-bit range as one number.
                addChar(QChar::highSurrogate(char32_t(value)));
                addChar(QChar::lowSurrogate(char32_t(value)));
            } else {
                addChar(char16_t(value & 0xffff));
            }
            skipFallback(s.unicodeSkip);
        } else if (word == "uc") {
            s.unicodeSkip = std::clamp(value, 0, 8);
        } else if (word == "par" || word == "sect" || word == "page" || word == "row") {
            addChar(u'\n');
        } else if (word == "line") {
            addChar(lineSeparator);
        } else if (word == "tab" || word == "cell") {
            addChar(u'\t');
        } else if (word == "emdash") {
            addChar(0x2014);
        } else if (word == "endash") {
            addChar(0x2013);
        } else if (word == "bullet") {
            addChar(0x2022);
        } else if (word == "lquote") {
            addChar(0x2018);
        } else if (word == "rquote") {
            addChar(0x2019);
        } else if (word == "ldblquote") {
            addChar(0x201c);
        } else if (word == "rdblquote") {
            addChar(0x201d);
        } else if (word == "b") {
            s.bold = value != 0;
        } else if (word == "i") {
            s.italic = value != 0;
        } else if (word == "ulnone") {
            s.underline = false;
        } else if (word.startsWith("ul") && word != "ulc") {
            // \ul, \uld, \uldb, \ulw, \ulwave...: every kind of underline is an underline here.
            s.underline = value != 0;
        } else if (word == "strike" || word == "striked") {
            s.strikethrough = value != 0;
        } else if (word == "fs") {
            s.halfPoints = std::max(parameter.value_or(0), 0);
        } else if (word == "cf") {
            s.colorIndex = std::max(value, 0);
        } else if (word == "f") {
            if (s.destination == Destination::FontTable) {
                finishFont();
                m_fontNumber = value;
            } else {
                s.fontIndex = value;
            }
        } else if (word == "deff") {
            m_defaultFont = value;
        } else if (word == "plain") {
            const GroupState reset;
            s.bold = reset.bold;
            s.italic = reset.italic;
            s.underline = reset.underline;
            s.strikethrough = reset.strikethrough;
            s.halfPoints = reset.halfPoints;
            s.colorIndex = reset.colorIndex;
            s.fontIndex = reset.fontIndex;
        } else if (s.destination == Destination::ColorTable) {
            const int component = std::clamp(value, 0, 255);
            if (word == "red") {
                m_color.red = component;
                m_colorSet = true;
            } else if (word == "green") {
                m_color.green = component;
                m_colorSet = true;
            } else if (word == "blue") {
                m_color.blue = component;
                m_colorSet = true;
            }
        }
    }

    // After \uN the reader skips the N characters written for readers without Unicode: a
    // character, a \'hh escape or a control word each count one; a group's brace ends the skip.
    void skipFallback(int count)
    {
        while (count > 0 && m_pos < m_in.size()) {
            const char c = m_in.at(m_pos);
            if (c == '{' || c == '}') {
                return;
            }
            if (c == '\r' || c == '\n') {
                ++m_pos;
                continue;
            }
            ++m_pos;
            if (c == '\\' && m_pos < m_in.size()) {
                const char next = m_in.at(m_pos);
                if (next == '\'') {
                    m_pos = std::min(m_pos + 3, m_in.size());
                } else if (isLetter(next)) {
                    while (m_pos < m_in.size() && isLetter(m_in.at(m_pos))) {
                        ++m_pos;
                    }
                    if (m_pos < m_in.size() && m_in.at(m_pos) == '-') {
                        ++m_pos;
                    }
                    while (m_pos < m_in.size() && isDigit(m_in.at(m_pos))) {
                        ++m_pos;
                    }
                    if (m_pos < m_in.size() && m_in.at(m_pos) == ' ') {
                        ++m_pos;
                    }
                } else {
                    ++m_pos;
                }
            }
            --count;
        }
    }

    void addChar(char16_t unit)
    {
        GroupState& s = state();
        switch (s.destination) {
        case Destination::Skip:
            return;
        case Destination::FontTable:
            if (unit == u';') {
                finishFont();
            } else {
                m_fontName.append(QChar(unit));
            }
            return;
        case Destination::ColorTable:
            if (unit == u';') {
                m_colors.append(m_colorSet ? std::optional<TextColor>(m_color) : std::nullopt);
                m_color = {};
                m_colorSet = false;
            }
            return;
        case Destination::Text:
            break;
        }
        RunStyle style;
        style.bold = s.bold;
        style.italic = s.italic;
        style.underline = s.underline;
        style.strikethrough = s.strikethrough;
        if (s.halfPoints > 0) {
            style.pointSize = s.halfPoints / 2.0;
        }
        if (s.colorIndex > 0 && s.colorIndex < m_colors.size()) {
            style.color = m_colors.at(s.colorIndex);
        }
        if (s.fontIndex >= 0 && s.fontIndex != m_defaultFont) {
            style.family = m_fonts.value(s.fontIndex);
        }
        appendRun(m_result.runs, QString(QChar(unit)), style);
    }

    void finishFont()
    {
        const QString name = m_fontName.trimmed();
        if (!name.isEmpty() && !m_fonts.contains(m_fontNumber)) {
            m_fonts.insert(m_fontNumber, name);
        }
        m_fontName.clear();
    }

    const QByteArray& m_in;
    qsizetype m_pos = 0;
    QList<GroupState> m_stack;
    int m_skipDepth = 0; // groups opened inside a skipped or too deep one
    bool m_groupStart = false;

    QHash<int, QString> m_fonts;
    int m_fontNumber = 0;
    int m_defaultFont = 0;
    QString m_fontName;
    QList<std::optional<TextColor>> m_colors;
    TextColor m_color;
    bool m_colorSet = false;

    StyledText m_result;
};

} // namespace

QString StyledText::plainText() const
{
    QString text;
    for (const StyledRun& run : runs) {
        text += run.text;
    }
    return text;
}

void appendRun(QList<StyledRun>& runs, const QString& text, const RunStyle& style)
{
    if (text.isEmpty()) {
        return;
    }
    if (!runs.isEmpty() && runs.last().style == style) {
        runs.last().text += text;
    } else {
        runs.append({text, style});
    }
}

QByteArray rtfFromStyledText(const StyledText& text)
{
    QList<QString> fonts{text.defaultFamily};
    QList<TextColor> colors;
    for (const StyledRun& run : text.runs) {
        if (!run.style.family.isEmpty() && !fonts.contains(run.style.family)) {
            fonts.append(run.style.family);
        }
        if (run.style.color && !colors.contains(*run.style.color)) {
            colors.append(*run.style.color);
        }
    }

    QByteArray rtf = "{\\rtf1\\ansi\\ansicpg1252\\deff0\\uc1{\\fonttbl";
    for (qsizetype i = 0; i < fonts.size(); ++i) {
        QString name = fonts.at(i);
        name.remove(u';'); // ends the name in the font table
        rtf += "{\\f" + QByteArray::number(i) + (i == 0 ? "\\fswiss " : "\\fnil ");
        appendRtfText(rtf, name);
        rtf += ";}";
    }
    rtf += "}";
    if (!colors.isEmpty()) {
        rtf += "{\\colortbl;";
        for (const TextColor& color : colors) {
            rtf += "\\red" + QByteArray::number(std::clamp(color.red, 0, 255)) + "\\green" +
                   QByteArray::number(std::clamp(color.green, 0, 255)) + "\\blue" +
                   QByteArray::number(std::clamp(color.blue, 0, 255)) + ';';
        }
        rtf += "}";
    }
    rtf += "\n\\f0";
    RunStyle current;
    bool needsDelimiter = true;
    for (const StyledRun& run : text.runs) {
        const QByteArray change = styleChange(current, run.style, fonts, colors);
        if (!change.isEmpty()) {
            rtf += change;
            needsDelimiter = true;
        }
        current = run.style;
        const QString runText = withNewlines(run.text);
        if (runText.isEmpty()) {
            continue;
        }
        if (needsDelimiter) {
            rtf += ' ';
            needsDelimiter = false;
        }
        appendRtfText(rtf, runText);
    }
    rtf += "}";
    return rtf;
}

std::optional<StyledText> styledTextFromRtf(const QByteArray& rtf)
{
    if (!rtf.startsWith("{\\rtf")) {
        return std::nullopt;
    }
    return RtfReader(rtf).read();
}

} // namespace tavo
