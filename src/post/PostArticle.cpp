#include "post/PostArticle.h"

#include <QFile>
#include <QLocale>
#include <QRegularExpression>
#include <QStringList>

namespace PostArticle {

namespace {

bool isAscii(const QString &s)
{
    for (QChar c : s)
        if (c.unicode() > 0x7E || (c.unicode() < 0x20 && c != QLatin1Char('\t')))
            return false;
    return true;
}

// Header values are one line: line breaks typed into a field become blanks.
QString oneLine(QString s)
{
    s.replace(QLatin1String("\r\n"), QLatin1String(" "));
    s.replace(QLatin1Char('\r'), QLatin1Char(' '));
    s.replace(QLatin1Char('\n'), QLatin1Char(' '));
    return s;
}

} // namespace

QString encodeHeaderText(const QString &text)
{
    const QString t = oneLine(text);
    if (isAscii(t))
        return t;
    // 75 characters per word: "=?UTF-8?B?" + payload + "?=" leaves 63, so 45 bytes (60 base64 chars).
    constexpr int maxBytes = 45;
    QStringList words;
    QByteArray chunk;
    for (qsizetype i = 0; i < t.size();) {
        // one code point at a time, so no character is split between two words
        const qsizetype n = (t[i].isHighSurrogate() && i + 1 < t.size()) ? 2 : 1;
        const QByteArray bytes = t.mid(i, n).toUtf8();
        if (chunk.size() + bytes.size() > maxBytes) {
            words << QStringLiteral("=?UTF-8?B?") + QString::fromLatin1(chunk.toBase64()) + QStringLiteral("?=");
            chunk.clear();
        }
        chunk += bytes;
        i += n;
    }
    if (!chunk.isEmpty())
        words << QStringLiteral("=?UTF-8?B?") + QString::fromLatin1(chunk.toBase64()) + QStringLiteral("?=");
    return words.join(QStringLiteral("\r\n "));
}

QString fromHeader(const QString &name, const QString &email)
{
    const QString n = oneLine(name).trimmed();
    const QString e = oneLine(email).trimmed();
    QString phrase;
    if (!isAscii(n)) {
        phrase = encodeHeaderText(n);
    } else if (n.contains(QRegularExpression(QStringLiteral("[()<>\\[\\]:;@\\\\,\"]")))) {
        QString q = n;
        q.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
        q.replace(QLatin1Char('"'), QLatin1String("\\\""));
        phrase = QLatin1Char('"') + q + QLatin1Char('"');
    } else {
        phrase = n;
    }
    return phrase + QStringLiteral(" <") + e + QLatin1Char('>');
}

HeaderList headers(const Fields &f)
{
    HeaderList h;
    h << qMakePair(QStringLiteral("From"), fromHeader(f.name, f.email));
    h << qMakePair(QStringLiteral("Newsgroups"), oneLine(f.group).trimmed());
    h << qMakePair(QStringLiteral("Subject"), encodeHeaderText(f.subject));
    h << qMakePair(QStringLiteral("Organization"), QString::fromLatin1(Organization));
    if (!f.references.trimmed().isEmpty())
        h << qMakePair(QStringLiteral("References"), oneLine(f.references).simplified());
    if (!f.inReplyTo.trimmed().isEmpty())
        h << qMakePair(QStringLiteral("In-Reply-To"), oneLine(f.inReplyTo).trimmed());
    h << qMakePair(QStringLiteral("MIME-Version"), QStringLiteral("1.0"));
    h << qMakePair(QStringLiteral("Content-Type"), QStringLiteral("text/plain; charset=UTF-8"));
    h << qMakePair(QStringLiteral("Content-Transfer-Encoding"), QStringLiteral("8bit"));
    return h;
}

QByteArray body(const QString &text)
{
    QString t = text;
    t.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    t.replace(QLatin1Char('\r'), QLatin1Char('\n'));
    QByteArray out = t.toUtf8();
    out.replace("\n", "\r\n");
    if (!out.isEmpty() && !out.endsWith("\r\n"))
        out += "\r\n";
    return out;
}

QByteArray build(const Fields &f)
{
    QByteArray out;
    for (const auto &h : headers(f)) {
        out += h.first.toLatin1();
        out += ": ";
        out += h.second.toUtf8();
        out += "\r\n";
    }
    out += "\r\n";
    out += body(f.body);
    return out;
}

bool looksLikeEmail(const QString &email)
{
    return email.contains(QLatin1Char('@')) && email.contains(QLatin1Char('.'));
}

QString logTime(const QDateTime &when)
{
    const QLocale loc = QLocale::system();
    return loc.toString(when.date(), QLocale::ShortFormat) + QLatin1Char(' ')
        + when.time().toString(QStringLiteral("HH:mm:ss"));
}

QString successLine(const QDateTime &when, const QString &server, const QString &group, const QString &subject)
{
    return logTime(when) + QStringLiteral(" - ") + QStringLiteral("Posted:") + server + QStringLiteral(" (")
        + group + QStringLiteral(")") + QStringLiteral(" ") + oneLine(subject);
}

QString failureLine(const QDateTime &when, const QString &server, const QString &subject)
{
    return logTime(when) + QStringLiteral(" - ") + QStringLiteral("Unable to Post to ") + server
        + QStringLiteral(" ") + oneLine(subject);
}

bool appendLog(const QString &path, const QString &line)
{
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Append))
        return false;
    const QByteArray bytes = line.toUtf8() + "\r\n";
    return f.write(bytes) == bytes.size();
}

QString replySubject(const QString &subject)
{
    return QStringLiteral("Re : ") + subject;
}

QString replyText(const QString &textLine, const QString &quoted)
{
    return QStringLiteral("\r\n\r\n") + textLine + QStringLiteral("\r\n") + QString(40, QLatin1Char('-'))
        + QStringLiteral("\r\n") + quoted.left(ReplyQuoteLength);
}

QString replyReferences(const QString &references, const QString &messageId)
{
    QString r = oneLine(references).simplified();
    const QString id = messageId.trimmed();
    if (!id.isEmpty() && !r.split(QLatin1Char(' ')).contains(id))
        r = r.isEmpty() ? id : r + QLatin1Char(' ') + id;
    return r;
}

} // namespace PostArticle
