// The batch mode end to end: the program itself run as a process against posts on INN.
#include "InnPosts.h"

#include "settings/SettingsStore.h"

#include <QDateTime>
#include <QtTest>

namespace {

const QString Group = QStringLiteral("alt.binaries.newsdredge.batch") + QString::number(QDateTime::currentMSecsSinceEpoch() % 100000000);

struct Run {
    int status = -1;
    QStringList out;
    QString err;
};

Run batch(const QStringList &args)
{
    QProcess p;
    p.setProgram(qEnvironmentVariable("ND_BINARY_DIR") + QStringLiteral("/src/newsdredge"));
    p.setArguments(QStringList{QStringLiteral("--batch")} + args);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(QStringLiteral("QT_QPA_PLATFORM"));   // it needs no display of any kind
    env.remove(QStringLiteral("DISPLAY"));
    p.setProcessEnvironment(env);
    p.start();
    Run r;
    if (!p.waitForFinished(240000)) {
        p.kill();
        p.waitForFinished();
        return r;
    }
    r.status = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = QString::fromUtf8(p.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    r.err = QString::fromUtf8(p.readAllStandardError());
    return r;
}

} // namespace

class TestBatchInn : public QObject {
    Q_OBJECT
    QTemporaryDir m_src;
    QMap<QString, QByteArray> m_files;
    QString server() const { return inn::server(inn::portOpen()); }

private slots:
    void initTestCase()
    {
        QString missing;
        if (!posts::toolsPresent(&missing))
            QSKIP(qPrintable("posting tool missing: " + missing));
        QVERIFY(posts::newGroup(Group));
        const QString d = m_src.path() + QLatin1Char('/');
        m_files["set.bin"] = posts::randomBytes(41 * 8192 - 7, 11);
        m_files["uu.bin"] = posts::randomBytes(25000, 12);
        m_files["doc.jpg"] = posts::randomBytes(9000, 13);
        m_files["small.png"] = posts::picture();
        for (auto it = m_files.cbegin(); it != m_files.cend(); ++it)
            QVERIFY(posts::writeFile(d + it.key(), it.value()));
        QVERIFY(posts::nyuu(d + "set.bin", Group, QStringLiteral("8K")));      // 41 parts
        QVERIFY(posts::uuencodeSplit(d + "uu.bin", Group, QStringLiteral("Batch test uu.bin"), 5));
        QVERIFY(posts::mpack(d + "doc.jpg", Group, QStringLiteral("A document")));
        QVERIFY(posts::nyuu(d + "small.png", Group, QStringLiteral("700K")));
        QFile::remove(SettingsStore().fileName());
    }

    void downloadAllThenDuplicates()
    {
        QTemporaryDir dest;
        const QStringList args{"--server", server(), "--download-all", Group, "--dest", dest.path()};
        const Run r = batch(args);
        QVERIFY2(r.status == 0, qPrintable(r.err));
        QStringList printed = r.out, expected;   // the map's names come sorted
        printed.sort();
        for (auto it = m_files.cbegin(); it != m_files.cend(); ++it) {
            expected << dest.path() + QLatin1Char('/') + it.key();
            QVERIFY2(posts::readFile(expected.last()) == it.value(), qPrintable(it.key()));
        }
        QCOMPARE(printed, expected);
        QCOMPARE(QDir(dest.path()).entryList(QDir::Files | QDir::Hidden).size(), m_files.size());
        QVERIFY(r.err.contains(QLatin1String("Finished Downloading")));
        QVERIFY(r.err.contains(QLatin1String("Reading Message #")));

        // the second run finds every file there: nothing printed, nothing overwritten, still success
        const QDateTime before = QFileInfo(dest.path() + "/set.bin").lastModified();
        const Run again = batch(args);
        QVERIFY2(again.status == 0, qPrintable(again.err));
        QCOMPARE(again.out, QStringList());
        QVERIFY(again.err.contains(QLatin1String("Duplicate File")));
        QCOMPARE(QFileInfo(dest.path() + "/set.bin").lastModified(), before);
        QCOMPARE(QDir(dest.path()).entryList(QDir::Files | QDir::Hidden).size(), m_files.size());
    }

    void listAndGroups()
    {
        const Run l = batch({"--server", server(), "--list", Group});
        QVERIFY2(l.status == 0, qPrintable(l.err));
        QCOMPARE(l.out.size(), 41 + 5 + 1 + 1);
        for (const QString &line : l.out)
            QCOMPARE(line.count(QLatin1Char('\t')), 7);
        // newest first by the sortable date (posts of the same second keep their fetch order)
        for (int i = 1; i < l.out.size(); ++i)
            QVERIFY(l.out[i - 1].section(QLatin1Char('\t'), 6, 6) >= l.out[i].section(QLatin1Char('\t'), 6, 6));
        QVERIFY(l.out.join(QLatin1Char('\n')).contains(QLatin1String("small.png")));
        QVERIFY(l.out.first().section(QLatin1Char('\t'), 5, 5).startsWith(QLatin1Char('<')));

        const Run g = batch({"--server", server(), "--groups"});
        QVERIFY2(g.status == 0, qPrintable(g.err));
        QVERIFY(g.out.contains(Group + QStringLiteral("\t47")));
    }

    void settingsAreReadNeverWritten()
    {
        {
            SettingsStore s;
            s.save(QStringLiteral("NewMsgs"), QStringLiteral("2"));
            s.sync();
        }
        const QByteArray before = posts::readFile(SettingsStore().fileName());
        QVERIFY(!before.isEmpty());
        const Run r = batch({"--server", server(), "--list", Group});
        QCOMPARE(r.status, 0);
        QCOMPARE(r.out.size(), 2);
        QCOMPARE(posts::readFile(SettingsStore().fileName()), before);
        QFile::remove(SettingsStore().fileName());
    }

    void failuresGiveAReasonAndAStatus()
    {
        // nothing listens there; no such group
        for (const auto &[address, group, reason] : {std::tuple<QString, QString, const char *>{
                 "127.0.0.1:1", Group, "could not connect"}, {server(), "no.such.group.here", "could not be listed"}}) {
            const Run r = batch({"--server", address, "--list", group});
            QVERIFY(r.status != 0);
            QVERIFY2(r.err.contains(QLatin1String(reason)), qPrintable(r.err));
        }
        // a wrong command line
        QCOMPARE(batch({"--server", server()}).status, 2);
        QCOMPARE(batch({"--download-all", Group}).status, 2);
        // wrong credentials on the reader that wants them
        const Run a = batch({"--server", inn::server(inn::portAuth()), "--user", "tester", "--password", "wrong", "--groups"});
        QVERIFY(a.status != 0);
        const Run ok = batch({"--server", inn::server(inn::portAuth()), "--user", inn::authUser(), "--password",
                              inn::authPassword(), "--groups"});
        QVERIFY2(ok.status == 0, qPrintable(ok.err));
        QVERIFY(ok.out.contains(Group + QStringLiteral("\t47")));
    }
};

QTEST_GUILESS_MAIN(TestBatchInn)
#include "tst_batch_inn.moc"
