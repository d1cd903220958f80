#include "picker/picker_geometry.h"
#include "picker/picker_panel.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <X11/Xlib.h>

using namespace tavo;
using namespace Qt::StringLiterals;

// The panel as a real X window, on a server with two monitors side by side: 1440x900 on the
// left, 960x600 on the right. Run both on bare Xvfb and under openbox.
class TestPickerWindow : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void opensOnThePointersScreen_data();
    void opensOnThePointersScreen();
    void imageModeTakesTheLargeShareAndGivesItBack();
    void theTargetKeepsTheKeyboardUntilAFaceAsksForIt();

private:
    static void xdotool(const QStringList& arguments);
    static Display* display();
    static QRect onServer(const QWidget& window); // where X has the window, not what Qt thinks
    static Window focusedWindow();
    static void movePointer(const QPoint& to);

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<DB> m_db;
    std::unique_ptr<QPlainTextEdit> m_target;
};

void TestPickerWindow::xdotool(const QStringList& arguments)
{
    // Through XTest, as a keyboard or a mouse would.
    QProcess process;
    process.start(u"xdotool"_s, arguments);
    QVERIFY(process.waitForFinished(10000));
    QCOMPARE(process.exitCode(), 0);
}

Display* TestPickerWindow::display()
{
    return qApp->nativeInterface<QNativeInterface::QX11Application>()->display();
}

QRect TestPickerWindow::onServer(const QWidget& window)
{
    XWindowAttributes attributes{};
    int x = 0;
    int y = 0;
    Window child = 0;
    if (!XGetWindowAttributes(display(), window.winId(), &attributes) ||
        !XTranslateCoordinates(display(), window.winId(), DefaultRootWindow(display()), 0, 0, &x, &y, &child)) {
        return {};
    }
    return {x, y, attributes.width, attributes.height};
}

Window TestPickerWindow::focusedWindow()
{
    Window focus = 0;
    int revert = 0;
    XGetInputFocus(display(), &focus, &revert);
    return focus;
}

void TestPickerWindow::movePointer(const QPoint& to)
{
    xdotool({u"mousemove"_s, QString::number(to.x()), QString::number(to.y())});
    QTRY_COMPARE(QCursor::pos(), to);
}

void TestPickerWindow::initTestCase()
{
    QCOMPARE(QGuiApplication::screens().size(), 2);
    m_target = std::make_unique<QPlainTextEdit>();
    m_target->setWindowTitle(u"Target"_s);
    m_target->setGeometry(100, 100, 500, 300);
}

void TestPickerWindow::init()
{
    m_db.reset();
    m_dir = std::make_unique<QTemporaryDir>();
    m_defaults = std::make_unique<Defaults>(m_dir->filePath(u"defaults.json"_s));
    m_db = std::make_unique<DB>(*m_defaults, m_dir->filePath(u"Tavo"_s));
    m_db->activateProfile(u"sam"_s);
    m_target->clear();
    m_target->show();
    m_target->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_target.get()));
    QTRY_COMPARE(focusedWindow(), Window(m_target->winId()));
}

void TestPickerWindow::cleanup()
{
    m_target->hide();
}

void TestPickerWindow::opensOnThePointersScreen_data()
{
    QTest::addColumn<QPoint>("pointer");
    QTest::addColumn<QRect>("screen");
    QTest::addColumn<QPointF>("stored"); // (-1, -1): none
    QTest::addColumn<QPoint>("expected");

    const QRect left(0, 0, 1440, 900);
    const QRect right(1440, 0, 960, 600);
    const QSizeF leftSize = pickerPopupSize(left.size(), defaultPickerAreaPercent);
    const QSize rightSize = pickerPopupSize(right.size(), defaultPickerAreaPercent).toSize();
    QTest::newRow("left: centred, 20 under the top")
        << QPoint(300, 400) << left << QPointF(-1, -1) << QPointF(720 - leftSize.width() / 2, 20).toPoint();
    QTest::newRow("right: centred on the smaller screen")
        << QPoint(2000, 300) << right << QPointF(-1, -1)
        << QPointF(1920 - pickerPopupSize(right.size(), defaultPickerAreaPercent).width() / 2, 20).toPoint();
    QTest::newRow("a stored place on the pointer's screen")
        << QPoint(2000, 300) << right << QPointF(1500, 100) << QPoint(1500, 100);
    QTest::newRow("a place left by a larger screen is pulled back to the edge")
        << QPoint(2000, 300) << right << QPointF(2300, 800)
        << QPoint(2400 - rightSize.width(), 600 - rightSize.height());
    QTest::newRow("a place on the other screen comes over to the pointer's")
        << QPoint(2000, 300) << right << QPointF(100, 100) << QPoint(1440, 100);
}

void TestPickerWindow::opensOnThePointersScreen()
{
    QFETCH(QPoint, pointer);
    QFETCH(QRect, screen);
    QFETCH(QPointF, stored);
    QFETCH(QPoint, expected);
    if (stored.x() >= 0) {
        m_defaults->setNumber(u"tavoPickerOriginX"_s, stored.x());
        m_defaults->setNumber(u"tavoPickerOriginY"_s, stored.y());
    }
    movePointer(pointer);

    PickerPanel panel(*m_defaults);
    panel.showFor(*m_db);
    QVERIFY(QTest::qWaitForWindowExposed(&panel));
    const QSize size = pickerPopupSize(screen.size(), defaultPickerAreaPercent).toSize();
    QTRY_COMPARE(onServer(panel), QRect(expected, size));
    QVERIFY(screen.contains(onServer(panel)));
}

void TestPickerWindow::imageModeTakesTheLargeShareAndGivesItBack()
{
    movePointer({2000, 300});
    PickerPanel panel(*m_defaults);
    panel.showFor(*m_db);
    QVERIFY(QTest::qWaitForWindowExposed(&panel));
    const QRect right(1440, 0, 960, 600);
    const QSize normal = pickerPopupSize(right.size(), defaultPickerAreaPercent).toSize();
    const QSize large = pickerPopupSize(right.size(), 0.25).toSize();
    QTRY_COMPARE(onServer(panel).size(), normal);
    const QPoint corner = onServer(panel).topLeft();

    // The pointer wanders off to the other screen: the panel grows where it stands.
    movePointer({300, 400});
    panel.resizeForImageMode(true);
    QTRY_COMPARE(onServer(panel), QRect(corner, large));
    QVERIFY(right.contains(onServer(panel)));
    panel.resizeForImageMode(false);
    QTRY_COMPARE(onServer(panel), QRect(corner, normal));
}

void TestPickerWindow::theTargetKeepsTheKeyboardUntilAFaceAsksForIt()
{
    movePointer({300, 700});
    PickerPanel panel(*m_defaults);
    auto* field = new QLineEdit(&panel); // stands for a face's text field
    field->setGeometry(10, 10, 200, 30);
    panel.showFor(*m_db);
    QVERIFY(QTest::qWaitForWindowExposed(&panel));

    // Shown, the panel leaves the keyboard with the window in front.
    xdotool({u"type"_s, u"abc"_s});
    QTRY_COMPARE(m_target->toPlainText(), u"abc"_s);
    QCOMPARE(focusedWindow(), Window(m_target->winId()));
    QVERIFY(panel.refusesFocus());

    // A face that owns text input takes it, in the same window.
    const WId panelWindow = panel.winId();
    panel.focusTextField(field);
    QTRY_COMPARE(focusedWindow(), Window(panelWindow));
    xdotool({u"type"_s, u"xyz"_s});
    QTRY_COMPARE(field->text(), u"xyz"_s);
    QCOMPARE(m_target->toPlainText(), u"abc"_s);
    QCOMPARE(panel.winId(), panelWindow);

    // Closed (as a window manager closes it) and opened again, it refuses the focus once more.
    panel.close();
    m_target->activateWindow();
    QTRY_COMPARE(focusedWindow(), Window(m_target->winId()));
    panel.showFor(*m_db);
    QVERIFY(QTest::qWaitForWindowExposed(&panel));
    QVERIFY(panel.refusesFocus());
    xdotool({u"type"_s, u"d"_s});
    QTRY_COMPARE(m_target->toPlainText(), u"abcd"_s);
    QCOMPARE(focusedWindow(), Window(m_target->winId()));
    QCOMPARE(field->text(), u"xyz"_s);
}

QTEST_MAIN(TestPickerWindow)
#include "tst_picker_window.moc"
