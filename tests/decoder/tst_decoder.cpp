// Unit tests of the decoders: the yEnc kernel and its variants, yEnc sets,
// uuencode, MIME base64, file handling and the wizard's completion.

#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include "DecoderTestUtil.h"
#include "download/decoder/DecoderWizard.h"
#include "download/decoder/Decoders.h"
#include "download/decoder/YencKernel.h"

using namespace testutil;
using decoder::DecodeResult;
using decoder::MemorySink;

namespace {

QByteArray kernelDecode(yenc::Kernel k, const QByteArray &in, bool stripDots,
                        const QList<int> &splits = {})
{
    QByteArray out(in.size() + 1, '\0');
    yenc::DecodeState st;
    size_t n = 0;
    int from = 0;
    QList<int> cuts = splits;
    cuts << int(in.size());
    for (int cut : cuts) {
        n += yenc::decodeWith(k, reinterpret_cast<const uint8_t *>(in.constData()) + from,
                              size_t(cut - from), reinterpret_cast<uint8_t *>(out.data()) + n, st,
                              stripDots);
        from = cut;
    }
    out.truncate(int(n));
    return out;
}

DecodeResult decodeMem(int format, const QByteArray &in, QByteArray *out)
{
    MemorySink sink;
    DecodeResult r = decoder::decodeBuffer(format, in.constData(), in.size(), sink);
    *out = sink.data;
    return r;
}

// Changes the hex digit right after key, so the CRC there no longer matches.
void spoilCrc(QByteArray &b, const QByteArray &key)
{
    const int at = b.indexOf(key) + key.size();
    b[at] = b[at] == '0' ? '1' : '0';
}

// n parts of step bytes each (the last one ends with the data).
QList<QByteArray> yencParts(const QByteArray &data, const QByteArray &name, int n, qint64 step)
{
    QList<QByteArray> p;
    for (int k = 0; k < n; ++k)
        p << yencPart(data, name, k + 1, n, k * step, std::min<qint64>(data.size(), (k + 1) * step));
    return p;
}

// Writes text to a fresh working file in dir and decodes it to dir/outName.
decoder::FileDecodeResult decodeThroughFile(const QTemporaryDir &dir, const QByteArray &text, int format,
                                            bool overwrite, const QString &outName = QStringLiteral("a.bin"))
{
    const QString in = dir.filePath(QStringLiteral("123456.tmp"));
    if (!writeFile(in, text))
        qFatal("cannot write %s", qPrintable(in));
    return decoder::decodeFile(in, dir.filePath(outName), format, overwrite);
}

const QList<yenc::Kernel> kAllKernels = {yenc::Kernel::Scalar, yenc::Kernel::Sse2,
                                         yenc::Kernel::Ssse3, yenc::Kernel::Avx2,
                                         yenc::Kernel::Avx512};

} // namespace

class TestDecoder : public QObject
{
    Q_OBJECT
private slots:
    void kernelStateAcrossEveryBoundary();
    void kernelStripsOnlyLeadingDots();
    void yencOverlongPartStaysInItsRange();
    void yencLargePartAcrossSteps();
    void yencKeywordAtWindowEdge();
    void yencRangesOnThreadsMatchOnePass_data();
    void yencRangesOnThreadsMatchOnePass();
    void yencRepairInNextRange();
    void yencHeaderAfterLongTextFromFile();
    void fileSplitAcrossThreads();
    void uuencodeForms_data();
    void uuencodeForms();
    void textAroundData_data();
    void textAroundData();
    void emptyAndNoData_data();
    void emptyAndNoData();
    void fileCrcOnWriterThread();
    void fileOverwriteAndErrors();
    void namesAndDetection();
    void crcCombine();
    void wizardCompletesOffThread();
    void toolNamesAndNeverOverwrites();
    void hostileSets_data();
    void hostileSets();
    void fileNeverReplacesOrConsumes();
};

void TestDecoder::kernelStateAcrossEveryBoundary()
{
    // a buffer may end anywhere: right after "=", between CR and LF, before a dot
    QByteArray data = randomBytes(700, 3) + QByteArray("\x13\xe0\xe3\xd6\x04", 5);
    for (int i = 300; i < data.size(); i += 7)
        data[i] = '\x04'; // encodes as "."
    QByteArray text = yencLines(data, 61, false);
    text.replace("\r\n.", "\r\n.."); // dot-stuffed on the wire
    QVERIFY(text.count("\r\n..") >= 2);
    for (yenc::Kernel k : kAllKernels) {
        if (!yenc::kernelSupported(k))
            continue;
        QCOMPARE(kernelDecode(k, text, true), data);
        for (int cut = 0; cut <= text.size(); ++cut)
            QCOMPARE(kernelDecode(k, text, true, {cut}), data);
    }
}

void TestDecoder::kernelStripsOnlyLeadingDots()
{
    // ".." opening a line loses one dot; dots elsewhere and an escaped LF stay data
    const QByteArray in = "..a.b\r\n.c\n..\r\n=J.x";
    QByteArray expect = ".a.bc.J.x";   // "J" escaped, the rest plain
    for (int i = 0; i < expect.size(); ++i)
        expect[i] = char(expect[i] - (i == 6 ? 106 : 42));
    for (yenc::Kernel k : kAllKernels)
        if (yenc::kernelSupported(k))
            QCOMPARE(kernelDecode(k, in, true), expect);
    // without stripping, every dot is data
    QCOMPARE(kernelDecode(yenc::Kernel::Scalar, in, false).count(char('.' - 42)), 7);
}

void TestDecoder::yencOverlongPartStaysInItsRange()
{
    // a part with more data than its range must not spill over its neighbour
    const QByteArray data = randomBytes(6000, 21);
    QByteArray p1 = yencPart(data, "f", 1, 2, 0, 3000);
    p1.replace("=ypart begin=1 end=3000", "=ypart begin=1 end=2000");
    const QByteArray p2 = yencPart(data, "f", 2, 2, 3000, 6000);
    QByteArray out;
    const DecodeResult r = decodeMem(decoder::FormatYenc, p2 + p1, &out);
    QCOMPARE(r.error, int(decoder::ErrorDamaged));
    QCOMPARE(out.mid(3000), data.mid(3000));
    QCOMPARE(out.left(2000), data.left(2000));
}

void TestDecoder::yencLargePartAcrossSteps()
{
    // bigger than one decoding step of the file decoder, with an "=" at every step edge possible;
    // in lines of 128 and in one enormous line
    const QByteArray data = randomBytes(9 << 20, 17);
    QByteArray out;
    for (int lineLen : {128, 1 << 24}) {
        const DecodeResult r = decodeMem(decoder::FormatYenc, yencSingle(data, "big", lineLen), &out);
        QCOMPARE(r.error, 0);
        QVERIFY(out == data);
    }
}

void TestDecoder::yencKeywordAtWindowEdge()
{
    // The decoder reads a part's text in windows of 256 KiB. With no escapes
    // these sizes put the line break before "=yend" on every position around
    // the first window's end (258110 bytes -> 262144 characters of text).
    for (int n = 258106; n <= 258114; ++n) {
        const QByteArray data(n, char('a' - 42));
        const QByteArray next = randomBytes(100, 1);
        QByteArray out;
        const DecodeResult r = decodeMem(decoder::FormatYenc,
                                         yencPart(data + next, "w", 1, 2, 0, n) + yencPart(data + next, "w", 2, 2, n, n + 100), &out);
        QVERIFY2(r.error == 0, qPrintable(QStringLiteral("%1: %2").arg(n).arg(r.reason())));
        QVERIFY(out == data + next);
    }
}

void TestDecoder::uuencodeForms_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<bool>("grave");
    QTest::addColumn<bool>("lfOnly");
    QTest::newRow("grave zeros, short last line") << QByteArray(100, '\0') << true << false;
    // lines of 45 bytes ending in "xy\0": a single blank at each line's end
    QTest::newRow("space zeros") << (QByteArray(51, '\0') + QByteArray("xy\0", 3).repeated(40)) << false << false;
    QTest::newRow("exact full lines, LF") << randomBytes(90, 1) << true << true;
    QTest::newRow("one byte") << QByteArray("Z") << true << false;
    QTest::newRow("every byte") << randomBytes(256, 2) << false << true;
}

void TestDecoder::uuencodeForms()
{
    QFETCH(QByteArray, data);
    QFETCH(bool, grave);
    QFETCH(bool, lfOnly);
    QByteArray text = "Some text\r\nbegin with words\r\n" + uuencode(data, "file name.bin", grave);
    if (lfOnly)
        text = lf(text);
    QByteArray out;
    const DecodeResult r = decodeMem(decoder::FormatUuencode, text, &out);
    QCOMPARE(r.error, 0);
    QCOMPARE(out, data);
    QCOMPARE(r.fileName, QStringLiteral("file name.bin"));
    // servers may strip the trailing blanks of space-zero lines
    if (!grave) {
        // a single trailing blank lost (not the blank that is the whole last line)
        const QByteArray stripped = QString::fromLatin1(text).replace(QRegularExpression(QStringLiteral("([^ \\n]) (\\r?\\n)")),
                                                                      QStringLiteral("\\1\\2")).toLatin1();
        QVERIFY(stripped.size() < text.size() || lfOnly);
        QCOMPARE(decodeMem(decoder::FormatUuencode, stripped, &out).error, 0);
        QCOMPARE(out, data);
    }
}

// uuencode and MIME as the download leaves them: the data among other articles' text.
void TestDecoder::textAroundData_data()
{
    QTest::addColumn<int>("format");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<int>("error");
    const QByteArray data = randomBytes(5000, 4);
    const QList<QByteArray> lines = uuencode(data, "p.jpg").split('\n');
    QByteArray between;
    for (int i = 0; i < lines.size(); ++i)
        between += lines[i] + '\n' + (i == 40 || i == 80 ? "\r\nPart 2 of 3 -- enjoy\r\n\r\nMORE TO COME\r\n-----------------\r\n" : "");
    QTest::newRow("uu, the next article's text between lines") << int(decoder::FormatUuencode) << between << data << 0;
    QByteArray noEnd = uuencode(data, "x");
    noEnd.truncate(noEnd.indexOf("`\r\nend"));
    QTest::newRow("uu without end") << int(decoder::FormatUuencode) << noEnd << data << int(decoder::ErrorDamaged);
    QTest::newRow("begin-base64") << int(decoder::FormatUuencode) << "begin-base64 644 y.bin\r\n" + data.toBase64() + "\r\n====\r\n"
                                  << data << 0;
    QByteArray b64;
    const QByteArray all = data.toBase64();
    for (int i = 0; i < all.size(); i += 76)
        b64 += all.mid(i, 76) + "\r\n";
    QTest::newRow("MIME, the next attachment after") << int(decoder::FormatMime)
        << b64 + "\r\n\r\nattachment; filename=\"b.jpg\"\r\n\r\nQUJD\r\n" << data << 0;
    QTest::newRow("MIME, headers before, boundary after") << int(decoder::FormatMime)
        << "\r\nContent-Type: image/jpeg;\r\n name=\"a.jpg\"\r\nContent-Transfer-Encoding: base64\r\n\r\n" + lf(b64) + "--=_boundary--\r\n"
        << data << 0;
    const QByteArray plain = "Dear all,\r\nthis is plain text; nothing encoded.\r\n";
    QTest::newRow("MIME, plain text") << int(decoder::FormatMime) << plain + "\r\n\r\n" << plain << 0;
}

void TestDecoder::textAroundData()
{
    QFETCH(int, format);
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, data);
    QFETCH(int, error);
    QByteArray out;
    const DecodeResult r = decodeMem(format, text, &out);
    QCOMPARE(r.error, error);
    QCOMPARE(out, data);
}

void TestDecoder::emptyAndNoData_data()
{
    QTest::addColumn<int>("format");
    QTest::addColumn<QByteArray>("input");
    for (int f : {0, 2, 3})
        QTest::addRow("empty, format %d", f) << f << QByteArray();
    QTest::newRow("yEnc, text only") << 3 << QByteArray("hello\r\n=yend size=3\r\n");
    QTest::newRow("uu, text only") << 2 << QByteArray("begin here\r\nM0000\r\nend\r\n");
    QTest::newRow("MIME, blank lines") << 0 << QByteArray("\r\n\r\n  \r\n");
    QTest::newRow("bad format code") << 1 << QByteArray("abc");
}

void TestDecoder::emptyAndNoData()
{
    QFETCH(int, format);
    QFETCH(QByteArray, input);
    QTemporaryDir dir;
    const decoder::FileDecodeResult r = decodeThroughFile(dir, input, format, true);
    QVERIFY(r.error == decoder::ErrorNoData || r.error == decoder::ErrorFormat);
    QVERIFY(!r.errorText.isEmpty());
    QVERIFY(r.outputPath.isEmpty());
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList{QStringLiteral("123456.tmp")});
}

void TestDecoder::yencRangesOnThreadsMatchOnePass_data()
{
    // twelve parts of 5000 bytes; ranges of a few bytes up to several parts
    const QByteArray data = randomBytes(60000, 31);
    const QList<QByteArray> p = yencParts(data, "r.bin", 12, 5000);
    auto join = [&](const QList<int> &order) {
        QByteArray set = "Some words first\r\n\r\n";
        for (int k : order)
            set += p[k - 1] + "\r\n-- \r\ntext between parts\r\n";
        return set;
    };
    QList<int> all;
    for (int k = 1; k <= 12; ++k)
        all << k;
    QByteArray bad10 = p[9], bad3 = p[2];
    spoilCrc(bad10, "pcrc32=");
    bad3[bad3.indexOf("\r\n=ypart") + 60] ^= 1;
    QList<int> no9 = all;
    no9.removeAll(9);
    QByteArray wholeCrc12 = p[11], single = yencSingle(data, "r.bin");
    spoilCrc(wholeCrc12, " crc32=");
    spoilCrc(single, " crc32=");

    QTest::addColumn<QByteArray>("set");
    QTest::addColumn<QByteArray>("want");    // the output, when it must be whole
    QTest::addColumn<QStringList>("problems"); // how each problem begins
    QTest::newRow("in order") << join(all) << data << QStringList();
    QTest::newRow("shuffled") << join({7, 2, 12, 1, 9, 4, 11, 3, 5, 10, 6, 8}) << data << QStringList();
    QTest::newRow("bad CRC late") << join({1, 2, 3, 4, 5, 6, 7, 8, 9}) + bad10 + join({11, 12}) << data
                                  << QStringList{QStringLiteral("CRC error in part 10")};
    QTest::newRow("part missing late") << join(no9) << QByteArray() << QStringList{QStringLiteral("part 9 missing")};
    QTest::newRow("parts twice, LF only") << lf(join({1, 2, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 1})) << data << QStringList();
    // every part right but the whole-file CRC wrong; and a single part's CRC wrong
    QTest::newRow("whole-file CRC") << join({12, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}).replace(p[11], wholeCrc12) << data
                                    << QStringList{QStringLiteral("CRC error in the whole file")};
    QTest::newRow("single part CRC") << single << data << QStringList{QStringLiteral("CRC error")};
    // a truncated part followed straight by the next "=ybegin"
    QTest::newRow("part cut, next follows") << join({1}) + p[1].left(p[1].size() / 2) + "\r\n" + join({3, 4, 5, 6, 7, 8, 9, 10, 11, 12})
                                            << QByteArray() << QStringList{QStringLiteral("part 2 truncated")};
    // a good part seen early must not be overwritten by a damaged copy in a later range
    QTest::newRow("damaged copy after good") << join(all) + lf(bad3) << data << QStringList();
    // a damaged part early, repaired by a copy in a later range: the later one must win
    QTest::newRow("good copy after damaged") << join({1, 2}) + bad3 + join({4, 5, 6, 7, 8, 9, 10, 11, 12, 3}) << data
                                             << QStringList();
    // a copy of part 12 that claims part 9's place: one pass never writes it
    QTest::newRow("copy in a missing place") << join(no9) + yencPart(data, "r.bin", 12, 12, 40000, 45000)
                                             << QByteArray() << QStringList{QStringLiteral("part 9 missing")};
    // long text with keyword-like lines between parts, and a header line longer
    // than the pieces the file path reads
    QByteArray text;
    for (int i = 0; i < 3000; ++i)
        text += i % 97 == 0 ? QByteArray("=yxx not a keyword\r\n") : i % 389 == 0 ? QByteArray("=ybeginning\r\n")
                                                                            : QByteArray("some text of a line here.\r\n").repeated(3);
    QByteArray longHead = p[4];
    longHead.insert(longHead.indexOf(" name="), " comment=" + QByteArray(70000, 'c'));
    QTest::newRow("long text and header") << join({1, 2, 3, 4}) + text + longHead + text + join({6, 7, 8, 9, 10, 11, 12})
                                          << data << QStringList();
    QTest::newRow("last part cut") << join({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}) + p[11].left(3000) << QByteArray()
                                   << QStringList{QStringLiteral("part 12 truncated")};
}

void TestDecoder::yencRangesOnThreadsMatchOnePass()
{
    QFETCH(QByteArray, set);
    QFETCH(QByteArray, want);
    QFETCH(QStringList, problems);
    QByteArray once;
    const DecodeResult one = decodeMem(decoder::FormatYenc, set, &once);
    QCOMPARE(one.problems.size(), problems.size());
    for (int i = 0; i < problems.size(); ++i)
        QVERIFY2(one.problems[i].startsWith(problems[i]), qPrintable(one.reason()));
    if (!want.isEmpty())
        QVERIFY(once == want);
    MemoryReader reader(set);
    for (int workers : {2, 3})
        for (qint64 range : {1, 900, 5000, 13000, 40000}) {
            // the file path reads the text instead of using the memory view
            MemorySink sink;
            const DecodeResult r = decoder::decodeYenc(set.constData(), set.size(), sink,
                                                       workers == 3 ? &reader : nullptr, workers, range);
            const QString at = QStringLiteral("workers %1, ranges of %2").arg(workers).arg(range);
            QVERIFY2(r.error == one.error, qPrintable(at));
            QVERIFY2(r.problems == one.problems, qPrintable(at + QStringLiteral(": ") + r.reason()));
            QVERIFY2(sink.data == once, qPrintable(at));
            QCOMPARE(r.fileName, QStringLiteral("r.bin"));
        }
}

void TestDecoder::yencRepairInNextRange()
{
    // A long range ending in a damaged part 3, and a short one starting with its
    // good copy: the short one is written first, yet the good copy must win.
    const QByteArray data = randomBytes(4 << 20, 35);
    const int step = 128 << 10;
    const QList<QByteArray> p = yencParts(data, "n.bin", 32, step);
    QByteArray bad3 = p[2];
    bad3[bad3.indexOf("\r\n=ypart") + 500] ^= 1;
    QByteArray set;
    for (int k = 0; k < 31; ++k)
        if (k != 2)
            set += p[k];
    set += bad3;
    const qint64 range = set.size();
    set += p[2] + p[31];
    // which thread gets which range is up to the scheduler: try a few times
    for (int round = 0; round < 5; ++round) {
        MemorySink sink;
        const DecodeResult r = decoder::decodeYenc(set.constData(), set.size(), sink, nullptr, 2, range);
        QVERIFY2(r.error == 0, qPrintable(r.reason()));
        QVERIFY(sink.data == data);
    }
}

void TestDecoder::yencHeaderAfterLongTextFromFile()
{
    // Read from a file, the text after a part is searched in pieces of 64 KiB:
    // the LF before the next "=ybegin" lands on every position around a piece's end.
    const QByteArray data = randomBytes(3000, 37);
    const QByteArray p1 = yencPart(data, "t.bin", 1, 2, 0, 1000), p2 = yencPart(data, "t.bin", 2, 2, 1000, 3000);
    for (int gap = 65530; gap <= 65540; ++gap) {
        const QByteArray set = p1 + QByteArray(gap - 2, 'x') + "\r\n" + p2;
        MemoryReader reader(set);
        MemorySink sink;
        const DecodeResult r = decoder::decodeYenc(set.constData(), set.size(), sink, &reader);
        QVERIFY2(r.error == 0, qPrintable(QStringLiteral("%1: %2").arg(gap).arg(r.reason())));
        QVERIFY(sink.data == data);
    }
}

void TestDecoder::fileSplitAcrossThreads()
{
    // big enough for the file decoder to split it: a bad part in the second
    // half, then repaired by a later copy
    QTemporaryDir dir;
    const qint64 mib = 1 << 20;
    const QByteArray data = randomBytes(int(6 * mib + 5), 33);
    const QList<QByteArray> p = yencParts(data, "six.bin", 7, mib);
    QByteArray bad5 = p[4];
    bad5[bad5.indexOf("\r\n=ypart") + 100] ^= 1;
    const QString out = dir.filePath(QStringLiteral("six.bin"));
    auto decode = [&](const QByteArray &text) { return decodeThroughFile(dir, text, 3, true, QStringLiteral("six.bin")); };
    decoder::FileDecodeResult r = decode(p[0] + p[1] + p[2] + p[3] + bad5 + p[5] + p[6]);
    QCOMPARE(r.error, int(decoder::ErrorDamaged));
    QVERIFY2(r.errorText.startsWith(QStringLiteral("CRC error in part 5")), qPrintable(r.errorText));
    // kept under ".damaged", the real name stays free, nothing else left
    QCOMPARE(r.outputPath, out + QStringLiteral(".damaged"));
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList({"123456.tmp", "six.bin.damaged"}));
    const QByteArray damaged = readFile(out + QStringLiteral(".damaged"));
    QVERIFY(damaged.left(int(4 * mib)) == data.left(int(4 * mib)));
    QVERIFY(damaged.mid(int(5 * mib)) == data.mid(int(5 * mib)));

    r = decode(p[3] + p[0] + bad5 + p[1] + p[6] + p[2] + p[5] + p[4]);
    QVERIFY2(r.error == 0, qPrintable(r.errorText));
    QVERIFY(readFile(out) == data);

    // part 2 missing, and a copy of part 7 claiming its place: decoded again in
    // one pass, which never writes that copy, so the hole stays empty
    r = decode(p[6] + p[0] + p[2] + p[3] + p[4] + p[5] + yencPart(data, "six.bin", 7, 7, mib, 2 * mib));
    QCOMPARE(r.error, int(decoder::ErrorDamaged));
    QVERIFY2(r.errorText.startsWith(QStringLiteral("part 2 missing")), qPrintable(r.errorText));
    const QByteArray holed = readFile(out + QStringLiteral(".damaged"));
    QVERIFY(holed.mid(int(mib), int(mib)) == QByteArray(int(mib), '\0'));
    QVERIFY(holed.mid(int(2 * mib)) == data.mid(int(2 * mib)));
}

void TestDecoder::fileCrcOnWriterThread()
{
    QTemporaryDir dir;
    // the file path checks CRCs on its writer thread: a bad one must still be seen,
    // and a good repost of the part after it must still repair the file
    const QByteArray big = randomBytes(3 << 20, 13);
    QByteArray p2 = yencPart(big, "big.bin", 2, 3, 1 << 20, 2 << 20);
    spoilCrc(p2, "pcrc32=");
    const QByteArray p1 = yencPart(big, "big.bin", 1, 3, 0, 1 << 20), p3 = yencPart(big, "big.bin", 3, 3, 2 << 20, 3 << 20);
    decoder::FileDecodeResult b = decodeThroughFile(dir, p1 + p2 + p3, 3, true, QStringLiteral("big.bin"));
    QCOMPARE(b.error, int(decoder::ErrorDamaged));
    QCOMPARE(b.errorText, QStringLiteral("CRC error in part 2 (kept as big.bin.damaged)"));
    b = decodeThroughFile(dir, p1 + p2 + p3 + yencPart(big, "big.bin", 2, 3, 1 << 20, 2 << 20), 3, true,
                          QStringLiteral("big.bin"));
    QCOMPARE(b.error, 0);
    QVERIFY(readFile(b.outputPath) == big);
}

void TestDecoder::fileOverwriteAndErrors()
{
    QTemporaryDir dir;
    const QByteArray data = randomBytes(500, 14);
    const QString in = dir.filePath(QStringLiteral("in.tmp")), outPath = dir.filePath(QStringLiteral("a.bin"));
    QVERIFY(writeFile(in, yencSingle(data, "a.bin")));
    QVERIFY(writeFile(outPath, "old"));   // replaced when overwriting is asked for
    decoder::FileDecodeResult r = decoder::decodeFile(in, outPath, 3, true);
    QCOMPARE(r.error, 0);
    QCOMPARE(readFile(outPath), data);
    QCOMPARE(r.errorText, QString());

    // a sink that cannot take the bytes stops the decode with a write error, for every format
    for (const auto &[format, text] : {std::pair<int, QByteArray>{3, yencSingle(data, "a.bin")},
                                       {2, uuencode(data, "a.bin")}, {0, data.toBase64()}}) {
        MemorySink small(100);
        const DecodeResult d = decoder::decodeBuffer(format, text.constData(), text.size(), small);
        QCOMPARE(d.error, int(decoder::ErrorWrite));
        QVERIFY(d.reason().contains(QStringLiteral("100 bytes")));
    }

    r = decoder::decodeFile(dir.filePath(QStringLiteral("absent.tmp")), outPath, 3, true);
    QCOMPARE(r.error, int(decoder::ErrorRead));
    QVERIFY(r.errorText.contains(QStringLiteral("absent.tmp")));
    r = decoder::decodeFile(in, dir.filePath(QStringLiteral("no/such/dir/a.bin")), 3, true);
    QCOMPARE(r.error, int(decoder::ErrorWrite));
    QVERIFY(!r.errorText.isEmpty());
}

void TestDecoder::namesAndDetection()
{
    for (const auto &[name, safe] : {std::pair<const char *, const char *>{"../../etc/passwd", "passwd"},
                                     {"C:\\x\\holiday 01.jpg", "holiday 01.jpg"}, {"..", ""}, {"dir/.", ""},
                                     {"a\tb\x01.txt", "ab.txt"}, {"a:b.jpg", "a_b.jpg"}})
        QCOMPARE(decoder::safeFileName(QString::fromLatin1(name)), QString::fromLatin1(safe));
    for (const auto &[format, text, name] : {std::tuple<int, QByteArray, const char *>{
             3, "text\r\n=ybegin line=128 size=1 name=holiday 01.jpg\r\n", "holiday 01.jpg"},
             {2, "Beginners guide\r\nbegin 644 beginner.jpg\r\n", "beginner.jpg"},
             {0, "attachment; filename=\"a b.png\"\r\n\r\nQUJD\r\n", "a b.png"}}) {
        QCOMPARE(decoder::detectFormat(text.constData(), text.size()), format);
        QCOMPARE(decoder::announcedFileName(format, text.constData(), text.size()), QString::fromLatin1(name));
    }
}

void TestDecoder::crcCombine()
{
    const QByteArray all = randomBytes(300000, 41);
    for (int cut : {0, 1, 7, 256, 4096, 123457, 299999, 300000}) {
        const QByteArray a = all.left(cut), b = all.mid(cut);
        QCOMPARE(crc32::combine(crcOf(a), crcOf(b), uint64_t(b.size())), crcOf(all));
    }
    QCOMPARE(crcOf(QByteArray("123456789")), 0xCBF43926u); // the standard check value

    // long buffers take the folding path: every length around its block sizes,
    // continued from other CRCs and at odd addresses, against a bit-by-bit CRC
    auto slow = [](uint32_t crc, const char *p, int n) {
        crc = ~crc;
        for (int i = 0; i < n; ++i) {
            crc ^= uint8_t(p[i]);
            for (int b = 0; b < 8; ++b)
                crc = crc & 1 ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
        }
        return ~crc;
    };
    for (int n : {1023, 1024, 1025, 1087, 1088, 1279, 1280, 1281, 1343, 2047, 4096, 65536 + 77, 299990})
        for (uint32_t init : {0u, 0xFFFFFFFFu, 0x1234ABCDu})
            for (int off : {0, 3}) {
                const uint32_t want = slow(init, all.constData() + off, n);
                QVERIFY2(crc32::update(init, all.constData() + off, size_t(n)) == want,
                         qPrintable(QStringLiteral("length %1, from %2").arg(n).arg(init, 0, 16)));
            }
}

void TestDecoder::wizardCompletesOffThread()
{
    QTemporaryDir dir;
    const QByteArray data = randomBytes(6 << 20, 15);
    const QString in = dir.filePath(QStringLiteral("200000.tmp")), outPath = dir.filePath(QStringLiteral("w.bin"));
    QVERIFY(writeFile(in, yencSingle(data, "w.bin")));
    DecoderWizard w;
    QSignalSpy done(&w, &DecoderWizard::Completed);
    qint64 sizeAtSignal = -1;
    connect(&w, &DecoderWizard::Completed, this, [&] {
        QVERIFY(QThread::currentThread() == thread());
        sizeAtSignal = QFileInfo(outPath).size(); // closed and in place by now
    });
    w.DecodeToFile(in, outPath, 3, true);
    QVERIFY(w.Busy());
    QCOMPARE(w.DecodeError(), 0);
    w.DecodeToFile(in, outPath, 3, true); // refused while busy
    QCOMPARE(w.DecodeError(), int(decoder::ErrorBusy));
    QVERIFY(done.wait(20000));
    QCOMPARE(done.count(), 1);
    QVERIFY(!w.Busy());
    QCOMPARE(w.DecodeError(), 0);
    QCOMPARE(w.DecodeErrorText(), QString());
    QCOMPARE(w.OutputPath(), outPath);
    QCOMPARE(sizeAtSignal, qint64(data.size()));
    QVERIFY(readFile(outPath) == data);

    // a failure reports its reason
    QVERIFY(writeFile(in, "nothing here\r\n"));
    w.DecodeToFile(in, outPath, 2, true);
    QVERIFY(done.wait(20000));
    QCOMPARE(w.DecodeError(), int(decoder::ErrorNoData));
    QCOMPARE(w.DecodeErrorText(), QStringLiteral("no uuencoded data found"));
    QCOMPARE(w.OutputPath(), QString());
}

void TestDecoder::toolNamesAndNeverOverwrites()
{
    const QString tool = qEnvironmentVariable("ND_BINARY_DIR") + QStringLiteral("/src/download/decoder/newsdredge-decode");
    if (!QFileInfo(tool).isExecutable())
        QSKIP("newsdredge-decode is not built");
    QTemporaryDir dir;
    auto run = [&](const QString &input, QString *out) {
        QProcess p;
        p.start(tool, {input, dir.path()});
        p.waitForFinished(60000);
        *out = QString::fromLocal8Bit(p.readAllStandardOutput() + p.readAllStandardError());
        return p.exitCode();
    };
    const QByteArray data = randomBytes(3000, 31);
    const QString y = dir.filePath(QStringLiteral("saved.txt"));
    QString said;
    // a name with directory parts lands in OUTDIR under its plain name
    QVERIFY(writeFile(y, "Re: pics\r\n" + yencSingle(data, "../../up/there.jpg")));
    QCOMPARE(run(y, &said), 0);
    QVERIFY2(said.contains(QStringLiteral("yEnc")), qPrintable(said));
    QVERIFY(readFile(dir.filePath(QStringLiteral("there.jpg"))) == data);
    // a second run does not overwrite it
    QVERIFY(writeFile(y, yencSingle(randomBytes(10, 1), "there.jpg")));
    QCOMPARE(run(y, &said), int(decoder::ErrorExists));
    QVERIFY(said.contains(QStringLiteral("not overwritten")));
    QVERIFY(readFile(dir.filePath(QStringLiteral("there.jpg"))) == data);
    // uuencode named "..": falls back to the input's own name
    const QString u = dir.filePath(QStringLiteral("dots.uue"));
    QVERIFY(writeFile(u, uuencode(data, "..")));
    QCOMPARE(run(u, &said), 0);
    QVERIFY(readFile(dir.filePath(QStringLiteral("dots.decoded"))) == data);
    // damaged input: reason on stderr, ".damaged" file, non-zero exit
    const QString bad = dir.filePath(QStringLiteral("bad.txt"));
    QVERIFY(writeFile(bad, yencPart(data, "set.bin", 1, 2, 0, 1500)));
    QCOMPARE(run(bad, &said), int(decoder::ErrorDamaged));
    QVERIFY2(said.contains(QStringLiteral("part 2 missing")), qPrintable(said));
    QVERIFY(QFile::exists(dir.filePath(QStringLiteral("set.bin.damaged"))));
    QVERIFY(!QFile::exists(dir.filePath(QStringLiteral("set.bin"))));
}

// Sets crafted to mislead: what each decodes to, and whether it is reported as damaged.
void TestDecoder::hostileSets_data()
{
    QTest::addColumn<int>("format");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("problem");      // in the reason
    QTest::addColumn<qint64>("maxOutput");     // bytes the output may span

    const QByteArray data = randomBytes(5000, 21);
    QByteArray allZ = uuencode(data, "x.bin");
    allZ.replace("\r\nM", "\r\nZ");   // every full line's length character changed
    QByteArray oneBad = uuencode(data, "x.bin");
    oneBad.replace(oneBad.indexOf("\r\nM", 1000) + 2, 1, "N");
    QByteArray withRulers = uuencode(data, "x.bin");
    withRulers.insert(withRulers.indexOf("\r\nM", 1000) + 2,
                      "-----------------\r\n=====================\r\nTHANK YOU FOR WATCHING\r\n");
    const int uu = decoder::FormatUuencode, damaged = decoder::ErrorDamaged;
    const qint64 all = data.size();
    QTest::newRow("uu every length character changed") << uu << allZ << damaged << QStringLiteral("length character") << all;
    QTest::newRow("uu one length character changed") << uu << oneBad << damaged << QStringLiteral("length character") << all;
    QTest::newRow("uu with rulers and capitals between lines") << uu << withRulers << 0 << QString() << all;

    const QByteArray hundred = randomBytes(100, 22);
    const QByteArray huge = "=ybegin part=1 total=1 line=128 size=10000000000000 name=huge.bin\r\n"
                            "=ypart begin=9999999999901 end=10000000000000\r\n" + yencLines(hundred) + "=yend size=100 part=1\r\n";
    QTest::newRow("yEnc part at 10 TB") << int(decoder::FormatYenc) << huge << damaged << QStringLiteral("beyond the") << qint64(0);
    const QByteArray single = "=ybegin line=128 size=10000000000000 name=huge.bin\r\n" + yencLines(hundred) + "=yend size=100\r\n";
    QTest::newRow("yEnc single part claiming 10 TB") << int(decoder::FormatYenc) << single << damaged << QStringLiteral("truncated")
                                                     << qint64(100);
}

void TestDecoder::hostileSets()
{
    QFETCH(int, format);
    QFETCH(QByteArray, text);
    QFETCH(int, error);
    QFETCH(QString, problem);
    QFETCH(qint64, maxOutput);
    QByteArray out;
    const DecodeResult r = decodeMem(format, text, &out);
    QCOMPARE(r.error, error);
    QVERIFY2(r.reason().contains(problem), qPrintable(r.reason()));
    QVERIFY(out.size() <= maxOutput);

    // through a file: the damaged result's size is what the data holds, not what a header claims
    QTemporaryDir dir;
    const decoder::FileDecodeResult f = decodeThroughFile(dir, text, format, false);
    QCOMPARE(f.error, error);
    QVERIFY(QFileInfo(f.outputPath).size() <= qMax<qint64>(maxOutput, 0));
}

// Whatever is in the download directory stays as it is: the working file is a fresh one, and
// neither the output nor its ".damaged" companion is replaced (overwrite off).
void TestDecoder::fileNeverReplacesOrConsumes()
{
    const QByteArray data = randomBytes(3000, 23);
    const QByteArray good = yencSingle(data, "a.bin");
    QByteArray bad = good;
    bad.replace("crc32=" + hex8(crcOf(data)), "crc32=12345678");
    struct Row {
        const char *name;
        QByteArray text;
        QStringList present;    // files there before, each holding "mine"
        int error;
        QString written;        // the file that appears, or ""
    };
    const QList<Row> rows{
        {"working name taken", good, {"a.bin.decoding.tmp"}, 0, "a.bin"},
        {"damaged over an existing .damaged", bad, {"a.bin.damaged"}, int(decoder::ErrorExists), ""},
        {"good while a .damaged of the name exists", good, {"a.bin.damaged"}, int(decoder::ErrorExists), ""},
        {"output exists", good, {"a.bin"}, int(decoder::ErrorExists), ""},
    };
    for (const Row &row : rows) {
        QTemporaryDir dir;
        for (const QString &name : row.present)
            QVERIFY(writeFile(dir.filePath(name), "mine"));
        const decoder::FileDecodeResult r = decodeThroughFile(dir, row.text, 3, false);
        QVERIFY2(r.error == row.error, row.name);
        for (const QString &name : row.present)
            QVERIFY2(readFile(dir.filePath(name)) == "mine", row.name);
        QStringList expected = row.present + QStringList{QStringLiteral("123456.tmp")};
        if (!row.written.isEmpty()) {
            expected << row.written;
            QVERIFY2(readFile(dir.filePath(row.written)) == data, row.name);
        }
        expected.sort();
        QStringList files = QDir(dir.path()).entryList(QDir::Files | QDir::Hidden);
        files.sort();
        QVERIFY2(files == expected, qPrintable(QString::fromLatin1(row.name) + ": " + files.join(QLatin1Char(' '))));
    }
    // the working name is new each time and never that of a file that was there
    const QString w1 = decoder::workingName(QStringLiteral("/d/a.bin")), w2 = decoder::workingName(QStringLiteral("/d/a.bin"));
    QVERIFY(w1 != w2);
    QVERIFY(w1.startsWith(QStringLiteral("/d/a.bin.")) && w1.endsWith(QStringLiteral(".decoding.tmp")));
}

QTEST_GUILESS_MAIN(TestDecoder)
#include "tst_decoder.moc"
