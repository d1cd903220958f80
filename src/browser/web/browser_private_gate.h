#pragma once

#include <QDialog>

class QLabel;
class QLineEdit;
class QPushButton;

namespace tavo {

class InlineMessage;
class TavoBrowserTabs;

// The sheet that guards Private Mode: a new passcode and its confirmation on first use, the
// passcode alone afterwards. It closes once Private Mode is open and says why otherwise.
class BrowserPrivateGateSheet : public QDialog
{
    Q_OBJECT

public:
    // `hasPasscode` as it is when the sheet opens; it does not change while the sheet is up.
    BrowserPrivateGateSheet(TavoBrowserTabs& state, bool hasPasscode, QWidget* parent = nullptr);

    QLineEdit* passcodeField() const { return m_passcode; }
    // Null once a passcode exists.
    QLineEdit* confirmationField() const { return m_confirmation; }
    QPushButton* submitButton() const { return m_submit; }
    QString message() const;

private:
    void submit();

    TavoBrowserTabs& m_state;
    bool m_hasPasscode;
    InlineMessage* m_message;
    QLineEdit* m_passcode;
    QLineEdit* m_confirmation = nullptr;
    QPushButton* m_submit;
};

} // namespace tavo
