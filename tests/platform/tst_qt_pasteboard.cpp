#include "platform/qt/qt_pasteboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QSignalSpy>
#include <QtTest>

using namespace tavo;

// QClipboard on the offscreen platform keeps its data in the process, so what the pasteboard
// hands to it, and the requests made of it, can be seen without a display.
class TestQtPasteboard : public QObject
{
    Q_OBJECT

private slots:
    void onlyAnotherProgramsReadIsReported();
    void writingNothingClears();
};

namespace {

std::unique_ptr<QMimeData> styledText()
{
    auto data = std::make_unique<QMimeData>();
    data->setText(QStringLiteral("Grüße"));
    data->setHtml(QStringLiteral("<b>Grüße</b>"));
    data->setData(QStringLiteral("text/rtf"), "{\\rtf1 x}");
    return data;
}

} // namespace

void TestQtPasteboard::onlyAnotherProgramsReadIsReported()
{
    QtPasteboard pasteboard;
    QSignalSpy requested(&pasteboard, &QtPasteboard::dataRequested);
    pasteboard.write(styledText());

    QCOMPARE(pasteboard.string(), QStringLiteral("Grüße"));
    const QMimeData* onClipboard = QGuiApplication::clipboard()->mimeData(QClipboard::Clipboard);
    QVERIFY(onClipboard);
    QCOMPARE(onClipboard->formats().size(), 3);
    QTest::qWait(20);
    QCOMPARE(requested.count(), 0); // our own read of the text is no paste

    QCOMPARE(onClipboard->data(QStringLiteral("text/rtf")), QByteArray("{\\rtf1 x}"));
    QCOMPARE(requested.count(), 0); // queued: the request is answered first
    QVERIFY(requested.wait(1000));
}

void TestQtPasteboard::writingNothingClears()
{
    QtPasteboard pasteboard;
    pasteboard.write(styledText());
    pasteboard.write(nullptr);
    QCOMPARE(pasteboard.string(), QString());
}

QTEST_MAIN(TestQtPasteboard)
#include "tst_qt_pasteboard.moc"
