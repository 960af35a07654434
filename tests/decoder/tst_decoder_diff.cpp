// Differential tests: our decoders against GMime's yEnc and uudecode filters on
// the same text, and round trips of random binaries through independent
// encoders (yencode, the encoder nyuu posts with; sharutils' uuencode against GMime).

// GMime (glib) first: Qt's "signals" keyword would clash with glib's headers
#include <gmime/gmime.h>

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include "DecoderTestUtil.h"
#include "download/decoder/Decoders.h"

using namespace testutil;

namespace {

QByteArray runFilter(GMimeFilter *f, const QByteArray &in)
{
    QByteArray out;
    char *outbuf = nullptr;
    size_t outlen = 0, outprespace = 0;
    // feed in uneven pieces so the filter's own state handling is exercised too
    qint64 pos = 0, step = 4093;
    while (pos < in.size()) {
        const qint64 n = std::min(step, in.size() - pos);
        g_mime_filter_filter(f, const_cast<char *>(in.constData() + pos), size_t(n), 0, &outbuf,
                             &outlen, &outprespace);
        out.append(outbuf, int(outlen));
        pos += n;
        step = step == 4093 ? 65536 : 4093;
    }
    g_mime_filter_complete(f, const_cast<char *>(""), 0, 0, &outbuf, &outlen, &outprespace);
    out.append(outbuf, int(outlen));
    return out;
}

// GMime's yEnc or uudecode filter; it reads text as its streams hand it over, with LF line ends
QByteArray gmimeDecode(bool yenc, const QByteArray &text)
{
    GMimeFilter *f = yenc ? g_mime_filter_yenc_new(FALSE) : g_mime_filter_basic_new(GMIME_CONTENT_ENCODING_UUENCODE, FALSE);
    const QByteArray out = runFilter(f, lf(text));
    g_object_unref(f);
    return out;
}

QByteArray ours(int format, const QByteArray &in, int *error = nullptr)
{
    decoder::MemorySink sink;
    const decoder::DecodeResult r = decoder::decodeBuffer(format, in.constData(), in.size(), sink);
    if (error)
        *error = r.error;
    return sink.data;
}

// yEnc with gratuitous escapes (any byte may be escaped, as long as the escaped
// form is not a line break nor "=y", which opens keyword lines): legal, and a good test of the escape paths
QByteArray overEscaped(const QByteArray &data, quint32 seed)
{
    QRandomGenerator rng(seed);
    QByteArray body;
    int col = 0;
    for (char ch : data) {
        const uchar c = uchar(uchar(ch) + 42);
        const uchar shifted = uchar(c + 64);
        const bool spare = shifted != 0 && shifted != '\n' && shifted != '\r' && shifted != '=' && shifted != 'y';
        if (c == 0 || c == '\n' || c == '\r' || c == '=' || (spare && rng.bounded(10) == 0)) {
            body += '=';
            body += char(c + 64);
            col += 2;
        } else {
            body += char(c);
            ++col;
        }
        if (col >= 100) {
            body += "\r\n";
            col = 0;
        }
    }
    return "=ybegin line=100 size=" + QByteArray::number(data.size()) + " name=e\r\n" + body
           + "\r\n=yend size=" + QByteArray::number(data.size()) + "\r\n";
}

const QList<qint64> kSizes = {0, 1, 2, 3, 127, 128, 129, 255, 256, 1000, 65537, 1 << 20, (5 << 20) + 3};

// node, finding the packages installed under build/tools
void useNodeModules(QProcess &p)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("NODE_PATH"), qEnvironmentVariable("ND_BINARY_DIR") + QStringLiteral("/tools/node_modules"));
    p.setProcessEnvironment(env);
}

bool haveYencode()
{
    if (QStandardPaths::findExecutable(QStringLiteral("node")).isEmpty())
        return false;
    QProcess p;
    useNodeModules(p);
    p.start(QStringLiteral("node"), {QStringLiteral("-e"), QStringLiteral("require('yencode')")});
    return p.waitForFinished(30000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

} // namespace

class TestDecoderDiff : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { g_mime_init(); }
    void cleanupTestCase() { g_mime_shutdown(); }
    void agreesWithGMime_data();
    void agreesWithGMime();
    void yencodeRoundTrip_data();
    void yencodeRoundTrip();
};

void TestDecoderDiff::agreesWithGMime_data()
{
    QTest::addColumn<int>("format");
    QTest::newRow("yEnc") << int(decoder::FormatYenc);
    QTest::newRow("uuencode") << int(decoder::FormatUuencode);
}

void TestDecoderDiff::agreesWithGMime()
{
    QFETCH(int, format);
    const bool yenc = format == decoder::FormatYenc;
    const bool tool = !QStandardPaths::findExecutable(QStringLiteral("uuencode")).isEmpty();
    quint32 seed = 100;
    for (qint64 size : kSizes) {
        const QByteArray data = randomBytes(size, ++seed);
        QList<QByteArray> texts = {yencSingle(data, "a", 128), lf(yencSingle(data, "a", 997)), overEscaped(data, seed)};
        if (!yenc)
            texts = {uuencode(data, "u.bin", true), lf(uuencode(data, "u.bin", false))};
        if (!yenc && tool) {
            QProcess p;
            p.start(QStringLiteral("uuencode"), {QStringLiteral("u.bin")});
            p.write(data);
            p.closeWriteChannel();
            QVERIFY(p.waitForFinished(60000));
            texts << p.readAllStandardOutput();
        }
        for (int v = 0; v < texts.size(); ++v) {
            int err = -1;
            const QByteArray mine = ours(format, texts[v], &err);
            QCOMPARE(err, 0);
            QVERIFY2(mine == gmimeDecode(yenc, texts[v]),
                     qPrintable(QStringLiteral("size %1, variant %2").arg(size).arg(v)));
            QVERIFY(mine == data);
        }
    }
}

void TestDecoderDiff::yencodeRoundTrip_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<qint64>("partSize");
    QTest::addColumn<QStringList>("options");
    QTest::newRow("empty") << qint64(0) << qint64(1000) << QStringList{};
    QTest::newRow("1 byte") << qint64(1) << qint64(1000) << QStringList{};
    QTest::newRow("single part") << qint64(100000) << qint64(1000000) << QStringList{QStringLiteral("--text")};
    QTest::newRow("multi, in order, LF") << qint64(1 << 20) << qint64(250000) << QStringList{QStringLiteral("--lf")};
    QTest::newRow("multi, shuffled, text, twice") << qint64(5 << 20) << qint64(716800)
        << QStringList{QStringLiteral("--order=shuffle"), QStringLiteral("--text"), QStringLiteral("--twice=2")};
    QTest::newRow("reverse, odd lines") << qint64(777777) << qint64(100001)
        << QStringList{QStringLiteral("--order=reverse"), QStringLiteral("--line=997")};
}

void TestDecoderDiff::yencodeRoundTrip()
{
    if (!haveYencode())
        QSKIP("node with the yencode package (nyuu's encoder) is not installed under build/tools");
    QFETCH(qint64, size);
    QFETCH(qint64, partSize);
    QFETCH(QStringList, options);
    QTemporaryDir dir;
    const QByteArray data = randomBytes(size, quint32(size));
    const QString bin = dir.filePath(QStringLiteral("orig.bin")), set = dir.filePath(QStringLiteral("123456.tmp"));
    QVERIFY(writeFile(bin, data));
    QProcess node;
    useNodeModules(node);
    node.start(QStringLiteral("node"), QStringList{qEnvironmentVariable("ND_SOURCE_DIR") + QStringLiteral("/tests/decoder/make_yenc_set.js"),
                                                   bin, set, QString::number(partSize)} + options);
    QVERIFY(node.waitForFinished(120000));
    QVERIFY2(node.exitCode() == 0, node.readAllStandardError().constData());

    const QString out = dir.filePath(QStringLiteral("decoded.bin"));
    const decoder::FileDecodeResult r = decoder::decodeFile(set, out, 3, true);
    QVERIFY2(r.error == 0, qPrintable(r.errorText));
    QCOMPARE(r.fileName, QStringLiteral("orig.bin"));
    QVERIFY(readFile(out) == data);
}

QTEST_GUILESS_MAIN(TestDecoderDiff)
#include "tst_decoder_diff.moc"
