#pragma once

#include "language/rtf.h"
#include "language/tavo_error.h"

#include <QColor>
#include <QImage>
#include <QString>

#include <optional>

class QPainter;

namespace tavo {

// One US Letter page (612 by 792 points, top-left origin) of a builder document: accent bar, asset,
// title, body and footer.
class AITextPDFCanvas
{
public:
    QString title;
    QString text;                       // this page's lines
    std::optional<StyledText> richText; // this page's lines, styled, when the template is rich
    QString assetPath;
    QString templateStyle;
    QString details;
    double bodyFontSize = 11;
    bool bodyBold = false;
    bool bodyItalic = false;
    bool bodyUnderline = false;
    QString bodyColor;
    int pageNumber = 1;
    int totalPages = 1;

    static constexpr double pageWidth = 612;
    static constexpr double pageHeight = 792;

    // Draws the page; `assetPage` is this page of a PDF asset, already rendered, or null.
    void draw(QPainter& painter, const QImage* assetPage = nullptr) const;

    static QColor accentColor(const QString& templateStyle);
    static QColor textColor(const QString& name);

    // Writes the document to `destination`: `text` cut into pages of pdfLinesPerPage lines (by the
    // largest font of `richText` when there is one), and at least as many pages as a PDF asset
    // has. Gives the number of pages, or the file error of the write. Needs a QGuiApplication.
    static Result<int> makePDF(const QString& title, const QString& text, const std::optional<StyledText>& richText,
                               const QString& assetPath, const QString& templateStyle, const QString& details,
                               double fontSize, bool bold, bool italic, bool underline, const QString& color,
                               const QString& destination);

private:
    void drawDocumentBody(QPainter& painter, const QColor& accent) const;
    void drawPlainBody(QPainter& painter, const QColor& accent) const;
    void drawRichBody(QPainter& painter) const;
};

} // namespace tavo
