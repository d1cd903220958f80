#include <QtTest>
class Stub : public QObject { Q_OBJECT };
QTEST_GUILESS_MAIN(Stub)
#include "tst_tavoctl.moc"
