// Pure parsing: server entries, byte-to-text, overview rows and articles.
#include "news/transport/NewsMessage.h"

#include <QtTest>

class TestTransportParse : public QObject {
    Q_OBJECT
private slots:
    void serverAddress_data()
    {
        QTest::addColumn<QString>("entry");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<QString>("host");
        QTest::addColumn<int>("port");
        QTest::addColumn<bool>("tls");
        QTest::newRow("bare") << "news.example.com" << true << "news.example.com" << 119 << false;
        QTest::newRow("port") << "news.example.com:8119" << true << "news.example.com" << 8119 << false;
        QTest::newRow("nntp scheme") << "NNTP://h.example" << true << "h.example" << 119 << false;
        QTest::newRow("nntps default") << "nntps://h.example" << true << "h.example" << 563 << true;
        QTest::newRow("nntps port") << "nntps://h.example:443/" << true << "h.example" << 443 << true;
        QTest::newRow("ipv6") << "[::1]:1119" << true << "::1" << 1119 << false;
        QTest::newRow("spaces trimmed") << "  127.0.0.1 " << true << "127.0.0.1" << 119 << false;
        for (const char *bad : {"", "h:0", "h:70000", "h:abc", "h:", "http://h", "a b"})
            QTest::newRow(*bad ? bad : "empty") << QString::fromLatin1(bad) << false << QString() << 119 << false;
    }

    void serverAddress()
    {
        QFETCH(QString, entry);
        QFETCH(bool, valid);
        const ServerAddress a = parseServerAddress(entry);
        QCOMPARE(a.valid, valid);
        if (!valid)
            return;
        QFETCH(QString, host);
        QFETCH(int, port);
        QFETCH(bool, tls);
        QCOMPARE(a.host, host);
        QCOMPARE(int(a.port), port);
        QCOMPARE(a.tls, tls);
    }

    void textFromBytes_chooses_utf8_or_latin1()
    {
        QCOMPARE(textFromBytes(QByteArray("plain ascii")), QStringLiteral("plain ascii"));
        QCOMPARE(textFromBytes(QByteArray("caf\xc3\xa9")), QStringLiteral("caf\u00e9"));
        // a lone Latin-1 byte is not UTF-8: every byte maps to its own character
        QCOMPARE(textFromBytes(QByteArray("caf\xe9")), QStringLiteral("caf\u00e9"));
        const QByteArray all = [] {
            QByteArray b;
            for (int i = 1; i < 256; ++i)
                b += char(i);
            return b;
        }();
        const QString t = textFromBytes(all);
        QCOMPARE(t.size(), 255);
        QCOMPARE(t.toLatin1(), all);
        // truncated multi-byte sequence at the end
        QCOMPARE(textFromBytes(QByteArray("ab\xc3")), QString::fromLatin1("ab\xc3"));
        QVERIFY(textFromBytes(QByteArray()).isEmpty());
    }

    void overview_standard_and_extra_fields()
    {
        const OverviewFormat fmt = OverviewFormat::fromLines(
            {"Subject:", "From:", "Date:", "Message-ID:", "References:", ":bytes", ":lines",
             "Xref:full", "Path:full"});
        QVERIFY(fmt.hasPath);
        const QByteArray row = "4711\tHello (1/2)\tMe <me@x>\tMon, 16 Nov 2003 21:54:12 -0500\t<a@b>\t"
                               "\t1234\t20\tXref: h g:4711\tPath: a!b!not-for-mail";
        NewsTransportArticle a;
        QVERIFY(parseOverviewLine(row.constData(), row.size(), fmt, a));
        QCOMPARE(a.Number, qint64(4711));
        const QStringList names = [&] {
            QStringList n;
            for (const auto &h : a.Message.Headers)
                n << h.Name;
            return n;
        }();
        QCOMPARE(names, QStringList({"Subject", "From", "Date", "Message-ID", "References", "Bytes",
                                     "Lines", "Xref", "Path"}));
        QCOMPARE(a.Message.header("Subject"), QStringLiteral("Hello (1/2)"));
        QCOMPARE(a.Message.header("References"), QString());
        QCOMPARE(a.Message.header("Xref"), QStringLiteral("h g:4711"));
        QCOMPARE(a.Message.header("Path"), QStringLiteral("a!b!not-for-mail"));

        // no format list: the seven standard fields; a short row stops early
        const OverviewFormat plain = OverviewFormat::fromLines({});
        QVERIFY(!plain.hasPath);
        const QByteArray shortRow = "12\tS\tF";
        QVERIFY(parseOverviewLine(shortRow.constData(), shortRow.size(), plain, a));
        QCOMPARE(a.Number, qint64(12));
        QCOMPARE(a.Message.Headers.size(), 2);
        // article numbers beyond 32 bits
        const QByteArray big = "5000000000\tS\tF\tD\t<m>\t\t1\t1";
        QVERIFY(parseOverviewLine(big.constData(), big.size(), plain, a));
        QCOMPARE(a.Number, qint64(5000000000LL));
    }

    void overview_rejects_bad_rows()
    {
        const OverviewFormat fmt = OverviewFormat::fromLines({});
        NewsTransportArticle a;
        for (const QByteArray &bad : {QByteArray(""), QByteArray("\tS"), QByteArray("12x\tS")})
            QVERIFY2(!parseOverviewLine(bad.constData(), bad.size(), fmt, a), bad.constData());
    }

    // Bodies of every byte value come through byte for byte in the scripted transport tests; here
    // the edges: no body at all, and an article that starts with the blank line.
    void article_without_body_or_headers()
    {
        NewsTransportMessage m;
        m.Raw = "Subject: x\r\n";
        parseArticle(m);
        QCOMPARE(m.Headers.size(), 1);
        QVERIFY(m.Body.isEmpty());
        QVERIFY(m.MIMEVersion.isEmpty() && m.ContentType.isEmpty() && m.Parts.isEmpty());
        m.Raw = "\r\nonly body\r\n";
        parseArticle(m);
        QCOMPARE(m.Headers.size(), 0);
        QCOMPARE(m.Body, QByteArray("only body\r\n"));
    }

    void article_headers_keep_order_and_fold()
    {
        NewsTransportMessage m;
        m.Raw = "Path: a!b\r\nSubject: =?UTF-8?B?w6k=?= long\r\n\tcontinued\r\nFrom: X <x@y>\r\n"
                "Subject: second\r\nX-Latin: caf\xe9\r\n\r\nbody\r\n";
        parseArticle(m);
        QCOMPARE(m.Headers.size(), 5);
        QCOMPARE(m.Headers.at(0).Name, QStringLiteral("Path"));
        QCOMPARE(m.Headers.at(1).value, QStringLiteral("=?UTF-8?B?w6k=?= long continued"));  // not decoded
        QCOMPARE(m.header("Subject"), QStringLiteral("second"));  // the later one
        QCOMPARE(m.header("X-Latin"), QStringLiteral("caf\u00e9"));
        QCOMPARE(m.header("subject"), QString());  // exact names only
    }

    void article_multipart_parts_and_dispositions()
    {
        const QByteArray b64 = "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNk\r\n";
        NewsTransportMessage m;
        m.Raw = "From: a@b\r\nMIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=\"XX\"\r\n\r\n"
                "preamble\r\n--XX\r\nContent-Type: text/plain\r\n\r\nHello there\r\n"
                "--XX\r\nContent-Type: image/png; name=\"only-name.png\"\r\nContent-Transfer-Encoding: base64\r\n\r\n"
                + b64 +
                "--XX\r\nContent-Type: application/octet-stream\r\nContent-Disposition: attachment; filename*=UTF-8''r%C3%A9sum%C3%A9.bin\r\n\r\n"
                "AAA\r\n"
                "--XX\r\nContent-Type: image/jpeg\r\nContent-Disposition: attachment; filename=\"pic.jpg\"\r\n\r\n"
                "JPG\r\n"
                "--XX\r\nContent-Type: text/html\r\nContent-Disposition: inline\r\n\r\n<p>x</p>\r\n"
                "--XX--\r\n";
        parseArticle(m);
        QCOMPARE(m.MIMEVersion, QStringLiteral("1.0"));
        QCOMPARE(m.ContentType, QStringLiteral("multipart"));
        QCOMPARE(m.Parts.size(), 5);
        QCOMPARE(m.Parts.at(0).ContentType, QStringLiteral("text"));
        QCOMPARE(m.Parts.at(0).ContentDisposition, QString());
        QVERIFY(m.Parts.at(0).Body.startsWith("Hello there"));
        QCOMPARE(m.Parts.at(1).ContentType, QStringLiteral("image"));
        QCOMPARE(m.Parts.at(1).ContentDisposition, QStringLiteral("attachment; filename=\"only-name.png\""));
        QVERIFY2(m.Parts.at(1).Body.startsWith(b64.trimmed()), m.Parts.at(1).Body.constData());  // still encoded
        QCOMPARE(m.Parts.at(2).ContentDisposition,
                 QStringLiteral("attachment; filename=\"r\u00e9sum\u00e9.bin\""));
        QCOMPARE(m.Parts.at(3).ContentDisposition, QStringLiteral("attachment; filename=\"pic.jpg\""));
        QCOMPARE(m.Parts.at(4).ContentDisposition, QString());  // inline, no file name
        QVERIFY(m.Body.startsWith("preamble\r\n--XX"));
    }

    void article_single_part_attachment()
    {
        NewsTransportMessage m;
        m.Raw = "MIME-Version: 1.0\r\nContent-Type: Application/Octet-Stream; name=\"a:b.jpg\"\r\n"
                "Content-Transfer-Encoding: base64\r\n\r\nQUJD\r\n";
        parseArticle(m);
        QCOMPARE(m.ContentType, QStringLiteral("application"));
        QCOMPARE(m.ContentDisposition, QStringLiteral("attachment; filename=\"a:b.jpg\""));
        QCOMPARE(m.Body, QByteArray("QUJD\r\n"));
        QCOMPARE(m.Parts.size(), 0);

        // MIME without a Content-Type: defaults are not reported as a type
        m.Raw = "MIME-Version: 1.0\r\n\r\ntext\r\n";
        parseArticle(m);
        QCOMPARE(m.MIMEVersion, QStringLiteral("1.0"));
        QCOMPARE(m.ContentType, QString());
        QCOMPARE(m.ContentDisposition, QString());
    }
};

QTEST_GUILESS_MAIN(TestTransportParse)
#include "test_transport_parse.moc"
