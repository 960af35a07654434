#include "app/Paths.h"
#include "gui/ui/ListLook.h"
#include "ui/ItemList.h"

#include <QBrush>
#include <QFile>
#include <QFont>
#include <QIcon>
#include <QTemporaryDir>
#include <QtTest>

class TstItemList : public QObject {
    Q_OBJECT
private slots:
    void saveLoadKeepsMarkersAndOrder()
    {
        QTemporaryDir dir;
        ItemList a;
        const QString m1 = ItemList::marked(QLatin1Char('1'), QStringLiteral("alt.binaries.pictures (120)"));
        const QString m2 = ItemList::marked(QLatin1Char('2'), QStringLiteral("alt.broken"));
        const QStringList texts = {m1, QStringLiteral("comp.lang.c (0)"), m2, QStringLiteral("de.Umlaute.äöü (3)"), QString()};
        for (const QString &t : texts)
            a.add(t);
        const QString path = dir.filePath(QStringLiteral("list"));
        QVERIFY(a.save(path));
        ItemList b;
        b.add(QStringLiteral("old item that a load replaces"));
        QVERIFY(b.load(path));
        QCOMPARE(b.texts(), texts);
        QCOMPARE(b.text(0).at(0).unicode(), char16_t(0xFF));
        // the raw marker is never displayed
        QCOMPARE(b.data(b.index(0), Qt::DisplayRole).toString(), QStringLiteral("alt.binaries.pictures (120)"));
    }

    // The list holds keys and markers only; what a view draws of them comes from the look the
    // windows install.
    void viewsDrawIconKeysAndMarkersThroughTheLook()
    {
        ItemList l;
        l.add(ItemList::marked(QLatin1Char('1'), QStringLiteral("alt.has (3)")));
        l.add(ItemList::marked(QLatin1Char('2'), QStringLiteral("alt.failed")));
        l.add(QStringLiteral("plain"));
        l.setIconKey(0, QStringLiteral("std:dirlink"));
        QCOMPARE(l.iconKey(0), QStringLiteral("std:dirlink"));
        ItemList::setPresentation(nullptr);
        QVERIFY(!l.data(l.index(0), Qt::DecorationRole).isValid());
        QVERIFY(!l.data(l.index(0), Qt::FontRole).isValid());
        nd::gui::installListLook();
        QVERIFY(!l.data(l.index(0), Qt::DecorationRole).value<QIcon>().isNull());
        QVERIFY(!l.data(l.index(2), Qt::DecorationRole).isValid());   // no key, no icon
        QVERIFY(l.data(l.index(0), Qt::FontRole).value<QFont>().bold());
        QCOMPARE(l.data(l.index(0), Qt::ForegroundRole).value<QBrush>().color(), QColor(0, 110, 0));
        QCOMPARE(l.data(l.index(1), Qt::ForegroundRole).value<QBrush>().color(), QColor(180, 0, 0));
        QVERIFY(!l.data(l.index(2), Qt::ForegroundRole).isValid());
        // an unknown theme name falls back to the file icon
        QVERIFY(!nd::gui::iconForKey(QStringLiteral("no-such-icon-name")).isNull());
    }

    void findsIgnoreMarkersAndCounts()
    {
        ItemList l;
        l.add(QStringLiteral("alt.test (5)"));
        l.add(ItemList::marked(QLatin1Char('1'), QStringLiteral("alt.pics (12)")));
        l.add(ItemList::marked(QLatin1Char('4'), QStringLiteral("alt.pics (news.b.net) (12)")));
        l.add(QStringLiteral("alt.pics (news.c.net)"));
        l.add(QStringLiteral("01200  OK    news.big.net"));
        QCOMPARE(l.find(QStringLiteral("alt.test (5)")), 0);
        QCOMPARE(l.find(QStringLiteral("alt.test")), -1);
        QCOMPARE(l.findGroup(QStringLiteral("alt.pics")), 1);
        QCOMPARE(l.findGroup(QStringLiteral("alt.pics"), 2), 2);
        QCOMPARE(l.findGroupOnServer(QStringLiteral("alt.pics"), QStringLiteral("news.c.net")), 3);
        QCOMPARE(l.findGroupOnServer(QStringLiteral("alt.pics"), QStringLiteral("news.b.net")), 2);
        QCOMPARE(l.findServer(QStringLiteral("news.big.net")), 4);
        QCOMPARE(l.findServer(QStringLiteral("big.net")), -1);
        QCOMPARE(ItemList::bareGroupName(ItemList::marked(QLatin1Char('2'), QStringLiteral("alt.x"))), QStringLiteral("alt.x"));
    }

    // Removal and counting are exercised by every list command; the order needs its own check.
    void selectedIndexesAscendWhateverTheClickOrder()
    {
        ItemList l;
        l.addMany({"a", "b", "c"});
        l.setSelected(2, true);
        l.setSelected(0, true);
        QCOMPARE(l.selectedIndexes(), (QList<int>{0, 2}));
    }

    void downloadTempNamesAreOnlyOurs()
    {
        // the cleaning itself is checked through the window's start-up
        for (const char *n : {"100000.tmp", "355995.tmp", "~image2.tmp"})
            QVERIFY2(nd::isOwnDownloadTempName(QLatin1String(n)), n);
        for (const char *n : {"355996.tmp", "099999.tmp", "thesis.tmp", "1234567.tmp"})
            QVERIFY2(!nd::isOwnDownloadTempName(QLatin1String(n)), n);
    }
};

QTEST_MAIN(TstItemList)
#include "tst_itemlist.moc"
