#pragma once
// A scripted news server holding one group and the articles a test puts in it: GROUP answers
// with the group's range, ARTICLE n with article n, a server fault for the numbers in failing
// and 430 for any other number. Every other command goes to the plain scripted server.
#include "support/ScriptedNntpServer.h"

#include <QMap>
#include <QSet>

class ArticleServer : public ScriptedNntpServer {
public:
    QMap<qint64, QByteArray> articles;   // number -> the whole answer (see article())
    QSet<qint64> failing;                // numbers answered with "503 program fault"
    QByteArray groupRange = "9 1 9";     // count, first, last

    ArticleServer()
    {
        respond = [this, base = respond](const QByteArray &cmd) -> QByteArray {
            const QList<QByteArray> f = cmd.split(' ');
            if (f[0] == "GROUP")
                return "211 " + groupRange + " " + f.value(1) + "\r\n";
            if (f[0] != "ARTICLE")
                return base(cmd);
            const qint64 n = f.value(1).toLongLong();
            if (failing.contains(n))
                return "503 program fault\r\n";
            return articles.value(n, "430 no such article\r\n");
        };
    }

    // The answer to ARTICLE n: the 220 line, From, Subject and Message-ID ("<m" n "@x>"), and the
    // body dot-stuffed as a server sends it.
    static QByteArray article(qint64 n, const QByteArray &subject, const QByteArray &body,
                              const QByteArray &from = "Ann <ann@example.org>")
    {
        QByteArray stuffed;
        for (const QByteArray &line : body.split('\n')) {
            if (line.startsWith('.'))
                stuffed += '.';
            stuffed += line + '\n';
        }
        stuffed.chop(1);
        const QByteArray id = "<m" + QByteArray::number(n) + "@x>";
        return "220 " + QByteArray::number(n) + " " + id + " article\r\nFrom: " + from + "\r\nSubject: " + subject
               + "\r\nMessage-ID: " + id + "\r\n\r\n" + stuffed + ".\r\n";
    }
};
