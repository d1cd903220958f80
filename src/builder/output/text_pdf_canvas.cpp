#include "builder/output/text_pdf_canvas.h"

#include "builder/template_render.h"

#include <QFileInfo>
#include <QFontDatabase>
#include <QFontMetricsF>
#include <QPageSize>
#include <QPainter>
#include <QPdfWriter>
#include <QSaveFile>
#include <QTextCursor>
#include <QTextDocument>

#ifdef TAVO_HAVE_QTPDF
#include <QPdfDocument>
#endif

#include <algorithm>
#include <cmath>
#include <memory>

namespace tavo {

namespace {

constexpr double bodyLeft = 48;
constexpr double bodyTop = 94;
constexpr double bodyBottom = 735;
constexpr double bodyWidth = 516;
constexpr double accentBarHeight = 14;
// A PDF asset's page is drawn from an image of this resolution: sharp on paper, small in the file.
constexpr double assetDpi = 150;

QColor rgb(double red, double green, double blue)
{
    return QColor::fromRgbF(float(red), float(green), float(blue));
}

QFont systemFont(double pointSize, bool bold = false, bool italic = false, bool underline = false)
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    font.setPointSizeF(pointSize);
    font.setBold(bold);
    font.setItalic(italic);
    font.setUnderline(underline);
    return font;
}

double lineHeightFor(double fontSize)
{
    return std::max(fontSize * 1.55, 14.0);
}

bool isTableLine(const QString& line)
{
    return line.trimmed().startsWith(u'|');
}

// A row of only bars, colons, dashes and blanks separates a Markdown table's header.
bool isSeparatorRow(const QString& line)
{
    return std::all_of(line.cbegin(), line.cend(),
                       [](QChar c) { return c == u'|' || c == u':' || c == u'-' || c.isSpace(); });
}

QStringList tableCells(const QString& line)
{
    QStringList cells = line.trimmed().split(u'|');
    if (!cells.isEmpty() && cells.first().trimmed().isEmpty()) {
        cells.removeFirst();
    }
    if (!cells.isEmpty() && cells.last().trimmed().isEmpty()) {
        cells.removeLast();
    }
    for (QString& cell : cells) {
        cell = cell.trimmed();
    }
    return cells;
}

// Lines [first, first + count) of styled text whose lines end at "\n".
StyledText styledLines(const StyledText& text, qsizetype first, qsizetype count)
{
    StyledText slice;
    slice.defaultFamily = text.defaultFamily;
    qsizetype line = 0;
    for (const StyledRun& run : text.runs) {
        qsizetype start = 0;
        while (start <= run.text.size()) {
            const qsizetype newline = run.text.indexOf(u'\n', start);
            const qsizetype end = newline < 0 ? run.text.size() : newline;
            if (line >= first && line < first + count) {
                QString piece = run.text.mid(start, end - start);
                if (newline >= 0 && line + 1 < first + count) {
                    piece += u'\n';
                }
                appendRun(slice.runs, piece, run.style);
            }
            if (newline < 0) {
                break;
            }
            ++line;
            start = newline + 1;
        }
        if (line >= first + count) {
            break;
        }
    }
    return slice;
}

double largestFont(const StyledText& text, double fontSize)
{
    double largest = 0;
    bool defaultSize = text.runs.isEmpty();
    for (const StyledRun& run : text.runs) {
        if (run.style.pointSize) {
            largest = std::max(largest, *run.style.pointSize);
        } else {
            defaultSize = true;
        }
    }
    return defaultSize ? std::max(largest, fontSize) : largest;
}

#ifdef TAVO_HAVE_QTPDF
std::unique_ptr<QPdfDocument> loadAssetPdf(const QString& path)
{
    if (path.isEmpty() || !path.toLower().endsWith(QLatin1StringView("pdf"))) {
        return nullptr;
    }
    auto document = std::make_unique<QPdfDocument>(nullptr);
    if (document->load(path) != QPdfDocument::Error::None || document->pageCount() <= 0) {
        return nullptr;
    }
    return document;
}
#endif

} // namespace

QColor AITextPDFCanvas::accentColor(const QString& templateStyle)
{
    if (templateStyle == QLatin1StringView("Bill") || templateStyle == QLatin1StringView("Quotation")) {
        return rgb(0.39, 0.12, 0.78);
    }
    if (templateStyle == QLatin1StringView("Proposal")) {
        return rgb(0.57, 0.16, 0.95);
    }
    if (templateStyle == QLatin1StringView("Receipt")) {
        return rgb(0.72, 0.35, 0.12);
    }
    if (templateStyle == QLatin1StringView("Offer Letter") || templateStyle == QLatin1StringView("Formal Letter") ||
        templateStyle == QLatin1StringView("Appointment Letter")) {
        return rgb(0.2, 0.12, 0.38);
    }
    return rgb(0.24, 0.14, 0.45);
}

QColor AITextPDFCanvas::textColor(const QString& name)
{
    if (name == QLatin1StringView("Purple")) {
        return rgb(0.45, 0.2, 0.8);
    }
    if (name == QLatin1StringView("Blue")) {
        return rgb(0.1, 0.35, 0.85);
    }
    if (name == QLatin1StringView("Red")) {
        return rgb(0.8, 0.15, 0.15);
    }
    if (name == QLatin1StringView("Green")) {
        return rgb(0.1, 0.55, 0.3);
    }
    if (name == QLatin1StringView("Gold")) {
        return rgb(0.75, 0.55, 0.05);
    }
    return rgb(0.14, 0.13, 0.2); // ink
}

void AITextPDFCanvas::draw(QPainter& painter, const QImage* assetPage) const
{
    const QColor accent = accentColor(templateStyle);
    painter.save();
    painter.fillRect(QRectF(0, 0, pageWidth, pageHeight), Qt::white);
    painter.fillRect(QRectF(0, 0, pageWidth, accentBarHeight), accent);

    if (assetPage && !assetPage->isNull()) {
        painter.drawImage(QRectF(0, 0, pageWidth, pageHeight), *assetPage);
    } else if (!assetPath.isEmpty() && !assetPath.toLower().endsWith(QLatin1StringView("pdf"))) {
        const QImage image(assetPath);
        if (!image.isNull()) {
            const QRectF box(470, 35, 95, 55);
            QSizeF size = image.size();
            size.scale(box.size(), Qt::KeepAspectRatio);
            const QRectF target(box.x() + (box.width() - size.width()) / 2,
                                box.y() + (box.height() - size.height()) / 2, size.width(), size.height());
            painter.drawImage(target, image);
        }
    }

    const QFont titleFont = systemFont(22, true);
    painter.setFont(titleFont);
    painter.setPen(accent);
    const QRectF titleBox(48, 42, 410, 34);
    painter.drawText(titleBox, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                     QFontMetricsF(titleFont).elidedText(title, Qt::ElideRight, titleBox.width()));

    drawDocumentBody(painter, accent);

    painter.setFont(systemFont(9));
    painter.setPen(QColor(128, 128, 136));
    painter.drawText(QRectF(48, 755, 516, 18), Qt::AlignLeft | Qt::AlignTop | Qt::TextSingleLine,
                     QStringLiteral(u"Created with Tavo \u00B7 ") + title + QStringLiteral(u" \u00B7 ") +
                         QString::number(pageNumber) + QStringLiteral(" of ") + QString::number(totalPages));
    painter.restore();
}

void AITextPDFCanvas::drawDocumentBody(QPainter& painter, const QColor& accent) const
{
    painter.save();
    painter.setClipRect(QRectF(bodyLeft, bodyTop, bodyWidth, bodyBottom - bodyTop));
    if (richText) {
        drawRichBody(painter);
    } else {
        drawPlainBody(painter, accent);
    }
    painter.restore();
}

void AITextPDFCanvas::drawPlainBody(QPainter& painter, const QColor& accent) const
{
    const QFont font = systemFont(bodyFontSize, bodyBold, bodyItalic, bodyUnderline);
    const QFontMetricsF metrics(font);
    const double lineHeight = lineHeightFor(bodyFontSize);
    const QColor ink = textColor(bodyColor);
    painter.setFont(font);

    const QStringList lines = text.split(u'\n');
    double y = bodyTop;
    for (qsizetype i = 0; i < lines.size() && y < bodyBottom; ++i) {
        if (!isTableLine(lines[i])) {
            const QString& line = lines[i];
            const double wrapped = metrics.boundingRect(QRectF(0, 0, bodyWidth, 1e6), Qt::TextWordWrap, line).height();
            const int rows = std::max(1, int(std::lround(wrapped / metrics.lineSpacing())));
            const double height = rows * lineHeight;
            const double lead = (lineHeight - metrics.height()) / 2;
            painter.setPen(ink);
            painter.drawText(QRectF(bodyLeft, y + lead, bodyWidth, height),
                             Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap, line);
            y += height;
            continue;
        }

        // A table: every line from here that starts with a bar.
        QList<QStringList> rows;
        while (i < lines.size() && isTableLine(lines[i])) {
            if (!isSeparatorRow(lines[i])) {
                rows.append(tableCells(lines[i]));
            }
            ++i;
        }
        --i;
        qsizetype columns = 1;
        for (const QStringList& row : rows) {
            columns = std::max(columns, row.size());
        }
        const double cellWidth = bodyWidth / double(columns);
        QColor headerFill = accent;
        headerFill.setAlphaF(0.12f);
        for (qsizetype r = 0; r < rows.size() && y < bodyBottom; ++r) {
            const bool header = r == 0;
            const double height = header ? 27 : 24;
            const double inset = header ? 8.5 : 8;
            if (header) {
                painter.fillRect(QRectF(bodyLeft, y, bodyWidth, height), headerFill);
            }
            QFont cellFont = font;
            cellFont.setBold(header || bodyBold);
            painter.setFont(cellFont);
            painter.setPen(ink);
            for (qsizetype c = 0; c < rows[r].size(); ++c) {
                const QRectF cell(bodyLeft + c * cellWidth + inset, y, cellWidth - 2 * inset, height);
                painter.drawText(cell, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                                 QFontMetricsF(cellFont).elidedText(rows[r][c], Qt::ElideRight, cell.width()));
            }
            y += height;
            painter.setPen(QPen(QColor(220, 216, 230), 1));
            painter.drawLine(QPointF(bodyLeft, y), QPointF(bodyLeft + bodyWidth, y));
        }
        painter.setFont(font);
    }
}

void AITextPDFCanvas::drawRichBody(QPainter& painter) const
{
    QTextDocument document;
    document.setDocumentMargin(0);
    document.setTextWidth(bodyWidth);
    const QFont base = systemFont(bodyFontSize, bodyBold, bodyItalic, bodyUnderline);
    document.setDefaultFont(base);
    const QColor ink = textColor(bodyColor);

    QTextCursor cursor(&document);
    for (const StyledRun& run : richText->runs) {
        QTextCharFormat format;
        QFont font = base;
        const QString family = run.style.family.isEmpty() ? richText->defaultFamily : run.style.family;
        if (!family.isEmpty()) {
            font.setFamilies({family, base.family()});
        }
        font.setPointSizeF(run.style.pointSize.value_or(bodyFontSize));
        font.setBold(run.style.bold || bodyBold);
        font.setItalic(run.style.italic || bodyItalic);
        font.setUnderline(run.style.underline || bodyUnderline);
        font.setStrikeOut(run.style.strikethrough);
        format.setFont(font);
        format.setForeground(
            run.style.color ? QColor(run.style.color->red, run.style.color->green, run.style.color->blue) : ink);
        const QStringList paragraphs = run.text.split(u'\n');
        for (qsizetype p = 0; p < paragraphs.size(); ++p) {
            if (p > 0) {
                cursor.insertBlock();
            }
            QString piece = paragraphs[p];
            piece.replace(QChar(0x2028), QChar::LineSeparator);
            cursor.insertText(piece, format);
        }
    }
    painter.translate(bodyLeft, bodyTop);
    document.drawContents(&painter, QRectF(0, 0, bodyWidth, bodyBottom - bodyTop));
}

Result<int> AITextPDFCanvas::makePDF(const QString& title, const QString& text,
                                     const std::optional<StyledText>& richText, const QString& assetPath,
                                     const QString& templateStyle, const QString& details, double fontSize, bool bold,
                                     bool italic, bool underline, const QString& color, const QString& destination)
{
    const double bodySize = std::isfinite(fontSize) && fontSize > 0 ? fontSize : 11;
    const QString source = richText ? richText->plainText() : text;
    const qsizetype lineCount = source.split(u'\n').size();
    const int perPage = pdfLinesPerPage(richText ? largestFont(*richText, bodySize) : bodySize);
    qsizetype pages = (lineCount + perPage - 1) / perPage;

#ifdef TAVO_HAVE_QTPDF
    const std::unique_ptr<QPdfDocument> asset = loadAssetPdf(assetPath);
    if (asset) {
        pages = std::max<qsizetype>(pages, asset->pageCount());
    }
#endif
    pages = std::max<qsizetype>(pages, 1);

    QSaveFile file(destination);
    if (!file.open(QIODevice::WriteOnly)) {
        return TavoError{QStringLiteral("TavoBuilder"), 0, file.errorString()};
    }
    {
        QPdfWriter writer(&file);
        writer.setResolution(72);
        writer.setPageSize(QPageSize(QPageSize::Letter));
        writer.setPageMargins(QMarginsF(0, 0, 0, 0), QPageLayout::Point);
        writer.setTitle(title);
        writer.setCreator(QStringLiteral("Tavo"));
        QPainter painter(&writer);
        if (!painter.isActive()) {
            file.cancelWriting();
            return TavoError{QStringLiteral("TavoBuilder"), 0, QStringLiteral("The PDF could not be drawn.")};
        }
        const QStringList lines = source.split(u'\n');
        for (qsizetype page = 0; page < pages; ++page) {
            if (page > 0) {
                writer.newPage();
            }
            AITextPDFCanvas canvas;
            canvas.title = title;
            const qsizetype first = page * perPage;
            if (first < lines.size()) {
                canvas.text = lines.mid(first, perPage).join(u'\n');
                if (richText) {
                    canvas.richText = styledLines(*richText, first, perPage);
                }
            } else if (richText) {
                canvas.richText = StyledText{};
            }
            canvas.assetPath = assetPath;
            canvas.templateStyle = templateStyle;
            canvas.details = details;
            canvas.bodyFontSize = bodySize;
            canvas.bodyBold = bold;
            canvas.bodyItalic = italic;
            canvas.bodyUnderline = underline;
            canvas.bodyColor = color;
            canvas.pageNumber = int(page + 1);
            canvas.totalPages = int(pages);
            QImage assetPage;
#ifdef TAVO_HAVE_QTPDF
            if (asset && page < asset->pageCount()) {
                const QSize size(int(pageWidth * assetDpi / 72), int(pageHeight * assetDpi / 72));
                assetPage = asset->render(int(page), size);
            }
#endif
            canvas.draw(painter, assetPage.isNull() ? nullptr : &assetPage);
        }
        painter.end();
    }
    if (!file.commit()) {
        return TavoError{QStringLiteral("TavoBuilder"), 0, file.errorString()};
    }
    return int(pages);
}

} // namespace tavo
