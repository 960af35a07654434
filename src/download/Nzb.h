#pragma once
#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

// NZB files: the list of articles that make up a post's files, by Message-ID, as every
// binary downloader reads and writes them.
namespace nzb {

struct Segment {
    int number = 0;        // 1-based part number
    qint64 bytes = 0;      // the article's size as the poster gave it (0 when unknown)
    QString messageId;     // without the angle brackets
};

struct File {
    QString poster;
    qint64 date = 0;       // seconds since 1970, 0 when unknown
    QString subject;
    QStringList groups;
    QList<Segment> segments;   // by number; a number given twice keeps its first segment

    // How many segments the file has: the total of the subject's last "(n/total)" marker when
    // there is one, else the highest segment number.
    int expectedSegments() const;
    // Numbers from 1 to expectedSegments() that have no segment.
    QList<int> missingSegments() const;
    qint64 bytes() const;
    // The file name a poster quoted in the subject ("name.ext"), empty when none is quoted.
    QString quotedName() const;
};

struct Document {
    QList<QPair<QString, QString>> meta;   // <head><meta type="...">value</meta>
    QList<File> files;
};

struct ParseResult {
    Document document;
    QString error;   // empty when the file was read
    bool ok() const { return error.isEmpty(); }
};

// The largest NZB file read (the largest real ones are a few tens of megabytes).
inline constexpr qint64 MaxFileSize = 256LL * 1024 * 1024;

ParseResult parse(const QByteArray &xml);
ParseResult readFile(const QString &path);

QByteArray write(const Document &document);
// Written through a temporary file and renamed, so a failed write leaves no half file.
bool writeFile(const QString &path, const Document &document, QString *error = nullptr);

} // namespace nzb
