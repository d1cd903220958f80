#pragma once

#include <QWidget>

class QLineEdit;
class QListWidget;
class QPushButton;
class QStackedWidget;

namespace tavo {

class AppBuilderEditor;
class DB;
class Defaults;
class EmptyState;
class InlineMessage;

// "AppBuilder": the gallery of builder apps, in their stored order, and the editor of one. The
// starter apps are added the first time the section shows.
class AppBuilderPage : public QWidget
{
    Q_OBJECT

public:
    AppBuilderPage(DB& db, Defaults& defaults, QWidget* parent = nullptr);

    // The apps as the gallery lists them.
    QStringList appNames() const;
    // A new app of that name, with `details` as its prompt and description; false and the reason
    // on screen when it is refused.
    bool createApp(const QString& name, const QString& details = {});
    bool createFromPreset(int preset);
    // "New action <n>"; returns its name.
    QString startNewAction();
    // After the confirmation; true when the app and every setting of it are gone.
    bool deleteApp(const QString& name);
    void openApp(const QString& name);
    void showGallery();
    bool isEditing() const;

    AppBuilderEditor* editor() const { return m_editor; }
    QString status() const;
    void reload();

signals:
    void collectionsRequested();

protected:
    void showEvent(QShowEvent* event) override;

private:
    QString currentApp() const;
    void report(const QString& text, bool refused);

    DB& m_db;
    Defaults& m_defaults;
    bool m_seeded = false;
    QStackedWidget* m_stack;
    QWidget* m_gallery;
    InlineMessage* m_status;
    QLineEdit* m_name;
    QLineEdit* m_details;
    QStackedWidget* m_listOrEmpty;
    QListWidget* m_apps;
    EmptyState* m_empty;
    QPushButton* m_open;
    QPushButton* m_delete;
    AppBuilderEditor* m_editor;
};

} // namespace tavo
