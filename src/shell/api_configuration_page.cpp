#include "shell/api_configuration_page.h"

#include "ai/model_profile_store.h"
#include "shell/ui/card.h"
#include "shell/ui/design.h"
#include "shell/ui/empty_state.h"
#include "shell/ui/inline_message.h"
#include "store/defaults.h"
#include "store/key_store.h"

#include <QComboBox>
#include <QDesktopServices>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QStackedWidget>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

namespace tavo {

namespace Store = AIModelProfileStore;

namespace {

using design::quietLabel;

// Long enough to cover the gap between keystrokes, short enough that a key is stored before the
// user reaches for another screen; hiding the page writes it at once anyway.
constexpr int keyPauseMs = 400;

} // namespace

QUrl billingPage(const QString& provider)
{
    const QString lower = provider.toLower();
    if (lower.contains(QLatin1String("anthropic"))) {
        return QUrl(QStringLiteral("https://console.anthropic.com/settings/billing"));
    }
    if (lower.contains(QLatin1String("google")) || lower.contains(QLatin1String("gemini"))) {
        return QUrl(QStringLiteral("https://aistudio.google.com/plan_information"));
    }
    if (lower.contains(QLatin1String("xai")) || lower.contains(QLatin1String("grok"))) {
        return QUrl(QStringLiteral("https://console.x.ai/team/default/billing"));
    }
    if (lower.contains(QLatin1String("seaart"))) {
        return QUrl(QStringLiteral("https://www.seaart.ai/"));
    }
    return QUrl(QStringLiteral("https://platform.openai.com/settings/organization/billing/overview"));
}

AddCollectionModelSheet::AddCollectionModelSheet(QWidget* parent)
    : QDialog(parent)
    , m_provider(new QComboBox(this))
    , m_name(new QLineEdit(this))
    , m_model(new QLineEdit(this))
    , m_key(new QLineEdit(this))
    , m_baseLabel(new QLabel(QStringLiteral("API base URL"), this))
    , m_base(new QLineEdit(this))
    , m_save(new QPushButton(design::icon(QStringLiteral("document-save")), QStringLiteral("Save model"), this))
{
    setObjectName(QStringLiteral("addModelSheet"));
    setWindowTitle(QStringLiteral("Add an AI model"));
    setModal(true);
    m_provider->setObjectName(QStringLiteral("modelProvider"));
    m_name->setObjectName(QStringLiteral("modelName"));
    m_model->setObjectName(QStringLiteral("modelID"));
    m_key->setObjectName(QStringLiteral("modelKey"));
    m_base->setObjectName(QStringLiteral("modelBaseURL"));
    m_save->setObjectName(QStringLiteral("saveModel"));
    for (const AddCollectionModelDraft::ProviderChoice& choice : AddCollectionModelDraft::providerChoices()) {
        m_provider->addItem(choice.label, choice.provider);
    }
    design::name(m_provider, QStringLiteral("Provider"));
    m_name->setPlaceholderText(QStringLiteral("Profile name · e.g. Grok 4.7"));
    design::name(m_name, QStringLiteral("Profile name"));
    m_model->setPlaceholderText(QStringLiteral("Model ID"));
    design::name(m_model, QStringLiteral("Model ID"));
    m_key->setPlaceholderText(QStringLiteral("Provider API key"));
    m_key->setEchoMode(QLineEdit::Password);
    design::name(m_key, QStringLiteral("Provider API key"));
    m_base->setPlaceholderText(QStringLiteral("API base URL"));
    design::name(m_base, QStringLiteral("API base URL"));
    m_baseLabel->setBuddy(m_base);

    auto* headline = new QLabel(QStringLiteral("Add an AI model"), this);
    headline->setFont(design::sectionHeaderFont(font()));
    auto* explanation = new QLabel(
        QStringLiteral(
            "Choose a provider’s API model or enter your own model ID. Keys are stored in the system keyring."),
        this);
    explanation->setWordWrap(true);
    auto* warning = new InlineMessage(this);
    warning->setObjectName(QStringLiteral("chargeWarning"));
    warning->showMessage(
        QStringLiteral("API use may be chargeable. A different provider may require an "
                       "OpenAI-compatible Responses API endpoint. Review provider pricing before use."),
        InlineMessage::Kind::Warning);

    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Provider"), m_provider);
    form->addRow(QStringLiteral("Profile name"), m_name);
    form->addRow(QStringLiteral("Model ID"), m_model);
    form->addRow(QStringLiteral("Provider API key"), m_key);
    form->addRow(m_baseLabel, m_base);

    auto* buttons = new QDialogButtonBox(this);
    auto* cancel = buttons->addButton(QDialogButtonBox::Cancel);
    design::name(cancel, QStringLiteral("Cancel"));
    buttons->addButton(m_save, QDialogButtonBox::AcceptRole);
    design::name(m_save, QStringLiteral("Save model"));
    m_save->setDefault(true);
    connect(buttons, &QDialogButtonBox::accepted, this, &AddCollectionModelSheet::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &AddCollectionModelSheet::reject);

    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(design::step(this));
    layout->addWidget(headline);
    layout->addWidget(explanation);
    layout->addWidget(warning);
    layout->addLayout(form);
    layout->addWidget(buttons);

    m_draft.chooseProvider(m_draft.provider);
    showDraft();
    connect(m_provider, &QComboBox::currentIndexChanged, this, [this] {
        readFields();
        m_draft.chooseProvider(m_provider->currentData().toString());
        showDraft();
    });
    for (QLineEdit* field : {m_name, m_model, m_key, m_base}) {
        connect(field, &QLineEdit::textChanged, this, [this] {
            readFields();
            m_save->setEnabled(m_draft.canSave());
        });
    }
}

void AddCollectionModelSheet::readFields()
{
    m_draft.displayName = m_name->text();
    m_draft.modelID = m_model->text();
    m_draft.key = m_key->text();
    m_draft.baseURL = m_base->text();
}

void AddCollectionModelSheet::showDraft()
{
    const QSignalBlocker provider(m_provider);
    m_provider->setCurrentIndex(m_provider->findData(m_draft.provider));
    for (auto [field, text] : {std::pair{m_name, m_draft.displayName}, std::pair{m_model, m_draft.modelID},
                               std::pair{m_base, m_draft.baseURL}}) {
        const QSignalBlocker blocker(field);
        field->setText(text);
    }
    const bool base = AddCollectionModelDraft::needsBaseURL(m_draft.provider);
    m_baseLabel->setVisible(base);
    m_base->setVisible(base);
    m_save->setEnabled(m_draft.canSave());
}

void AddCollectionModelSheet::accept()
{
    readFields();
    if (!m_draft.canSave()) {
        return; // Return in a field must not slip past the rules
    }
    emit modelAdded(m_draft.makeProfile(), m_draft.key);
    QDialog::accept();
}

ApiConfigurationPage::ApiConfigurationPage(Defaults& defaults, QWidget* parent)
    : QWidget(parent)
    , m_defaults(defaults)
    , m_status(new InlineMessage(this))
    , m_stack(new QStackedWidget(this))
    , m_empty(new EmptyState(QStringLiteral("network-server"), QStringLiteral("No models"),
                             QStringLiteral("Add a provider’s model and its API key to use the AI features."),
                             QStringLiteral("Add model"), this))
    , m_list(new QListWidget(this))
    , m_detail(new Card(QString(), QStringLiteral("network-server"), this))
    , m_provider(new QLabel(this))
    , m_pricing(quietLabel(QString(), this))
    , m_key(new QLineEdit(this))
    , m_sharing(quietLabel(QString(), this))
    , m_billing(
          new QPushButton(design::icon(QStringLiteral("internet-web-browser")), QStringLiteral("Open billing"), this))
    , m_remove(new QPushButton(design::icon(QStringLiteral("list-remove")), QStringLiteral("Remove"), this))
    , m_keyPause(new QTimer(this))
{
    setObjectName(QStringLiteral("apiConfiguration"));
    m_status->setObjectName(QStringLiteral("apiStatus"));
    m_list->setObjectName(QStringLiteral("modelList"));
    design::name(m_list, QStringLiteral("Models"));
    m_list->setSpacing(qMax(1, design::step(this) / 2));
    m_list->setIconSize(QSize(fontMetrics().height() * 2, fontMetrics().height() * 2));
    m_provider->setObjectName(QStringLiteral("modelDetails"));
    m_provider->setWordWrap(true);
    m_provider->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_pricing->setObjectName(QStringLiteral("modelPricing"));
    m_key->setObjectName(QStringLiteral("apiKey"));
    m_key->setEchoMode(QLineEdit::Password);
    m_key->setPlaceholderText(QStringLiteral("API key"));
    design::name(m_key, QStringLiteral("API key"));
    m_sharing->setObjectName(QStringLiteral("keySharing"));
    m_billing->setObjectName(QStringLiteral("openBilling"));
    design::name(m_billing, QStringLiteral("Open billing"));
    m_billing->setToolTip(QStringLiteral("Opens in your web browser"));
    m_remove->setObjectName(QStringLiteral("removeModel"));
    design::name(m_remove, QStringLiteral("Remove model"));
    m_empty->setObjectName(QStringLiteral("noModels"));
    m_keyPause->setSingleShot(true);
    m_keyPause->setInterval(keyPauseMs);

    auto* add = new QPushButton(design::icon(QStringLiteral("list-add")), QStringLiteral("Add model"), this);
    add->setObjectName(QStringLiteral("addModel"));
    design::name(add, QStringLiteral("Add model"));
    auto* footnote = quietLabel(QStringLiteral("API keys are stored in the system keyring. Select a saved model in "
                                               "either builder. Provider usage may be chargeable."),
                                this);
    footnote->setObjectName(QStringLiteral("apiFootnote"));

    auto* keyForm = new QFormLayout;
    keyForm->addRow(QStringLiteral("API key"), m_key);
    auto* actions = new QHBoxLayout;
    actions->addWidget(m_billing);
    actions->addStretch();
    actions->addWidget(m_remove);
    m_detail->body()->addWidget(m_provider);
    m_detail->body()->addWidget(m_pricing);
    m_detail->body()->addLayout(keyForm);
    m_detail->body()->addWidget(m_sharing);
    m_detail->body()->addLayout(actions);
    m_detail->body()->addStretch();

    auto* library = new QWidget(this);
    auto* columns = new QHBoxLayout(library);
    columns->setContentsMargins(0, 0, 0, 0);
    columns->setSpacing(design::step(this, 2));
    columns->addWidget(m_list, 2);
    columns->addWidget(m_detail, 3);
    m_stack->addWidget(library);
    m_stack->addWidget(m_empty);

    auto* top = new QHBoxLayout;
    top->addWidget(footnote, 1);
    top->addWidget(add, 0, Qt::AlignTop);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(design::step(this));
    layout->addLayout(top);
    layout->addWidget(m_status);
    layout->addWidget(m_stack, 1);

    connect(add, &QPushButton::clicked, this, &ApiConfigurationPage::openAddSheet);
    connect(m_empty, &EmptyState::actionTriggered, this, &ApiConfigurationPage::openAddSheet);
    connect(m_list, &QListWidget::currentRowChanged, this, [this](int row) {
        if (row >= 0 && row < m_profiles.size()) {
            selectProfile(m_profiles.at(row).id);
        }
    });
    connect(m_key, &QLineEdit::textEdited, this, &ApiConfigurationPage::keyEdited);
    connect(m_keyPause, &QTimer::timeout, this, &ApiConfigurationPage::flushKey);
    connect(m_billing, &QPushButton::clicked, this, [this] {
        const QUrl page = billingPage(Store::selectedModel(m_profiles, selectedID()).provider);
        emit billingRequested(page);
        QDesktopServices::openUrl(page);
    });
    connect(m_remove, &QPushButton::clicked, this, [this] { removeProfile(selectedID()); });
    reload();
}

ApiConfigurationPage::~ApiConfigurationPage()
{
    flushKey();
}

void ApiConfigurationPage::reload()
{
    flushKey();
    m_profiles = Store::load(m_defaults);
    fillList();
}

QString ApiConfigurationPage::selectedID() const
{
    return Store::selectedModel(m_profiles, Store::selectedProfileID(m_defaults)).id;
}

void ApiConfigurationPage::selectProfile(const QString& id)
{
    for (const CollectionAIModelProfile& profile : std::as_const(m_profiles)) {
        if (profile.id == id) {
            flushKey(); // the key typed so far belongs to the profile being left
            Store::selectProfile(m_defaults, profile);
            fillList();
            return;
        }
    }
}

void ApiConfigurationPage::removeProfile(const QString& id)
{
    auto found = std::find_if(m_profiles.cbegin(), m_profiles.cend(),
                              [&id](const CollectionAIModelProfile& profile) { return profile.id == id; });
    if (found == m_profiles.cend()) {
        return;
    }
    const QString name = found->name;
    flushKey();
    const std::optional<TavoError> failed = Store::removeProfile(m_defaults, m_profiles, id);
    fillList();
    if (failed) {
        report(failed->description, true);
    } else {
        report(QStringLiteral("Removed %1.").arg(name), false);
    }
}

void ApiConfigurationPage::addProfile(const CollectionAIModelProfile& profile, const QString& key)
{
    flushKey();
    const std::optional<TavoError> failed = Store::addProfile(m_defaults, m_profiles, profile, key);
    fillList();
    if (failed) {
        report(failed->description, true);
    } else {
        report(QStringLiteral("Saved %1. It is now available in both builders.").arg(profile.name), false);
    }
}

AddCollectionModelSheet* ApiConfigurationPage::openAddSheet()
{
    auto* sheet = new AddCollectionModelSheet(this);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    connect(sheet, &AddCollectionModelSheet::modelAdded, this, &ApiConfigurationPage::addProfile);
    sheet->open();
    return sheet;
}

QString ApiConfigurationPage::status() const
{
    return m_status->text();
}

void ApiConfigurationPage::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    reload(); // another screen may have changed the library since
}

void ApiConfigurationPage::hideEvent(QHideEvent* event)
{
    flushKey();
    QWidget::hideEvent(event);
}

void ApiConfigurationPage::fillList()
{
    const QSignalBlocker blocker(m_list);
    m_list->clear();
    const QString selected = selectedID();
    int current = -1;
    for (const CollectionAIModelProfile& profile : std::as_const(m_profiles)) {
        const bool chosen = profile.id == selected;
        auto* item = new QListWidgetItem(m_list);
        item->setText(profile.name + QLatin1Char('\n') + profile.provider + QStringLiteral(" · ") + profile.model);
        // The mark is read out too: a screen reader hears which model the builders use.
        item->setData(Qt::AccessibleTextRole, chosen ? profile.name + QStringLiteral(", selected") : profile.name);
        item->setData(Qt::UserRole, profile.id);
        item->setIcon(design::icon(chosen ? QStringLiteral("emblem-checked") : QStringLiteral("network-server")));
        if (chosen) { // seen without the icon too
            QFont bold = m_list->font();
            bold.setBold(true);
            item->setFont(bold);
        }
        if (chosen) {
            current = m_list->count() - 1;
        }
    }
    m_list->setCurrentRow(current);
    m_stack->setCurrentIndex(m_profiles.isEmpty() ? 1 : 0);
    showSelected();
}

void ApiConfigurationPage::showSelected()
{
    if (m_profiles.isEmpty()) {
        return;
    }
    const CollectionAIModelProfile profile = Store::selectedModel(m_profiles, selectedID());
    m_detail->setAccessibleName(profile.name);
    m_provider->setText(
        QStringLiteral("<b>%1</b><br>%2 · %3")
            .arg(profile.name.toHtmlEscaped(), profile.provider.toHtmlEscaped(), profile.model.toHtmlEscaped()));
    m_pricing->setText(profile.pricingHelp());
    const Result<std::optional<QString>> key = KeyStore::load(profile.keyAccount);
    m_key->setText(key ? key.value().value_or(QString()) : QString());
    if (!key) {
        report(key.error().description, true);
    }
    QStringList sharing;
    for (const CollectionAIModelProfile& other : std::as_const(m_profiles)) {
        if (other.keyAccount == profile.keyAccount && other.id != profile.id) {
            sharing << other.name;
        }
    }
    m_sharing->setText(sharing.isEmpty()
                           ? QString()
                           : QStringLiteral("This key also serves %1.").arg(sharing.join(QStringLiteral(", "))));
    m_sharing->setVisible(!sharing.isEmpty());
}

void ApiConfigurationPage::keyEdited(const QString& text)
{
    // Typing only restarts a timer: the keyring is asked once the user pauses.
    m_pendingAccount = Store::selectedModel(m_profiles, selectedID()).keyAccount;
    m_pendingKey = text;
    m_keyPending = true;
    m_keyPause->start();
}

void ApiConfigurationPage::flushKey()
{
    m_keyPause->stop();
    if (!m_keyPending) {
        return;
    }
    m_keyPending = false;
    // An empty text erases the account's item, so every profile on that account loses the key.
    if (const std::optional<TavoError> failed = KeyStore::save(m_pendingKey, m_pendingAccount)) {
        report(failed->description, true);
    }
}

void ApiConfigurationPage::report(const QString& text, bool failed)
{
    m_status->showMessage(text, failed ? InlineMessage::Kind::Error : InlineMessage::Kind::Information);
}

} // namespace tavo
