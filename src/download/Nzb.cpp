#include "download/Nzb.h"

#include <QFile>
#include <QRegularExpression>
#include <QSaveFile>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <algorithm>

namespace nzb {

namespace {

const QString NzbNamespace = QStringLiteral("http://www.newzbin.com/DTD/2003/nzb");

QString at(const QXmlStreamReader &x)
{
    return QStringLiteral("line %1, column %2").arg(x.lineNumber()).arg(x.columnNumber());
}

QString bareMessageId(QString id)
{
    id = id.trimmed();
    if (id.startsWith(QLatin1Char('<')) && id.endsWith(QLatin1Char('>')))
        id = id.mid(1, id.size() - 2);
    return id;
}

// A Message-ID as it may go on a command line to the server: no blanks, no controls, an "@".
bool usableMessageId(const QString &id)
{
    if (id.isEmpty() || id.size() > 250 || !id.contains(QLatin1Char('@')))
        return false;
    for (QChar c : id)
        if (c.unicode() <= 0x20 || c.unicode() == 0x7F || c == QLatin1Char('<') || c == QLatin1Char('>'))
            return false;
    return true;
}

class Reader {
public:
    explicit Reader(const QByteArray &xml) : x(xml) {}

    ParseResult run()
    {
        ParseResult r;
        if (!x.readNextStartElement()) {
            r.error = describeXmlError();
            return r;
        }
        if (x.name() != QLatin1String("nzb")) {
            r.error = QStringLiteral("This is not an NZB file (it starts with <%1>).").arg(x.name().toString());
            return r;
        }
        while (m_error.isEmpty() && x.readNextStartElement()) {
            if (x.name() == QLatin1String("head"))
                readHead(r.document);
            else if (x.name() == QLatin1String("file"))
                readFile(r.document);
            else
                x.skipCurrentElement();
        }
        if (m_error.isEmpty() && x.hasError())
            m_error = describeXmlError();
        if (m_error.isEmpty() && r.document.files.isEmpty())
            m_error = QStringLiteral("The NZB file lists no files.");
        r.error = m_error;
        if (!r.ok())
            r.document = Document();
        return r;
    }

private:
    QString describeXmlError() const
    {
        return QStringLiteral("The NZB file is damaged at %1: %2").arg(at(x), x.errorString());
    }

    void fail(const QString &what)
    {
        if (m_error.isEmpty())
            m_error = QStringLiteral("The NZB file is damaged at %1: %2").arg(at(x), what);
    }

    void readHead(Document &d)
    {
        while (x.readNextStartElement()) {
            if (x.name() == QLatin1String("meta")) {
                const QString type = x.attributes().value(QLatin1String("type")).toString();
                d.meta.append({type, x.readElementText().trimmed()});
            } else {
                x.skipCurrentElement();
            }
        }
    }

    void readFile(Document &d)
    {
        File f;
        const QXmlStreamAttributes a = x.attributes();
        f.poster = a.value(QLatin1String("poster")).toString();
        f.subject = a.value(QLatin1String("subject")).toString();
        bool ok = false;
        f.date = a.value(QLatin1String("date")).toLongLong(&ok);
        if (!ok || f.date < 0)
            f.date = 0;
        while (m_error.isEmpty() && x.readNextStartElement()) {
            if (x.name() == QLatin1String("groups"))
                readGroups(f);
            else if (x.name() == QLatin1String("segments"))
                readSegments(f);
            else
                x.skipCurrentElement();
        }
        if (!m_error.isEmpty())
            return;
        if (f.segments.isEmpty()) {
            fail(QStringLiteral("the file \"%1\" has no segments").arg(f.subject));
            return;
        }
        std::stable_sort(f.segments.begin(), f.segments.end(),
                         [](const Segment &l, const Segment &r) { return l.number < r.number; });
        f.segments.erase(std::unique(f.segments.begin(), f.segments.end(),
                                     [](const Segment &l, const Segment &r) { return l.number == r.number; }),
                         f.segments.end());
        d.files.append(std::move(f));
    }

    void readGroups(File &f)
    {
        while (x.readNextStartElement()) {
            if (x.name() == QLatin1String("group")) {
                const QString g = x.readElementText().trimmed();
                if (!g.isEmpty())
                    f.groups << g;
            } else {
                x.skipCurrentElement();
            }
        }
    }

    void readSegments(File &f)
    {
        while (m_error.isEmpty() && x.readNextStartElement()) {
            if (x.name() != QLatin1String("segment")) {
                x.skipCurrentElement();
                continue;
            }
            Segment s;
            const QXmlStreamAttributes a = x.attributes();
            bool ok = false;
            s.number = a.value(QLatin1String("number")).toInt(&ok);
            if (!ok || s.number < 1) {
                fail(QStringLiteral("a segment has no valid number"));
                return;
            }
            s.bytes = a.value(QLatin1String("bytes")).toLongLong(&ok);
            if (!ok || s.bytes < 0)
                s.bytes = 0;
            s.messageId = bareMessageId(x.readElementText());
            if (!usableMessageId(s.messageId)) {
                fail(QStringLiteral("segment %1 of \"%2\" has no usable Message-ID").arg(s.number).arg(f.subject));
                return;
            }
            f.segments.append(s);
        }
    }

    QXmlStreamReader x;
    QString m_error;
};

} // namespace

int File::expectedSegments() const
{
    static const QRegularExpression marker(QStringLiteral("\\((\\d{1,9})/(\\d{1,9})\\)"));
    int total = 0;
    auto it = marker.globalMatch(subject);
    while (it.hasNext())
        total = it.next().captured(2).toInt();
    const int highest = segments.isEmpty() ? 0 : segments.last().number;
    return std::max(total, highest);
}

QList<int> File::missingSegments() const
{
    QList<int> missing;
    const int expected = expectedSegments();
    qsizetype i = 0;
    for (int n = 1; n <= expected; ++n) {
        while (i < segments.size() && segments[i].number < n)
            ++i;
        if (i >= segments.size() || segments[i].number != n)
            missing << n;
    }
    return missing;
}

qint64 File::bytes() const
{
    qint64 sum = 0;
    for (const Segment &s : segments)
        sum += s.bytes;
    return sum;
}

QString File::quotedName() const
{
    const qsizetype open = subject.indexOf(QLatin1Char('"'));
    const qsizetype close = open < 0 ? -1 : subject.indexOf(QLatin1Char('"'), open + 1);
    if (close <= open + 1)
        return QString();
    return subject.mid(open + 1, close - open - 1).trimmed();
}

ParseResult parse(const QByteArray &xml)
{
    if (xml.trimmed().isEmpty())
        return {Document(), QStringLiteral("The NZB file is empty.")};
    return Reader(xml).run();
}

ParseResult readFile(const QString &path)
{
    ParseResult r;
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) {
        r.error = QStringLiteral("Cannot read %1: %2").arg(path, f.errorString());
        return r;
    }
    if (f.size() > MaxFileSize) {
        r.error = QStringLiteral("%1 is too large for an NZB file (%2 MiB).").arg(path).arg(f.size() >> 20);
        return r;
    }
    return parse(f.readAll());
}

QByteArray write(const Document &d)
{
    QByteArray out;
    QXmlStreamWriter w(&out);
    w.setAutoFormatting(true);
    w.setAutoFormattingIndent(1);
    w.writeStartDocument();
    w.writeDTD(QStringLiteral("<!DOCTYPE nzb PUBLIC \"-//newzBin//DTD NZB 1.1//EN\" "
                              "\"http://www.newzbin.com/DTD/nzb/nzb-1.1.dtd\">"));
    w.writeDefaultNamespace(NzbNamespace);
    w.writeStartElement(QStringLiteral("nzb"));
    if (!d.meta.isEmpty()) {
        w.writeStartElement(QStringLiteral("head"));
        for (const auto &m : d.meta) {
            w.writeStartElement(QStringLiteral("meta"));
            w.writeAttribute(QStringLiteral("type"), m.first);
            w.writeCharacters(m.second);
            w.writeEndElement();
        }
        w.writeEndElement();
    }
    for (const File &f : d.files) {
        w.writeStartElement(QStringLiteral("file"));
        w.writeAttribute(QStringLiteral("poster"), f.poster);
        w.writeAttribute(QStringLiteral("date"), QString::number(f.date));
        w.writeAttribute(QStringLiteral("subject"), f.subject);
        w.writeStartElement(QStringLiteral("groups"));
        for (const QString &g : f.groups)
            w.writeTextElement(QStringLiteral("group"), g);
        w.writeEndElement();
        w.writeStartElement(QStringLiteral("segments"));
        for (const Segment &s : f.segments) {
            w.writeStartElement(QStringLiteral("segment"));
            w.writeAttribute(QStringLiteral("bytes"), QString::number(s.bytes));
            w.writeAttribute(QStringLiteral("number"), QString::number(s.number));
            w.writeCharacters(bareMessageId(s.messageId));
            w.writeEndElement();
        }
        w.writeEndElement();
        w.writeEndElement();
    }
    w.writeEndElement();
    w.writeEndDocument();
    return out;
}

bool writeFile(const QString &path, const Document &d, QString *error)
{
    QSaveFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(write(d)) < 0 || !f.commit()) {
        if (error)
            *error = QStringLiteral("Cannot write %1: %2").arg(path, f.errorString());
        return false;
    }
    return true;
}

} // namespace nzb
