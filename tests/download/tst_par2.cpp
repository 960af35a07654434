// PAR2 sets: volume names, the choice of volumes to fetch, reading par2's reports, and real
// verify / repair / stop runs of par2cmdline over files made here.
#include "decoder/DecoderTestUtil.h"
#include "download/Par2.h"

#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

using testutil::randomBytes;
using testutil::readFile;
using testutil::writeFile;

// A PAR2 set over one file of the given bytes, made by par2cmdline in dir.
bool createSet(const QTemporaryDir &dir, const QString &file, const QByteArray &bytes, const QStringList &options)
{
    if (!writeFile(dir.filePath(file), bytes))
        return false;
    QProcess create;
    create.setWorkingDirectory(dir.path());
    create.start(par2::Runner::program(), QStringList{"create", "-q", "-q"} + options
                                              + QStringList{QFileInfo(file).baseName() + ".par2", file});
    return create.waitForFinished(120000) && create.exitCode() == 0;
}

par2::Report run(par2::Runner::Mode mode, const QString &index, const QStringList &extra = {})
{
    par2::Runner r;
    QSignalSpy done(&r, &par2::Runner::finished);
    r.start(mode, index, extra);
    if (!done.wait(60000))
        return {};
    return r.report();
}

} // namespace

class TestPar2 : public QObject {
    Q_OBJECT
private slots:
    void volumeNames()
    {
        // name, first block, blocks, set name
        for (const auto &[name, first, blocks, set] : {std::tuple<const char *, int, int, const char *>{
                 "my set.vol016+032.par2", 16, 32, "my set"}, {"A.VOL7+9.PAR2", 7, 9, "A"}, {"my set.par2", 0, 0, "my set"},
                 {"my set.rar", 0, 0, ""}}) {
            const par2::Volume v = par2::parseVolumeName(QString::fromLatin1(name));
            QCOMPARE(QList<int>({int(v.firstBlock), int(v.blocks)}), QList<int>({first, blocks}));
            QCOMPARE(par2::setName(QString::fromLatin1(name)), QString::fromLatin1(set));
        }
    }

    void chooseVolumes_data()
    {
        QTest::addColumn<QList<int>>("volumes");
        QTest::addColumn<int>("needed");
        QTest::addColumn<QList<int>>("chosen");
        const QList<int> doubling{16, 32, 64, 88};
        QTest::newRow("one volume is enough") << doubling << 20 << QList<int>{32};
        QTest::newRow("two small ones beat a large one") << doubling << 40 << QList<int>{16, 32};
        QTest::newRow("exact fit") << doubling << 96 << QList<int>{32, 64};
        QTest::newRow("all of them") << doubling << 200 << doubling;
        QTest::newRow("more than there is") << doubling << 201 << QList<int>{};
        QTest::newRow("nothing missing") << doubling << 0 << QList<int>{};
        QTest::newRow("equal volumes, fewest") << QList<int>{1, 1, 1, 1, 4} << 4 << QList<int>{4};
    }
    void chooseVolumes()
    {
        QFETCH(QList<int>, volumes);
        QFETCH(int, needed);
        QFETCH(QList<int>, chosen);
        QList<par2::Volume> available;
        for (int b : volumes)
            available << par2::Volume{QStringLiteral("v%1").arg(available.size()), 0, b};
        QList<int> got;
        for (const par2::Volume &v : par2::chooseVolumes(available, needed))
            got << v.blocks;
        QCOMPARE(got, chosen);
    }

    void readsReports_data()
    {
        QTest::addColumn<QByteArray>("output");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<int>("state");
        QTest::addColumn<int>("blocksNeeded");
        using S = par2::Report::State;
        QTest::newRow("correct") << QByteArray("Verifying: 99.9%\rAll files are correct, repair is not required.\n") << 0
                                 << int(S::AllCorrect) << 0;
        QTest::newRow("needs blocks")
            << QByteArray("Repair is required.\nYou have 1499 out of 2000 data blocks available.\nYou have 0 recovery "
                          "blocks available.\nRepair is not possible.\nYou need 501 more recovery blocks to be able to repair.\n")
            << 2 << int(S::NeedsBlocks) << 501;
        QTest::newRow("possible") << QByteArray("Repair is required.\nRepair is possible.\n") << 1 << int(S::RepairPossible) << 0;
        QTest::newRow("repaired") << QByteArray("Writing recovered data\nRepair complete.\n") << 0 << int(S::Repaired) << 0;
        QTest::newRow("no index") << QByteArray("The recovery file does not exist: x.par2\n") << 2 << int(S::Failed) << 0;
    }
    void readsReports()
    {
        QFETCH(QByteArray, output);
        QFETCH(int, exitCode);
        QFETCH(int, state);
        QFETCH(int, blocksNeeded);
        const par2::Report r = par2::parseOutput(output, exitCode);
        QCOMPARE(int(r.state), state);
        QCOMPARE(r.blocksNeeded, blocksNeeded);
        QVERIFY(!r.message.isEmpty());
        QCOMPARE(par2::lastPercent("Loading: 12.5%Verifying: 45.3%"), 45);
    }

    void verifyFetchRepair()
    {
        if (!par2::Runner::available())
            QSKIP("par2 is not installed");
        QTemporaryDir dir;
        const QByteArray original = randomBytes(600000, 7);
        const QString file = dir.filePath(QStringLiteral("set.bin"));
        QVERIFY(createSet(dir, QStringLiteral("set.bin"), original, {"-r10", "-n3"}));
        const QString index = dir.filePath("set.par2");
        QCOMPARE(run(par2::Runner::Mode::Verify, index).state, par2::Report::State::AllCorrect);

        // the volumes are not here yet, as when only the index was fetched
        QDir d(dir.path());
        QList<par2::Volume> volumes;
        d.mkdir(QStringLiteral("server"));
        for (const QString &v : d.entryList({"*.vol*.par2"}, QDir::Files)) {
            volumes << par2::parseVolumeName(v);
            QVERIFY(d.rename(v, QStringLiteral("server/") + v));
        }
        QVERIFY(volumes.size() >= 2);
        // damage: overwrite a stretch in the middle and keep the file only as ".damaged"
        QByteArray damaged = original;
        damaged.replace(200000, 30000, QByteArray(30000, 'x'));
        QVERIFY(QFile::remove(file));
        const QString damagedPath = file + QStringLiteral(".damaged");
        QVERIFY(writeFile(damagedPath, damaged));

        const par2::Report need = run(par2::Runner::Mode::Verify, index, {damagedPath});
        QCOMPARE(need.state, par2::Report::State::NeedsBlocks);
        QVERIFY(need.blocksNeeded > 0);
        const QList<par2::Volume> fetch = par2::chooseVolumes(volumes, need.blocksNeeded);
        QVERIFY(!fetch.isEmpty());
        int fetched = 0;
        for (const par2::Volume &v : fetch) {
            QVERIFY(d.rename(QStringLiteral("server/") + v.fileName, v.fileName));
            fetched += v.blocks;
        }
        QVERIFY(fetched >= need.blocksNeeded);

        QCOMPARE(run(par2::Runner::Mode::Verify, index, {damagedPath}).state, par2::Report::State::RepairPossible);
        QCOMPARE(run(par2::Runner::Mode::Repair, index, {damagedPath}).state, par2::Report::State::Repaired);
        QCOMPARE(readFile(file), original);
        QCOMPARE(readFile(damagedPath), damaged);   // what the user had is still there
    }

    void stopLeavesFilesAsTheyWere()
    {
        if (!par2::Runner::available())
            QSKIP("par2 is not installed");
        QTemporaryDir dir;
        const QByteArray original = randomBytes(8 << 20, 9);
        const QString file = dir.filePath(QStringLiteral("big.bin"));
        QVERIFY(createSet(dir, QStringLiteral("big.bin"), original, {"-r5", "-n1"}));
        QByteArray damaged = original;
        damaged.replace(1 << 20, 4096, QByteArray(4096, 'x'));
        QVERIFY(writeFile(file, damaged));

        par2::Runner r;
        QSignalSpy progress(&r, &par2::Runner::progress);
        QSignalSpy done(&r, &par2::Runner::finished);
        r.start(par2::Runner::Mode::Repair, dir.filePath("big.par2"));
        // stop while it writes the repaired file (the original is renamed by then)
        QVERIFY(QTest::qWaitFor([&] {
            for (const auto &args : progress)
                if (args.at(1).toString() == QLatin1String("Repairing"))
                    return true;
            return done.count() > 0;
        }, 60000));
        QCOMPARE(done.count(), 0);
        r.stop();
        QVERIFY(done.count() == 1 || done.wait(10000));
        QVERIFY(r.stopped());
        QCOMPARE(r.report().state, par2::Report::State::Failed);
        // no repaired file took the damaged one's place, and nothing else appeared
        QCOMPARE(readFile(file), damaged);
        QDir d(dir.path());
        QCOMPARE(d.entryList({"big.bin*"}, QDir::Files), QStringList{"big.bin"});
    }
};

QTEST_GUILESS_MAIN(TestPar2)
#include "tst_par2.moc"
