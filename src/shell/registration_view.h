#pragma once

#include <QWidget>

class QLabel;
class QLineEdit;
class QPushButton;

namespace tavo {

class TavoAccountStore;

// The screen shown until someone is signed in: create a local account or sign in to one. The
// account store does the work and says how it went; this screen adds only its own checks.
class RegistrationView : public QWidget
{
    Q_OBJECT

public:
    explicit RegistrationView(TavoAccountStore& accounts, QWidget* parent = nullptr);

    bool isCreating() const { return m_creating; }
    void setCreating(bool creating);

signals:
    void succeeded();

private:
    void submit();
    void showMessage(const QString& text);

    TavoAccountStore& m_accounts;
    bool m_creating = true;
    QLabel* m_title;
    QPushButton* m_switchMode;
    QLineEdit* m_username;
    QLineEdit* m_password;
    QLineEdit* m_confirmPassword;
    QPushButton* m_submit;
    QLabel* m_message;
};

} // namespace tavo
