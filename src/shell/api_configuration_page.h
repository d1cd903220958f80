#pragma once

#include "ai/add_model_sheet.h"
#include "ai/model_profile.h"

#include <QDialog>
#include <QList>
#include <QUrl>
#include <QWidget>

class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QStackedWidget;
class QTimer;

namespace tavo {

class Card;
class Defaults;
class EmptyState;
class InlineMessage;

// The provider's billing page for a profile's provider text, first match wins.
QUrl billingPage(const QString& provider);

// "Add an AI model": the draft's fields as widgets; the draft decides what may be saved.
class AddCollectionModelSheet : public QDialog
{
    Q_OBJECT

public:
    explicit AddCollectionModelSheet(QWidget* parent = nullptr);

    const AddCollectionModelDraft& draft() const { return m_draft; }
    bool canSave() const { return m_draft.canSave(); }
    void accept() override;

signals:
    // The new profile and the key as typed; the host stores both.
    void modelAdded(const tavo::CollectionAIModelProfile& profile, const QString& key);

private:
    void showDraft();
    void readFields();

    AddCollectionModelDraft m_draft;
    QComboBox* m_provider;
    QLineEdit* m_name;
    QLineEdit* m_model;
    QLineEdit* m_key;
    QLabel* m_baseLabel;
    QLineEdit* m_base;
    QPushButton* m_save;
};

// "API configuration": the shared model library, the selected model, and each account's key.
// The library is loaded each time the page appears, as every screen holds its own copy.
class ApiConfigurationPage : public QWidget
{
    Q_OBJECT

public:
    explicit ApiConfigurationPage(Defaults& defaults, QWidget* parent = nullptr);
    ~ApiConfigurationPage() override;

    void reload();
    const QList<CollectionAIModelProfile>& profiles() const { return m_profiles; }
    QString selectedID() const;
    void selectProfile(const QString& id);
    void removeProfile(const QString& id);
    void addProfile(const CollectionAIModelProfile& profile, const QString& key);
    AddCollectionModelSheet* openAddSheet();
    // Writes a key still waiting for the pause in typing.
    void flushKey();
    QString status() const;

signals:
    void billingRequested(const QUrl& page);

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void fillList();
    void showSelected();
    void keyEdited(const QString& text);
    void report(const QString& text, bool failed);

    Defaults& m_defaults;
    QList<CollectionAIModelProfile> m_profiles;
    InlineMessage* m_status;
    QStackedWidget* m_stack;
    EmptyState* m_empty;
    QListWidget* m_list;
    Card* m_detail;
    QLabel* m_provider;
    QLabel* m_pricing;
    QLineEdit* m_key;
    QLabel* m_sharing;
    QPushButton* m_billing;
    QPushButton* m_remove;
    QTimer* m_keyPause;
    QString m_pendingAccount;
    QString m_pendingKey;
    bool m_keyPending = false;
};

} // namespace tavo
