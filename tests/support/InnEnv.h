#pragma once
// Where the test INN server listens (see tests/harness/inn.sh), and a way to post to it.
#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QTemporaryFile>

namespace inn {

inline int base() { return qEnvironmentVariableIsSet("ND_INN_BASE") ? qEnvironmentVariableIntValue("ND_INN_BASE") : 11930; }
inline int portOpen() { return base() + 1; }      // anonymous, posting allowed
inline int portAuth() { return base() + 2; }      // AUTHINFO tester / s3cret|pw
inline int portNoPost() { return base() + 3; }    // read only (greeting 201)
inline QString authUser() { return QStringLiteral("tester"); }
inline QString authPassword() { return QStringLiteral("s3cret|pw"); }
inline QString server(int port) { return QStringLiteral("127.0.0.1:%1").arg(port); }
inline QString dir() { return qEnvironmentVariable("ND_INN_DIR"); }
inline QString script() { return qEnvironmentVariable("ND_INN_SCRIPT"); }

// Posts one article (headers, blank line, body; LF or CR LF) through the open reader.
// Returns the server's answer line, or an empty text on failure.
inline QString post(const QByteArray &article, int port = portOpen())
{
    QTemporaryFile f;
    if (!f.open())
        return QString();
    f.write(article);
    f.flush();
    QProcess p;
    p.start(QStringLiteral("bash"), {script(), QStringLiteral("post"), dir(), QString::number(port), f.fileName()});
    if (!p.waitForFinished(60000) || p.exitCode() != 0)
        return QString();
    return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
}

// Runs one command of the harness script (newgroup, start-reader, ...) with the server's
// directory as its first argument; true when it succeeded.
inline bool harness(const QString &command, const QStringList &args)
{
    QProcess p;
    p.start(QStringLiteral("bash"), QStringList{script(), command, dir()} + args);
    return p.waitForFinished(60000) && p.exitCode() == 0;
}

inline bool newGroup(const QString &name) { return harness(QStringLiteral("newgroup"), {name}); }

} // namespace inn
