#include "browser/web/browser_private_gate.h"

#include "browser/browser_tabs.h"
#include "shell/ui/design.h"
#include "shell/ui/inline_message.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace tavo {

namespace {

QLineEdit* passcodeEdit(QWidget* parent, const QString& name)
{
    auto* field = new QLineEdit(parent);
    field->setEchoMode(QLineEdit::Password);
    field->setInputMethodHints(Qt::ImhDigitsOnly | Qt::ImhSensitiveData | Qt::ImhNoPredictiveText);
    design::name(field, name);
    // Every change keeps the number characters, the first six, so the field never holds more.
    QObject::connect(field, &QLineEdit::textChanged, field, [field](const QString& typed) {
        const QString kept = BrowserPrivateGate::fieldText(typed);
        if (kept != typed) {
            field->setText(kept);
        }
    });
    return field;
}

} // namespace

BrowserPrivateGateSheet::BrowserPrivateGateSheet(TavoBrowserTabs& state, bool hasPasscode, QWidget* parent)
    : QDialog(parent)
    , m_state(state)
    , m_hasPasscode(hasPasscode)
    , m_message(new InlineMessage(this))
    , m_passcode(passcodeEdit(this, QStringLiteral("Six-digit passcode")))
    , m_submit(new QPushButton(hasPasscode ? QStringLiteral("Unlock") : QStringLiteral("Create passcode"), this))
{
    const QString title = hasPasscode ? QStringLiteral("Unlock Private Mode") : QStringLiteral("Set up Private Mode");
    setWindowTitle(title);
    auto* icon = new QLabel(this);
    icon->setPixmap(design::icon(QStringLiteral("object-locked")).pixmap(32, 32));
    auto* heading = new QLabel(title, this);
    heading->setFont(design::pageTitleFont(heading->font()));
    auto* text = new QLabel(hasPasscode ? QStringLiteral("Enter your six-digit passcode to open your saved private "
                                                         "links, collections, and tabs.")
                                        : QStringLiteral("Choose a six-digit passcode. Your private browser workspace "
                                                         "will be encrypted and saved on this computer."),
                            this);
    text->setWordWrap(true);

    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Six-digit passcode"), m_passcode);
    if (!hasPasscode) {
        m_confirmation = passcodeEdit(this, QStringLiteral("Confirm passcode"));
        form->addRow(QStringLiteral("Confirm passcode"), m_confirmation);
    }

    auto* buttons = new QDialogButtonBox(this);
    buttons->addButton(m_submit, QDialogButtonBox::AcceptRole);
    QPushButton* cancel = buttons->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole);
    design::name(m_submit, m_submit->text());
    design::name(cancel, QStringLiteral("Cancel"));
    m_submit->setDefault(true);
    connect(m_submit, &QPushButton::clicked, this, &BrowserPrivateGateSheet::submit);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);

    const int gap = design::step(this);
    auto* top = new QHBoxLayout;
    top->setSpacing(gap * 2);
    top->addWidget(icon, 0, Qt::AlignTop);
    auto* words = new QVBoxLayout;
    words->addWidget(heading);
    words->addWidget(text);
    top->addLayout(words, 1);
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(gap * 2);
    layout->addLayout(top);
    layout->addWidget(m_message);
    layout->addLayout(form);
    layout->addWidget(buttons);
    setMinimumWidth(460);
    m_passcode->setFocus();
}

QString BrowserPrivateGateSheet::message() const
{
    return m_message->isVisibleTo(this) ? m_message->text() : QString();
}

void BrowserPrivateGateSheet::submit()
{
    const std::optional<QString> refused = BrowserPrivateGate::submit(
        m_state, m_passcode->text(), m_confirmation ? m_confirmation->text() : QString(), m_hasPasscode);
    if (!refused) {
        accept();
        return;
    }
    m_message->showMessage(*refused, InlineMessage::Kind::Error);
    m_passcode->selectAll();
    m_passcode->setFocus();
}

} // namespace tavo
