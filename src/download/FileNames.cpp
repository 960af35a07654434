#include "download/FileNames.h"

#include <QFileInfo>
#include "news/transport/NewsMessage.h"

namespace nd {

namespace {

QString cutBefore(const QString &s, QChar c)
{
    const qsizetype i = s.indexOf(c);
    return i < 0 ? s : s.left(i);
}

bool isDigit(QChar c) { return c >= QLatin1Char('0') && c <= QLatin1Char('9'); }

} // namespace

QString cleanAttachmentName(QString name)
{
    name.replace(QLatin1Char('/'), QLatin1Char('_'));
    name.replace(QLatin1Char('\\'), QLatin1Char('_'));
    name.replace(QLatin1Char('*'), QLatin1Char('_'));
    name.remove(QLatin1Char('"'));
    name.replace(QLatin1Char('|'), QLatin1Char('_'));
    name.replace(QLatin1Char(':'), QLatin1Char('_'));
    return name;
}

AttachmentNameResult findAttachmentName(const QString &text, bool isMime, const std::function<bool()> &stop,
                                        bool bytesAsLatin1)
{
    AttachmentNameResult r;
    QString name = text;
    bool nothing = false;   // a rule that finds nothing leaves no name

    if (isMime) {
        const qsizetype f = name.indexOf(QLatin1String("filename="));
        if (f >= 0)
            name = name.mid(f + 9);
        if (name.startsWith(QLatin1Char('"')))
            name.remove(0, 1);
        name = cutBefore(name, QLatin1Char('"'));
        name = cutBefore(name, QLatin1Char('\r'));
    } else if (text.contains(QLatin1String("=ybegin")) && text.contains(QLatin1String("line="))
               && text.contains(QLatin1String("size="))) {
        const qsizetype n = name.indexOf(QLatin1String("name="));
        if (n < 0) {
            nothing = true;
        } else {
            name = name.mid(n + 5);
            name = cutBefore(name, QLatin1Char('\r'));
            name = cutBefore(name, QLatin1Char('\n'));
        }
        r.yenc = true;
    } else {
        // uuencode: "begin" + one separator + a mode digit; other words starting with "begin"
        // are passed over.
        for (;;) {
            if (stop && stop())
                break;
            const qsizetype p = name.indexOf(QLatin1String("BEGIN"), 0, Qt::CaseInsensitive);
            if (p < 0)
                break;
            const qsizetype c = p + 6;
            if (c >= name.size() || !isDigit(name.at(c))) {
                name = name.mid(p + 7);
                continue;
            }
            name = name.mid(c);
            const qsizetype sp = name.indexOf(QLatin1Char(' '));
            name = name.mid(sp + 1);
            name = cutBefore(name, QLatin1Char('\r'));
            name = cutBefore(name, QLatin1Char('\n'));
            r.uuencoded = true;
            break;
        }
        nothing = !r.uuencoded;
    }

    // Every rule only ever shortens the text, so an unchanged length means nothing was found.
    if (nothing || name.size() == text.size())
        name.clear();
    // the name as the user reads it: its bytes as UTF-8 where they are, before it is measured
    if (bytesAsLatin1 && !name.isEmpty())
        name = textFromBytes(name.toLatin1());
    if (nameLength(name) > MaxAttachmentNameLength)
        name.clear();
    r.name = plainFileName(cleanAttachmentName(name));
    return r;
}

qsizetype nameLength(const QString &name)
{
    qsizetype n = 0;
    for (QChar c : name)
        n += c.isLowSurrogate() ? 0 : 1;
    return n;
}

bool nameTaken(const QString &dir, const QString &name)
{
    for (const QString &path : {dir + name, dir + name + QStringLiteral(".damaged")}) {
        const QFileInfo f(path);
        if (f.exists() || f.isSymLink())
            return true;
    }
    return false;
}

QString plainFileName(const QString &name)
{
    QString n;
    n.reserve(name.size());
    for (QChar c : name) {
        if (c == QLatin1Char('/') || c == QLatin1Char('\\'))
            n.clear();               // only what follows the last directory separator
        else if (c.unicode() < 0x20 || c.unicode() == 0x7f || c.category() == QChar::Other_Control)
            continue;
        else
            n.append(c);
    }
    if (n == QLatin1String(".") || n == QLatin1String(".."))
        n.prepend(QLatin1Char('_'));
    return n;
}

QString savedFileName(QString name)
{
    for (QChar sep : {QLatin1Char('\\'), QLatin1Char('/'), QLatin1Char(':')}) {
        const qsizetype i = name.lastIndexOf(sep);
        if (i >= 0)
            name = name.mid(i + 1);
    }
    name = cutBefore(name, QLatin1Char(';'));
    return plainFileName(name);
}

QString tempFileNameFor(double random01)
{
    if (!(random01 >= 0.0))
        random01 = 0.0;
    if (random01 >= 1.0)
        random01 = 0.999999999;
    return QString::number(qint64(random01 * 255996.0) + 100000) + QLatin1String(".tmp");
}

QString nextTempFileName(const std::function<double()> &random01, const std::function<bool(const QString &)> &exists)
{
    QString name = tempFileNameFor(random01());
    // 255996 names: a free one turns up quickly unless the directory is full of them.
    for (int tries = 0; exists && exists(name) && tries < 100000; ++tries)
        name = tempFileNameFor(random01());
    return name;
}

} // namespace nd
