#include "groups/FavoriteRules.h"
#include "ui/ItemList.h"

#include <QtTest>

using namespace FavoriteRules;

namespace {
QString mk(char digit, const QString &text) { return ItemList::marked(QLatin1Char(digit), text); }
}

class TstFavoriteRules : public QObject {
    Q_OBJECT
private slots:
    void readingItemsBack_data()
    {
        QTest::addColumn<QString>("item");
        QTest::addColumn<QString>("group");
        QTest::addColumn<QString>("server");
        QTest::newRow("marked with count") << mk('1', "alt.binaries.test (news1) (37)") << "alt.binaries.test" << "news1";
        QTest::newRow("plain") << "alt.test (news.host.net)" << "alt.test" << "news.host.net";
        QTest::newRow("error marker") << mk('2', "alt.test (127.0.0.1:11931)") << "alt.test" << "127.0.0.1:11931";
        QTest::newRow("no count marker") << mk('4', "alt.test (nntps://h:563)") << "alt.test" << "nntps://h:563";
        QTest::newRow("group item, not a favourite") << mk('1', "alt.test (12)") << "alt.test" << "12";
        QTest::newRow("bare name") << "alt.test" << "alt.test" << "";
        QTest::newRow("unclosed") << "alt.test (news1" << "alt.test" << "";
    }
    void readingItemsBack()
    {
        QFETCH(QString, item);
        QFETCH(QString, group);
        QFETCH(QString, server);
        QCOMPARE(CleanNewsGroup(item), group);
        QCOMPARE(groupOfItem(item), group);
        QCOMPARE(GetServerName(item), server);
    }

    void dropAddsMarkerServerAndCount()
    {
        // (a count kept with marker "1", and "(0)" dropped with marker "4", are checked through the window)
        // a marked item whose count is not positive
        QCOMPARE(*itemForDrop(mk('1', "alt.test (0)"), "news1", {}), mk('4', "alt.test (news1) (0)"));
        // no parenthesis at all: the whole text is the group
        QCOMPARE(*itemForDrop("alt.test", "news1", {}), mk('4', "alt.test (news1)"));
        // a failed listing's item: the marker is not part of the name
        QCOMPARE(*itemForDrop(mk('2', "alt.test"), "news1", {}), mk('4', "alt.test (news1)"));
        // nothing to add without a group or without a current server
        QVERIFY(!itemForDrop("", "news1", {}));
        QVERIFY(!itemForDrop("alt.test (5)", "", {}));
    }

    void secondDropOfTheSameGroupAddsNothing()
    {
        const QStringList favs = {mk('1', "alt.test (news1) (37)"), mk('2', "alt.other (news1)")};
        // same group, same server in another case: found whatever its marker
        QVERIFY(!itemForDrop("alt.other (0)", "NEWS1", favs));
        // a group whose name begins like a favourite's is not that favourite
        QVERIFY(itemForDrop("alt.tes (1)", "news1", favs));
    }

    void findFavoriteIgnoresMarkersAndCounts()
    {
        const QStringList favs = {"alt.a (s1)", mk('1', "alt.b (s1) (9)"), mk('4', "alt.b (s2)")};
        QCOMPARE(findFavorite(favs, "alt.b", "s2"), 2);
        QCOMPARE(findFavorite(favs, "alt.b", "s1"), 1);
        QCOMPARE(findFavorite(favs, "alt.a", "s2"), -1);
    }

    void shortNameOfAFavoritesFile()
    {
        QCOMPARE(shortName("/home/u/.local/share/nd/NewsdredgeFavorites.fav"), QStringLiteral("NewsdredgeFavorites"));
        QCOMPARE(shortName("/tmp/my.old.favs.fav"), QStringLiteral("my"));
        QCOMPARE(shortName("C:\\x\\work.fav"), QStringLiteral("work"));
        QCOMPARE(shortName("plain"), QStringLiteral("plain"));
    }
};

QTEST_APPLESS_MAIN(TstFavoriteRules)
#include "tst_favoriterules.moc"
