#include "store/scorecard.h"

#include "store/defaults.h"
#include "store/profile_store.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTimer>

#include <utility>

namespace tavo {

namespace {

const QString builderAppsKey = QStringLiteral("tavoCustomBuilderAppsJSON");
const QString unavailable = QStringLiteral("\u2014");

} // namespace

void recordMetric(Defaults& defaults, const QString& identity, const QString& metric, qint64 amount)
{
    if (identity.trimmed().isEmpty() || amount == 0) {
        return;
    }
    defaults.addToNumber(metricStorageKey(identity, metric), double(amount));
}

MetricCounter::MetricCounter(Defaults& defaults, int delayMs, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_timer(new QTimer(this))
{
    m_timer->setSingleShot(true);
    m_timer->setInterval(delayMs);
    connect(m_timer, &QTimer::timeout, this, &MetricCounter::flush);
}

MetricCounter::~MetricCounter()
{
    flush();
}

void MetricCounter::count(const QString& identity, const QString& metric, qint64 amount)
{
    if (identity.trimmed().isEmpty()) {
        return;
    }
    m_pending[{identity, metric}] += amount;
    if (!m_timer->isActive()) {
        m_timer->start();
    }
}

void MetricCounter::flush()
{
    m_timer->stop();
    const QHash<QPair<QString, QString>, qint64> pending = std::exchange(m_pending, {});
    for (auto it = pending.cbegin(); it != pending.cend(); ++it) {
        recordMetric(m_defaults, it.key().first, it.key().second, it.value());
    }
}

qint64 storedMetric(const Defaults& defaults, const QString& identity, const QString& metric)
{
    if (identity.trimmed().isEmpty()) {
        return 0;
    }
    return qint64(defaults.number(metricStorageKey(identity, metric)).value_or(0));
}

qint64 appsCreatedCount(const Defaults& defaults)
{
    const QString json = defaults.string(builderAppsKey).value_or(QStringLiteral("[]"));
    const QJsonDocument document = QJsonDocument::fromJson(json.toUtf8());
    return document.isArray() ? document.array().size() : 0;
}

qint64 extraDuplicateShortcuts(const QList<DuplicateShortcutGroup>& groups)
{
    qint64 extra = 0;
    for (const DuplicateShortcutGroup& group : groups) {
        extra += qMax<qint64>(0, group.clips.size() - 1);
    }
    return extra;
}

qint64 extraDuplicateCollections(const QList<DuplicateCollectionGroup>& groups)
{
    qint64 extra = 0;
    for (const DuplicateCollectionGroup& group : groups) {
        extra += qMax<qint64>(0, group.collectionNames.size() - 1);
    }
    return extra;
}

ScorecardNumbers readScorecard(const Defaults& defaults, const QString& identity)
{
    ScorecardNumbers numbers;
    numbers.username = identity;
    numbers.backslashInvocations = storedMetric(defaults, identity, Metric::backslashInvocations);
    numbers.shortcutsUsed = storedMetric(defaults, identity, Metric::shortcutsUsed);
    numbers.sharePackages = storedMetric(defaults, identity, Metric::sharePackages);
    numbers.liveOutputs = storedMetric(defaults, identity, Metric::liveOutputs);
    numbers.appsCreated = appsCreatedCount(defaults);
    return numbers;
}

QList<SpriteDashboardMetric> scorecardMetrics(const ScorecardNumbers& n)
{
    const auto number = [](qint64 value) { return QString::number(value); };
    return {
        {QStringLiteral("Backslash popups"), number(n.backslashInvocations),
         QStringLiteral("Times Tavo opened from a backslash shortcut"), QStringLiteral("keyboard")},
        {QStringLiteral("Duplicate collections"), number(n.duplicateCollectionCount),
         QStringLiteral("Extra collections with identical saved contents"), QStringLiteral("doc.on.doc.fill")},
        {QStringLiteral("Repeated shortcuts"), number(n.duplicateShortcutCount),
         QStringLiteral("Extra saved shortcuts using a code more than once"), QStringLiteral("text.duplicate")},
        {QStringLiteral("Shortcuts used"), number(n.shortcutsUsed),
         QStringLiteral("Expansions and selections from the popup"), QStringLiteral("bolt.fill")},
        {QStringLiteral("Share packages"), number(n.sharePackages),
         QStringLiteral("Shortcuts prepared in share packages"), QStringLiteral("square.and.arrow.up")},
        {QStringLiteral("Apps created"), number(n.appsCreated), QStringLiteral("Your AppBuilder actions"),
         QStringLiteral("app.badge")},
        {QStringLiteral("Live outputs generated"), number(n.liveOutputs),
         QStringLiteral("Documents or media created by app shortcuts"), QStringLiteral("sparkles")},
        {QStringLiteral("Collections published"), number(n.collectionsPublished),
         QStringLiteral("Listings saved in your local Marketplace"), QStringLiteral("shippingbox.fill")},
        {QStringLiteral("Apps published"), unavailable, QStringLiteral("App listings are not available yet"),
         QStringLiteral("storefront")},
        {QStringLiteral("Collections sold"), unavailable, QStringLiteral("Marketplace checkout is not connected"),
         QStringLiteral("cart.fill")},
        {QStringLiteral("Apps sold"), unavailable, QStringLiteral("Marketplace checkout is not connected"),
         QStringLiteral("bag.fill")},
        {QStringLiteral("Revenue earned"), unavailable, QStringLiteral("No payment records are connected"),
         QStringLiteral("indianrupeesign.circle.fill")},
    };
}

namespace ScorecardText {

QString greeting(const QString& username)
{
    return QStringLiteral("Hey, ") + username;
}

QString shortcutsCount(qint64 count)
{
    return QStringLiteral("%1 shortcuts").arg(count);
}

QString collectionsCount(qint64 count)
{
    return QStringLiteral("%1 collections").arg(count);
}

} // namespace ScorecardText

} // namespace tavo
