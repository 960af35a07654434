#pragma once
// Files the tests write and read back.
#include <QFile>
#include <QStringList>

namespace testfile {

inline bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

inline QByteArray readFile(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// The non-empty lines of a text file (CR LF or LF), as the program wrote them.
inline QStringList lines(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    QStringList out;
    for (const QByteArray &l : f.readAll().split('\n'))
        if (!l.isEmpty() && l != "\r")
            out << QString::fromUtf8(l.endsWith('\r') ? l.chopped(1) : l);
    return out;
}

} // namespace testfile
