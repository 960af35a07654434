#include "harvest/AddressRules.h"

namespace harvest {

QString cutAddress(QString a)
{
    const qsizetype sp = a.indexOf(QLatin1Char(' '));
    if (sp >= 0)
        a.truncate(sp);
    for (QChar c : {QChar(13), QChar(11), QChar(10), QChar('<'), QChar('>'), QChar(')'), QChar('"')}) {
        const qsizetype p = a.indexOf(c);
        if (p >= 0)
            a.truncate(p);
    }
    return a.trimmed();
}

static bool isHttp(const QString &upper)
{
    return upper.contains(QLatin1String("HTTP://")) || upper.contains(QLatin1String("HTTPS://"));
}

// First position of an HTTP or HTTPS address in the upper-cased text, -1 when none.
static qsizetype firstHttp(const QString &upper)
{
    const qsizetype a = upper.indexOf(QLatin1String("HTTP://"));
    const qsizetype b = upper.indexOf(QLatin1String("HTTPS://"));
    if (a < 0)
        return b;
    if (b < 0)
        return a;
    return qMin(a, b);
}

void findWebAddresses(const QString &textIn, const WebSwitches &sw,
                      const std::function<bool(const QString &)> &alreadyListed,
                      const std::function<bool(const QString &)> &add)
{
    QString text = textIn;
    for (;;) {
        const QString upper = text.toUpper();
        QString address;
        bool stopAfter = false;
        const qsizetype h = firstHttp(upper);
        if (h >= 0) {
            address = text.mid(h);
            // break this occurrence only: an FTP address before it is still to come
            text = text.left(h) + text.mid(h + 1);
            stopAfter = !sw.webSave;
        } else {
            const qsizetype f = upper.indexOf(QLatin1String("FTP://"));
            if (f < 0)
                return;
            address = text.mid(f);
            text = text.left(f) + text.mid(f + 1);
            stopAfter = !sw.ftpSave;
        }
        if (stopAfter)
            return;
        address = cutAddress(address);
        if (address.isEmpty() || alreadyListed(address))
            continue;
        const QString up = address.toUpper();
        const bool keep = (up.contains(QLatin1String("FTP://")) && sw.saveFtp) || (isHttp(up) && sw.saveHttp);
        if (!keep)
            continue;
        if (!add(address))
            return;
    }
}

bool worthScanning(const QString &text, bool saveHttp, bool saveFtp)
{
    if (saveHttp && (text.contains(QLatin1String("HTTP://"), Qt::CaseInsensitive)
                     || text.contains(QLatin1String("HTTPS://"), Qt::CaseInsensitive)))
        return true;
    return saveFtp && text.contains(QLatin1String("FTP://"), Qt::CaseInsensitive);
}

static QByteArray escaped(const QString &s)
{
    return s.toHtmlEscaped().replace(QLatin1Char('\''), QLatin1String("&#39;")).toUtf8();
}

QByteArray linkLine(const QString &address)
{
    const QByteArray a = escaped(address);
    return "<a href = \"" + a + "\">" + a + "</a><br>\r\n";
}

bool pageHoldsAddress(const QByteArray &page, const QString &address)
{
    const QByteArray a = escaped(address);
    qsizetype start = 0;
    while (start < page.size()) {
        qsizetype end = page.indexOf('\n', start);
        if (end < 0)
            end = page.size();
        if (QByteArrayView(page.constData() + start, end - start).contains(a))
            return true;
        start = end + 1;
    }
    return false;
}

QString cleanEmailAddress(const QString &from)
{
    QString v = from;
    const qsizetype lt = v.indexOf(QLatin1Char('<'));
    if (lt < 0) {
        const qsizetype par = v.indexOf(QLatin1Char('('));
        if (par >= 0)
            v.truncate(par);
    } else {
        v = v.mid(lt + 1);
        const qsizetype gt = v.indexOf(QLatin1Char('>'));
        if (gt >= 0)
            v.truncate(gt);
    }
    const qsizetype sp = v.indexOf(QLatin1Char(' '));
    if (sp >= 0)
        v = v.mid(sp + 1);
    const qsizetype at = v.indexOf(QLatin1Char('@'));
    const QString up = v.toUpper();
    if (at <= 0 || at == v.size() - 1 || up.contains(QLatin1String("SPAM")) || up.contains(QLatin1Char('*'))
        || up.contains(QLatin1String("REMOVE")) || up.contains(QLatin1String("FAKE")))
        return QString();
    return v;
}

bool emailWanted(const QString &address, const QString &searchText)
{
    if (address.isEmpty() || address.startsWith(QLatin1Char('.')))
        return false;
    return address.toUpper().contains(searchText.toUpper());
}

QStringList newsServersInPath(const QString &path)
{
    QStringList out;
    for (QString piece : path.split(QLatin1Char('!'))) {
        if (!piece.contains(QLatin1Char('.')))
            continue;
        piece.remove(QStringLiteral(".POSTED"));
        piece.remove(QStringLiteral(".MISMATCH"));
        piece = piece.trimmed();
        if (piece.contains(QLatin1Char('.')))
            out << piece;
    }
    return out;
}

QString uncheckedServerItem(const QString &name)
{
    return QStringLiteral("????? ???    ") + name;
}

} // namespace harvest
