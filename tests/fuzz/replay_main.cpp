// A short, deterministic fuzz run for ordinary builds (and AddressSanitizer
// builds): seeds and mutations of them go through all three decoder targets,
// each input in a heap block of exactly its size so that any read past its end
// is caught under ASan.
// usage: fuzz_decoders_replay [SECONDS] [--write-seeds DIR]

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QRandomGenerator>

#include <cstdio>
#include <memory>

#include "FuzzTargets.h"
#include "Seeds.h"

namespace {

QByteArray mutate(QByteArray in, const QList<QByteArray> &pool, QRandomGenerator &rng)
{
    static const QByteArray tokens[] = {"=ybegin ", "=ypart begin=", "=yend size=", " part=", " total=",
                                        " size=", " begin=", " end=", " pcrc32=", " crc32=", "\r\n", "\n",
                                        "=", "==", "\r\n..", "begin 644 ", "end\r\n", "`\r\n", "M", "====",
                                        "99999999999999999999", "-1", " name="};
    const int steps = 1 + int(rng.bounded(4));
    for (int s = 0; s < steps; ++s) {
        const int at = in.isEmpty() ? 0 : int(rng.bounded(in.size() + 1));
        switch (rng.bounded(7)) {
        case 0: // flip a bit
            if (!in.isEmpty())
                in[std::min(at, int(in.size()) - 1)] ^= char(1 << rng.bounded(8));
            break;
        case 1: // random byte
            in.insert(at, char(rng.bounded(256)));
            break;
        case 2: // drop a run
            in.remove(at, int(rng.bounded(1, 64)));
            break;
        case 3: // a keyword
            in.insert(at, tokens[rng.bounded(int(std::size(tokens)))]);
            break;
        case 4: // truncate
            in.truncate(at);
            break;
        case 5: { // splice another seed
            const QByteArray &o = pool[rng.bounded(pool.size())];
            const int from = int(rng.bounded(o.size() + 1));
            in.insert(at, o.mid(from, int(rng.bounded(1, 200))));
            break;
        }
        default: // duplicate a run
            in.insert(at, in.mid(int(rng.bounded(in.size() + 1)), int(rng.bounded(1, 300))));
            break;
        }
    }
    return in;
}

void runAll(const QByteArray &input)
{
    // exactly sized, so ASan sees any overread
    std::unique_ptr<uint8_t[]> buf(new uint8_t[size_t(input.size()) + (input.isEmpty() ? 1 : 0)]);
    memcpy(buf.get(), input.constData(), size_t(input.size()));
    fuzz::fuzzYenc(buf.get(), size_t(input.size()));
    fuzz::fuzzUu(buf.get(), size_t(input.size()));
    fuzz::fuzzMime(buf.get(), size_t(input.size()));
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const QList<QByteArray> pool = fuzz::seeds();
    const int wsAt = int(args.indexOf(QStringLiteral("--write-seeds")));
    if (wsAt > 0 && wsAt + 1 < args.size()) {
        const QDir dir(args[wsAt + 1]);
        dir.mkpath(QStringLiteral("."));
        for (int i = 0; i < pool.size(); ++i) {
            QFile f(dir.filePath(QStringLiteral("seed%1").arg(i)));
            if (!f.open(QIODevice::WriteOnly) || f.write(pool[i]) != pool[i].size())
                return 1;
        }
        return 0;
    }
    const double seconds = args.size() > 1 ? args[1].toDouble() : 10.0;
    QRandomGenerator rng(20261123);
    QElapsedTimer t;
    t.start();
    qint64 runs = 0;
    for (const QByteArray &s : pool) {
        runAll(s);
        ++runs;
    }
    QList<QByteArray> live = pool;
    while (t.elapsed() < qint64(seconds * 1000)) {
        QByteArray in = mutate(live[rng.bounded(live.size())], pool, rng);
        if (in.size() > (1 << 16))
            in.truncate(1 << 16);
        runAll(in);
        ++runs;
        if (rng.bounded(8) == 0) // keep some mutants to mutate further
            live[rng.bounded(live.size())] = in;
        if (rng.bounded(64) == 0)
            live = pool;
    }
    std::printf("%lld inputs through the yEnc, uuencode and MIME decoders, no fault\n", (long long)runs);
    return 0;
}
