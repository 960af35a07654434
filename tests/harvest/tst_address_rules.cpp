#include "harvest/AddressRules.h"

#include <QtTest>

using namespace harvest;

static QStringList scan(const QString &text, WebSwitches sw = {}, QStringList listed = {})
{
    QStringList found;
    findWebAddresses(text, sw, [&](const QString &a) { return listed.contains(a) || found.contains(a); },
                     [&](const QString &a) { found << a; return true; });
    return found;
}

class TstAddressRules : public QObject {
    Q_OBJECT
private slots:
    void httpBeforeFtp()
    {
        QCOMPARE(scan("get ftp://files.example.org/a.zip or see http://www.example.org/page"),
                 (QStringList{"http://www.example.org/page", "ftp://files.example.org/a.zip"}));
        // HTTPS counts as the HTTP kind, in text order with plain HTTP
        QCOMPARE(scan("https://secure.example.org/x then HTTP://Old.Example.org/Y"),
                 (QStringList{"https://secure.example.org/x", "HTTP://Old.Example.org/Y"}));
    }

    void cutCharacters()
    {
        QCOMPARE(scan("see <http://www.example.org/a>. thanks"), QStringList{"http://www.example.org/a"});
        QCOMPARE(scan("(http://www.example.org/b)"), QStringList{"http://www.example.org/b"});
        QCOMPARE(scan("\"http://q.example.org/c\"\r\nnext"), QStringList{"http://q.example.org/c"});
        QCOMPARE(scan("http://v.example.org/d\x0bx"), QStringList{"http://v.example.org/d"});
    }

    void switches()
    {
        WebSwitches noWeb;
        noWeb.webSave = false;
        // an HTTP address ends the scan of the text, FTP after it is not reached
        QVERIFY(scan("http://a.example.org ftp://b.example.org", noWeb).isEmpty());
        WebSwitches ftpOnly;
        ftpOnly.saveHttp = false;
        QCOMPARE(scan("http://a.example.org ftp://b.example.org", ftpOnly), QStringList{"ftp://b.example.org"});
        WebSwitches noFtpScan;
        noFtpScan.ftpSave = false;
        QCOMPARE(scan("ftp://b.example.org http://a.example.org", noFtpScan), QStringList{"http://a.example.org"});
        // already listed: neither listed again nor reported
        QCOMPARE(scan("http://a.example.org http://c.example.org", {}, {"http://a.example.org"}),
                 QStringList{"http://c.example.org"});
    }

    void fetchedTextsWorthScanning()
    {
        // outside a scanning run only texts naming a kept kind of address are scanned
        QVERIFY(worthScanning("see HtTp://a.example.org", true, false));
        QVERIFY(worthScanning("see https://a.example.org", true, false));
        QVERIFY(!worthScanning("see https://a.example.org", false, true));
        QVERIFY(worthScanning("get Ftp://f.example.org", false, true));
        QVERIFY(!worthScanning("get ftp://f.example.org", true, false));
        QVERIFY(!worthScanning("http:/ not an address, www.example.org", true, true));
    }

    void pageLinesCannotBreakOut()
    {
        const QString evil = QStringLiteral("http://x.example.org/?a=1&b='2'");
        const QByteArray line = linkLine(evil);
        QCOMPARE(line, QByteArray("<a href = \"http://x.example.org/?a=1&amp;b=&#39;2&#39;\">http://x.example.org/?a=1&amp;b=&#39;2&#39;</a><br>\r\n"));
        QVERIFY(!line.contains("'2'"));
        QVERIFY(pageHoldsAddress("old\r\n" + line, evil));
        QVERIFY(!pageHoldsAddress("old\r\n" + line, QStringLiteral("http://y.example.org")));
        QCOMPARE(linkLine("http://a.b/c"), QByteArray("<a href = \"http://a.b/c\">http://a.b/c</a><br>\r\n"));
        // quotes and angle brackets never survive the cut, and are escaped if they reach the page
        const QStringList cut = scan("x http://q.example.org/a\"onmouseover=alert(1) <b>http://r.example.org/<i>");
        QCOMPARE(cut, (QStringList{"http://q.example.org/a", "http://r.example.org/"}));
        QCOMPARE(linkLine("http://x/\"><script>"), QByteArray("<a href = \"http://x/&quot;&gt;&lt;script&gt;\">http://x/&quot;&gt;&lt;script&gt;</a><br>\r\n"));
    }

    void emailRules()
    {
        QCOMPARE(cleanEmailAddress("Jane Doe <jane@example.org>"), QStringLiteral("jane@example.org"));
        QCOMPARE(cleanEmailAddress("jane@example.org"), QStringLiteral("jane@example.org"));
        // address, space, display name in parentheses: cut at "(", then only the text after the space is left
        QCOMPARE(cleanEmailAddress("jane@example.org (Jane Doe)"), QString());
        for (const char *bad : {"x <nospam@example.org>", "x <a*b@example.org>", "x <REMOVEME@example.org>",
                                "x <fake@example.org>", "x <@example.org>", "x <jane@>", "no address here"})
            QVERIFY2(cleanEmailAddress(QString::fromLatin1(bad)).isEmpty(), bad);
        QVERIFY(!emailWanted(".dot@example.org", QString()));
        QVERIFY(emailWanted("jane@Example.org", "EXAMPLE"));
        QVERIFY(!emailWanted("jane@example.org", "other"));
        QVERIFY(emailWanted("jane@example.org", QString()));
    }

    void serversFromPath()
    {
        QCOMPARE(newsServersInPath("news.a.net!feed.b.net.POSTED!not-a-host"),
                 (QStringList{"news.a.net", "feed.b.net"}));
        QCOMPARE(newsServersInPath("x.MISMATCH!localhost!y.c.org"), QStringList{"y.c.org"});
        QCOMPARE(uncheckedServerItem("news.a.net"), QStringLiteral("????? ???    news.a.net"));
    }
};

QTEST_MAIN(TstAddressRules)
#include "tst_address_rules.moc"
