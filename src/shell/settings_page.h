#pragma once

#include <QWidget>

class QAction;
class QCheckBox;
class QComboBox;
class QLabel;
class QSlider;

namespace tavo {

class Card;

class Defaults;
class TavoAccountStore;

// Settings as titled groups: the account, keyboard access, start-up, where website shortcuts
// open, the side menu and the picker's size and transparency.
class SettingsPage : public QWidget
{
    Q_OBJECT

public:
    SettingsPage(TavoAccountStore& accounts, Defaults& defaults, QWidget* parent = nullptr);

    // What the keyboard tap can do here: empty when it runs.
    void setKeyboardProblem(const QString& problem);
    void showAccount();
    void setMenuOptions(bool labelsHidden, bool menuHidden);
    // The window's package, backup and CSV actions, as buttons in a card of their own.
    void setDataActions(const QList<QAction*>& actions);

signals:
    void noticeRequested(const QString& text);
    void menuLabelsHiddenToggled(bool hidden);
    void menuHiddenToggled(bool hidden);

private:
    TavoAccountStore& m_accounts;
    Defaults& m_defaults;
    QLabel* m_signedInAs;
    QLabel* m_keyboardIcon;
    QLabel* m_keyboardState;
    QCheckBox* m_autostart;
    QCheckBox* m_menuLabels;
    QCheckBox* m_menuHidden;
    QComboBox* m_websitesIn;
    QComboBox* m_area;
    QSlider* m_transparency;
    QLabel* m_transparencyText;
    Card* m_data = nullptr;
};

} // namespace tavo
