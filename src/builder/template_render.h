#pragma once

#include "builder/calculations.h"
#include "language/live_tokens.h"
#include "language/rtf.h"
#include "language/shortcut_record.h"
#include "language/tavo_error.h"
#include "store/collections.h"

#include <QString>
#include <QStringList>
#include <QUuid>

namespace tavo {

struct CustomBuilderCommand;

// How a filled-in value enters the text around it.
enum class TemplateValueEscaping
{
    None,
    Html, // &, <, > and " as entities: the template is a web page of its own
};

// Fills the {{token}}s of `templateText`. Each token is looked up once by its key (so
// {{Start Date}} and {{startdate}} meet): the values, then "details" (`predefinedDetails`) and
// "collections" (`context`), which win over values of the same key; a token no value names is
// taken as a live token ({{date}}), and one that is not stays as written. Values are inserted as
// they are and never scanned for tokens again.
QString renderLocalTemplate(const QString& templateText, const QString& predefinedDetails, const QString& context,
                            const BuilderValues& values, const LiveTokenSources& sources = {},
                            TemplateValueEscaping escaping = TemplateValueEscaping::None);

// The same over styled text: a value takes the style of its token's first character.
StyledText renderAttributedTemplate(const StyledText& attributed, const QString& predefinedDetails,
                                    const QString& context, const BuilderValues& values,
                                    const LiveTokenSources& sources = {});

// Whether `text` is a web page of its own rather than text to put in one.
bool isFullHtmlDocument(const QString& text);
// The heading colour of the web page for a template style.
QString builderHtmlAccent(const QString& templateStyle);
// `&`, `<` and `>` (and `"` when asked) as entities.
QString escapedHtml(const QString& text, bool quotes = false);
// A standalone page holding `content` under `title`; a full document is returned unchanged.
QString makeBuilderStandaloneHTML(const QString& content, const QString& title, const QString& accent);

// An output file's name, "<code>-<uuid>.<extension>" in lower case; the code is the command's key
// with runs of characters other than a-z, 0-9, "_" and "-" made "-", cut to 20 characters.
QString builderOutputFileName(const QString& key, const QString& extension, const QUuid& id = QUuid::createUuid());

// How many lines a PDF page holds at a body font size: 600 pt of body over a line of 1.55 times
// the size, at least 14 pt; never fewer than one.
int pdfLinesPerPage(double fontSize);

// The distinct tokens of `text` whose key is not in `allowedKeys` and that are no live tokens, in
// order of first appearance, as written.
QStringList invalidTemplateTokens(const QString& text, const QStringList& allowedKeys);
// Keeps the tokens of `allowedKeys` and live tokens; any other token becomes its name in brackets,
// and a bracket placeholder "[Name]" whose key is allowed becomes "{{key}}".
QString restrictTemplateTokens(const QString& text, const QStringList& allowedKeys);
// The non-empty trimmed lines of `text`, at most `count` of them: later lines join the last one.
QString limitTemplateLines(const QString& text, int count);
// The keys a template of an app may use: its variables, formula names, collection<i>, details,
// collections.
QStringList allowedTemplateKeys(const QStringList& variables, const QString& calculations, int collectionSlots);

// The text a collection slot fills {{collection<i>}} with: "<name>: <values>", the non-empty values
// in field-name order joined by ", ", then " [attached media: <file>, …]" when it has files.
QString resolvedCollectionValue(const CollectionRecord& record);
// The same for a shortcut of the collection: "<name>: <text>" and its media.
QString resolvedCollectionValue(const Clip& clip);

// The values the editor tries a template with: `typed` with the results of `calculations`, and
// collection<i> for the i-th collection block of `order` (formula order tokens), from the text of
// the record chosen for that collection (`chosen`, by collection name, ignoring case); a
// collection without a chosen record fills nothing.
BuilderValues templateValueMap(const BuilderValues& typed, const QString& calculations, const QStringList& order,
                               const QMap<QString, QString>& chosen);

// What a command's slots resolve to before anything is rendered.
struct BuilderRenderInput
{
    BuilderValues values;   // variables, collection<i>, record fields, then formula results
    QString context;        // the selected records' blocks, then the calculated values
    QString recordLines;    // the "<collection> record <alias>:" blocks alone
    QString variableLines;  // "<name>: <value>" per variable slot
    QString summary;        // the formulas' summary, empty when none computed
    QStringList references; // the files of the selected records
};

// Resolves the command's slots against the profile's shortcuts and records: each collection slot
// needs exactly one record (by alias, ignoring case) or else one shortcut of the collection (by
// key); the error says which alias failed. Then the app's formulas (`calculations`) run.
Result<BuilderRenderInput> resolveBuilderRenderInput(const CustomBuilderCommand& command, const QList<Clip>& clips,
                                                     const QList<CollectionRecord>& records,
                                                     const QString& calculations);

inline const QString completeMissingValuesText = QStringLiteral("Complete the missing values in the shortcut popup.");
inline const QString noOutputGeneratedText = QStringLiteral("No output was generated.");

} // namespace tavo
