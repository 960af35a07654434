#include "servers/CheckRules.h"
#include "ui/ItemList.h"

#include <QtTest>

class TstCheckRules : public QObject {
    Q_OBJECT
private slots:
    void statusMarkedItems()
    {
        QCOMPARE(servers::statusMarkedItem(734, true, "news.a.net"), QStringLiteral("00734  OK    news.a.net"));
        QCOMPARE(servers::statusMarkedItem(0, false, "b.org"), QStringLiteral("00000  NO    b.org"));
        QCOMPARE(servers::statusMarkedItem(123456, true, "big.net"), QStringLiteral("123456  OK    big.net"));
        // the prefix is 13 characters, as for unchecked items, and the name stays findable
        QCOMPARE(servers::statusMarkedItem(1, true, "x.y").size(), 13 + 3);
        QCOMPARE(ItemList::serverNameOf(servers::statusMarkedItem(1200, false, "n.example.org")), QStringLiteral("n.example.org"));
    }

    void namesOfItems()
    {
        QCOMPARE(servers::serverNameOfItem("????? ???    news.a.net"), QStringLiteral("news.a.net"));
        QCOMPARE(servers::serverNameOfItem("00734  OK    news.b.net"), QStringLiteral("news.b.net"));
        QCOMPARE(servers::serverNameOfItem("nntps://c.net:563"), QStringLiteral("nntps://c.net:563"));
    }

    void logLine()
    {
        const QByteArray l = servers::checkLogLine("news.a.net", "Not Enough Groups", QDateTime(QDate(2026, 11, 23), QTime(7, 30)));
        QVERIFY(l.startsWith("news.a.net\t"));
        QVERIFY(l.endsWith("\t REMOVED:Not Enough Groups\r\n"));
        QCOMPARE(l.count('\t'), 2);
    }
};

QTEST_MAIN(TstCheckRules)
#include "tst_check_rules.moc"
