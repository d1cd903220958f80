#include "shell/main_window.h"
#include "shell/registration_view.h"
#include "shell/shortcut_list_page.h"
#include "shell/tavo_application.h"

#include <QDialog>
#include <QLineEdit>
#include <QPushButton>
#include <QtTest>

using namespace tavo;

// The whole application without a display: two local accounts take turns, and each sign-in
// puts that person's own library on screen.
class TestAccountSwitch : public QObject
{
    Q_OBJECT

private slots:
    void eachAccountSeesItsOwnLibrary();

private:
    static void submit(RegistrationView* view, bool creating, const QString& name);
    static QStringList shownKeys(ShortcutListPage* list);
};

void TestAccountSwitch::submit(RegistrationView* view, bool creating, const QString& name)
{
    view->setCreating(creating);
    view->findChild<QLineEdit*>(QStringLiteral("username"))->setText(name);
    view->findChild<QLineEdit*>(QStringLiteral("password"))->setText(QStringLiteral("long enough"));
    view->findChild<QLineEdit*>(QStringLiteral("confirmPassword"))->setText(QStringLiteral("long enough"));
    QTest::mouseClick(view->findChild<QPushButton*>(QStringLiteral("submit")), Qt::LeftButton);
}

QStringList TestAccountSwitch::shownKeys(ShortcutListPage* list)
{
    QStringList keys;
    for (const Clip& clip : list->visibleClips()) {
        keys << clip.key;
    }
    return keys;
}

void TestAccountSwitch::eachAccountSeesItsOwnLibrary()
{
    TavoApplication app;
    QVERIFY(app.start());
    MainWindow* window = app.mainWindow();
    QVERIFY(window->registration()->isVisible()); // nobody has signed in on this machine yet

    submit(window->registration(), true, QStringLiteral("ana"));
    window->setSection(QStringLiteral("My shortcuts"));
    ShortcutListPage* list = window->shortcutList();
    QTRY_VERIFY(shownKeys(list).contains(QStringLiteral("/google.web"))); // seeded
    window->newShortcut();
    auto* editor = window->findChild<QDialog*>();
    QVERIFY(editor);
    editor->findChild<QLineEdit*>(QStringLiteral("key"))->setText(QStringLiteral("\\anas"));
    editor->accept();
    QTRY_VERIFY(shownKeys(list).contains(QStringLiteral("/anas")));

    // Signing out puts the registration screen back; another account sees only its own.
    window->findChild<QPushButton*>(QStringLiteral("signOut"))->click();
    QVERIFY(window->registration()->isVisible());
    QVERIFY(list->visibleClips().isEmpty());
    submit(window->registration(), true, QStringLiteral("ben"));
    QTRY_VERIFY(shownKeys(list).contains(QStringLiteral("/google.web")));
    QVERIFY(!shownKeys(list).contains(QStringLiteral("/anas")));

    window->findChild<QPushButton*>(QStringLiteral("signOut"))->click();
    submit(window->registration(), false, QStringLiteral("ana"));
    QTRY_VERIFY(shownKeys(list).contains(QStringLiteral("/anas")));
}

QTEST_MAIN(TestAccountSwitch)
#include "tst_account_switch.moc"
