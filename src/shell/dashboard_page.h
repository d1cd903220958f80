#pragma once

#include "store/scorecard.h"

#include <QWidget>

class QGridLayout;
class QLabel;

namespace tavo {

class Card;
class DB;
class Defaults;
class TavoAccountStore;

// The first page after signing in: the account's scorecard, and above it, for as long as the
// account has expanded nothing, how to begin (how to expand, how to open the picker, how to add
// a shortcut, each with its button). It only reads; the counters are written where uses happen.
class DashboardPage : public QWidget
{
    Q_OBJECT

public:
    DashboardPage(DB& db, TavoAccountStore& accounts, Defaults& defaults, QWidget* parent = nullptr);

    bool showsGettingStarted() const;
    // The numbers on screen, for the account signed in now.
    const ScorecardNumbers& numbers() const { return m_numbers; }
    // Reads the counts and the account's counters again.
    void refresh();
    // Extra repeated shortcuts and identical collections, from the collection library's load.
    void setDuplicateCounts(qint64 extraShortcuts, qint64 extraCollections);

signals:
    void sectionRequested(const QString& section);
    void newShortcutRequested();
    void buildCollectionRequested();
    void pickerRequested();

protected:
    void showEvent(QShowEvent* event) override;

private:
    QWidget* buildGettingStarted();
    QWidget* buildScorecard();
    QWidget* buildMakeSomethingNew();

    DB& m_db;
    TavoAccountStore& m_accounts;
    Defaults& m_defaults;
    ScorecardNumbers m_numbers;
    qint64 m_duplicateShortcuts = 0;
    qint64 m_duplicateCollections = 0;
    QLabel* m_greeting;
    QLabel* m_shortcutCount;
    QLabel* m_collectionCount;
    QWidget* m_gettingStarted;
    QList<QLabel*> m_values; // one per card, in the cards' order
};

} // namespace tavo
