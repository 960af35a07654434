// NZB files: reading what posters write, refusing damaged files with a clear reason, finding
// missing segments, and writing files that read back the same.
#include "download/Nzb.h"

#include <QTemporaryDir>
#include <QtTest>

namespace {

QByteArray nyuuStyle()
{
    // the shape nyuu writes: declaration, DOCTYPE, namespace, one-line attributes
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE nzb PUBLIC \"-//newzBin//DTD NZB 1.1//EN\" \"http://www.newzbin.com/DTD/nzb/nzb-1.1.dtd\">\n"
           "<nzb xmlns=\"http://www.newzbin.com/DTD/2003/nzb\">\n"
           "\t<head>\n"
           "\t\t<meta type=\"title\">holiday &amp; more</meta>\n"
           "\t</head>\n"
           "\t<file poster=\"Poster &lt;p@example.invalid&gt;\" date=\"1700000000\" subject=\"[1/2] - &quot;a b.jpg&quot; yEnc (1/3) 2048\">\n"
           "\t\t<groups>\n"
           "\t\t\t<group>alt.binaries.test</group>\n"
           "\t\t\t<group>alt.binaries.misc</group>\n"
           "\t\t</groups>\n"
           "\t\t<segments>\n"
           "\t\t\t<segment bytes=\"800\" number=\"2\">part2of3.b@nyuu</segment>\n"
           "\t\t\t<segment bytes=\"700\" number=\"1\">&lt;part1of3.a@nyuu&gt;</segment>\n"
           "\t\t\t<segment bytes=\"500\" number=\"3\">part3of3.c@nyuu</segment>\n"
           "\t\t</segments>\n"
           "\t</file>\n"
           "\t<file poster=\"p\" date=\"x\" subject=\"[2/2] - &quot;c.txt&quot; yEnc (1/1) 10\">\n"
           "\t\t<groups><group>alt.binaries.test</group></groups>\n"
           "\t\t<segments><segment bytes=\"10\" number=\"1\">only@nyuu</segment></segments>\n"
           "\t</file>\n"
           "</nzb>\n";
}

} // namespace

class TestNzb : public QObject {
    Q_OBJECT
private slots:
    void readsWhatPostersWrite()
    {
        const nzb::ParseResult r = nzb::parse(nyuuStyle());
        QVERIFY2(r.ok(), qPrintable(r.error));
        QCOMPARE(r.document.meta.size(), 1);
        QCOMPARE(r.document.meta[0].second, QStringLiteral("holiday & more"));
        QCOMPARE(r.document.files.size(), 2);
        const nzb::File &f = r.document.files[0];
        QCOMPARE(f.poster, QStringLiteral("Poster <p@example.invalid>"));
        QCOMPARE(f.date, qint64(1700000000));
        QCOMPARE(f.groups, QStringList({"alt.binaries.test", "alt.binaries.misc"}));
        QCOMPARE(f.quotedName(), QStringLiteral("a b.jpg"));
        // in part order, angle brackets dropped
        QCOMPARE(f.segments.size(), 3);
        QCOMPARE(f.segments[0].messageId, QStringLiteral("part1of3.a@nyuu"));
        QCOMPARE(f.segments[1].number, 2);
        QCOMPARE(f.bytes(), qint64(2000));
        QVERIFY(f.missingSegments().isEmpty());
        // a date that is no number is unknown, not an error
        QCOMPARE(r.document.files[1].date, qint64(0));
    }

    void missingSegments_data()
    {
        QTest::addColumn<QString>("subject");
        QTest::addColumn<QList<int>>("numbers");
        QTest::addColumn<QList<int>>("missing");
        QTest::newRow("gap in the middle") << "x (1/4)" << QList<int>{1, 2, 4} << QList<int>{3};
        QTest::newRow("tail missing, total from the subject") << "\"f.bin\" yEnc (1/5)" << QList<int>{1, 2, 3}
                                                              << QList<int>{4, 5};
        QTest::newRow("no marker: up to the highest") << "no marker" << QList<int>{2, 5} << QList<int>{1, 3, 4};
        QTest::newRow("the last marker counts") << "[1/9] \"f\" (1/2)" << QList<int>{1} << QList<int>{2};
        QTest::newRow("twice the same number") << "(1/2)" << QList<int>{1, 1} << QList<int>{2};
    }
    void missingSegments()
    {
        QFETCH(QString, subject);
        QFETCH(QList<int>, numbers);
        QFETCH(QList<int>, missing);
        QByteArray xml = "<nzb><file subject=\"" + subject.toHtmlEscaped().toUtf8() + "\"><segments>";
        for (int n : numbers)
            xml += "<segment number=\"" + QByteArray::number(n) + "\">s" + QByteArray::number(n) + "@x</segment>";
        xml += "</segments></file></nzb>";
        const nzb::ParseResult r = nzb::parse(xml);
        QVERIFY2(r.ok(), qPrintable(r.error));
        QCOMPARE(r.document.files[0].missingSegments(), missing);
    }

    void refusesDamagedFiles_data()
    {
        QTest::addColumn<QByteArray>("xml");
        QTest::addColumn<QString>("reason");
        QTest::newRow("empty") << QByteArray() << "empty";
        QTest::newRow("not xml") << QByteArray("this is a text file\n") << "damaged";
        QTest::newRow("another document") << QByteArray("<html><body/></html>") << "not an NZB file";
        QTest::newRow("cut off") << QByteArray("<nzb><file subject=\"a\"><segments><segment number=\"1\">a@b")
                                 << "damaged";
        QTest::newRow("no files") << QByteArray("<nzb><head/></nzb>") << "lists no files";
        QTest::newRow("file without segments") << QByteArray("<nzb><file subject=\"lonely\"><segments/></file></nzb>")
                                               << "\"lonely\" has no segments";
        auto segment = [](const QByteArray &number, const QByteArray &id) {
            return "<nzb><file><segments><segment number=\"" + number + "\">" + id + "</segment></segments></file></nzb>";
        };
        QTest::newRow("segment number zero") << segment("0", "a@b") << "no valid number";
        QTest::newRow("Message-ID with a blank") << segment("1", "a b@c") << "no usable Message-ID";
        QTest::newRow("Message-ID with a line end") << segment("1", "a@b&#13;&#10;QUIT") << "no usable Message-ID";
        QTest::newRow("unknown entity") << QByteArray("<nzb><file subject=\"&bomb;\"/></nzb>") << "damaged";
    }
    void refusesDamagedFiles()
    {
        QFETCH(QByteArray, xml);
        QFETCH(QString, reason);
        const nzb::ParseResult r = nzb::parse(xml);
        QVERIFY(!r.ok());
        QVERIFY2(r.error.contains(reason, Qt::CaseInsensitive), qPrintable(r.error));
        QVERIFY(r.document.files.isEmpty());
    }

    void writesWhatItReads()
    {
        nzb::Document d = nzb::parse(nyuuStyle()).document;
        d.files[1].subject = QStringLiteral("quotes \" <and> & ampersands, \u00e9t\u00e9");
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("out.nzb"));
        QString error;
        QVERIFY2(nzb::writeFile(path, d, &error), qPrintable(error));
        const nzb::ParseResult back = nzb::readFile(path);
        QVERIFY2(back.ok(), qPrintable(back.error));
        QCOMPARE(back.document.meta, d.meta);
        // every field of every file and segment, as one list
        auto fields = [](const nzb::Document &doc) {
            QStringList l;
            for (const nzb::File &f : doc.files) {
                l << f.subject << f.poster << QString::number(f.date) << f.groups.join(QLatin1Char(','));
                for (const nzb::Segment &s : f.segments)
                    l << s.messageId << QString::number(s.number) << QString::number(s.bytes);
            }
            return l;
        };
        QCOMPARE(fields(back.document), fields(d));
        // a file that cannot be written is told, and nothing is left behind
        QVERIFY(!nzb::writeFile(dir.filePath(QStringLiteral("no/such/dir/x.nzb")), d, &error));
        QVERIFY(error.contains(QStringLiteral("Cannot write")));
        QVERIFY(!nzb::readFile(dir.filePath(QStringLiteral("missing.nzb"))).ok());
    }
};

QTEST_GUILESS_MAIN(TestNzb)
#include "tst_nzb.moc"
