#pragma once
// Posts made with real posting tools on the test INN server: nyuu (yEnc), uuencode + inews,
// mpack (MIME base64). Used by the end-to-end download tests.
#include "decoder/DecoderTestUtil.h"
#include "support/InnEnv.h"
#include "support/TextFile.h"

#include <QBuffer>
#include <QDir>
#include <QStandardPaths>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>

namespace posts {

inline QString nyuuPath()
{
    const QString p = qEnvironmentVariable("ND_BINARY_DIR") + QStringLiteral("/tools/node_modules/.bin/nyuu");
    return QFileInfo(p).isExecutable() ? p : QString();
}

inline bool toolsPresent(QString *missing)
{
    if (nyuuPath().isEmpty()) {
        *missing = QStringLiteral("nyuu (scripts/install-deps.sh puts it under build/tools)");
        return false;
    }
    for (const char *tool : {"inews", "mpack", "uuencode"})
        if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty()
            && !QFileInfo(QStringLiteral("/usr/bin/") + QString::fromLatin1(tool)).isExecutable()) {
            *missing = QString::fromLatin1(tool);
            return false;
        }
    return true;
}

using testutil::randomBytes;
using testfile::readFile;
using testfile::writeFile;

inline bool run(const QString &program, const QStringList &args, const QString &workDir,
                const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment(), QByteArray *out = nullptr)
{
    QProcess p;
    p.setWorkingDirectory(workDir);
    p.setProcessEnvironment(env);
    p.start(program, args);
    if (!p.waitForFinished(300000)) {
        p.kill();
        p.waitForFinished();
        return false;
    }
    if (out)
        *out = p.readAllStandardOutput();
    if (p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        qWarning("%s failed: %s", qPrintable(program), p.readAllStandardError().constData());
        return false;
    }
    return true;
}

inline bool newGroup(const QString &group)
{
    return run(QStringLiteral("bash"), {inn::script(), QStringLiteral("newgroup"), inn::dir(), group}, QDir::tempPath());
}

// A yEnc post of one file by nyuu; articleSize like "16K". The NZB goes to nzbPath when given.
inline bool nyuu(const QString &file, const QString &group, const QString &articleSize, const QString &nzbPath = QString())
{
    QStringList a = QStringLiteral("-h 127.0.0.1 -n 1 -q --check-tries 0").split(QLatin1Char(' '));
    a << QStringLiteral("-P") << QString::number(inn::portOpen()) << QStringLiteral("-a") << articleSize << QStringLiteral("-g") << group;
    if (!nzbPath.isEmpty())
        a << QStringLiteral("-O") << QStringLiteral("-o") << nzbPath;
    a << QFileInfo(file).fileName();
    return run(nyuuPath(), a, QFileInfo(file).absolutePath());
}

// inews (and mpack, which calls inews) post through the test reader.
inline QProcessEnvironment newsEnv(const QString &wrapDir)
{
    QDir().mkpath(wrapDir);
    const QString wrapper = wrapDir + QStringLiteral("/inews");
    writeFile(wrapper, QStringLiteral("#!/bin/sh\nexec /usr/bin/inews -p %1 \"$@\"\n").arg(inn::portOpen()).toUtf8());
    QFile::setPermissions(wrapper, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("NNTPSERVER"), QStringLiteral("127.0.0.1"));
    env.insert(QStringLiteral("PATH"), wrapDir + QLatin1Char(':') + env.value(QStringLiteral("PATH")));
    env.remove(QStringLiteral("INNCONF"));
    return env;
}

inline bool inews(const QByteArray &article, const QString &workDir)
{
    const QString path = workDir + QStringLiteral("/article.txt");
    if (!writeFile(path, article))
        return false;
    // the wrapper adds the reader's port
    const QString wrap = workDir + QStringLiteral("/wrap");
    const QProcessEnvironment env = newsEnv(wrap);
    return run(wrap + QStringLiteral("/inews"), {QStringLiteral("-h"), path}, workDir, env);
}

// uuencode the file and post it split into `parts` articles with subjects "<prefix> (NN/parts)".
inline bool uuencodeSplit(const QString &file, const QString &group, const QString &subjectPrefix, int parts)
{
    const QString dir = QFileInfo(file).absolutePath();
    QByteArray encoded;
    if (!run(QStringLiteral("uuencode"), {file, QFileInfo(file).fileName()}, dir, QProcessEnvironment::systemEnvironment(), &encoded))
        return false;
    QList<QByteArray> lines = encoded.split('\n');
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    const int per = (int(lines.size()) + parts - 1) / parts;
    for (int k = 1; k <= parts; ++k) {
        QByteArray body;
        for (int i = (k - 1) * per; i < qMin<int>(int(lines.size()), k * per); ++i)
            body += lines[i] + '\n';
        const QByteArray subject = subjectPrefix.toUtf8() + " (" + QByteArray::number(k).rightJustified(2, '0') + '/'
                                   + QByteArray::number(parts).rightJustified(2, '0') + ')';
        const QByteArray art = "From: Poster <poster@example.org>\nNewsgroups: " + group.toUtf8() + "\nSubject: " + subject
                               + "\n\n" + body;
        if (!inews(art, dir))
            return false;
    }
    return true;
}

inline bool mpack(const QString &file, const QString &group, const QString &subject)
{
    const QString dir = QFileInfo(file).absolutePath();
    return run(QStringLiteral("mpack"), {QStringLiteral("-s"), subject, QStringLiteral("-n"), group, QFileInfo(file).fileName()},
               dir, newsEnv(dir + QStringLiteral("/wrap")));
}

inline QByteArray picture()
{
    QImage img(96, 64, QImage::Format_RGB32);
    for (int y = 0; y < img.height(); ++y)
        for (int x = 0; x < img.width(); ++x)
            img.setPixel(x, y, qRgb(x * 2, y * 3, (x * y) & 255));
    QByteArray png;
    QBuffer b(&png);
    b.open(QIODevice::WriteOnly);
    img.save(&b, "PNG");
    return png;
}

// Removes an article from the server (as a cancel would).
inline bool cancel(const QString &messageId)
{
    const QString cmd = QStringLiteral("su news -s /bin/sh -c \"INNCONF='%1/etc-innd/inn.conf' /usr/lib/news/bin/ctlinnd -s cancel '%2'\"")
                            .arg(QDir(inn::dir()).absolutePath(), messageId);
    return run(QStringLiteral("bash"), {QStringLiteral("-c"), cmd}, QDir::tempPath());
}

} // namespace posts
