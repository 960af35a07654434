#include "post/PostArticle.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace PostArticle;

class TstPostArticle : public QObject {
    Q_OBJECT
private slots:
    // A reply threads: References and In-Reply-To after the first four, before the MIME headers
    // (the plain order and values are checked on the articles the news server holds).
    void replyHeadersInOrder()
    {
        const HeaderList r = headers({QStringLiteral("  Ann "), QStringLiteral(" ann@example.org "), QStringLiteral("Hello"),
                                      QStringLiteral("alt.test"), QStringLiteral("x"), QStringLiteral("<a@x> <b@x>"),
                                      QStringLiteral("<b@x>")});
        QCOMPARE(r[0].second, QStringLiteral("Ann <ann@example.org>"));   // typed blanks trimmed
        QCOMPARE(r[3].first, QStringLiteral("Organization"));
        QCOMPARE(r[4], qMakePair(QStringLiteral("References"), QStringLiteral("<a@x> <b@x>")));
        QCOMPARE(r[5], qMakePair(QStringLiteral("In-Reply-To"), QStringLiteral("<b@x>")));
        QCOMPARE(r[6].first, QStringLiteral("MIME-Version"));
    }

    void bodyIsUtf8WithCrLfAndLongLinesWhole()
    {
        const QString longLine(3000, QLatin1Char('x'));
        const QString text = QStringLiteral("first\n.dot line\r\n..two\n\u00fcml\u00e4ut \u20ac\n") + longLine;
        const QByteArray b = body(text);
        QCOMPARE(b, QByteArray("first\r\n.dot line\r\n..two\r\n") + QStringLiteral("\u00fcml\u00e4ut \u20ac").toUtf8()
                        + "\r\n" + longLine.toLatin1() + "\r\n");
        // lone CR and a trailing line end are not doubled
        QCOMPARE(body(QStringLiteral("a\rb\r\n")), QByteArray("a\r\nb\r\n"));
        QCOMPARE(body(QString()), QByteArray());
    }

    void rfc2047ForNonAscii()
    {
        QCOMPARE(encodeHeaderText(QStringLiteral("plain ascii")), QStringLiteral("plain ascii"));
        QCOMPARE(encodeHeaderText(QStringLiteral("J\u00fcrgen")), QStringLiteral("=?UTF-8?B?SsO8cmdlbg==?="));
        // long text: several words, each at most 75 characters, no character split, decodes back
        QString s;
        for (int i = 0; i < 60; ++i)
            s += QStringLiteral("\u00e9\u20ac\U0001F600");
        const QString enc = encodeHeaderText(s);
        QString back;
        for (const QString &w : enc.split(QStringLiteral("\r\n "))) {
            QVERIFY2(w.size() <= 75, qPrintable(w));
            QVERIFY(w.startsWith(QStringLiteral("=?UTF-8?B?")) && w.endsWith(QStringLiteral("?=")));
            const QByteArray bytes = QByteArray::fromBase64(w.mid(10, w.size() - 12).toLatin1());
            QVERIFY(bytes.isValidUtf8());
            back += QString::fromUtf8(bytes);
        }
        QCOMPARE(back, s);
        // line breaks typed into a field never make a second header
        QCOMPARE(encodeHeaderText(QStringLiteral("a\r\nb\nc")), QStringLiteral("a b c"));
    }

    void fromHeaderForms()
    {
        QCOMPARE(fromHeader(QStringLiteral("J\u00fcrgen"), QStringLiteral("j@x.de")), QStringLiteral("=?UTF-8?B?SsO8cmdlbg==?= <j@x.de>"));
        QCOMPARE(fromHeader(QStringLiteral("Smith, John"), QStringLiteral("j@x.de")), QStringLiteral("\"Smith, John\" <j@x.de>"));
        QCOMPARE(fromHeader(QStringLiteral("A \"Q\" B;"), QStringLiteral("j@x.de")), QStringLiteral("\"A \\\"Q\\\" B;\" <j@x.de>"));
    }

    void logLines()
    {
        const QDateTime t(QDate(2026, 11, 23), QTime(7, 5, 9));
        const QString stamp = logTime(t);
        QVERIFY(stamp.endsWith(QStringLiteral(" 07:05:09")));
        // what follows the stamp is checked in the log of real posts
        QVERIFY(successLine(t, QStringLiteral("news1"), QStringLiteral("alt.test"), QStringLiteral("Hi")).startsWith(stamp));

        QTemporaryDir d;
        const QString log = d.filePath(QStringLiteral("POST.LOG"));
        QVERIFY(appendLog(log, QStringLiteral("one")));
        QVERIFY(appendLog(log, QStringLiteral("tw\u00f6")));
        QFile f(log);
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(f.readAll(), QByteArray("one\r\ntw\xc3\xb6\r\n"));
        QVERIFY(!appendLog(d.filePath(QStringLiteral("no/such/dir/POST.LOG")), QStringLiteral("x")));
    }

    void replyTexts()
    {
        QCOMPARE(replySubject(QStringLiteral("Hello")), QStringLiteral("Re : Hello"));
        // with a signature and a long text it is checked in the post window
        QCOMPARE(replyText(QString(), QStringLiteral("short")),
                 QStringLiteral("\r\n\r\n\r\n") + QString(40, QLatin1Char('-')) + QStringLiteral("\r\nshort"));
        QCOMPARE(replyReferences(QStringLiteral("<a@x>"), QStringLiteral("<b@x>")), QStringLiteral("<a@x> <b@x>"));
        QCOMPARE(replyReferences(QString(), QStringLiteral("<b@x>")), QStringLiteral("<b@x>"));
        QCOMPARE(replyReferences(QStringLiteral("<a@x>\r\n <b@x>"), QStringLiteral("<b@x>")), QStringLiteral("<a@x> <b@x>"));
    }
};

QTEST_APPLESS_MAIN(TstPostArticle)
#include "tst_postarticle.moc"
