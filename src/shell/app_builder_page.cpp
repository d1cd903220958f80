#include "shell/app_builder_page.h"

#include "builder/builder_app.h"
#include "shell/app_builder_editor.h"
#include "shell/ui/design.h"
#include "shell/ui/empty_state.h"
#include "shell/ui/inline_message.h"
#include "store/defaults.h"

#include <QFileInfo>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QStackedWidget>
#include <QToolButton>
#include <QVBoxLayout>

namespace tavo {

namespace {

QIcon appIcon(const QString& iconPath, const QString& symbol)
{
    if (!iconPath.isEmpty() && QFileInfo(iconPath).isFile()) {
        const QIcon own(iconPath);
        if (!own.isNull()) {
            return own;
        }
    }
    static const QHash<QString, QString> builderSymbols{
        {QStringLiteral("photo.fill"), QStringLiteral("image-x-generic")},
        {QStringLiteral("play.rectangle.fill"), QStringLiteral("video-x-generic")},
        {QStringLiteral("doc.richtext.fill"), QStringLiteral("x-office-document")},
        {QStringLiteral("envelope.fill"), QStringLiteral("internet-mail")},
        {QStringLiteral("sparkles"), QStringLiteral("applications-utilities")},
    };
    const auto found = builderSymbols.constFind(symbol);
    return design::icon(found != builderSymbols.constEnd() ? *found : design::freedesktopNameOfSymbol(symbol));
}

const QString homeScreen = QStringLiteral("Home");

QString creditLabel(const QString& cost)
{
    const QString trimmed = cost.trimmed();
    return trimmed == QLatin1StringView("1") ? QStringLiteral("1 credit") : trimmed + QStringLiteral(" credits");
}

} // namespace

AppBuilderPage::AppBuilderPage(DB& db, Defaults& defaults, QWidget* parent)
    : QWidget(parent)
    , m_db(db)
    , m_defaults(defaults)
    , m_stack(new QStackedWidget(this))
    , m_gallery(new QWidget(this))
    , m_status(new InlineMessage(this))
    , m_name(new QLineEdit(this))
    , m_details(new QLineEdit(this))
    , m_listOrEmpty(new QStackedWidget(this))
    , m_apps(new QListWidget(this))
    , m_empty(new EmptyState(QStringLiteral("tools-wizard"), QStringLiteral("No apps yet"),
                             QStringLiteral("An app turns a typed command into a document, a message or an image."),
                             QStringLiteral("New action"), this))
    , m_open(new QPushButton(design::icon(QStringLiteral("document-edit")), QStringLiteral("Edit"), this))
    , m_delete(new QPushButton(design::icon(QStringLiteral("edit-delete")), QStringLiteral("Delete"), this))
    , m_editor(new AppBuilderEditor(db, defaults, this))
{
    setObjectName(QStringLiteral("appBuilder"));
    m_status->setObjectName(QStringLiteral("builderStatus"));
    m_name->setObjectName(QStringLiteral("newAppName"));
    m_name->setPlaceholderText(QStringLiteral("App name"));
    design::name(m_name, QStringLiteral("New app name"));
    m_details->setObjectName(QStringLiteral("newAppDetails"));
    m_details->setPlaceholderText(builderTexts::actionPlaceholder);
    design::name(m_details, QStringLiteral("What the new app should do"));
    m_apps->setObjectName(QStringLiteral("builderApps"));
    design::name(m_apps, QStringLiteral("Apps"));
    m_apps->setSpacing(qMax(1, design::step(this) / 2));
    m_apps->setIconSize(QSize(fontMetrics().height() * 2, fontMetrics().height() * 2));
    m_apps->setWordWrap(true);
    m_empty->setObjectName(QStringLiteral("noBuilderApps"));
    m_open->setObjectName(QStringLiteral("openBuilderApp"));
    design::name(m_open, QStringLiteral("Edit app"));
    m_delete->setObjectName(QStringLiteral("deleteBuilderApp"));
    design::name(m_delete, QStringLiteral("Delete app"));

    auto* create = new QPushButton(design::icon(QStringLiteral("list-add")), QStringLiteral("Create app"), this);
    create->setObjectName(QStringLiteral("createBuilderApp"));
    design::name(create, QStringLiteral("Create app"));
    auto* presets = new QToolButton(this);
    presets->setObjectName(QStringLiteral("builderPresets"));
    presets->setText(QStringLiteral("From preset"));
    presets->setIcon(design::icon(QStringLiteral("document-new")));
    presets->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    presets->setPopupMode(QToolButton::InstantPopup);
    design::name(presets, QStringLiteral("New app from a preset"));
    auto* presetMenu = new QMenu(presets);
    presetMenu->setObjectName(QStringLiteral("builderPresetMenu"));
    for (int index = 0; index < appBuilderPresets().size(); ++index) {
        const AppBuilderPreset& preset = appBuilderPresets().at(index);
        presetMenu->addAction(preset.name, this, [this, index] { createFromPreset(index); });
    }
    presets->setMenu(presetMenu);
    auto* newAction = new QPushButton(design::icon(QStringLiteral("tools-wizard")), QStringLiteral("New action"), this);
    newAction->setObjectName(QStringLiteral("startNewAction"));
    design::name(newAction, QStringLiteral("New action"));

    auto* form = new QHBoxLayout;
    form->addWidget(m_name, 1);
    form->addWidget(m_details, 2);
    form->addWidget(create);
    form->addWidget(presets);
    form->addWidget(newAction);
    m_listOrEmpty->addWidget(m_apps);
    m_listOrEmpty->addWidget(m_empty);
    auto* actions = new QHBoxLayout;
    actions->addStretch();
    actions->addWidget(m_open);
    actions->addWidget(m_delete);
    auto* gallery = new QVBoxLayout(m_gallery);
    gallery->setContentsMargins(0, 0, 0, 0);
    gallery->setSpacing(design::step(this));
    gallery->addLayout(form);
    gallery->addWidget(m_status);
    gallery->addWidget(m_listOrEmpty, 1);
    gallery->addLayout(actions);

    m_stack->addWidget(m_gallery);
    m_stack->addWidget(m_editor);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_stack);

    connect(create, &QPushButton::clicked, this, [this] { createApp(m_name->text(), m_details->text()); });
    connect(m_name, &QLineEdit::returnPressed, this, [this] { createApp(m_name->text(), m_details->text()); });
    connect(newAction, &QPushButton::clicked, this, &AppBuilderPage::startNewAction);
    connect(m_empty, &EmptyState::actionTriggered, this, &AppBuilderPage::startNewAction);
    connect(m_open, &QPushButton::clicked, this, [this] { openApp(currentApp()); });
    connect(m_apps, &QListWidget::itemActivated, this, [this] { openApp(currentApp()); });
    connect(m_delete, &QPushButton::clicked, this, [this] { deleteApp(currentApp()); });
    connect(m_apps, &QListWidget::currentRowChanged, this, [this](int row) {
        m_open->setEnabled(row >= 0);
        m_delete->setEnabled(row >= 0);
    });
    connect(m_editor, &AppBuilderEditor::backRequested, this, &AppBuilderPage::showGallery);
    connect(m_editor, &AppBuilderEditor::collectionsRequested, this, &AppBuilderPage::collectionsRequested);
    // tavoctl and other screens change apps too; the gallery follows while it is on screen.
    connect(&m_defaults, &Defaults::valuesChanged, this, [this] {
        if (isEditing() && !builderAppNames(m_defaults).contains(m_editor->app())) {
            // Deleted elsewhere: nothing of it may be written back.
            const QString gone = m_editor->app();
            m_editor->closeApp();
            m_stack->setCurrentWidget(m_gallery);
            report(QStringLiteral("%1 was deleted elsewhere.").arg(gone), false);
            reload();
        } else if (isVisible() && !isEditing()) {
            reload();
        }
    });
    reload();
}

QStringList AppBuilderPage::appNames() const
{
    QStringList names;
    for (int row = 0; row < m_apps->count(); ++row) {
        names << m_apps->item(row)->data(Qt::UserRole).toString();
    }
    return names;
}

void AppBuilderPage::reload()
{
    const QString current = currentApp();
    const QSignalBlocker blocker(m_apps);
    m_apps->clear();
    for (const QString& name : builderAppNames(m_defaults)) {
        const QString description =
            m_defaults.string(builderKey(QStringLiteral("Description"), name)).value_or(QString());
        const QString credits = creditLabel(
            m_defaults.string(builderKey(QStringLiteral("CreditCost"), name)).value_or(QStringLiteral("1")));
        const QString symbol =
            m_defaults.string(builderKey(QStringLiteral("AppIconSymbol"), name)).value_or(automaticAppIcon(name));
        const QString iconPath = m_defaults.string(builderKey(QStringLiteral("AppIcon"), name)).value_or(QString());
        auto* item = new QListWidgetItem(m_apps);
        item->setText(name + QStringLiteral("  ·  ") + credits +
                      (description.isEmpty() ? QString() : QLatin1Char('\n') + description));
        item->setData(Qt::UserRole, name);
        item->setData(Qt::AccessibleTextRole, name);
        item->setData(Qt::AccessibleDescriptionRole, description);
        item->setIcon(appIcon(iconPath, symbol));
        if (name == current) {
            m_apps->setCurrentItem(item);
        }
    }
    m_listOrEmpty->setCurrentWidget(m_apps->count() > 0 ? static_cast<QWidget*>(m_apps) : m_empty);
    m_open->setEnabled(m_apps->currentRow() >= 0);
    m_delete->setEnabled(m_apps->currentRow() >= 0);
}

QString AppBuilderPage::currentApp() const
{
    const QListWidgetItem* item = m_apps->currentItem();
    return item ? item->data(Qt::UserRole).toString() : QString();
}

bool AppBuilderPage::createApp(const QString& name, const QString& details)
{
    if (const std::optional<QString> refused = addUtilityApp(m_defaults, name, details, details)) {
        report(*refused, true);
        return false;
    }
    m_name->clear();
    m_details->clear();
    report(QString(), false);
    reload();
    openApp(name.trimmed());
    return true;
}

bool AppBuilderPage::createFromPreset(int preset)
{
    if (preset < 0 || preset >= appBuilderPresets().size()) {
        return false;
    }
    const AppBuilderPreset& chosen = appBuilderPresets().at(preset);
    if (const std::optional<QString> refused = addPresetApp(m_defaults, chosen)) {
        report(*refused, true);
        return false;
    }
    report(QString(), false);
    reload();
    openApp(chosen.name);
    return true;
}

QString AppBuilderPage::startNewAction()
{
    const QString name = tavo::startNewAction(m_defaults, m_details->text(), m_details->text());
    m_details->clear();
    report(QString(), false);
    reload();
    openApp(name);
    return name;
}

bool AppBuilderPage::deleteApp(const QString& name)
{
    if (name.isEmpty() || !builderAppNames(m_defaults).contains(name)) {
        return false;
    }
    QMessageBox confirm(QMessageBox::Question, QStringLiteral("Delete"), QStringLiteral("Delete %1?").arg(name),
                        QMessageBox::Yes | QMessageBox::Cancel, this);
    confirm.setInformativeText(QStringLiteral("Its prompt, template and every setting are removed."));
    if (confirm.exec() != QMessageBox::Yes) {
        return false;
    }
    if (m_editor->app() == name) {
        m_editor->closeApp(); // nothing of it may be written back after it is gone
        m_stack->setCurrentWidget(m_gallery);
        m_defaults.setString(selectedBuilderAppKey, homeScreen);
    }
    deleteBuilderApp(m_defaults, name);
    report(QStringLiteral("Deleted %1.").arg(name), false);
    reload();
    return true;
}

void AppBuilderPage::openApp(const QString& name)
{
    if (name.isEmpty()) {
        return;
    }
    m_editor->openApp(name);
    m_stack->setCurrentWidget(m_editor);
    if (m_defaults.string(selectedBuilderAppKey) != name) {
        m_defaults.setString(selectedBuilderAppKey, name); // the section opens here again next time
    }
}

void AppBuilderPage::showGallery()
{
    m_editor->save();
    m_stack->setCurrentWidget(m_gallery);
    if (m_defaults.string(selectedBuilderAppKey) != homeScreen) {
        m_defaults.setString(selectedBuilderAppKey, homeScreen);
    }
    reload();
}

bool AppBuilderPage::isEditing() const
{
    return m_stack->currentWidget() == m_editor;
}

QString AppBuilderPage::status() const
{
    return m_status->text();
}

void AppBuilderPage::report(const QString& text, bool refused)
{
    m_status->showMessage(text, refused ? InlineMessage::Kind::Warning : InlineMessage::Kind::Information);
}

void AppBuilderPage::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    if (!m_seeded) {
        m_seeded = true;
        seedBuilderApps(m_defaults);
        if (!m_defaults.flag(appBuilderHasSeenHomeKey)) {
            m_defaults.setBoolean(appBuilderHasSeenHomeKey, true);
        }
        // Back to the app that was open when the section was last left.
        const QString open = m_defaults.string(selectedBuilderAppKey).value_or(homeScreen);
        if (builderAppNames(m_defaults).contains(open)) {
            openApp(open);
        }
    }
    reload();
}

} // namespace tavo
