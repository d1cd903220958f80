#include "tavoctl/ctl_builder_render.h"
#include "tavoctl/ctl_options.h"
#include "tavoctl/ctl_profile.h"

#include "builder/builder_app.h"
#include "builder/builder_command.h"
#include "builder/output/text_pdf_canvas.h"
#include "builder/template_render.h"
#include "language/rtf.h"
#include "store/collections.h"
#include "store/defaults.h"

#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QSaveFile>

namespace tavo::ctl {

namespace {

using Kind = CommandLine::Kind;

const QString renderSynopsis = QStringLiteral("builder render TEXT [--format text|rtf|html|pdf] [--out PATH]");

// The document kind a format label makes here: images and videos are a model's work, so this
// command gives their template as text.
QString documentKind(const QString& format)
{
    const QString lower = format.toLower();
    if (lower == QLatin1StringView("pdf") || lower == QLatin1StringView("html") || lower == QLatin1StringView("rtf")) {
        return lower;
    }
    return QStringLiteral("text");
}

QString extensionOf(const QString& kind)
{
    return kind == QLatin1StringView("text") ? QStringLiteral("txt") : kind;
}

// Styled text without the blanks and line breaks at its two ends.
StyledText trimmedStyled(StyledText text)
{
    while (!text.runs.isEmpty()) {
        QString& first = text.runs.first().text;
        qsizetype blank = 0;
        while (blank < first.size() && first[blank].isSpace()) {
            ++blank;
        }
        first.remove(0, blank);
        if (!first.isEmpty()) {
            break;
        }
        text.runs.removeFirst();
    }
    while (!text.runs.isEmpty()) {
        QString& last = text.runs.last().text;
        qsizetype end = last.size();
        while (end > 0 && last[end - 1].isSpace()) {
            --end;
        }
        last.truncate(end);
        if (!last.isEmpty()) {
            break;
        }
        text.runs.removeLast();
    }
    return text;
}

// A plain render as one run in the app's body style, so RTF keeps bold, size and colour.
StyledText styledBody(const QString& text, const CustomBuilderCommand& command)
{
    RunStyle style;
    style.bold = command.bold;
    style.italic = command.italic;
    style.underline = command.underline;
    style.pointSize = command.fontSize;
    const QColor color = AITextPDFCanvas::textColor(command.fontColor);
    style.color = TextColor{color.red(), color.green(), color.blue()};
    StyledText styled;
    appendRun(styled.runs, text, style);
    return styled;
}

bool writeFile(const QString& path, const QByteArray& bytes, QTextStream& err)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        err << "Could not write " << path << ": " << file.errorString() << '\n';
        return false;
    }
    return true;
}

} // namespace

std::optional<VisibleBuilderCommand> openBuilderCommand(const QString& typed, Defaults& defaults, QTextStream& err)
{
    QString user;
    const std::unique_ptr<DB> db = openForReading(defaults, user, err);
    if (!db) {
        return std::nullopt;
    }
    // A command names only what the user sees: hidden collections count only while shown.
    const QStringList hidden =
        defaults.flag(QStringLiteral("tavoPickerShowHiddenCollections")) ? QStringList() : db->hiddenCollections();
    VisibleBuilderCommand visible;
    for (const Clip& clip : db->clips()) {
        if (hidden.isEmpty() || isClipVisible(clip, hidden)) {
            visible.clips.append(clip);
        }
    }
    for (const CollectionRecord& record : db->collectionRecords()) {
        if (!hidden.contains(record.collection, Qt::CaseInsensitive)) {
            visible.records.append(record);
        }
    }
    std::optional<CustomBuilderCommand> command = customBuilderCommand(typed, visible.clips, visible.records, defaults);
    if (!command) {
        err << "No builder app matches " << typed << ".\n";
        return std::nullopt;
    }
    visible.command = std::move(*command);
    return visible;
}

int builderRender(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    CommandLine line(renderSynopsis,
                     {{QStringLiteral("--format"), Kind::Value}, {QStringLiteral("--out"), Kind::Value}}, 1, 1);
    if (const std::optional<int> status = line.parse(arguments, out, err)) {
        return *status;
    }
    const QString askedFormat = line.value(QStringLiteral("--format")).toLower();
    if (line.isSet(QStringLiteral("--format")) &&
        !QStringList{QStringLiteral("text"), QStringLiteral("rtf"), QStringLiteral("html"), QStringLiteral("pdf")}
             .contains(askedFormat)) {
        return line.usageError(QStringLiteral("--format takes text, rtf, html or pdf."), err);
    }

    Defaults defaults;
    const std::optional<VisibleBuilderCommand> visible = openBuilderCommand(line.positional().first(), defaults, err);
    if (!visible) {
        return 1;
    }
    const CustomBuilderCommand& command = visible->command;
    if (!command.isComplete()) {
        err << completeMissingValuesText << '\n';
        return 1;
    }
    const Result<BuilderRenderInput> input = resolveBuilderRenderInput(
        command, visible->clips, visible->records,
        defaults.string(builderKey(QStringLiteral("Calculations"), command.app)).value_or(QString()));
    if (!input) {
        err << input.error().description << '\n';
        return 1;
    }

    const QString kind = askedFormat.isEmpty() ? documentKind(command.format) : askedFormat;
    std::optional<StyledText> rich;
    if (command.richTextData) {
        rich = styledTextFromRtf(*command.richTextData);
    }
    const QString templateText = rich ? rich->plainText() : command.prompt;
    // Into a template that is a web page of its own, values go as HTML.
    const bool fullPage = kind == QLatin1StringView("html") && isFullHtmlDocument(templateText);

    QString text;
    if (rich && !fullPage) {
        rich = trimmedStyled(renderAttributedTemplate(*rich, command.details, input->context, input->values));
        text = rich->plainText();
    } else {
        text = renderLocalTemplate(templateText, command.details, input->context, input->values, {},
                                   fullPage ? TemplateValueEscaping::Html : TemplateValueEscaping::None)
                   .trimmed();
    }
    if (text.isEmpty()) {
        err << noOutputGeneratedText << '\n';
        return 1;
    }

    // Where the output goes: a folder takes the generated name; text and RTF go to standard output
    // without --out, a page or a PDF to the current folder.
    QString path = line.value(QStringLiteral("--out"));
    const bool toStandardOutput =
        path.isEmpty() && (kind == QLatin1StringView("text") || kind == QLatin1StringView("rtf"));
    if (!toStandardOutput && (path.isEmpty() || QFileInfo(path).isDir())) {
        path = QDir(path.isEmpty() ? QDir::currentPath() : path)
                   .filePath(builderOutputFileName(command.key, extensionOf(kind)));
    }

    if (kind == QLatin1StringView("pdf")) {
        if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
            err << "Drawing a PDF needs tavoctl's drawing engine, which did not start.\n";
            return 1;
        }
        const Result<int> pages = AITextPDFCanvas::makePDF(
            command.app, text, rich, command.assetPath, command.templateStyle, command.details, command.fontSize,
            command.bold, command.italic, command.underline, command.fontColor, path);
        if (!pages) {
            err << "Could not write " << path << ": " << pages.error().description << '\n';
            return 1;
        }
        out << path << '\n';
        return 0;
    }

    QByteArray bytes;
    if (kind == QLatin1StringView("rtf")) {
        bytes = rtfFromStyledText(rich ? *rich : styledBody(text, command));
    } else if (kind == QLatin1StringView("html")) {
        bytes =
            (fullPage ? text : makeBuilderStandaloneHTML(text, command.app, builderHtmlAccent(command.templateStyle)))
                .toUtf8();
    } else {
        bytes = text.toUtf8() + '\n';
    }
    if (toStandardOutput) {
        out << QString::fromUtf8(bytes);
        if (kind == QLatin1StringView("rtf")) {
            out << '\n';
        }
        return 0;
    }
    if (!writeFile(path, bytes, err)) {
        return 1;
    }
    out << path << '\n';
    return 0;
}

} // namespace tavo::ctl
