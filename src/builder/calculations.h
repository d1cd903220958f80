#pragma once

#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>
#include <utility>

namespace tavo {

class Defaults;

// Values by name: typed variables, record fields and formula results, all as text.
using BuilderValues = QMap<QString, QString>;

// The key a name is looked up by in templates and formula results: lower case with every run of
// characters other than a-z and 0-9 deleted, so "Net Total" and "{{nettotal}}" meet.
QString builderTokenKey(const QString& name);

struct BuilderCalculationResult
{
    BuilderValues values; // the input values plus one entry per formula that computed
    QString summary;      // "<name>: <value>" per formula that computed, one a line
};

// One formula line, "Name = expression" or "18% GST", as its name and expression.
std::optional<std::pair<QString, QString>> parseBuilderCalculation(const QString& line);

// The keys of the names the formulas in `text` define, in line order.
QStringList builderCalculationNames(const QString& text);

// Evaluates the formulas of `text` line by line; each line sees the values and the results of
// the lines before it. A line that does not parse or compute adds nothing.
BuilderCalculationResult resolveBuilderCalculations(const QString& text, const BuilderValues& values);

// Texts of the formula editor.
inline const QString formulaExamplesText = QStringLiteral("Examples: GST = Amount * 18%  \u00B7  Total = Amount + GST  "
                                                          "\u00B7  Discounted = Amount * (1 - Discount%)  \u00B7  "
                                                          "Mean = AVERAGE(Amount, Tax)");
inline const QString insertGstAndTotalTitle = QStringLiteral("Insert GST + total");
inline const QString insertGstAndTotalFormulas = QStringLiteral("GST = Amount * 18%\nTotal = Amount + GST");
inline const QString chooseCollectionsTitle = QStringLiteral("Choose collections");
inline const QString createCollectionTitle = QStringLiteral("Create collection\u2026");
inline const QString openCollectionBuilderTitle = QStringLiteral("Open Collection Builder");
inline const QString removeFormulaBlockTitle = QStringLiteral("Remove block from the expression");

// Order tokens: the command head, then the slots.
inline const QString formulaActionPrefix = QStringLiteral("Action: ");
inline const QString formulaCollectionPrefix = QStringLiteral("Collection: ");
inline const QString formulaVariablePrefix = QStringLiteral("Variable: ");
inline const QString formulaOrderKeyPrefix = QStringLiteral("tavoBuilderFormulaOrder.");

// "Action: <prefix or your-action>", then one "Collection: " per collection and one "Variable: "
// per variable.
QStringList formulaTokens(const QString& prefix, const QStringList& collections, const QStringList& variables);

// The stored order less the tokens no longer valid, then each current token it lacks; without a
// stored order, `tokens` as they are.
QStringList mergedFormulaOrder(const std::optional<QStringList>& stored, const QStringList& tokens);

// What a block shows: the prefix for the action, "Collection <name>", the variable's name.
QString formulaBlockTitle(const QString& token);

// One line that pictures the command the order makes.
QString formulaPreviewText(const QString& prefix, const QStringList& order);

// The formula editor's block order for one app, kept under tavoBuilderFormulaOrder.<app>.
class FormulaOrderModel
{
public:
    FormulaOrderModel(Defaults& defaults, QString app);

    // Reads the stored order against the editor's current prefix, collections and variables.
    void load(const QString& prefix, const QStringList& collections, const QStringList& variables);
    void persist();

    const QStringList& order() const { return m_order; }
    const QStringList& collections() const { return m_collections; }
    bool isInitialised() const { return m_initialised; }

    // Takes the block at `from` out and puts it in at `to`, then persists. False, and nothing
    // changes, when either is out of range.
    bool moveFormulaBlock(qsizetype from, qsizetype to);
    // Makes the collection block at `at` stand for `collection`, in the order and in the selected
    // collections, then persists. False when `at` is no collection block.
    bool replaceCollectionBlock(qsizetype at, const QString& collection);

    QString previewText() const;

private:
    Defaults& m_defaults;
    QString m_app;
    QString m_prefix;
    QStringList m_collections;
    QStringList m_order;
    bool m_initialised = false;
};

} // namespace tavo
