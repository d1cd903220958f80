#pragma once

#include <QFrame>

class QLabel;
class QToolButton;

namespace tavo {

// A strip at the top of a page that says what happened: information, a warning or an error. It
// closes by its own button and is used wherever nothing needs confirming, in place of a dialog.
class InlineMessage : public QFrame
{
    Q_OBJECT

public:
    enum class Kind
    {
        Information,
        Warning,
        Error
    };

    explicit InlineMessage(QWidget* parent = nullptr);

    // An empty text closes the strip.
    void showMessage(const QString& text, Kind kind = Kind::Information);
    QString text() const;
    Kind kind() const { return m_kind; }

signals:
    void closed();

protected:
    void changeEvent(QEvent* event) override;

private:
    void applyLook();

    Kind m_kind = Kind::Information;
    QLabel* m_icon;
    QLabel* m_text;
    QToolButton* m_close;
};

} // namespace tavo
