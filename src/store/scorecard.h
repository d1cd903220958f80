#pragma once

#include "store/collections.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QPair>
#include <QString>
#include <QStringList>

class QTimer;

namespace tavo {

class Defaults;

// The account's local usage counters, kept in the settings under
// "tavo.stats.<profile slug>.<metric>", and the numbers of the scorecard built from them.
namespace Metric {
inline const QString backslashInvocations = QStringLiteral("backslashInvocations");
inline const QString shortcutsUsed = QStringLiteral("shortcutsUsed");
inline const QString sharePackages = QStringLiteral("sharePackages");
inline const QString liveOutputs = QStringLiteral("liveOutputs");
} // namespace Metric

// The one writer of a counter: adds `amount` under the settings' lock, so two processes counting
// at once lose nothing. Nothing is counted without an account.
void recordMetric(Defaults& defaults, const QString& identity, const QString& metric, qint64 amount = 1);
// Counts uses where they happen (an expansion, a picker opening) without a file write on the way:
// counts gather and are written a moment later, after the paste, with `recordMetric`, and at the
// latest when the counter goes.
class MetricCounter : public QObject
{
    Q_OBJECT

public:
    explicit MetricCounter(Defaults& defaults, int delayMs = 1000, QObject* parent = nullptr);
    ~MetricCounter() override;

    void count(const QString& identity, const QString& metric, qint64 amount = 1);
    void flush();

private:
    Defaults& m_defaults;
    QTimer* m_timer;
    QHash<QPair<QString, QString>, qint64> m_pending; // (identity, metric) to amount
};

// A missing counter is 0.
qint64 storedMetric(const Defaults& defaults, const QString& identity, const QString& metric);

// The builder apps kept in "tavoCustomBuilderAppsJSON"; a list that does not decode is none.
qint64 appsCreatedCount(const Defaults& defaults);

// Extra copies among repeated shortcuts and identical collections: a group of three is two extra.
qint64 extraDuplicateShortcuts(const QList<DuplicateShortcutGroup>& groups);
qint64 extraDuplicateCollections(const QList<DuplicateCollectionGroup>& groups);

struct ScorecardNumbers
{
    QString username;
    qint64 shortcutCount = 0;
    qint64 collectionCount = 0;
    qint64 duplicateCollectionCount = 0;
    qint64 duplicateShortcutCount = 0;
    qint64 backslashInvocations = 0;
    qint64 shortcutsUsed = 0;
    qint64 sharePackages = 0;
    qint64 liveOutputs = 0;
    qint64 appsCreated = 0;
    qint64 collectionsPublished = 0;
};

// The counters of `identity` and the builder apps, with the counts the caller gives.
ScorecardNumbers readScorecard(const Defaults& defaults, const QString& identity);

struct SpriteDashboardMetric
{
    QString title;
    QString value;
    QString detail;
    QString symbol;
};

// The twelve cards in their order; the four of sales and revenue never show a number.
QList<SpriteDashboardMetric> scorecardMetrics(const ScorecardNumbers& numbers);

namespace ScorecardText {
QString greeting(const QString& username); // "Hey, <username>"
inline const QString tagline =
    QStringLiteral("Every shortcut, collection and app you create makes your day flow a little easier.");
inline const QString title = QStringLiteral("Your Sprite scorecard");
inline const QString since = QStringLiteral("Activity from this version onward");
inline const QString savedLocally = QStringLiteral("Your activity is saved locally for this account");
inline const QString badge = QStringLiteral("PIXEL SPRITE \u00b7 YOUR PERSONAL SCOREBOARD");
inline const QString note = QStringLiteral(
    "Usage counters are local to this account. \u201cShare packages\u201d counts shortcuts prepared for sharing. "
    "This Marketplace build has no checkout or payment records, so sales and revenue are shown as unavailable.");
inline const QString makeSomethingNew = QStringLiteral("Make something new");
inline const QString newShortcut = QStringLiteral("New shortcut");
inline const QString buildCollection = QStringLiteral("Build a collection");
inline const QString createApp = QStringLiteral("Create an app");
inline const QString marketplace = QStringLiteral("Marketplace");
inline const QString openCollections = QStringLiteral("Open collections");
QString shortcutsCount(qint64 count);   // "<n> shortcuts"
QString collectionsCount(qint64 count); // "<n> collections"
} // namespace ScorecardText

} // namespace tavo
