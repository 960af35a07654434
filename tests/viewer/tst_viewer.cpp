// placeholder replaced below
#include <QtTest>
class TstViewer : public QObject { Q_OBJECT };
QTEST_MAIN(TstViewer)
#include "tst_viewer.moc"
