#include "shell/settings_page.h"

#include "engine/expansion_runner.h"
#include "picker/picker_geometry.h"
#include "shell/main_window.h"
#include "shell/ui/card.h"
#include "shell/ui/design.h"
#include "store/accounts.h"
#include "store/defaults.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QSlider>
#include <QToolButton>
#include <QVBoxLayout>

namespace tavo {

SettingsPage::SettingsPage(TavoAccountStore& accounts, Defaults& defaults, QWidget* parent)
    : QWidget(parent)
    , m_accounts(accounts)
    , m_defaults(defaults)
    , m_signedInAs(new QLabel(this))
    , m_keyboardIcon(new QLabel(this))
    , m_keyboardState(new QLabel(this))
    , m_autostart(new QCheckBox(QStringLiteral("Start Tavo when I log in"), this))
    , m_menuLabels(new QCheckBox(QStringLiteral("Hide menu labels"), this))
    , m_menuHidden(new QCheckBox(QStringLiteral("Hide left menu completely"), this))
    , m_websitesIn(new QComboBox(this))
    , m_area(new QComboBox(this))
    , m_transparency(new QSlider(Qt::Horizontal, this))
    , m_transparencyText(new QLabel(this))
{
    setObjectName(QStringLiteral("settings"));
    m_signedInAs->setObjectName(QStringLiteral("signedInAs"));
    m_keyboardState->setObjectName(QStringLiteral("keyboardState"));
    m_keyboardState->setWordWrap(true);
    m_keyboardState->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_autostart->setObjectName(QStringLiteral("autostart"));
    m_autostart->setChecked(startsAtLogin());
    m_menuLabels->setObjectName(QStringLiteral("menuLabelsSetting"));
    m_menuHidden->setObjectName(QStringLiteral("menuHiddenSetting"));
    m_area->setObjectName(QStringLiteral("pickerArea"));
    m_transparency->setObjectName(QStringLiteral("pickerTransparency"));

    auto* account = new Card(QStringLiteral("Account"), QStringLiteral("user-identity"), this);
    auto* signOut = new QPushButton(design::icon(QStringLiteral("system-log-out")), QStringLiteral("Sign out"), this);
    signOut->setObjectName(QStringLiteral("signOut"));
    connect(signOut, &QPushButton::clicked, &m_accounts, &TavoAccountStore::signOut);
    auto* accountRow = new QHBoxLayout;
    accountRow->addWidget(m_signedInAs, 1);
    accountRow->addWidget(signOut);
    account->body()->addLayout(accountRow);

    auto* keyboard = new Card(QStringLiteral("Keyboard access"), QStringLiteral("input-keyboard"), this);
    auto* keyboardRow = new QHBoxLayout;
    keyboardRow->addWidget(m_keyboardIcon, 0, Qt::AlignTop);
    keyboardRow->addWidget(m_keyboardState, 1);
    keyboard->body()->addLayout(keyboardRow);

    auto* startUp = new Card(QStringLiteral("Start-up"), QStringLiteral("system-run"), this);
    startUp->body()->addWidget(m_autostart);
    connect(m_autostart, &QCheckBox::toggled, this, [this](bool on) {
        if (!setStartsAtLogin(on, QApplication::applicationFilePath())) {
            emit noticeRequested(QStringLiteral("Could not change the log-in start of Tavo."));
        }
    });

    auto* browser = new Card(QStringLiteral("Browser"), QStringLiteral("internet-web-browser"), this);
    m_websitesIn->setObjectName(QStringLiteral("websiteShortcutsIn"));
    m_websitesIn->addItem(QStringLiteral("Tavo Browser"), false);
    m_websitesIn->addItem(QStringLiteral("my default browser"), true);
    m_websitesIn->setCurrentIndex(m_defaults.flag(websiteShortcutsInDefaultBrowserKey) ? 1 : 0);
    design::name(m_websitesIn, QStringLiteral("Open website shortcuts in:"));
    connect(m_websitesIn, &QComboBox::currentIndexChanged, this, [this] {
        m_defaults.setBoolean(websiteShortcutsInDefaultBrowserKey, m_websitesIn->currentData().toBool());
    });
    auto* browserForm = new QFormLayout;
    browserForm->addRow(QStringLiteral("Open website shortcuts in:"), m_websitesIn);
    browser->body()->addLayout(browserForm);

    auto* window = new Card(QStringLiteral("Side menu"), QStringLiteral("sidebar-collapse"), this);
    window->body()->addWidget(m_menuLabels);
    window->body()->addWidget(m_menuHidden);
    connect(m_menuLabels, &QCheckBox::toggled, this, &SettingsPage::menuLabelsHiddenToggled);
    connect(m_menuHidden, &QCheckBox::toggled, this, &SettingsPage::menuHiddenToggled);

    auto* picker = new Card(QStringLiteral("Picker"), QStringLiteral("edit-find"), this);
    const double share = m_defaults.number(pickerAreaKey).value_or(defaultPickerAreaPercent);
    const QList<int> percents = pickerAreaPercents(share);
    for (const int percent : percents) {
        m_area->addItem(QStringLiteral("%1% of screen").arg(percent), percent / 100.0);
    }
    m_area->setCurrentIndex(int(percents.indexOf(qRound(qBound(0.08, share, 0.25) * 100))));
    connect(m_area, &QComboBox::currentIndexChanged, this,
            [this] { m_defaults.setNumber(pickerAreaKey, m_area->currentData().toDouble()); });
    m_transparency->setRange(0, maximumPickerTransparencyPercent);
    m_transparency->setValue(
        qRound(m_defaults.number(pickerTransparencyKey).value_or(defaultPickerTransparency) * 100));
    m_transparencyText->setText(QStringLiteral("%1%").arg(m_transparency->value()));
    connect(m_transparency, &QSlider::valueChanged, this, [this](int percent) {
        m_transparencyText->setText(QStringLiteral("%1%").arg(percent));
        m_defaults.setNumber(pickerTransparencyKey, percent / 100.0);
    });
    auto* transparencyRow = new QHBoxLayout;
    transparencyRow->addWidget(m_transparency, 1);
    transparencyRow->addWidget(m_transparencyText);
    auto* pickerForm = new QFormLayout;
    pickerForm->addRow(QStringLiteral("Select area"), m_area);
    pickerForm->addRow(QStringLiteral("Transparency"), transparencyRow);
    m_transparency->setAccessibleName(QStringLiteral("Transparency"));
    picker->body()->addLayout(pickerForm);
    auto* pickerNote = new QLabel(QStringLiteral("The picker opens when you type \\ or / in any application; "
                                                 "the transparency shows where a compositor runs."),
                                  this);
    pickerNote->setWordWrap(true);
    QPalette quiet = pickerNote->palette();
    quiet.setColor(QPalette::WindowText, design::secondaryText(palette()));
    pickerNote->setPalette(quiet);
    picker->body()->addWidget(pickerNote);

    // Two columns of cards: short groups side by side read faster than one long column.
    auto* content = new QWidget(this);
    auto* columns = new QHBoxLayout(content);
    columns->setContentsMargins(0, 0, 0, 0);
    columns->setSpacing(design::step(this, 2));
    auto* left = new QVBoxLayout;
    auto* right = new QVBoxLayout;
    for (QVBoxLayout* column : {left, right}) {
        column->setSpacing(design::step(this, 2));
    }
    left->addWidget(account);
    left->addWidget(keyboard);
    left->addWidget(startUp);
    left->addWidget(browser);
    left->addStretch();
    right->addWidget(picker);
    right->addWidget(window);
    m_data = new Card(QStringLiteral("Import and export"), QStringLiteral("document-export"), this);
    m_data->setObjectName(QStringLiteral("dataCard"));
    m_data->hide(); // filled by the window with its File menu's actions
    right->addWidget(m_data);
    right->addStretch();
    columns->addLayout(left, 1);
    columns->addLayout(right, 1);
    auto* scroll = new QScrollArea(this);
    scroll->setObjectName(QStringLiteral("settingsScroll"));
    scroll->setAccessibleName(QStringLiteral("Settings"));
    scroll->setWidget(content);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setFocusPolicy(Qt::NoFocus);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(scroll);
    setKeyboardProblem(QString());
}

void SettingsPage::setKeyboardProblem(const QString& problem)
{
    const int size = fontMetrics().height() * 2;
    m_keyboardIcon->setPixmap(
        design::icon(problem.isEmpty() ? QStringLiteral("emblem-checked") : QStringLiteral("dialog-warning"))
            .pixmap(size, size));
    m_keyboardState->setText(
        problem.isEmpty()
            ? QStringLiteral("Keyboard access: ready. Type \\ or / and a shortcut's key, then a space, in any "
                             "application.")
            : QStringLiteral("Keyboard access: not available. %1 Tavo follows typing in an X11 session whose "
                             "server offers XTEST; log in to an X11 (Xorg) session and start Tavo again.")
                  .arg(problem));
}

void SettingsPage::setDataActions(const QList<QAction*>& actions)
{
    auto* grid = new QGridLayout;
    grid->setSpacing(design::step(this));
    int at = 0;
    for (QAction* action : actions) {
        // The button follows the action: its text, icon and whether it can run now.
        auto* button = new QToolButton(m_data);
        button->setDefaultAction(action);
        button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
        button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        design::name(button, action->text().remove(QStringLiteral("…")));
        grid->addWidget(button, at / 2, at % 2);
        ++at;
    }
    m_data->body()->addLayout(grid);
    m_data->show();
}

void SettingsPage::showAccount()
{
    m_signedInAs->setText(QStringLiteral("Signed in as ") + m_accounts.currentUsername());
}

void SettingsPage::setMenuOptions(bool labelsHidden, bool menuHidden)
{
    const QSignalBlocker labels(m_menuLabels);
    const QSignalBlocker hidden(m_menuHidden);
    m_menuLabels->setChecked(labelsHidden);
    m_menuHidden->setChecked(menuHidden);
}

} // namespace tavo
