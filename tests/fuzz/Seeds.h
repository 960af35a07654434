#pragma once
// Seed inputs for the decoder fuzzers: small valid and nearly valid texts.

#include <QList>

#include "decoder/DecoderTestUtil.h"

namespace fuzz {

inline QList<QByteArray> seeds()
{
    using namespace testutil;
    const QByteArray data = randomBytes(700, 1);
    const QByteArray small = randomBytes(40, 2);
    QByteArray b64;
    const QByteArray all = data.toBase64();
    for (int i = 0; i < all.size(); i += 76)
        b64 += all.mid(i, 76) + "\r\n";
    return {
        yencSingle(small, "a.bin", 16),
        lf(yencSingle(data, "b.bin", 64)),
        yencPart(data, "c.bin", 2, 3, 200, 500, 32) + "\r\ntext\r\n" + yencPart(data, "c.bin", 1, 3, 0, 200, 32),
        yencPart(data, "d.bin", 3, 3, 500, 700, 128).replace("pcrc32=", "pcrc32=1"),
        QByteArray("=ybegin part=1 total=2 line=128 size=10 name=x\r\n=ypart begin=1 end=5\r\n..=J=}\r\n=yend size=5 part=1 pcrc32=12345678\r\n"),
        uuencode(small, "u.bin"),
        "Text first\r\n" + lf(uuencode(data, "v.bin", false)) + "more\r\n",
        "begin-base64 644 w\r\n" + small.toBase64() + "\r\n====\r\n",
        "Content-Type: application/octet-stream\r\nContent-Transfer-Encoding: base64\r\n\r\n" + b64 + "--bound--\r\n",
        QByteArray("plain text, not encoded\r\n\r\n"),
    };
}

} // namespace fuzz
