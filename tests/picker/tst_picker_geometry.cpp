#include "picker/picker_geometry.h"

#include <QtTest>

using namespace tavo;

class TestPickerGeometry : public QObject
{
    Q_OBJECT

private slots:
    void popupSize_data();
    void popupSize();
    void shareIsClamped();
};

void TestPickerGeometry::popupSize_data()
{
    QTest::addColumn<QSizeF>("visible");
    QTest::addColumn<double>("share");
    QTest::addColumn<QSizeF>("expected");
    QTest::newRow("a laptop screen") << QSizeF(1440, 900) << 0.22 << QSizeF(664.8, 428.9);
    // A very wide, low screen: the height bounds it.
    QTest::newRow("a strip") << QSizeF(4000, 100) << 0.25 << QSizeF(155, 100);
    QTest::newRow("no screen area") << QSizeF(0, 0) << 0.22 << QSizeF(0, 0);
}

void TestPickerGeometry::popupSize()
{
    QFETCH(QSizeF, visible);
    QFETCH(double, share);
    QFETCH(QSizeF, expected);
    const QSizeF size = pickerPopupSize(visible, share);
    QVERIFY2(qAbs(size.width() - expected.width()) < 0.5, qPrintable(QString::number(size.width())));
    QVERIFY2(qAbs(size.height() - expected.height()) < 0.5, qPrintable(QString::number(size.height())));
}

void TestPickerGeometry::shareIsClamped()
{
    const QSizeF screen(1920, 1080);
    QCOMPARE(pickerPopupSize(screen, 0.5), pickerPopupSize(screen, 0.25));
    QCOMPARE(pickerPopupSize(screen, 0.01), pickerPopupSize(screen, 0.08));
}
// Placement is tested on a real server with two monitors: tst_picker_window.

QTEST_GUILESS_MAIN(TestPickerGeometry)
#include "tst_picker_geometry.moc"
