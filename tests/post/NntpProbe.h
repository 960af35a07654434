#pragma once
// A small blocking NNTP reader for checking what a server holds, independent of the program's
// own transport.
#include <QByteArray>
#include <QList>
#include <QPair>
#include <QTcpSocket>

class NntpProbe {
public:
    explicit NntpProbe(int port)
    {
        m_s.connectToHost(QStringLiteral("127.0.0.1"), quint16(port));
        m_ok = m_s.waitForConnected(10000) && line().startsWith('2');
    }
    bool ok() const { return m_ok; }

    // Status line of a command.
    QByteArray command(const QByteArray &cmd)
    {
        m_s.write(cmd + "\r\n");
        return line();
    }
    // Lines of a multi-line answer, dot-unstuffed, without the final ".".
    QList<QByteArray> multiLine()
    {
        QList<QByteArray> out;
        for (;;) {
            QByteArray l = line();
            if (l == "." || l.isNull())
                break;
            if (l.startsWith(".."))
                l.remove(0, 1);
            out << l;
        }
        return out;
    }
    // Article numbers whose Subject is exactly `subject` in `group`.
    QList<qint64> findBySubject(const QByteArray &group, const QByteArray &subject)
    {
        QList<qint64> found;
        const QList<QByteArray> g = command("GROUP " + group).split(' ');
        if (g.size() < 4 || g[0] != "211")
            return found;
        if (!command("OVER " + g[2] + "-" + g[3]).startsWith("224"))
            return found;
        for (const QByteArray &l : multiLine()) {
            const QList<QByteArray> f = l.split('\t');
            if (f.size() > 1 && f[1] == subject)
                found << f[0].toLongLong();
        }
        return found;
    }
    // The whole article (headers, blank line, body) with CR LF line ends; empty when missing.
    QByteArray article(qint64 number)
    {
        if (!command("ARTICLE " + QByteArray::number(number)).startsWith("220"))
            return {};
        QByteArray out;
        for (const QByteArray &l : multiLine())
            out += l + "\r\n";
        return out;
    }
    static QByteArray bodyOf(const QByteArray &article)
    {
        const qsizetype cut = article.indexOf("\r\n\r\n");
        return cut < 0 ? QByteArray() : article.mid(cut + 4);
    }
    static QList<QPair<QByteArray, QByteArray>> headersOf(const QByteArray &article)
    {
        QList<QPair<QByteArray, QByteArray>> out;
        const qsizetype cut = article.indexOf("\r\n\r\n");
        for (const QByteArray &l : article.left(cut).split('\n')) {
            const QByteArray t = l.endsWith('\r') ? l.chopped(1) : l;
            if ((t.startsWith(' ') || t.startsWith('\t')) && !out.isEmpty()) {
                out.last().second += "\r\n" + t;
                continue;
            }
            const qsizetype colon = t.indexOf(':');
            if (colon > 0)
                out << qMakePair(t.left(colon), t.mid(colon + 1).trimmed());
        }
        return out;
    }
    static QByteArray header(const QByteArray &article, const QByteArray &name)
    {
        for (const auto &h : headersOf(article))
            if (h.first.compare(name, Qt::CaseInsensitive) == 0)
                return h.second;
        return {};
    }

private:
    QByteArray line()
    {
        while (!m_s.canReadLine())
            if (!m_s.waitForReadyRead(10000))
                return QByteArray();
        QByteArray l = m_s.readLine();
        while (l.endsWith('\n') || l.endsWith('\r'))
            l.chop(1);
        return l;
    }
    QTcpSocket m_s;
    bool m_ok = false;
};
