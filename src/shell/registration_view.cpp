#include "shell/registration_view.h"

#include "shell/ui/design.h"
#include "store/accounts.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace tavo {

RegistrationView::RegistrationView(TavoAccountStore& accounts, QWidget* parent)
    : QWidget(parent)
    , m_accounts(accounts)
    , m_title(new QLabel(this))
    , m_switchMode(new QPushButton(this))
    , m_username(new QLineEdit(this))
    , m_password(new QLineEdit(this))
    , m_confirmPassword(new QLineEdit(this))
    , m_submit(new QPushButton(this))
    , m_message(new QLabel(this))
{
    setObjectName(QStringLiteral("registration"));
    m_username->setObjectName(QStringLiteral("username"));
    m_password->setObjectName(QStringLiteral("password"));
    m_confirmPassword->setObjectName(QStringLiteral("confirmPassword"));
    m_submit->setObjectName(QStringLiteral("submit"));
    m_switchMode->setObjectName(QStringLiteral("switchMode"));
    m_message->setObjectName(QStringLiteral("message"));

    m_username->setPlaceholderText(QStringLiteral("Username"));
    // The placeholders are the only labels: a screen reader needs them as names.
    m_username->setAccessibleName(QStringLiteral("Username"));
    m_password->setAccessibleName(QStringLiteral("Password"));
    m_confirmPassword->setAccessibleName(QStringLiteral("Confirm password"));
    m_password->setPlaceholderText(AccountText::passwordPlaceholder);
    m_confirmPassword->setPlaceholderText(QStringLiteral("Confirm password"));
    for (QLineEdit* field : {m_password, m_confirmPassword}) {
        field->setEchoMode(QLineEdit::Password);
    }
    m_submit->setDefault(true);
    m_switchMode->setFlat(true);
    m_message->setWordWrap(true);
    m_title->setFont(design::pageTitleFont(font()));

    auto* card = new QWidget(this);
    // A fixed width lets the notes wrap to their full height; sixty characters of the body font.
    card->setFixedWidth(fontMetrics().averageCharWidth() * 60);
    auto* layout = new QVBoxLayout(card);
    layout->setSpacing(design::step(this));
    layout->addWidget(m_title);
    layout->addWidget(m_username);
    layout->addWidget(m_password);
    layout->addWidget(m_confirmPassword);
    layout->addWidget(m_submit);
    layout->addWidget(m_message);
    layout->addWidget(m_switchMode, 0, Qt::AlignLeft);
    for (const QString& note :
         {AccountText::noConnectionNote, AccountText::separateLibraryNote, AccountText::storageNote}) {
        auto* label = new QLabel(note, card);
        label->setWordWrap(true);
        QPalette quiet = label->palette();
        quiet.setColor(QPalette::WindowText, design::secondaryText(palette()));
        label->setPalette(quiet);
        layout->addWidget(label);
    }

    // Centred by stretches, not by an alignment flag: an aligned widget gets only its size hint,
    // which leaves wrapped notes a line short.
    auto* row = new QHBoxLayout;
    row->addStretch();
    row->addWidget(card);
    row->addStretch();
    auto* outer = new QVBoxLayout(this);
    outer->addStretch();
    outer->addLayout(row);
    outer->addStretch(2);

    setFocusProxy(m_username);
    connect(m_submit, &QPushButton::clicked, this, &RegistrationView::submit);
    for (QLineEdit* field : {m_username, m_password, m_confirmPassword}) {
        connect(field, &QLineEdit::returnPressed, this, &RegistrationView::submit);
    }
    connect(m_switchMode, &QPushButton::clicked, this, [this] { setCreating(!m_creating); });
    setCreating(!m_accounts.currentUsername().isEmpty() ? false : true);
    if (!m_accounts.currentUsername().isEmpty()) {
        m_username->setText(m_accounts.currentUsername());
    }
}

void RegistrationView::setCreating(bool creating)
{
    m_creating = creating;
    m_title->setText(creating ? AccountText::createAccountMode : AccountText::signInMode);
    m_submit->setText(creating ? AccountText::createAccountMode : AccountText::signInMode);
    m_switchMode->setText(creating ? QStringLiteral("I already have an account: sign in")
                                   : QStringLiteral("New here? Create an account"));
    m_confirmPassword->setVisible(creating);
    m_message->clear();
}

void RegistrationView::submit()
{
    if (const std::optional<QString> problem =
            registrationProblem(m_creating, m_password->text(), m_confirmPassword->text())) {
        showMessage(*problem);
        return;
    }
    const bool done = m_creating ? m_accounts.registerAccount(m_username->text(), m_password->text())
                                 : m_accounts.signIn(m_username->text(), m_password->text());
    showMessage(m_accounts.message());
    if (done) {
        m_password->clear();
        m_confirmPassword->clear();
        emit succeeded();
    }
}

void RegistrationView::showMessage(const QString& text)
{
    m_message->setText(text);
}

} // namespace tavo
