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

    void groupListLines()
    {
        const QString m1 = ItemList::marked('1', QStringLiteral("alt.binaries.test (37)"));
        QCOMPARE(servers::groupListLine(m1, "news.a.net"), QStringLiteral("alt.binaries.test (news.a.net)"));
        QCOMPARE(servers::groupListLine("  alt.empty (0)  ", "b.org"), QStringLiteral("alt.empty (b.org)"));
        // a group whose listing failed carries marker "2" and no count
        QCOMPARE(servers::groupListLine(ItemList::marked('2', "alt.broken"), "b.org"), QStringLiteral("alt.broken (b.org)"));
    }

    void groupSearchLines()
    {
        // with messages: the marker stays, the count follows the server
        const auto a = servers::groupSearchLines(ItemList::marked('1', "alt.test (37)"), "news1");
        QCOMPARE(a.status, ItemList::marked('1', "alt.test (news1) (37)"));
        QCOMPARE(a.favorite, a.status);
        // the favourite keeps only the first parenthesised count
        const auto b = servers::groupSearchLines("alt.odd (5) (x)", "news2");
        QCOMPARE(b.status, QStringLiteral("alt.odd (news2) (5) (x)"));
        QCOMPARE(b.favorite, QStringLiteral("alt.odd (news2) (5)"));
        // what is written reads back as that group on that server
        for (const QString &line : {a.favorite, b.favorite, servers::groupSearchLines("alt.zero (0)", "n3").favorite}) {
            QVERIFY(!ItemList::bareGroupName(line).isEmpty());
            QVERIFY(!ItemList::serverOfFavorite(line).isEmpty());
        }
        QCOMPARE(ItemList::serverOfFavorite(a.favorite), QStringLiteral("news1"));
        QCOMPARE(ItemList::bareGroupName(a.favorite), QStringLiteral("alt.test"));
        // an item without a count gives no trailing blank
        QCOMPARE(servers::groupSearchLines(ItemList::marked('2', "alt.err"), "n").favorite, ItemList::marked('2', "alt.err (n)"));
    }

    void removalReasons()
    {
        // enough listed messages and a readable group: the server stays
        QCOMPARE(servers::removalReason(5, 5, true), QString());
        // too few listed messages comes first, whatever else holds (a server with too few groups
        // is never listed, so its grid is empty)
        QCOMPARE(servers::removalReason(4, 5, true), QStringLiteral("Not Enough Groups"));
        QCOMPARE(servers::removalReason(0, 1, false), QStringLiteral("Not Enough Groups"));
        // no group with messages, when the minimum lets an empty listing through
        QCOMPARE(servers::removalReason(0, 0, false), QStringLiteral("No Readable Messages"));
    }
};

QTEST_MAIN(TstCheckRules)
#include "tst_check_rules.moc"
