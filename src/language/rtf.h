#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

namespace tavo {

struct TextColor
{
    int red = 0;
    int green = 0;
    int blue = 0;

    bool operator==(const TextColor&) const = default;
};

// The character attributes a run carries. Absent size, colour and family mean the document's
// defaults, so text that never set them reads back the same.
struct RunStyle
{
    bool bold = false;
    bool italic = false;
    bool underline = false;
    bool strikethrough = false;
    std::optional<double> pointSize;
    std::optional<TextColor> color;
    QString family; // empty: the document's default font, which a run naming it also reads back as

    bool operator==(const RunStyle&) const = default;
};

// Text of one style. "\n" ends a paragraph, U+2028 breaks a line inside one, "\t" is a tab.
struct StyledRun
{
    QString text;
    RunStyle style;

    bool operator==(const StyledRun&) const = default;
};

struct StyledText
{
    QList<StyledRun> runs;
    QString defaultFamily;

    QString plainText() const;
    bool operator==(const StyledText&) const = default;
};

// Appends `text` in `style`, joining it to the last run when the style is the same.
void appendRun(QList<StyledRun>& runs, const QString& text, const RunStyle& style);

// An RTF 1 document. Only ASCII is written: everything beyond it as \uN? escapes, so no code
// page is involved. Sizes go in half points, as RTF counts them.
QByteArray rtfFromStyledText(const StyledText& text);

// Reads what rtfFromStyledText writes and the common character formatting of other programs;
// tables, pictures, fields' instructions and unknown destinations are skipped. Nothing when the
// bytes do not start as an RTF document. Malformed input reads as far as it makes sense.
std::optional<StyledText> styledTextFromRtf(const QByteArray& rtf);

} // namespace tavo
