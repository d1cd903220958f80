#pragma once

#include <QWidget>

class QLabel;

namespace tavo {

class Card;
class DB;
class Defaults;
class TavoAccountStore;

// The first page after signing in. Until the account has expanded anything it shows how to begin:
// how to expand, how to open the picker, how to add a shortcut, each with its button.
class DashboardPage : public QWidget
{
    Q_OBJECT

public:
    DashboardPage(DB& db, TavoAccountStore& accounts, Defaults& defaults, QWidget* parent = nullptr);

    bool showsGettingStarted() const;
    // Reads the counts and the account's use again.
    void refresh();

signals:
    void sectionRequested(const QString& section);
    void newShortcutRequested();
    void pickerRequested();

protected:
    void showEvent(QShowEvent* event) override;

private:
    DB& m_db;
    TavoAccountStore& m_accounts;
    Defaults& m_defaults;
    Card* m_gettingStarted;
    QLabel* m_counts;
};

} // namespace tavo
